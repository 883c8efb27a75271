// CNPJ and CPF: any text gets a documented code; a number that is accepted has its fourteen or eleven digits'
// form.
#include <cstring>

#include "fuzz/fuzzing.h"
#include "olk_utils/trace_log.h"
#include "talvex/talvex.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);
  bDebugLogsEnabled = 1;

  fuzzing::Input input(data, size);
  const std::string text = input.rest();
  const std::size_t length = std::strlen(text.c_str());
  const int cnpj = OLK_Check_CNPJ(text.c_str());
  require(cnpj == 0 || (cnpj <= -3001 && cnpj >= -3007));
  if (cnpj == 0) require(length == 14 || length == 18);
  const int cpf = OLK_Check_CPF(text.c_str());
  require(cpf == 0 || cpf == -3007 || (cpf <= -3011 && cpf >= -3017));
  if (cpf == 0) require(length == 11 || length == 14);
  for (const int weight : {10, 11}) {
    const int digit = OLK_GetCPFCheckDigit(text.c_str(), weight);
    require(digit == -3017 || (digit >= 0 && digit <= 9) || length == 11);
  }
  return 0;
}
