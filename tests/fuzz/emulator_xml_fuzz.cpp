// The emulator's readers of the till's XML: sale, cancellation, network settings. A sale that is accepted
// adds up, and its document can be read again.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "device/network_settings.h"
#include "documents/receipt.h"
#include "documents/rejection.h"
#include "documents/sale.h"

namespace {

using namespace emulator;

void require(bool rule) {
  if (!rule) std::abort();
}

DocumentFacts facts() {
  DocumentFacts facts;
  facts.key = {35, "2603", "11222333000181", "900000001", 1, 2};
  facts.qr_signature = "QR";
  facts.software_version = "010000";
  facts.layout_version = "0.07";
  return facts;
}

void check_adds_up(const Sale& sale) {
  Cents sum = 0;
  for (const SaleItem& item : sale.items) {
    require(item.gross >= 0 && item.gross <= kLargestAmount);
    require(item.net ==
            item.gross - item.discount + item.other - item.shared_discount + item.shared_surcharge);
    sum += item.net;
  }
  require(sum == sale.total);
  require(sale.total >= 0 && sale.total <= sale.paid);
}

void check_document(const Sale& sale) {
  const std::string text = sale_document(sale, facts());
  pugi::xml_document document;
  require(document.load_string(text.c_str()));
  const auto total = document.child("CFe").child("infCFe").child("total").child("vCFe");
  require(total.text().get() == format_amount(sale.total));
  require(document.child("CFe").attribute("xmlns").empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const auto sale = read_sale(text);
    check_adds_up(*sale);
    check_document(*sale);
  } catch (const Rejected& rejected) {
    require(rejected.cccc() >= 1000 && rejected.cccc() <= 9999);
  }
  try {
    const auto cancellation = read_cancellation(text);
    require(!cancellation_document(*cancellation, {cancellation->key, "", 0, 1}, facts()).empty());
  } catch (const Rejected&) {
    // Most texts are none.
  }
  read_network_settings(text, {});
  return 0;
}
