#include "documents/encoding.h"

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
