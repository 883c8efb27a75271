#include "documents/identifiers.h"

#include <gtest/gtest.h>

namespace emulator {
namespace {

TEST(Cnpj, NeedsRightCheckDigits) {
  EXPECT_TRUE(valid_cnpj("11222333000181"));
  EXPECT_TRUE(valid_cnpj("12345678000195"));
  for (const char* text : {"11222333000182", "11222333000171", "1122233300018", "112223330001811",
                           "00000000000000", "11.222.333/0001-81", "", "1122233300018x"}) {
    EXPECT_FALSE(valid_cnpj(text)) << text;
  }
}

TEST(Cpf, NeedsRightCheckDigits) {
  EXPECT_TRUE(valid_cpf("52998224725"));
  EXPECT_TRUE(valid_cpf("12345678909"));
  for (const char* text : {"52998224726", "52998224735", "11111111111", "529.982.247-25", "5299822472", ""}) {
    EXPECT_FALSE(valid_cpf(text)) << text;
  }
}

TEST(AccessKey, HasItsPartsInOrder) {
  AccessKey key;
  key.state = 35;
  key.year_month = "2603";
  key.cnpj = "11222333000181";
  key.serial = "900000001";
  key.number = 42;
  key.random = 7;
  const std::string digits = key.digits();
  EXPECT_EQ(digits.substr(0, 43),
            "35"
            "2603"
            "11222333000181"
            "59"
            "900000001"
            "000042"
            "000007");
  EXPECT_EQ(digits.size(), 44U);
  EXPECT_TRUE(valid_access_key("CFe" + digits));
}

// Worked by hand: weights 2 to 9 from the right, eleven less the rest of the sum.
TEST(AccessKey, CheckDigitIsModuloElevenWithWeightsTwoToNine) {
  EXPECT_EQ(access_key_check_digit("1"), 9);          // 2
  EXPECT_EQ(access_key_check_digit("11"), 6);         // 2 + 3
  EXPECT_EQ(access_key_check_digit("111111111"), 9);  // 2 + ... + 9 + 2 = 46
  EXPECT_EQ(access_key_check_digit("0"), 0);          // rest 0
  EXPECT_EQ(access_key_check_digit("6"), 0);          // 12: rest 1
}

TEST(AccessKey, AnyWrongDigitIsSeen) {
  const std::string good = "CFe35260111222333000181599000000010000010000012";
  ASSERT_TRUE(valid_access_key(good));
  for (std::size_t i = 3; i < good.size(); ++i) {
    std::string bad = good;
    bad[i] = bad[i] == '9' ? '5' : static_cast<char>(bad[i] + 1);
    EXPECT_FALSE(valid_access_key(bad)) << i;
  }
  EXPECT_FALSE(valid_access_key(good.substr(3)));
  EXPECT_FALSE(valid_access_key("Cfe" + good.substr(3)));
  EXPECT_FALSE(valid_access_key(good + "0"));
  EXPECT_FALSE(valid_access_key(""));
}

}  // namespace
}  // namespace emulator
