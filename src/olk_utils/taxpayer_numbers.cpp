// Check digits of the company number (CNPJ) and the person number (CPF).
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "olk_utils/utils_trace.h"
#include "talvex/talvex.h"

namespace {

struct NumberForm {
  size_t formatted_length;
  size_t bare_length;
  const char* separators;
};
constexpr NumberForm kCnpjForm = {18, 14, "./-"};  // 11.222.333/0001-81
constexpr NumberForm kCpfForm = {14, 11, ".-"};    // 123.456.789-09

constexpr size_t kCnpjBaseDigits = 12;
constexpr uint8_t kFirstCnpjWeights[kCnpjBaseDigits] = {5, 4, 3, 2, 9, 8, 7, 6, 5, 4, 3, 2};
constexpr uint8_t kSecondCnpjWeights[kCnpjBaseDigits] = {6, 5, 4, 3, 2, 9, 8, 7, 6, 5, 4, 3};

constexpr size_t kCpfBaseDigits = 9;
constexpr int kFirstCpfWeight = 10;
constexpr int kSecondCpfWeight = 11;
constexpr int kLastCpfWeight = 2;

enum class FormDefect { kNone, kFormatted, kBare, kTooShort, kTooLong, kOtherLength };

// A formatted number of separators and digits in any mixture can hold as many digits as the longest form
// has characters. Missing digits stay zero.
struct Digits {
  char text[kCnpjForm.formatted_length + 1];
  int count;
};

bool is_digit(char character) {
  return character >= '0' && character <= '9';
}

int digit_value(char character) {
  return character & 0x0F;
}

// Only the kinds of the characters count: neither the places of the separators nor the number of digits.
bool collect_digits(const char* number, size_t length, const char* separators, Digits& digits) {
  digits = {};
  for (size_t i = 0; i < length; ++i) {
    if (is_digit(number[i])) {
      digits.text[digits.count++] = number[i];
    } else if (strchr(separators, number[i]) == nullptr) {
      return false;
    }
  }
  return true;
}

FormDefect read_number(const char* number, size_t length, const NumberForm& form, Digits& digits) {
  if (length == form.formatted_length) {
    return collect_digits(number, length, form.separators, digits) ? FormDefect::kNone
                                                                   : FormDefect::kFormatted;
  }
  if (length == form.bare_length) {
    return collect_digits(number, length, "", digits) ? FormDefect::kNone : FormDefect::kBare;
  }
  const size_t expected = strchr(number, '.') == nullptr ? form.bare_length : form.formatted_length;
  if (length < expected) return FormDefect::kTooShort;
  if (length > expected) return FormDefect::kTooLong;
  return FormDefect::kOtherLength;
}

int report_cnpj_form(FormDefect defect, const char* number, size_t length) {
  constexpr char kFunction[] = "OLK_Check_CNPJ";
  const int shown_length = length_field(length);
  switch (defect) {
    case FormDefect::kNone:
      return 0;
    case FormDefect::kFormatted:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER Formated CNPJ[%02d:%s]INVALID!!!\n",
                     TALVEX_CNPJ_BAD_FORMATTED, shown_length, number);
      return TALVEX_CNPJ_BAD_FORMATTED;
    case FormDefect::kBare:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER Numeric   CNPJ[%02d:%s]INVALID!!!\n",
                     TALVEX_CNPJ_NOT_NUMERIC, shown_length, number);
      return TALVEX_CNPJ_NOT_NUMERIC;
    case FormDefect::kTooShort:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER -------   CNPJ[%02d:%s]too short\n",
                     TALVEX_CNPJ_TOO_SHORT, shown_length, number);
      return TALVEX_CNPJ_TOO_SHORT;
    case FormDefect::kTooLong:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER -------   CNPJ[%02d:%s]Too Big \n", TALVEX_CNPJ_TOO_LONG,
                     shown_length, number);
      return TALVEX_CNPJ_TOO_LONG;
    case FormDefect::kOtherLength:
      break;
  }
  UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER -------   CNPJ[%02d:%s]INVALID!!!\n", TALVEX_CNPJ_BAD_LENGTH,
                 shown_length, number);
  return TALVEX_CNPJ_BAD_LENGTH;
}

void trace_invalid_cpf(int code, const char* number, size_t length) {
  UTILS_TRACE_IN("OLK_Check_CPF", kInfo, " rc[%06d]ER -------   CPF[%02d:%s]INVALID!!!\n", code,
                 length_field(length), number);
}

int report_cpf_form(FormDefect defect, const char* number, size_t length) {
  constexpr char kFunction[] = "OLK_Check_CPF";
  const int shown_length = length_field(length);
  switch (defect) {
    case FormDefect::kNone:
      return 0;
    case FormDefect::kFormatted:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER Formated CPF[%02d:%s]INVALID!!!\n",
                     TALVEX_CPF_BAD_FORMATTED, shown_length, number);
      return TALVEX_CPF_BAD_FORMATTED;
    case FormDefect::kBare:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER Numeric   CPF[%02d:%s]INVALID!!!\n",
                     TALVEX_CPF_NOT_NUMERIC, shown_length, number);
      return TALVEX_CPF_NOT_NUMERIC;
    case FormDefect::kTooShort:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER -------   CPF[%02d:%s]too short\n", TALVEX_CPF_TOO_SHORT,
                     shown_length, number);
      return TALVEX_CPF_TOO_SHORT;
    case FormDefect::kTooLong:
      UTILS_TRACE_IN(kFunction, kInfo, " rc[%06d]ER -------   CPF[%02d:%s]Too Big \n", TALVEX_CPF_TOO_LONG,
                     shown_length, number);
      return TALVEX_CPF_TOO_LONG;
    case FormDefect::kOtherLength:
      break;
  }
  trace_invalid_cpf(TALVEX_CPF_BAD_LENGTH, number, length);
  return TALVEX_CPF_BAD_LENGTH;
}

int modulus_11_digit(int32_t sum) {
  const int32_t remainder = sum % 11;
  return remainder < 2 ? 0 : 11 - remainder;
}

// Kept: the sum wraps at 256, so numbers with large digits get other check digits than the tax office's.
int cnpj_check_digit(uint8_t sum, const char* digits, const uint8_t (&weights)[kCnpjBaseDigits]) {
  for (size_t i = 0; i < kCnpjBaseDigits; ++i) {
    sum = static_cast<uint8_t>(sum + digit_value(digits[i]) * weights[i]);
  }
  return modulus_11_digit(sum);
}

}  // namespace

int OLK_Check_CNPJ(const char* pCNPJ) {
  if (pCNPJ == nullptr) {
    UTILS_TRACE(kError, " rc[%06d]ER pCNPJ=NULL\n", TALVEX_CNPJ_NULL);
    return TALVEX_CNPJ_NULL;
  }
  const size_t length = strlen(pCNPJ);
  Digits digits;
  if (const FormDefect defect = read_number(pCNPJ, length, kCnpjForm, digits); defect != FormDefect::kNone) {
    return report_cnpj_form(defect, pCNPJ, length);
  }

  const int first = cnpj_check_digit(0, digits.text, kFirstCnpjWeights);
  const int second = cnpj_check_digit(static_cast<uint8_t>(2 * first), digits.text, kSecondCnpjWeights);
  const int entered_first = digit_value(digits.text[kCnpjBaseDigits]);
  const int entered_second = digit_value(digits.text[kCnpjBaseDigits + 1]);
  if (first != entered_first || second != entered_second) {
    UTILS_TRACE(kError, " rc[%06d]ER \n\t CNPJ[%02d:%s]VERYFY:FAILED\n\t   DV[%d%d]\n\t   DV[%d%d]Calc\n",
                TALVEX_CHECK_DIGITS_DIFFER, digits.count, digits.text, entered_first, entered_second, first,
                second);
    return TALVEX_CHECK_DIGITS_DIFFER;
  }
  UTILS_TRACE(kInfo, " rc[%06d]OK CNPJ[%02d:%s]VERYFY:SUCCESS!!!\n", 0, digits.count, digits.text);
  return 0;
}

int OLK_Check_CPF(const char* pCPF) {
  if (pCPF == nullptr) {
    UTILS_TRACE(kError, " rc[%06d]ER pCPF=NULL\n", TALVEX_CPF_NULL);
    return TALVEX_CPF_NULL;
  }
  const size_t length = strlen(pCPF);
  Digits digits;
  if (const FormDefect defect = read_number(pCPF, length, kCpfForm, digits); defect != FormDefect::kNone) {
    return report_cpf_form(defect, pCPF, length);
  }

  const int first = OLK_GetCPFCheckDigit(digits.text, kFirstCpfWeight);
  if (first < 0) {
    trace_invalid_cpf(first, pCPF, length);
    return first;
  }
  // Over the entered first digit, not the computed one. It cannot fail where the first call did not.
  const int second = OLK_GetCPFCheckDigit(digits.text, kSecondCpfWeight);

  const int entered =
      10 * digit_value(digits.text[kCpfBaseDigits]) + digit_value(digits.text[kCpfBaseDigits + 1]);
  const int computed = 10 * first + second;
  if (computed != entered) {
    UTILS_TRACE(
        kError,
        " rc[%06d]ER \n\t          CPF[%02d:%s]VERYFY:FAIL\n\t     iCkDigit[%02d]\n\t iCalcCkDigit[%02d]Calc\n",
        TALVEX_CHECK_DIGITS_DIFFER, digits.count, digits.text, entered, computed);
    return TALVEX_CHECK_DIGITS_DIFFER;
  }
  UTILS_TRACE(
      kInfo,
      " rc[%06d]OK \n\t          CPF[%02d:%s]VERYFY:PASS\n\t     ickDigit[%02d]\n\t iCalcCkDigit[%02d]Calc\n",
      0, digits.count, digits.text, entered, computed);
  return 0;
}

int OLK_GetCPFCheckDigit(const char* pCPF, int iWeight) {
  if (pCPF == nullptr) {
    UTILS_TRACE(kError, " rc[%06d]ER pCPF=NULL\n", TALVEX_CPF_BAD_DIGIT_COUNT);
    return TALVEX_CPF_BAD_DIGIT_COUNT;
  }
  const size_t length = strlen(pCPF);
  if (length != kCpfForm.bare_length) {
    UTILS_TRACE(kError, " rc[%06d]ER pCPF[%02d:%s]Invalid Len Expected 11\n", TALVEX_CPF_BAD_DIGIT_COUNT,
                length_field(length), pCPF);
    return TALVEX_CPF_BAD_DIGIT_COUNT;
  }
  // Any character and any weight may come: the 32-bit sum wraps.
  uint32_t sum = 0;
  for (size_t i = 0; i < length && iWeight >= kLastCpfWeight; ++i, --iWeight) {
    const int digit = static_cast<unsigned char>(pCPF[i]) - '0';
    sum += static_cast<uint32_t>(digit) * static_cast<uint32_t>(iWeight);
  }
  return modulus_11_digit(static_cast<int32_t>(sum));
}
