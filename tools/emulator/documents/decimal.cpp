#include "documents/decimal.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace emulator {

namespace {

constexpr int kMostWholeDigits = 12;

using Wide = __int128;

Wide power_of_ten(int exponent) {
  Wide value = 1;
  while (exponent-- > 0) value *= 10;
  return value;
}

}  // namespace

std::optional<std::int64_t> parse_decimal(std::string_view text, int places) {
  std::int64_t value = 0;
  int whole_digits = 0;
  int decimals = -1;  // -1: no point yet
  for (const char c : text) {
    if (c == '.' && decimals < 0 && whole_digits > 0) {
      decimals = 0;
      continue;
    }
    if (c < '0' || c > '9') return std::nullopt;
    if (decimals < 0 ? ++whole_digits > kMostWholeDigits : ++decimals > places) return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (whole_digits == 0 || decimals == 0) return std::nullopt;
  for (int i = decimals < 0 ? 0 : decimals; i < places; ++i) value *= 10;
  return value;
}

std::optional<Cents> parse_amount(std::string_view text) {
  return parse_decimal(text, 2);
}

std::string format_amount(Cents cents) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%" PRId64 ".%02" PRId64, cents / 100, cents % 100);
  return text.data();
}

std::optional<std::int64_t> multiply(std::int64_t a, std::int64_t b, int drop, Rounding rounding) {
  const Wide product = static_cast<Wide>(a) * b;
  const Wide divisor = power_of_ten(drop);
  Wide quotient = product / divisor;
  const Wide twice_rest = product % divisor * 2;
  if (rounding == Rounding::half_to_even &&
      (twice_rest > divisor || (twice_rest == divisor && quotient % 2 != 0))) {
    ++quotient;
  }
  if (quotient > kLargestAmount) return std::nullopt;
  return static_cast<std::int64_t>(quotient);
}

Cents share_of(Cents amount, Cents part, Cents whole) {
  return static_cast<Cents>(static_cast<Wide>(amount) * part / whole);
}

}  // namespace emulator
