// The encodings in which devices send their texts. Everything inside the emulator is UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace emulator {

// Code page 1252. What it lacks becomes "?"; bytes that are no UTF-8 stay as they are.
std::string to_latin1(std::string_view utf8);
// Letters without their accents, for devices that know ASCII only.
std::string without_accents(std::string_view utf8);

}  // namespace emulator
