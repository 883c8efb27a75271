// hub.toml: either settings, or one kind of error.

#include <cstdint>
#include <string_view>

#include "hub/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    hub::read_settings({reinterpret_cast<const char*>(data), size}, {});
  } catch (const hub::SettingsError&) {
    // Most texts are none.
  }
  return 0;
}
