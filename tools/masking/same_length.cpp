#include "masking/same_length.h"

#include <algorithm>

namespace masking {

namespace {

constexpr char kFill = 'x';

// A document that holds nothing, with blanks up to the length.
std::string empty_document(std::size_t size) {
  constexpr std::string_view kEmpty = "<CFe/>";
  return size < kEmpty.size() ? std::string(size, kFill)
                              : std::string(kEmpty) + std::string(size - kEmpty.size(), ' ');
}

bool is_base64(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '+' || c == '/';
}

// "PENGZS8+" is the empty document, "ICAg" three blanks; padding is what the length of the content asks for.
// Line breaks stay where devices put them, behind each 76 characters.
std::string empty_base64(std::string_view text) {
  constexpr std::string_view kEmpty = "PENGZS8+", kBlanks = "ICAg", kBreak = "\r\n";
  constexpr std::size_t kLine = 76;
  const bool broken = text.size() > kLine && text.substr(kLine, kBreak.size()) == kBreak;
  std::string characters, shape;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t column = broken ? at % (kLine + kBreak.size()) : 0;
    if (broken && column == kLine) {
      if (text.substr(at, kBreak.size()) != kBreak) return {};
      at += kBreak.size();
      continue;
    }
    characters += text[at++];
  }
  const std::size_t padding = characters.ends_with("==") ? 2 : characters.ends_with('=') ? 1 : 0;
  const bool valid =
      characters.size() % 4 == 0 && characters.size() >= kEmpty.size() &&
      std::all_of(characters.begin(), characters.end() - static_cast<std::ptrdiff_t>(padding), is_base64);
  if (!valid) return {};
  std::string content(kEmpty);
  while (content.size() < characters.size()) content += kBlanks;
  if (content.size() > kEmpty.size()) {
    if (padding == 1) content.replace(content.size() - 4, 4, "ICA=");
    if (padding == 2) content.replace(content.size() - 4, 4, "IA==");
  } else if (padding > 0) {
    return {};
  }
  std::string filled;
  for (std::size_t at = 0; at < content.size(); at += kLine) {
    filled += content.substr(at, kLine);
    if (broken && filled.size() < text.size()) filled += kBreak;
  }
  return filled;
}

std::string filled_document(std::string_view value) {
  std::string base64 = empty_base64(value);
  if (base64.size() == value.size()) return base64;
  return value.starts_with('<') ? empty_document(value.size()) : std::string(value.size(), kFill);
}

std::string filled_key(std::string_view key) {
  if (access_key_digits(key).empty()) return std::string(key.size(), kFill);
  std::string filled(key);
  const std::size_t digits = key.size() - kKeyDigits;
  std::fill(filled.begin() + static_cast<std::ptrdiff_t>(digits + kKeyHead),
            filled.end() - static_cast<std::ptrdiff_t>(kKeyTail), '0');
  return filled;
}

std::string filled(const RuledField& field) {
  if (field.rule == Rule::document) return filled_document(field.value);
  if (field.rule == Rule::access_key) return filled_key(field.value);
  if (shown(field.rule, field.value) == field.value) return std::string(field.value);
  // A till may want digits where a buyer's number stands.
  const bool digits = field.rule != Rule::secret && is_digits(field.value);
  return std::string(field.value.size(), digits ? '0' : kFill);
}

}  // namespace

std::string filled_frame(std::string_view text, Side side, const LearnedCodes& codes) {
  std::string frame;
  const auto fields = take_apart(text, side);
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) frame += '|';
    frame += filled(fields[i]);
  }
  const std::string with_codes = frame;
  codes.for_each(with_codes, [&frame](std::size_t start, std::size_t length) {
    std::fill_n(frame.begin() + static_cast<std::ptrdiff_t>(start), length, kFill);
  });
  return frame;
}

}  // namespace masking
