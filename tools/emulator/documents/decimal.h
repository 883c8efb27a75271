// Exact decimal arithmetic: money is a whole number of cents, quantities and prices are whole numbers of
// their last decimal place. No binary floating point comes near a total.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace emulator {

using Cents = std::int64_t;

// The largest amount that a receipt can show: thirteen digits and two decimals.
inline constexpr Cents kLargestAmount = 999'999'999'999'999;

// "12.5" with four places is 125000. Digits, at most one point, at most `places` decimals, at most twelve
// digits in front of the point; nothing else.
std::optional<std::int64_t> parse_decimal(std::string_view text, int places);
std::optional<Cents> parse_amount(std::string_view text);

std::string format_amount(Cents cents);  // of an amount that is not negative

enum class Rounding {
  half_to_even,  // "A": the rule of ABNT NBR 5891
  truncate,      // "T"
};

// a * b / 10^drop. Nothing when the result is larger than an amount can be.
std::optional<std::int64_t> multiply(std::int64_t a, std::int64_t b, int drop, Rounding rounding);

// a * part / whole, truncated; whole > 0.
Cents share_of(Cents amount, Cents part, Cents whole);

}  // namespace emulator
