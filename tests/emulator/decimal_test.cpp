#include "documents/decimal.h"

#include <gtest/gtest.h>

#include <limits>

namespace emulator {
namespace {

TEST(ParseDecimal, CountsTheLastPlace) {
  EXPECT_EQ(parse_decimal("12.5", 4), 125'000);
  EXPECT_EQ(parse_decimal("0.0001", 4), 1);
  EXPECT_EQ(parse_decimal("7", 4), 70'000);
  EXPECT_EQ(parse_decimal("007.10", 2), 710);
  EXPECT_EQ(parse_decimal("999999999999.9999", 4), 9'999'999'999'999'999);
}

TEST(ParseDecimal, RefusesEverythingElse) {
  for (const char* text : {"", ".", "1.", ".5", "1.23456", "1,5", "-1", "+1", " 1", "1 ", "1e3", "1.2.3",
                           "1234567890123", "0x10", "NaN"}) {
    EXPECT_EQ(parse_decimal(text, 4), std::nullopt) << text;
  }
}

TEST(FormatAmount, HasTwoDecimals) {
  EXPECT_EQ(format_amount(0), "0.00");
  EXPECT_EQ(format_amount(5), "0.05");
  EXPECT_EQ(format_amount(123'456), "1234.56");
  EXPECT_EQ(format_amount(kLargestAmount), "9999999999999.99");
}

struct Product {
  const char* quantity;
  const char* price;
  Cents rounded;
  Cents truncated;
};

TEST(Multiply, IsExactWhereBinaryFractionsAreNot) {
  constexpr Product products[] = {
      {"1.0050", "1.000", 100, 100},  // a half goes to the even cent
      {"1.0150", "1.000", 102, 101},
      {"1.0051", "1.000", 101, 100},    // more than a half goes up
      {"0.3250", "39.90", 1297, 1296},  // 12.9675
      {"0.1000", "0.100", 1, 1},
      {"0.0001", "0.001", 0, 0},
      {"3.0000", "0.333", 100, 99},
      {"99999999999.9999", "100.000", 999'999'999'999'999, 999'999'999'999'999},
  };
  for (const Product& p : products) {
    const auto quantity = parse_decimal(p.quantity, 4), price = parse_decimal(p.price, 3);
    ASSERT_TRUE(quantity && price);
    EXPECT_EQ(multiply(*quantity, *price, 5, Rounding::half_to_even), p.rounded) << p.quantity;
    EXPECT_EQ(multiply(*quantity, *price, 5, Rounding::truncate), p.truncated) << p.quantity;
  }
}

TEST(Multiply, RefusesMoreThanAReceiptCanShow) {
  const auto most = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(multiply(most, most, 5, Rounding::truncate), std::nullopt);
  EXPECT_EQ(multiply(kLargestAmount, 100'000, 5, Rounding::truncate), kLargestAmount);
  EXPECT_EQ(multiply(kLargestAmount + 1, 100'000, 5, Rounding::truncate), std::nullopt);
}

TEST(ShareOf, IsTruncated) {
  EXPECT_EQ(share_of(100, 1, 3), 33);
  EXPECT_EQ(share_of(kLargestAmount, kLargestAmount, kLargestAmount), kLargestAmount);
}

}  // namespace
}  // namespace emulator
