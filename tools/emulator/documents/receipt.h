// The fiscal documents: CF-e of a sale, CF-e of a cancellation.
#pragma once

#include <string>

#include "documents/identifiers.h"
#include "documents/moment.h"
#include "documents/sale.h"

namespace emulator {

// What a finished document shows beside the till's data.
struct DocumentFacts {
  AccessKey key;
  Moment moment = 0;
  std::string qr_signature;
  std::string software_version;
  std::string layout_version;
};

// The text that the QR code's signature covers: key, time, total and buyer.
std::string qr_text(const std::string& key_digits, Moment moment, Cents total, const std::string& buyer);

std::string sale_document(const Sale& sale, const DocumentFacts& facts);

struct CancelledSale {
  std::string key;  // "CFe" and 44 digits
  std::string buyer;
  Moment moment = 0;
  Cents total = 0;
};

std::string cancellation_document(const Cancellation& cancellation, const CancelledSale& sale,
                                  const DocumentFacts& facts);

}  // namespace emulator
