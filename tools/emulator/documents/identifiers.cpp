#include "documents/identifiers.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace emulator {

namespace {

// The check digit behind `count` digits whose weights run from 2 upwards, from the right, and start again
// after `largest_weight`.
int modulo_11_digit(std::string_view digits, std::size_t count, int largest_weight) {
  int sum = 0;
  int weight = 2;
  for (std::size_t i = count; i-- > 0;) {
    sum += (digits[i] - '0') * weight;
    weight = weight == largest_weight ? 2 : weight + 1;
  }
  const int rest = sum % 11;
  return rest < 2 ? 0 : 11 - rest;
}

bool valid_taxpayer(std::string_view text, std::size_t length, int largest_weight) {
  if (text.size() != length || !all_digits(text)) return false;
  // One digit repeated passes the sums but belongs to nobody.
  if (text.find_first_not_of(text[0]) == std::string_view::npos) return false;
  return modulo_11_digit(text, length - 2, largest_weight) == text[length - 2] - '0' &&
         modulo_11_digit(text, length - 1, largest_weight) == text[length - 1] - '0';
}

}  // namespace

bool all_digits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool valid_cnpj(std::string_view text) {
  return valid_taxpayer(text, 14, 9);
}

bool valid_cpf(std::string_view text) {
  return valid_taxpayer(text, 11, 11);
}

std::string AccessKey::digits() const {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%02d%s%s59%s%06d%06d", state % 100, year_month.c_str(),
                cnpj.c_str(), serial.c_str(), number % 1'000'000, random % 1'000'000);
  const std::string digits = text.data();
  return digits + std::to_string(access_key_check_digit(digits));
}

int access_key_check_digit(std::string_view digits43) {
  return modulo_11_digit(digits43, digits43.size(), 9);
}

bool valid_access_key(std::string_view key) {
  if (key.size() != 47 || !key.starts_with("CFe") || !all_digits(key.substr(3))) return false;
  return access_key_check_digit(key.substr(3, 43)) == key.back() - '0';
}

}  // namespace emulator
