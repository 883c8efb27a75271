// Numbers with check digits: taxpayers and access keys.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace emulator {

bool all_digits(std::string_view text);
bool valid_cnpj(std::string_view text);  // fourteen digits with the right check digits
bool valid_cpf(std::string_view text);   // eleven

// The 44 digits of a receipt's access key:
//   state 2 | year and month 4 | CNPJ of the issuer 14 | model 59 | serial 9 | number 6 | random 6 | check 1
struct AccessKey {
  int state = 35;
  std::string year_month;  // yymm
  std::string cnpj;
  std::string serial;
  int number = 0;
  int random = 0;

  std::string digits() const;
};

// Modulo 11 with the weights 2 to 9 from the right; remainders 0 and 1 give 0.
int access_key_check_digit(std::string_view digits43);

// "CFe" and 44 digits with the right check digit.
bool valid_access_key(std::string_view key);

}  // namespace emulator
