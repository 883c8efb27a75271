// What a sale's or cancellation's XML says, as far as it can be found again in the receipt that came of it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hub {

struct DocumentFacts {
  bool readable = false;
  std::string issuer;              // CNPJ of the shop; a cancellation's data do not name it
  std::vector<std::string> lines;  // one for each item (what, how much, at what price) and each payment
  std::string cancelled;           // 44 digits, cancellations only

  bool operator==(const DocumentFacts&) const = default;
};

// Document type declarations are refused: nothing here needs them, and entities only do harm.
DocumentFacts facts_of(std::string_view xml);

// Whether the receipt's document was made of these data.
bool made_of(const DocumentFacts& receipt, const DocumentFacts& data);

}  // namespace hub
