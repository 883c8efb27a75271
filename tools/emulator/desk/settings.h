// Values as a person writes them, on the command line or the control socket. Every function throws
// std::invalid_argument with a text for that person.
#pragma once

#include <cstdint>
#include <string>

#include "desk/profiles.h"
#include "device/device_state.h"
#include "documents/moment.h"

namespace emulator {

inline constexpr std::int64_t kLongestDelay = 3'600'000;

std::int64_t number_within(const std::string& text, std::int64_t least, std::int64_t most);
Moment moment_of(const std::string& text);
std::int64_t duration_of(const std::string& text);
Block block_called(const std::string& name);
const Profile& profile_called(const std::string& name);
std::string battery_level(const std::string& text);
int notice_code(const std::string& text);
// A state's number or its two letters.
int uf_code(const std::string& text);

}  // namespace emulator
