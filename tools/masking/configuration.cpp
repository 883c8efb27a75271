#include "masking/configuration.h"

#include <algorithm>

#include "masking/field_rules.h"
#include "masking/known_names.h"
#include "masking/trace_message.h"

namespace masking {

namespace {

std::string_view trimmed(std::string_view text) {
  const auto start = std::min(text.find_first_not_of(" \t\r"), text.size());
  text.remove_prefix(start);
  const auto end = text.find_last_not_of(" \t\r");
  return text.substr(0, end == std::string_view::npos ? 0 : end + 1);
}

std::string masked_line(std::string_view line) {
  const std::string_view text = trimmed(line);
  if (text.empty()) return {};
  if (text.starts_with('#') || text.starts_with(';'))
    return std::string(text.substr(0, 1)).append(length_only(trimmed(text.substr(1))));
  if (text.starts_with('[')) {
    const std::string_view section = text.substr(1, text.size() - 2);
    const bool known = text.ends_with(']') && is_configuration_name(section);
    return known ? std::string(text) : length_only(text);
  }
  const auto equals = text.find('=');
  if (equals == std::string_view::npos || !is_configuration_name(trimmed(text.substr(0, equals))))
    return length_only(text);
  return std::string(trimmed(text.substr(0, equals))) + "=" +
         masked_setting(trimmed(text.substr(equals + 1)));
}

}  // namespace

std::string masked_configuration(std::string_view text) {
  std::string masked;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    masked += masked_line(text.substr(0, end));
    masked += '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return masked;
}

std::string without_long_numbers(std::string_view text) {
  constexpr std::string_view kPunctuation = ".-/_\\ ";
  constexpr std::size_t kFewest = 11;
  std::string kept;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t digits = 0, end = at, next = at;
    for (; next < text.size() && (is_digits(text.substr(next, 1)) ||
                                  (digits > 0 && kPunctuation.find(text[next]) != std::string_view::npos));
         ++next) {
      if (!is_digits(text.substr(next, 1))) continue;
      ++digits;
      end = next + 1;
    }
    if (digits >= kFewest)
      kept += length_only(text.substr(at, end - at));
    else
      kept += text.substr(at, end - at);
    if (end == at) kept += text[end++];
    at = end;
  }
  return kept;
}

}  // namespace masking
