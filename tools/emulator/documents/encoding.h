// The encodings of texts. Everything inside the emulator is UTF-8.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace emulator {

// Code page 1252. What it lacks becomes "?"; bytes that are no UTF-8 stay as they are.
std::string to_latin1(std::string_view utf8);
// Letters without their accents, for devices that know ASCII only.
std::string without_accents(std::string_view utf8);

// Where the first byte stands that belongs to no character; nothing if there is none.
std::optional<std::size_t> first_byte_not_ascii(std::string_view text);
std::optional<std::size_t> first_byte_not_utf8(std::string_view text);

// What some editors put in front of UTF-8.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The encoding that an XML document declares, in lower case; "utf-8" if it declares none.
std::string declared_encoding(std::string_view xml);
inline constexpr std::string_view kUtf8 = "utf-8";
inline constexpr std::string_view kAscii = "us-ascii";
// Code page 1252 and what its letters are called besides.
bool is_latin1(std::string_view encoding);

}  // namespace emulator
