#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

#include "olk_utils/utils_trace.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"
#include "talvex/talvex.h"

namespace {

using testing::ElementsAre;

class TaxpayerNumbers : public testing::Test {
 protected:
  TaxpayerNumbers() {
    pOlkUtilsLogFile = "olk_utils.log";
    bTraceLogsEnabled = 1;
  }
  ~TaxpayerNumbers() override { bTraceLogsEnabled = 0; }
  static std::vector<std::string> messages() { return trace_messages("olk_utils.log"); }
  ScratchDirectory directory_;
};
class Cnpj : public TaxpayerNumbers {};
class Cpf : public TaxpayerNumbers {};
class CpfCheckDigit : public TaxpayerNumbers {};

// The tax office's rule: weights 2 to 9 from the right, over and over; modulus 256 is this library's own.
int cnpj_model_digit(const std::vector<int>& digits) {
  int sum = 0;
  int weight = 2;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    sum += *digit * weight;
    weight = weight == 9 ? 2 : weight + 1;
  }
  const int rest = sum % 256 % 11;
  return rest <= 1 ? 0 : 11 - rest;
}

std::vector<int> cnpj_model(std::vector<int> base) {
  base.push_back(cnpj_model_digit(base));
  base.push_back(cnpj_model_digit(base));
  return base;
}

// Both digits by the rule "sum times ten modulo 11"; the second one over the first digit as entered.
std::pair<int, int> cpf_model(const std::vector<int>& digits) {
  const auto digit = [&](size_t count) {
    int sum = 0;
    for (size_t i = 0; i < count; ++i) sum += digits[i] * static_cast<int>(count + 1 - i);
    return sum * 10 % 11 % 10;
  };
  return {digit(9), digit(10)};
}

std::string to_text(const std::vector<int>& digits) {
  std::string text;
  for (const int digit : digits) text += static_cast<char>('0' + digit);
  return text;
}

std::string formatted_cnpj(const std::string& bare) {
  return bare.substr(0, 2) + "." + bare.substr(2, 3) + "." + bare.substr(5, 3) + "/" + bare.substr(8, 4) +
         "-" + bare.substr(12);
}

std::string formatted_cpf(const std::string& bare) {
  return bare.substr(0, 3) + "." + bare.substr(3, 3) + "." + bare.substr(6, 3) + "-" + bare.substr(9);
}

std::vector<int> random_digits(std::mt19937& random, size_t count, int highest) {
  std::uniform_int_distribution<int> digit(0, highest);
  std::vector<int> digits(count);
  for (int& value : digits) value = digit(random);
  return digits;
}

std::string every_byte_value(size_t length) {
  std::string text;
  while (text.size() < length) text += static_cast<char>(1 + text.size() % 255);
  return text;
}

TEST_F(Cnpj, RightDigitsBareAndFormatted) {
  EXPECT_EQ(OLK_Check_CNPJ("11222333000181"), 0);
  EXPECT_EQ(OLK_Check_CNPJ("11.222.333/0001-81"), 0);
  const std::string line = "INF [] OLK_Check_CNPJ rc[000000]OK CNPJ[14:11222333000181]VERYFY:SUCCESS!!!\n";
  EXPECT_THAT(messages(), ElementsAre(line, line));
}

TEST_F(Cnpj, WrongDigit) {
  EXPECT_EQ(OLK_Check_CNPJ("11222333000182"), -3007);
  EXPECT_THAT(messages(), ElementsAre("ERR [] OLK_Check_CNPJ rc[-03007]ER \n\t CNPJ[14:11222333000182]"
                                      "VERYFY:FAILED\n\t   DV[82]\n\t   DV[81]Calc\n"));
}

TEST_F(Cnpj, WrongFirstDigitOnly) {
  EXPECT_EQ(OLK_Check_CNPJ("11222333000191"), -3007);
}

TEST_F(Cnpj, TwelveDigitsAreTooShort) {
  EXPECT_EQ(OLK_Check_CNPJ("112223330001"), -3004);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CNPJ rc[-03004]ER -------   CNPJ[12:112223330001]too short\n"));
}

TEST_F(Cnpj, SixteenDigitsAreTooLong) {
  EXPECT_EQ(OLK_Check_CNPJ("1122233300018199"), -3005);
  EXPECT_THAT(
      messages(),
      ElementsAre("INF [] OLK_Check_CNPJ rc[-03005]ER -------   CNPJ[16:1122233300018199]Too Big \n"));
}

TEST_F(Cnpj, SeventeenFormattedCharactersAreTooShort) {
  EXPECT_EQ(OLK_Check_CNPJ("11.222.333/0001-8"), -3004);
  EXPECT_THAT(
      messages(),
      ElementsAre("INF [] OLK_Check_CNPJ rc[-03004]ER -------   CNPJ[17:11.222.333/0001-8]too short\n"));
}

TEST_F(Cnpj, NineteenFormattedCharactersAreTooLong) {
  EXPECT_EQ(OLK_Check_CNPJ("11.222.333/0001-811"), -3005);
  EXPECT_THAT(
      messages(),
      ElementsAre("INF [] OLK_Check_CNPJ rc[-03005]ER -------   CNPJ[19:11.222.333/0001-811]Too Big \n"));
}

TEST_F(Cnpj, LetterInABareNumber) {
  EXPECT_EQ(OLK_Check_CNPJ("11222333000A81"), -3003);
  EXPECT_THAT(
      messages(),
      ElementsAre("INF [] OLK_Check_CNPJ rc[-03003]ER Numeric   CNPJ[14:11222333000A81]INVALID!!!\n"));
}

TEST_F(Cnpj, LetterInAFormattedNumber) {
  EXPECT_EQ(OLK_Check_CNPJ("11.222.333/0001x81"), -3002);
  EXPECT_THAT(
      messages(),
      ElementsAre("INF [] OLK_Check_CNPJ rc[-03002]ER Formated CNPJ[18:11.222.333/0001x81]INVALID!!!\n"));
}

TEST_F(Cnpj, SeparatorInABareNumberIsNoDigit) {
  EXPECT_EQ(OLK_Check_CNPJ("11.22233300018"), -3003);
}

TEST_F(Cnpj, NullNumber) {
  EXPECT_EQ(OLK_Check_CNPJ(nullptr), -3001);
  EXPECT_THAT(messages(), ElementsAre("ERR [] OLK_Check_CNPJ rc[-03001]ER pCNPJ=NULL\n"));
}

TEST_F(Cnpj, EmptyNumberIsTooShort) {
  EXPECT_EQ(OLK_Check_CNPJ(""), -3004);
  EXPECT_THAT(messages(), ElementsAre("INF [] OLK_Check_CNPJ rc[-03004]ER -------   CNPJ[00:]too short\n"));
}

TEST_F(Cnpj, EveryLengthWithAndWithoutADot) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string bare(length, '1');
    const int bare_result = OLK_Check_CNPJ(bare.c_str());
    if (length == 14 || length == 18) {
      EXPECT_EQ(bare_result, -3007) << length;
    } else {
      EXPECT_EQ(bare_result, length < 14 ? -3004 : -3005) << length;
    }
    if (length == 0) continue;
    const std::string dotted = bare.substr(1) + ".";
    const int dotted_result = OLK_Check_CNPJ(dotted.c_str());
    if (length == 14) {
      EXPECT_EQ(dotted_result, -3003);
    } else if (length == 18) {
      EXPECT_EQ(dotted_result, -3007);
    } else {
      EXPECT_EQ(dotted_result, length < 18 ? -3004 : -3005) << length;
    }
  }
}

TEST_F(Cnpj, OnlyADotMakesTheExpectedLengthThatOfAFormattedNumber) {
  EXPECT_EQ(OLK_Check_CNPJ("11222333/0001-81"), -3005);
  EXPECT_EQ(OLK_Check_CNPJ("11222333.0001.81"), -3004);
  EXPECT_THAT(
      messages(),
      ElementsAre("INF [] OLK_Check_CNPJ rc[-03005]ER -------   CNPJ[16:11222333/0001-81]Too Big \n",
                  "INF [] OLK_Check_CNPJ rc[-03004]ER -------   CNPJ[16:11222333.0001.81]too short\n"));
}

TEST_F(Cnpj, ExtraSeparatorsLeaveZerosForTheMissingDigits) {
  EXPECT_EQ(OLK_Check_CNPJ("....//////------11"), -3007);
  EXPECT_THAT(messages(), ElementsAre("ERR [] OLK_Check_CNPJ rc[-03007]ER \n\t CNPJ[02:11]"
                                      "VERYFY:FAILED\n\t   DV[00]\n\t   DV[27]Calc\n"));
}

TEST_F(Cnpj, OnlySeparatorsCountAsZerosAndPass) {
  EXPECT_EQ(OLK_Check_CNPJ("../--.../--.../---"), 0);
  EXPECT_THAT(messages(), ElementsAre("INF [] OLK_Check_CNPJ rc[000000]OK CNPJ[00:]VERYFY:SUCCESS!!!\n"));
}

TEST_F(Cnpj, EqualDigitsAreNotRefused) {
  EXPECT_EQ(OLK_Check_CNPJ("00000000000000"), 0);
}

TEST_F(Cnpj, OnlyTheFirst14OfEighteenDigitsTakePart) {
  EXPECT_EQ(OLK_Check_CNPJ("112223330001819999"), 0);
  EXPECT_EQ(OLK_Check_CNPJ("112223330001829999"), -3007);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CNPJ rc[000000]OK CNPJ[18:112223330001819999]VERYFY:SUCCESS!!!\n",
                          "ERR [] OLK_Check_CNPJ rc[-03007]ER \n\t CNPJ[18:112223330001829999]"
                          "VERYFY:FAILED\n\t   DV[82]\n\t   DV[81]Calc\n"));
}

TEST_F(Cnpj, SumWrapsAt256) {
  EXPECT_EQ(OLK_Check_CNPJ("99999999999917"), 0);
  EXPECT_EQ(OLK_Check_CNPJ("99999999999962"), -3007);
  EXPECT_EQ(OLK_Check_CNPJ("99.999.999/9999-17"), 0);
}

TEST_F(Cnpj, ThousandsOfNumbersAgreeWithTheModel) {
  bTraceLogsEnabled = 0;
  std::mt19937 random(20200727);
  for (int round = 0; round < 50000; ++round) {
    // High digits make the sum wrap, low ones do not.
    const std::vector<int> base = random_digits(random, 12, 1 + round % 9);
    const std::string right = to_text(cnpj_model(base));
    ASSERT_EQ(OLK_Check_CNPJ(right.c_str()), 0) << right;
    ASSERT_EQ(OLK_Check_CNPJ(formatted_cnpj(right).c_str()), 0) << right;

    std::string wrong = right.substr(0, 12) + to_text(random_digits(random, 2, 9));
    const int expected = wrong == right ? 0 : -3007;
    ASSERT_EQ(OLK_Check_CNPJ(wrong.c_str()), expected) << wrong;
    ASSERT_EQ(OLK_Check_CNPJ(formatted_cnpj(wrong).c_str()), expected) << wrong;
  }
}

TEST_F(Cnpj, EveryPairOfCheckDigits) {
  bTraceLogsEnabled = 0;
  for (int pair = 0; pair < 100; ++pair) {
    const std::string number = "999999999999" + to_text({pair / 10, pair % 10});
    EXPECT_EQ(OLK_Check_CNPJ(number.c_str()), pair == 17 ? 0 : -3007) << number;
  }
}

TEST_F(Cnpj, EveryByteValueAtEveryPlace) {
  bTraceLogsEnabled = 0;
  for (int byte = 1; byte < 256; ++byte) {
    const char character = static_cast<char>(byte);
    const bool digit = byte >= '0' && byte <= '9';
    for (size_t i = 0; i < 18; ++i) {
      std::string formatted(18, '0');
      formatted[i] = character;
      const bool allowed = digit || byte == '.' || byte == '/' || byte == '-';
      EXPECT_EQ(OLK_Check_CNPJ(formatted.c_str()) == -3002, !allowed) << byte;
      if (i >= 14) continue;
      std::string bare(14, '0');
      bare[i] = character;
      EXPECT_EQ(OLK_Check_CNPJ(bare.c_str()) == -3003, !digit) << byte;
    }
  }
}

TEST_F(Cnpj, TenThousandBytes) {
  EXPECT_EQ(OLK_Check_CNPJ(std::string(10000, '1').c_str()), -3005);
  const std::string bytes = every_byte_value(10000);
  EXPECT_EQ(OLK_Check_CNPJ(bytes.c_str()), -3005);
  EXPECT_EQ(messages().back(),
            "INF [] OLK_Check_CNPJ rc[-03005]ER -------   CNPJ[10000:" + bytes + "]Too Big \n");
}

TEST_F(Cnpj, InputIsNotModified) {
  char number[] = "11.222.333/0001-81";
  OLK_Check_CNPJ(number);
  EXPECT_STREQ(number, "11.222.333/0001-81");
}

TEST_F(Cpf, RightDigitsBareAndFormatted) {
  EXPECT_EQ(OLK_Check_CPF("12345678909"), 0);
  EXPECT_EQ(OLK_Check_CPF("123.456.789-09"), 0);
  const std::string line =
      "INF [] OLK_Check_CPF rc[000000]OK \n\t          CPF[11:12345678909]VERYFY:PASS\n"
      "\t     ickDigit[09]\n\t iCalcCkDigit[09]Calc\n";
  EXPECT_THAT(messages(), ElementsAre(line, line));
}

TEST_F(Cpf, WrongDigits) {
  EXPECT_EQ(OLK_Check_CPF("12345678900"), -3007);
  EXPECT_EQ(OLK_Check_CPF("123.456.789-00"), -3007);
  const std::string line =
      "ERR [] OLK_Check_CPF rc[-03007]ER \n\t          CPF[11:12345678900]VERYFY:FAIL\n"
      "\t     iCkDigit[00]\n\t iCalcCkDigit[09]Calc\n";
  EXPECT_THAT(messages(), ElementsAre(line, line));
}

TEST_F(Cpf, EnteredFirstDigitFeedsTheSecond) {
  EXPECT_EQ(OLK_Check_CPF("12345678919"), -3007);
  EXPECT_THAT(messages(),
              ElementsAre("ERR [] OLK_Check_CPF rc[-03007]ER \n\t          CPF[11:12345678919]VERYFY:FAIL\n"
                          "\t     iCkDigit[19]\n\t iCalcCkDigit[07]Calc\n"));
}

TEST_F(Cpf, FourteenCharactersWithTenDigits) {
  EXPECT_EQ(OLK_Check_CPF("123..456.789-0"), -3017);
  EXPECT_THAT(
      messages(),
      ElementsAre("ERR [] OLK_GetCPFCheckDigit rc[-03017]ER pCPF[10:1234567890]Invalid Len Expected 11\n",
                  "INF [] OLK_Check_CPF rc[-03017]ER -------   CPF[14:123..456.789-0]INVALID!!!\n"));
}

TEST_F(Cpf, FourteenCharactersWithTooManyDigits) {
  EXPECT_EQ(OLK_Check_CPF("12345678901234"), -3017);
  EXPECT_THAT(
      messages(),
      ElementsAre("ERR [] OLK_GetCPFCheckDigit rc[-03017]ER pCPF[14:12345678901234]Invalid Len Expected 11\n",
                  "INF [] OLK_Check_CPF rc[-03017]ER -------   CPF[14:12345678901234]INVALID!!!\n"));
}

TEST_F(Cpf, FourteenSeparatorsHoldNoDigit) {
  EXPECT_EQ(OLK_Check_CPF(".............."), -3017);
  EXPECT_EQ(messages().front(),
            "ERR [] OLK_GetCPFCheckDigit rc[-03017]ER pCPF[00:]Invalid Len Expected 11\n");
}

TEST_F(Cpf, TenDigitsAreTooShort) {
  EXPECT_EQ(OLK_Check_CPF("1234567890"), -3014);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CPF rc[-03014]ER -------   CPF[10:1234567890]too short\n"));
}

TEST_F(Cpf, TwelveDigitsAreTooLong) {
  EXPECT_EQ(OLK_Check_CPF("123456789012"), -3015);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CPF rc[-03015]ER -------   CPF[12:123456789012]Too Big \n"));
}

TEST_F(Cpf, ThirteenFormattedCharactersAreTooShort) {
  EXPECT_EQ(OLK_Check_CPF("123.456.789-0"), -3014);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CPF rc[-03014]ER -------   CPF[13:123.456.789-0]too short\n"));
}

TEST_F(Cpf, FifteenFormattedCharactersAreTooLong) {
  EXPECT_EQ(OLK_Check_CPF("123.456.789-091"), -3015);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CPF rc[-03015]ER -------   CPF[15:123.456.789-091]Too Big \n"));
}

TEST_F(Cpf, LetterInABareNumber) {
  EXPECT_EQ(OLK_Check_CPF("1234567890x"), -3013);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CPF rc[-03013]ER Numeric   CPF[11:1234567890x]INVALID!!!\n"));
}

TEST_F(Cpf, LetterInAFormattedNumber) {
  EXPECT_EQ(OLK_Check_CPF("123.456.789x09"), -3012);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CPF rc[-03012]ER Formated CPF[14:123.456.789x09]INVALID!!!\n"));
}

TEST_F(Cpf, SlashIsNoSeparator) {
  EXPECT_EQ(OLK_Check_CPF("123.456.789/09"), -3012);
}

TEST_F(Cpf, NullNumber) {
  EXPECT_EQ(OLK_Check_CPF(nullptr), -3011);
  EXPECT_THAT(messages(), ElementsAre("ERR [] OLK_Check_CPF rc[-03011]ER pCPF=NULL\n"));
}

TEST_F(Cpf, EmptyNumberIsTooShort) {
  EXPECT_EQ(OLK_Check_CPF(""), -3014);
  EXPECT_THAT(messages(), ElementsAre("INF [] OLK_Check_CPF rc[-03014]ER -------   CPF[00:]too short\n"));
}

TEST_F(Cpf, EveryLengthWithAndWithoutADot) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string bare(length, '1');
    const int bare_result = OLK_Check_CPF(bare.c_str());
    if (length == 11) {
      EXPECT_EQ(bare_result, 0);
    } else if (length == 14) {
      EXPECT_EQ(bare_result, -3017);
    } else {
      EXPECT_EQ(bare_result, length < 11 ? -3014 : -3015) << length;
    }
    if (length == 0) continue;
    const std::string dotted = bare.substr(1) + ".";
    const int dotted_result = OLK_Check_CPF(dotted.c_str());
    if (length == 11) {
      EXPECT_EQ(dotted_result, -3013);
    } else if (length == 14) {
      EXPECT_EQ(dotted_result, -3017);
    } else {
      EXPECT_EQ(dotted_result, length < 14 ? -3014 : -3015) << length;
    }
  }
}

TEST_F(Cpf, OnlyADotMakesTheExpectedLengthThatOfAFormattedNumber) {
  EXPECT_EQ(OLK_Check_CPF("123456789-09"), -3015);
  EXPECT_EQ(OLK_Check_CPF("123456789.09"), -3014);
  EXPECT_THAT(messages(),
              ElementsAre("INF [] OLK_Check_CPF rc[-03015]ER -------   CPF[12:123456789-09]Too Big \n",
                          "INF [] OLK_Check_CPF rc[-03014]ER -------   CPF[12:123456789.09]too short\n"));
}

TEST_F(Cpf, ThousandsOfNumbersAgreeWithTheModel) {
  bTraceLogsEnabled = 0;
  std::mt19937 random(20200727);
  for (int round = 0; round < 50000; ++round) {
    std::vector<int> digits = random_digits(random, 11, 1 + round % 9);
    if (round % 2 == 0) {
      digits[9] = cpf_model(digits).first;
      digits[10] = cpf_model(digits).second;
    }
    const int expected = cpf_model(digits) == std::pair(digits[9], digits[10]) ? 0 : -3007;
    ASSERT_TRUE(expected == 0 || round % 2 != 0);
    const std::string number = to_text(digits);
    ASSERT_EQ(OLK_Check_CPF(number.c_str()), expected) << number;
    ASSERT_EQ(OLK_Check_CPF(formatted_cpf(number).c_str()), expected) << number;
    ASSERT_EQ(OLK_GetCPFCheckDigit(number.c_str(), 10), cpf_model(digits).first) << number;
    ASSERT_EQ(OLK_GetCPFCheckDigit(number.c_str(), 11), cpf_model(digits).second) << number;
  }
}

TEST_F(Cpf, EveryByteValueAtEveryPlace) {
  bTraceLogsEnabled = 0;
  for (int byte = 1; byte < 256; ++byte) {
    const char character = static_cast<char>(byte);
    const bool digit = byte >= '0' && byte <= '9';
    for (size_t i = 0; i < 14; ++i) {
      std::string formatted(14, '0');
      formatted[i] = character;
      const bool allowed = digit || byte == '.' || byte == '-';
      EXPECT_EQ(OLK_Check_CPF(formatted.c_str()), allowed ? -3017 : -3012) << byte;
      if (i >= 11) continue;
      std::string bare(11, '0');
      bare[i] = character;
      EXPECT_EQ(OLK_Check_CPF(bare.c_str()) == -3013, !digit) << byte;
    }
  }
}

TEST_F(Cpf, TenThousandBytes) {
  EXPECT_EQ(OLK_Check_CPF(std::string(10000, '1').c_str()), -3015);
  EXPECT_EQ(OLK_Check_CPF(every_byte_value(10000).c_str()), -3015);
}

TEST_F(CpfCheckDigit, BothWeightsAndNoLine) {
  EXPECT_EQ(OLK_GetCPFCheckDigit("12345678909", 10), 0);
  EXPECT_EQ(OLK_GetCPFCheckDigit("12345678909", 11), 9);
  EXPECT_TRUE(messages().empty());
}

TEST_F(CpfCheckDigit, NullDigits) {
  EXPECT_EQ(OLK_GetCPFCheckDigit(nullptr, 10), -3017);
  EXPECT_THAT(messages(), ElementsAre("ERR [] OLK_GetCPFCheckDigit rc[-03017]ER pCPF=NULL\n"));
}

TEST_F(CpfCheckDigit, WrongLength) {
  EXPECT_EQ(OLK_GetCPFCheckDigit("", 10), -3017);
  EXPECT_EQ(OLK_GetCPFCheckDigit("123456789", 10), -3017);
  EXPECT_EQ(OLK_GetCPFCheckDigit(std::string(10000, '1').c_str(), 10), -3017);
  EXPECT_EQ(messages().at(1),
            "ERR [] OLK_GetCPFCheckDigit rc[-03017]ER pCPF[09:123456789]Invalid Len Expected 11\n");
}

TEST_F(CpfCheckDigit, OtherWeights) {
  EXPECT_EQ(OLK_GetCPFCheckDigit("11111111111", 1), 0);
  EXPECT_EQ(OLK_GetCPFCheckDigit("11111111111", 0), 0);
  EXPECT_EQ(OLK_GetCPFCheckDigit("11111111111", INT_MIN), 0);
  EXPECT_EQ(OLK_GetCPFCheckDigit("11111111111", 2), 9);
  EXPECT_EQ(OLK_GetCPFCheckDigit("11111111111", 3), 6);
  // All eleven digits take part: 12 + 11 + ... + 2 = 77.
  EXPECT_EQ(OLK_GetCPFCheckDigit("11111111111", 12), 0);
  // 13 + 12 + ... + 3 = 88; the weight ends above 2.
  EXPECT_EQ(OLK_GetCPFCheckDigit("11111111111", 13), 0);
  EXPECT_EQ(OLK_GetCPFCheckDigit("21111111111", 13), 9);
  EXPECT_EQ(OLK_GetCPFCheckDigit("31111111111", 13), 7);
}

TEST_F(CpfCheckDigit, CharactersAreNotValidated) {
  // "A" is 17 above "0": 17 * 2 = 34, remainder 1. "!" is 15 below: the negative remainder gives 0.
  EXPECT_EQ(OLK_GetCPFCheckDigit("A0000000000", 2), 0);
  EXPECT_EQ(OLK_GetCPFCheckDigit("B0000000000", 2), 8);
  EXPECT_EQ(OLK_GetCPFCheckDigit("!!!!!!!!!!!", 10), 0);
  // Byte 255 is 207 above "0": 414 modulo 11 is 7.
  EXPECT_EQ(OLK_GetCPFCheckDigit("\xFF"
                                 "0000000000",
                                 2),
            4);
}

TEST_F(CpfCheckDigit, ResultIsADigitForEveryByteValueAndWeight) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::string digits(11, static_cast<char>(byte));
    for (const int weight : {INT_MIN, -1, 0, 1, 2, 3, 10, 11, 12, 100, 20000000, INT_MAX - 1, INT_MAX}) {
      const int digit = OLK_GetCPFCheckDigit(digits.c_str(), weight);
      EXPECT_GE(digit, 0);
      EXPECT_LE(digit, 9);
    }
  }
}

TEST_F(TaxpayerNumbers, TraceGoesWhereTheUtilitiesLog) {
  pOlkUtilsLogFile = "SAT_api.log";
  OLK_Check_CPF(nullptr);
  EXPECT_TRUE(messages().empty());
  EXPECT_EQ(trace_messages("SAT_api.log").size(), 1U);
}

}  // namespace
