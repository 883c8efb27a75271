#include "masking.h"

#include <algorithm>

#include "functions.h"

namespace satctl {

namespace {

constexpr std::size_t kShortestCode = 6;    // shorter words stand in too many places
constexpr std::size_t kLongestField = 128;  // an argument behind this is a document, not a number
constexpr std::size_t kBase64Run = 60;
constexpr std::size_t kCpfDigits = 11, kCnpjDigits = 14, kKeyDigits = 44, kCnpjInKey = 6;

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool is_base64(char c) {
  return is_digit(c) || is_letter(c) || c == '+' || c == '/' || c == '=';
}

void blot(std::string& text, std::size_t at, std::size_t count) {
  std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(at), count, '*');
}

bool hides(ParameterKind kind) {
  return kind == ParameterKind::activation_code || kind == ParameterKind::secret ||
         kind == ParameterKind::taxpayer;
}

// Calls use(start, length, kind) for each argument of each command in the text that is a secret.
template <typename Use>
void for_each_secret(std::string_view text, Use use) {
  for (const Function& function : functions()) {
    const std::string start = std::string(function.name) + "|";
    for (std::size_t at = text.find(start); at != std::string_view::npos; at = text.find(start, at + 1)) {
      std::size_t field = text.find('|', at + start.size());  // behind the session number
      for (const Parameter& parameter : function.parameters) {
        if (field == std::string_view::npos) break;
        const std::size_t end = text.find_first_of("|<\x03\n]", field + 1);
        const std::size_t length = std::min(end, text.size()) - field - 1;
        if (hides(parameter.kind) && length <= kLongestField) use(field + 1, length, parameter.kind);
        field = end != std::string_view::npos && text[end] == '|' ? end : std::string_view::npos;
      }
    }
  }
}

// The frame dissectors show one argument to a line: ">> P03=[00000008:...]".
void mask_dissected(std::string& text) {
  constexpr std::string_view kStart = ">> P";
  for (std::size_t at = text.find(kStart); at != std::string::npos; at = text.find(kStart, at + 1)) {
    const std::size_t number = at + kStart.size();
    const bool behind_session =
        starts_with_digits(std::string_view(text).substr(number), 2) && text.compare(number, 2, "03") >= 0;
    const std::size_t open = text.find('[', number);
    const std::size_t colon = text.find(':', number);
    if (!behind_session || open == std::string::npos || colon == std::string::npos || colon < open ||
        open > number + 20 || colon > open + 10) {
      continue;
    }
    const std::size_t end = std::min(text.find_first_of("]\n", colon), text.size());
    if (end - colon - 1 <= kLongestField) blot(text, colon + 1, end - colon - 1);
  }
}

void mask_tags(std::string& text) {
  for (const std::string_view tag : {"<CNPJ>", "<CPF>"}) {
    for (std::size_t at = text.find(tag); at != std::string::npos; at = text.find(tag, at + 1)) {
      for (std::size_t i = at + tag.size(); i < text.size() && is_digit(text[i]); ++i) text[i] = '*';
    }
  }
}

void mask_base64(std::string& text) {
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = start;
    while (end < text.size() && is_base64(text[end])) ++end;
    if (end - start >= kBase64Run) {
      const std::string note = "*base64:" + std::to_string(end - start) + "*";
      text.replace(start, end - start, note);
      end = start + note.size();
    }
    start = end + 1;
  }
}

int check_digit(std::string_view digits, int largest_weight) {
  int sum = 0, weight = 2;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    sum += (*digit - '0') * weight;
    weight = weight == largest_weight ? 2 : weight + 1;
  }
  return sum % 11 < 2 ? 0 : 11 - sum % 11;
}

bool is_taxpayer(std::string_view digits) {
  constexpr int kCpfWeight = 11, kCnpjWeight = 9;
  if (digits.size() != kCpfDigits && digits.size() != kCnpjDigits) return false;
  const int weight = digits.size() == kCpfDigits ? kCpfWeight : kCnpjWeight;
  const std::size_t base = digits.size() - 2;
  return check_digit(digits.substr(0, base), weight) == digits[base] - '0' &&
         check_digit(digits.substr(0, base + 1), weight) == digits[base + 1] - '0';
}

// The buyer's number in a sale's reply stands behind the total: "|10.00|12345678909|".
bool stands_behind_amount(std::string_view text, std::size_t at) {
  return at >= 5 && text[at - 1] == '|' && is_digit(text[at - 2]) && is_digit(text[at - 3]) &&
         text[at - 4] == '.';
}

void mask_numbers(std::string& text) {
  for (std::size_t start = 0; start < text.size();) {
    if (!is_digit(text[start])) {
      ++start;
      continue;
    }
    std::size_t end = start;
    while (end < text.size() && is_digit(text[end])) ++end;
    const std::string_view digits = std::string_view(text).substr(start, end - start);
    if (digits.size() == kKeyDigits)
      blot(text, start + kCnpjInKey, kCnpjDigits);
    else if (digits.size() == 2 * kCnpjDigits || is_taxpayer(digits) || stands_behind_amount(text, start)) {
      blot(text, start, digits.size());
    }
    start = end;
  }
}

void mask_formatted(std::string& text) {
  for (const std::string_view form : {"00.000.000/0000-00", "000.000.000-00"}) {
    for (std::size_t at = 0; at + form.size() <= text.size(); ++at) {
      const bool fits = std::equal(form.begin(), form.end(), text.begin() + static_cast<std::ptrdiff_t>(at),
                                   [](char f, char c) { return f == '0' ? is_digit(c) : f == c; });
      if (fits) blot(text, at, form.size());
    }
  }
}

}  // namespace

void Masker::learn(std::string_view text) {
  if (!enabled_) return;
  for_each_secret(text, [&](std::size_t start, std::size_t length, ParameterKind kind) {
    const bool is_code = kind != ParameterKind::taxpayer;
    if (is_code && length >= kShortestCode) codes_.emplace(text.substr(start, length));
  });
}

std::string Masker::mask(std::string_view source) const {
  std::string text(source);
  if (!enabled_) return text;
  for_each_secret(source,
                  [&](std::size_t start, std::size_t length, ParameterKind) { blot(text, start, length); });
  for (const std::string& code : codes_) {
    for (std::size_t at = text.find(code); at != std::string::npos; at = text.find(code, at + code.size())) {
      blot(text, at, code.size());
    }
  }
  mask_dissected(text);
  mask_tags(text);
  mask_formatted(text);
  mask_numbers(text);
  mask_base64(text);
  return text;
}

}  // namespace satctl
