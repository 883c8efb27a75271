#include "terminal/text.h"

#include <algorithm>
#include <cstdlib>

namespace satctl {

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_continuation_byte(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

Language language_of_locale() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    return std::string_view(value).starts_with("pt") ? Language::portuguese : Language::english;
  }
  return Language::english;
}

const char* tr(const Text& text) {
  static const Language language = language_of_locale();
  return language == Language::portuguese ? text.pt : text.en;
}

std::string fill(const Text& text, std::initializer_list<std::string_view> values) {
  std::string_view rest = tr(text);
  std::string filled;
  for (const std::string_view value : values) {
    const auto gap = rest.find("{}");
    if (gap == std::string_view::npos) break;
    filled.append(rest.substr(0, gap)).append(value);
    rest.remove_prefix(gap + 2);
  }
  return filled.append(rest);
}

std::string lower_case(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return lower;
}

bool all_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
}

bool starts_with_digits(std::string_view text, std::size_t count) {
  return text.size() >= count && all_digits(text.substr(0, count));
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const auto first = text.find_first_not_of(kBlank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

std::string padded(std::string_view text, std::size_t width) {
  const auto characters = static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return !is_continuation_byte(c); }));
  std::string wide(text);
  if (characters < width) wide.append(width - characters, ' ');
  return wide;
}

}  // namespace satctl
