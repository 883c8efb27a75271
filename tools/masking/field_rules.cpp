#include "masking/field_rules.h"

#include <algorithm>
#include <array>
#include <span>

#include "masking/fingerprint.h"
#include "masking/known_names.h"
#include "masking/message_words.h"

namespace masking {

namespace {

constexpr std::string_view kBlot = "********";

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

int number_of(std::string_view digits) {
  int number = 0;
  for (const char c : digits) number = number * 10 + (c - '0');
  return number;
}

bool has_digits(std::string_view value, std::size_t fewest, std::size_t most) {
  return value.size() >= fewest && value.size() <= most && is_digits(value);
}

// A negative session is what a host gave: the library writes "-00005".
bool is_session(std::string_view value) {
  constexpr std::size_t kWidth = 6;
  if (value.starts_with('-')) return value.size() <= kWidth && is_digits(value.substr(1));
  return has_digits(value, 1, kWidth);
}

// The first two digits name the function.
bool is_return_code(std::string_view value) {
  if (!has_digits(value, 5, 5)) return false;
  const int family = number_of(value.substr(0, 2));
  return (family >= 4 && family <= 19) || value == "99099";
}

bool is_clock(std::string_view digits) {
  return number_of(digits.substr(0, 2)) < 24 && number_of(digits.substr(2, 2)) < 60 &&
         number_of(digits.substr(4, 2)) <= 60;
}

bool is_moment(std::string_view value) {
  constexpr std::size_t kDate = 8, kMoment = 14;
  if (!is_digits(value) || (value.size() != kDate && value.size() != kMoment)) return false;
  if (value.find_first_not_of('0') == std::string_view::npos) return true;
  return is_date(value.substr(0, kDate)) && (value.size() == kDate || is_clock(value.substr(kDate)));
}

// Up to ten million: fifteen digits of something else begin otherwise.
bool is_total(std::string_view value) {
  constexpr std::size_t kCents = 15, kZeros = 6, kMostWhole = 7, kDecimals = 3;
  if (value.size() == kCents) return is_digits(value) && value.find_first_not_of('0') >= kZeros;
  if (value.size() <= kDecimals || value[value.size() - kDecimals] != '.') return false;
  return has_digits(value.substr(0, value.size() - kDecimals), 1, kMostWhole) &&
         is_digits(value.substr(value.size() - kDecimals + 1));
}

bool is_memory_size(std::string_view value) {
  constexpr std::array<std::string_view, 4> kUnits{"bytes", "Kbytes", "Mbytes", "Gbytes"};
  const auto blank = value.find(' ');
  if (blank == std::string_view::npos || !has_digits(value.substr(0, blank), 1, 5)) return false;
  return std::find(kUnits.begin(), kUnits.end(), value.substr(blank + 1)) != kUnits.end();
}

constexpr std::array<std::string_view, 3> kNetworkKinds{"DHCP", "PPPoE", "IPFIX"};
constexpr std::array<std::string_view, 2> kLinkStates{"CONECTADO", "NAO_CONECTADO"};
constexpr std::array<std::string_view, 3> kBatteries{"ALTO", "MEDIO", "BAIXO"};
constexpr std::array<std::string_view, 10> kOperatingStates{"0",
                                                            "1",
                                                            "2",
                                                            "3",
                                                            "4",
                                                            "DESBLOQUEADO",
                                                            "BLOQUEADO SEFAZ",
                                                            "BLOQUEADO CONTRIBUINTE",
                                                            "BLOQUEADO AUTONOMO",
                                                            "BLOQUEADO PARA DESATIVACAO"};

bool is_one_of(std::span<const std::string_view> words, std::string_view value) {
  return std::find(words.begin(), words.end(), value) != words.end();
}

// Whether the whole value may be shown.
bool fits(Rule rule, std::string_view value) {
  switch (rule) {
    case Rule::session:
      return is_session(value);
    case Rule::return_code:
      return is_return_code(value);
    case Rule::alert_code:
      return has_digits(value, 4, 4);
    case Rule::notice_code:
      return has_digits(value, 1, 4);
    case Rule::function:
      return is_sat_function(value);
    case Rule::moment:
      return is_moment(value);
    case Rule::total:
      return is_total(value);
    case Rule::number:
      return has_digits(value, 1, 6);
    case Rule::digit:
      return has_digits(value, 1, 1);
    case Rule::two_digits:
      return has_digits(value, 1, 2);
    case Rule::memory_size:
      return is_memory_size(value);
    case Rule::network_kind:
      return is_one_of(kNetworkKinds, value);
    case Rule::link_state:
      return is_one_of(kLinkStates, value);
    case Rule::battery:
      return is_one_of(kBatteries, value);
    case Rule::operating_state:
      return is_one_of(kOperatingStates, value);
    case Rule::hidden:
    case Rule::secret:
    case Rule::document:
    case Rule::message:
    case Rule::access_key:
      return false;
  }
  return false;
}

std::string marked_length(std::string_view document) {
  std::string text = length_only(document);
  text.back() = ' ';
  return text.append(fingerprint(document)) += '*';
}

std::string shortened_key(std::string_view key) {
  const std::string_view digits = access_key_digits(key);
  if (digits.empty()) return length_only(key);
  return std::string(key.substr(0, key.size() - kKeyDigits + kKeyHead)) + "***" +
         std::string(digits.substr(kKeyDigits - kKeyTail));
}

}  // namespace

bool is_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
}

bool is_date(std::string_view digits) {
  if (!has_digits(digits, 8, 8)) return false;
  const int year = number_of(digits.substr(0, 4)), month = number_of(digits.substr(4, 2)),
            day = number_of(digits.substr(6, 2));
  return year >= 2000 && year <= 2099 && month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

std::string_view access_key_digits(std::string_view key) {
  constexpr int kFirstState = 11, kLastState = 53;
  if (key.size() == kKeyDigits + 3) {
    const std::string_view prefix = key.substr(0, 3);
    if (prefix != "CFe" && prefix != "Cfe" && prefix != "CFE" && prefix != "cfe") return {};
    key.remove_prefix(3);
  }
  if (!has_digits(key, kKeyDigits, kKeyDigits)) return {};
  const int state = number_of(key.substr(0, 2)), month = number_of(key.substr(4, 2));
  return state >= kFirstState && state <= kLastState && month >= 1 && month <= 12 ? key : std::string_view();
}

std::string length_only(std::string_view value) {
  if (value.empty()) return {};
  std::string text(1, '*');
  text += std::to_string(value.size());
  return text += '*';
}

std::string shown(Rule rule, std::string_view value) {
  if (value.empty()) return {};
  switch (rule) {
    case Rule::secret:
      return std::string(kBlot);
    case Rule::document:
      return marked_length(value);
    case Rule::message:
      return known_words_of(value);
    case Rule::access_key:
      return shortened_key(value);
    default:
      return fits(rule, value) ? std::string(value) : length_only(value);
  }
}

}  // namespace masking
