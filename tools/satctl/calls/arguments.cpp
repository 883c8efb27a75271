#include "calls/arguments.h"

#include <algorithm>
#include <cstdlib>

#include "calls/call.h"
#include "talvex/talvex.h"
#include "terminal/exit_status.h"
#include "terminal/settings.h"

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

// What a document looks like. A file's name that was given without its "@" does not.
struct Form {
  ParameterKind kind;
  bool (*fits)(std::string_view text);
  Text what;
};

bool is_xml(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  return trimmed(text).starts_with('<');
}

bool is_pem(std::string_view text) {
  return text.find("-----BEGIN ") != std::string_view::npos;
}

bool is_all_base64(std::string_view text) {
  constexpr std::string_view kCharacters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=\r\n";
  return !text.empty() && text.find_first_not_of(kCharacters) == std::string_view::npos;
}

constexpr std::array kForms{
    Form{ParameterKind::xml,
         is_xml,
         {"this is no XML (\"<\" comes first)", "isto não é XML (começa por \"<\")"}},
    Form{ParameterKind::certificate,
         is_pem,
         {"this is no certificate (\"-----BEGIN \" stands in it)",
          "isto não é um certificado (contém \"-----BEGIN \")"}},
    Form{ParameterKind::signature, is_all_base64, {"this is no base64", "isto não é base64"}},
};

const Form* form_of(ParameterKind kind) {
  const auto found =
      std::find_if(kForms.begin(), kForms.end(), [kind](const Form& form) { return form.kind == kind; });
  return found == kForms.end() ? nullptr : &*found;
}

void check_form(const Parameter& parameter, const std::string& value) {
  const Form* form = form_of(parameter.kind);
  if (form == nullptr || form->fits(value)) return;
  const std::string option = option_name(parameter);
  throw UsageError(
      fill({"{}: {}; a file is given as {} @FILE, and {}-literal sends the text as it is",
            "{}: {}; um arquivo é informado como {} @ARQUIVO, e {}-literal envia o texto como está"},
           {option, tr(form->what), option, option}));
}

std::string value_of(const Library& library, const Parameter& parameter, const GivenArgument& argument) {
  const std::string& given = argument.text;
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
    case ParameterKind::xml:
    case ParameterKind::certificate:
    case ParameterKind::signature: {
      if (argument.literal) return given;
      std::string value = read_argument(given);
      check_form(parameter, value);
      return value;
    }
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

bool has_form(ParameterKind kind) {
  return form_of(kind) != nullptr;
}

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
                                         const std::vector<GivenArgument>& given) {
  const auto is_standard_input = [](const GivenArgument& argument) {
    return argument.text == "-" && !argument.literal;
  };
  if (std::count_if(given.begin(), given.end(), is_standard_input) > 1) {
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
