#include "documents/encoding.h"

#include <algorithm>
#include <array>

namespace emulator {

namespace {

// U+00C0 to U+00FF.
constexpr std::string_view kBareLetters = "AAAAAAACEEEEIIIIDNOOOOOxOUUUUYTsaaaaaaaceeeeiiiidnooooo/ouuuuyty";
static_assert(kBareLetters.size() == 0x40);

// The two-byte sequences of UTF-8 are all that Portuguese needs. Longer ones become one "?".
template <typename Convert>
std::string convert(std::string_view utf8, Convert convert_letter) {
  const auto byte_at = [utf8](std::size_t i) {
    return i < utf8.size() ? static_cast<unsigned char>(utf8[i]) : 0U;
  };
  const auto continues = [&](std::size_t i, std::size_t count) {
    for (std::size_t k = 1; k < count; ++k) {
      if ((byte_at(i + k) & 0xC0U) != 0x80U) return false;
    }
    return true;
  };
  std::string text;
  for (std::size_t i = 0; i < utf8.size();) {
    const unsigned first = byte_at(i);
    const std::size_t length = first >= 0xF0U ? 4 : first >= 0xE0U ? 3 : first >= 0xC2U ? 2 : 1;
    if (length == 1 || !continues(i, length)) {
      text += utf8[i++];
      continue;
    }
    text += length == 2 ? convert_letter((first & 0x1FU) << 6U | (byte_at(i + 1) & 0x3FU)) : '?';
    i += length;
  }
  return text;
}

}  // namespace

std::optional<std::size_t> first_byte_not_ascii(std::string_view text) {
  const auto found = std::find_if(text.begin(), text.end(), [](unsigned char byte) { return byte >= 0x80U; });
  if (found == text.end()) return std::nullopt;
  return static_cast<std::size_t>(found - text.begin());
}

std::optional<std::size_t> first_byte_not_utf8(std::string_view text) {
  constexpr std::array<char32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
  for (std::size_t i = 0; i < text.size();) {
    const auto first = static_cast<unsigned char>(text[i]);
    const std::size_t length = first < 0x80U ? 1 : first >= 0xF0U ? 4 : first >= 0xE0U ? 3 : 2;
    if (first >= 0x80U && (first < 0xC2U || first > 0xF4U)) return i;
    char32_t letter = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t k = 1; k < length; ++k) {
      const unsigned next = i + k < text.size() ? static_cast<unsigned char>(text[i + k]) : 0U;
      if ((next & 0xC0U) != 0x80U) return i;
      letter = letter << 6U | (next & 0x3FU);
    }
    const bool surrogate = letter >= 0xD800 && letter <= 0xDFFF;
    if (letter < kLeast.at(length) || letter > 0x10FFFF || surrogate) return i;
    i += length;
  }
  return std::nullopt;
}

std::string declared_encoding(std::string_view xml) {
  if (xml.starts_with(kByteOrderMark)) xml.remove_prefix(kByteOrderMark.size());
  const auto start = xml.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos || !xml.substr(start).starts_with("<?xml")) return std::string(kUtf8);
  std::string_view declaration = xml.substr(start, xml.find("?>") - start);
  const auto name = declaration.find("encoding");
  if (name == std::string_view::npos) return std::string(kUtf8);
  declaration.remove_prefix(name);
  const auto quote = declaration.find_first_of("\"'");
  if (quote == std::string_view::npos) return std::string(kUtf8);
  const auto end = declaration.find(declaration[quote], quote + 1);
  if (end == std::string_view::npos) return std::string(kUtf8);
  std::string encoding(declaration.substr(quote + 1, end - quote - 1));
  for (char& c : encoding) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return encoding;
}

bool is_latin1(std::string_view encoding) {
  constexpr std::array<std::string_view, 4> kNames{"iso-8859-1", "latin1", "windows-1252", "cp1252"};
  return std::find(kNames.begin(), kNames.end(), encoding) != kNames.end();
}

std::string to_latin1(std::string_view utf8) {
  return convert(utf8, [](unsigned letter) {
    return letter >= 0xA0U && letter <= 0xFFU ? static_cast<char>(letter) : '?';
  });
}

std::string without_accents(std::string_view utf8) {
  return convert(utf8, [](unsigned letter) {
    return letter >= 0xC0U && letter <= 0xFFU ? kBareLetters[letter - 0xC0U] : '?';
  });
}

}  // namespace emulator
