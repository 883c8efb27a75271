// The quirks of devices in the field that a till must bear, one each.
#pragma once

#include <string>
#include <vector>

#include "device/device.h"

namespace emulator {

struct Profile {
  const char* name;
  const char* effect;
  void (*shape)(const Function& function, Reply& reply);  // null: replies are as ever
};

const std::vector<Profile>& profiles();
const Profile* find_profile(const std::string& name);

// The profile whose replies never depend on anything: it takes the place of the device.
inline constexpr const char* kStaticProfile = "static";
// The one that cancels nothing but the very last sale.
inline constexpr const char* kLastSaleOnlyProfile = "last-sale-only";
Reply canned_reply(const Command& command);

}  // namespace emulator
