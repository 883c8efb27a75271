#include "terminal/printable.h"

#include <cstddef>

namespace satctl {

namespace {

unsigned byte_at(std::string_view bytes, std::size_t index) {
  return static_cast<unsigned char>(bytes[index]);
}

struct LeadByte {
  unsigned mask, pattern;
  std::size_t length;
  unsigned least;  // code point below which the form is overlong
};

constexpr LeadByte kLeadBytes[] = {
    {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

struct Character {
  std::size_t length = 0;  // 0: not UTF-8
  unsigned code_point = 0;
};

bool is_scalar(unsigned code_point, unsigned least) {
  return code_point >= least && code_point <= 0x10FFFF && (code_point < 0xD800 || code_point > 0xDFFF);
}

Character character_at(std::string_view bytes) {
  for (const LeadByte& lead : kLeadBytes) {
    if ((byte_at(bytes, 0) & lead.mask) != lead.pattern) continue;
    if (bytes.size() < lead.length) return {};
    unsigned code_point = byte_at(bytes, 0) & ~lead.mask & 0xFF;
    for (std::size_t i = 1; i < lead.length; ++i) {
      if ((byte_at(bytes, i) & 0xC0) != 0x80) return {};
      code_point = code_point << 6 | (byte_at(bytes, i) & 0x3F);
    }
    return is_scalar(code_point, lead.least) ? Character{lead.length, code_point} : Character{};
  }
  return {};
}

// C0, DEL and C1: a terminal would obey them.
bool is_control(unsigned code_point) {
  return code_point < 0x20 || (code_point >= 0x7F && code_point <= 0x9F);
}

void append_escaped(std::string& text, std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const unsigned byte = byte_at(bytes, i);
    text.append("\\x").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
  }
}

template <typename Allowed>
std::string escaped(std::string_view bytes, Allowed allowed) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Character character = character_at(bytes);
    const std::size_t length = character.length == 0 ? 1 : character.length;
    if (character.length > 0 && allowed(character.code_point))
      text.append(bytes.substr(0, length));
    else
      append_escaped(text, bytes.substr(0, length));
    bytes.remove_prefix(length);
  }
  return text;
}

}  // namespace

std::string printable(std::string_view bytes, Layout layout) {
  return escaped(bytes, [layout](unsigned code_point) {
    const bool line_layout = code_point == '\n' || code_point == '\t';
    return !is_control(code_point) || (layout == Layout::keep_lines && line_layout);
  });
}

std::string valid_utf8(std::string_view bytes) {
  return escaped(bytes, [](unsigned) { return true; });
}

}  // namespace satctl
