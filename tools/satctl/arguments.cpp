#include "arguments.h"

#include <algorithm>
#include <cstdlib>

#include "call.h"
#include "exit_status.h"
#include "settings.h"
#include "talvex/talvex.h"

namespace satctl {

namespace {

constexpr const char* kCodeVariable = "SAT_CODIGO";

std::string option_name(const Parameter& parameter) {
  return std::string("--") + parameter.option;
}

[[noreturn]] void reject(const Parameter& parameter, const Text& reason) {
  throw UsageError(option_name(parameter) + ": " + tr(reason));
}

bool is_number(std::string_view text) {
  constexpr std::size_t kMostDigits = 9;
  if (text.starts_with('-')) text.remove_prefix(1);
  return all_digits(text) && text.size() <= kMostDigits;
}

// A code from a file ends in a line end that is no part of it.
std::string secret_value(const std::string& given) {
  return std::string(trimmed(read_argument(given)));
}

std::string value_of(const Library& library, const Parameter& parameter, const std::string& given) {
  switch (parameter.kind) {
    case ParameterKind::activation_code:
      return activation_code_value(given);
    case ParameterKind::secret:
      return secret_value(given);
    case ParameterKind::number:
      if (!is_number(given)) reject(parameter, {"a number is needed", "precisa ser um número"});
      return given;
    case ParameterKind::session:
      if (!is_number(given) || std::stoi(given) < 0 || std::stoi(given) > kLargestSession) {
        reject(parameter, {"a number from 0 to 999999 is needed", "precisa ser um número de 0 a 999999"});
      }
      return given;
    case ParameterKind::state:
      if (const auto code = find_state(library, given)) return std::to_string(*code);
      reject(parameter, {"no such state; give its IBGE code or two letters",
                         "UF desconhecida; informe o código do IBGE ou a sigla"});
    case ParameterKind::text:
    case ParameterKind::taxpayer:
      return read_argument(given);
  }
  return given;
}

// Bytes that would end the frame or the text early, or shift the fields behind them.
void check_transmissible(const Parameter& parameter, const std::string& value, bool last) {
  if (value.find_first_of(std::string_view("\0\x03", 2)) != std::string::npos) {
    reject(parameter, {"the bytes 00 and 03 cannot be sent to the device",
                       "os bytes 00 e 03 não podem ser enviados ao equipamento"});
  }
  if (!last && value.find('|') != std::string::npos) {
    reject(parameter, {"\"|\" separates the fields and cannot stand in one",
                       "\"|\" separa os campos e não pode fazer parte de um"});
  }
}

}  // namespace

std::optional<int> find_state(const Library& library, const std::string& text) {
  const auto letters = library.function<decltype(SAT_Get_IBGE_UF_Name)>("SAT_Get_IBGE_UF_Name");
  const auto found = std::find_if(kStateCodes.begin(), kStateCodes.end(), [&](int code) {
    return std::to_string(code) == text ||
           lower_case(letters(static_cast<uint32_t>(code))) == lower_case(text);
  });
  return found == kStateCodes.end() ? std::nullopt : std::optional(*found);
}

std::string activation_code_value(const std::string& given) {
  if (!given.empty()) return secret_value(given);
  const char* code = std::getenv(kCodeVariable);
  if (code != nullptr && *code != '\0') return code;
  throw UsageError(tr({"the activation code is missing: --codigo @FILE, or SAT_CODIGO in the environment",
                       "falta o código de ativação: --codigo @ARQUIVO, ou SAT_CODIGO no ambiente"}));
}

std::vector<std::string> argument_values(const Library& library, const Function& function,
                                         const std::vector<std::string>& given) {
  if (std::count(given.begin(), given.end(), "-") > 1) {
    throw UsageError(
        tr({"only one argument can come from standard input", "só um argumento pode vir da entrada padrão"}));
  }
  std::vector<std::string> values;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const Parameter& parameter = function.parameters[i];
    values.push_back(value_of(library, parameter, given[i]));
    check_transmissible(parameter, values.back(), i + 1 == given.size());
  }
  return values;
}

}  // namespace satctl
