// What hub and device child say to each other. What is understood means the same when it is said again.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "hub/device/messages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto order = hub::decode_order(text)) {
    const auto again = hub::decode_order(hub::encode(*order));
    if (!again || again->values != order->values || again->session != order->session) std::abort();
  }
  if (const auto answer = hub::decode_answer(text)) {
    const auto again = hub::decode_answer(hub::encode(*answer));
    if (!again || again->text != answer->text || again->kind != answer->kind) std::abort();
  }
  hub::length_in(text.substr(0, hub::kLengthBytes));
  return 0;
}
