// What a single value must look like to be shown. A value that does not fit its rule shows its length only:
// what is not known to be harmless is blotted out.
#pragma once

#include <string>
#include <string_view>

namespace masking {

enum class Rule {
  hidden,       // its length
  secret,       // not even its length
  document,     // its length, and a mark that is the same for equal documents
  session,      // up to six digits
  return_code,  // EEEEE of a known function
  alert_code,   // CCCC
  notice_code,  // up to four digits
  message,      // the words of the standard's messages
  function,     // a name of the standard
  moment,       // yyyymmddHHMMSS or yyyymmdd, or zeros
  access_key,   // state, month and the last four digits of 44
  total,        // two decimals, or fifteen digits in cents
  number,       // up to six digits
  digit,        // one digit
  two_digits,
  memory_size,  // "1 Gbytes"
  network_kind,
  link_state,
  battery,
  operating_state,
};

// The value as it may be shown. Empty values stay empty.
std::string shown(Rule rule, std::string_view value);

// "*17*"
std::string length_only(std::string_view value);

bool is_digits(std::string_view text);
// A date from 2000 to 2099, yyyymmdd.
bool is_date(std::string_view digits);
// The digits of an access key behind its prefix, which may be "CFe" in any case or missing; empty if it is
// none.
std::string_view access_key_digits(std::string_view key);
// Places of the digits that a shortened key shows.
inline constexpr std::size_t kKeyHead = 6, kKeyTail = 4, kKeyDigits = 44;

}  // namespace masking
