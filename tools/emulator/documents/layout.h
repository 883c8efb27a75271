// What a document is made of, as far as it is publicly known: one row per element or attribute, in the order
// in which a document has them. Not the tax authority's schema.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "documents/rejection.h"

namespace emulator {

enum class Kind {
  group,          // elements of its own, by their rows
  open,           // anything
  text,           // least to most characters
  digits,         // least to most digits
  digits_of_two,  // least or most digits
  number,         // whole, or with least to most decimals
  one_of,         // one of the values
  cnpj,           // with the right check digits
  cpf,            // with the right check digits
  access_key,     // "CFe" and 44 digits with the right check digit
};

struct Format {
  Kind kind = Kind::group;
  std::size_t least = 0;
  std::size_t most = 0;
  std::string_view values = {};  // with blanks between
};

// For people, e.g. "2 or 8 digits".
std::string description(const Format& format);
bool fits(const Format& format, std::string_view text);

enum class Presence {
  required,
  optional,
  exactly_one,  // of the neighbouring rows that say the same
  at_most_one,
};

struct LayoutRow {
  std::string_view path;  // below infCFe; the last name of an attribute begins with @
  Presence presence;
  Format format = {};
  std::size_t most = 1;  // how often it may occur
  Cause misfit = Cause::format;
  std::string_view since = "0.07";  // the first layout that has it

  std::string_view parent() const;
  std::string_view name() const;
  bool is_attribute() const { return name().starts_with('@'); }
};

struct Layout {
  const char* root;
  std::span<const LayoutRow> rows;
  bool has_items;  // and amounts to reckon with

  // The rows of a group, in order.
  std::vector<const LayoutRow*> children_of(std::string_view group) const;
};

inline constexpr std::string_view kNewestLayout = "0.08";

const Layout& sale_layout();
const Layout& cancellation_layout();

}  // namespace emulator
