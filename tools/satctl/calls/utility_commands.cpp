// satctl cpf|cnpj|uf|codigo|base64: the library's utilities for scripts.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "calls/arguments.h"
#include "calls/call.h"
#include "calls/reply.h"
#include "talvex/talvex.h"
#include "terminal/command.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

struct NumberFault {
  int code;
  Text text;
};

constexpr std::array kNumberFaults{
    NumberFault{0, {"valid", "válido"}},
    NumberFault{TALVEX_CNPJ_BAD_FORMATTED, {"not a formatted CNPJ", "formato de CNPJ inválido"}},
    NumberFault{TALVEX_CNPJ_NOT_NUMERIC, {"not only digits", "não tem só dígitos"}},
    NumberFault{TALVEX_CNPJ_TOO_SHORT, {"too short", "curto demais"}},
    NumberFault{TALVEX_CNPJ_TOO_LONG, {"too long", "longo demais"}},
    NumberFault{TALVEX_CHECK_DIGITS_DIFFER,
                {"the check digits differ", "os dígitos verificadores não conferem"}},
    NumberFault{TALVEX_CPF_BAD_FORMATTED, {"not a formatted CPF", "formato de CPF inválido"}},
    NumberFault{TALVEX_CPF_NOT_NUMERIC, {"not only digits", "não tem só dígitos"}},
    NumberFault{TALVEX_CPF_TOO_SHORT, {"too short", "curto demais"}},
    NumberFault{TALVEX_CPF_TOO_LONG, {"too long", "longo demais"}},
    NumberFault{TALVEX_CPF_BAD_DIGIT_COUNT, {"not 11 digits", "não tem 11 dígitos"}},
};

const char* meaning_of(int code) {
  const auto found = std::find_if(kNumberFaults.begin(), kNumberFaults.end(),
                                  [code](const NumberFault& row) { return row.code == code; });
  return found == kNumberFaults.end() ? tr({"not valid", "inválido"}) : tr(found->text);
}

using NumberCheck = int(const char*);

ExitStatus check_number(const char* check, const std::string& number, const Settings& settings) {
  const Library library(settings.library);
  const int code = [&] {
    const auto valid = library.function<NumberCheck>(check);
    const LibraryOutputSilenced silence;
    return valid(number.c_str());
  }();
  if (settings.json) {
    print_json({{"number", valid_utf8(number)},
                {"valid", code == 0},
                {"code", code},
                {"meaning", meaning_of(code)}});
  } else if (settings.raw) {
    print_line(std::to_string(code));
  } else {
    print_line(printable(number) + ": " + meaning_of(code) +
               (code == 0 ? "" : " (" + std::to_string(code) + ")"));
  }
  return code == 0 ? ExitStatus::success : ExitStatus::refused;
}

void show_state(const Library& library, int code, const Settings& settings) {
  const auto number = static_cast<uint32_t>(code);
  const char* letters = library.function<decltype(SAT_Get_IBGE_UF_Name)>("SAT_Get_IBGE_UF_Name")(number);
  const char* name = library.function<decltype(SAT_Get_IBGE_EstateName)>("SAT_Get_IBGE_EstateName")(number);
  const char* region = library.function<decltype(SAT_Get_IBGE_RegionName)>("SAT_Get_IBGE_RegionName")(number);
  if (settings.json)
    print_json({{"code", code}, {"uf", letters}, {"name", name}, {"region", region}});
  else
    print_line(std::to_string(code) + "  " + letters + "  " + padded(name, 20) + region);
}

ExitStatus look_up_state(const std::string& text, const Settings& settings) {
  const Library library(settings.library);
  if (text.empty()) {
    for (const int code : kStateCodes) show_state(library, code, settings);
    return ExitStatus::success;
  }
  auto code = find_state(library, text);
  if (!code) {
    const auto by_name = library.function<decltype(SAT_Get_IBGH_UF_Code)>("SAT_Get_IBGH_UF_Code");
    const int found = by_name(text.c_str());
    if (found >= 0) code = found;
  }
  if (!code) {
    print_error("satctl: " + fill({"{}: no such state", "{}: UF desconhecida"}, {printable(text)}));
    return ExitStatus::refused;
  }
  show_state(library, *code, settings);
  return ExitStatus::success;
}

ExitStatus explain_code(const std::string& text, const Settings& settings) {
  constexpr std::size_t kMostDigits = 5;
  if (!all_digits(text) || text.size() > kMostDigits) {
    throw UsageError(
        tr({"a return code has up to five digits", "um código de retorno tem até cinco dígitos"}));
  }
  const Library library(settings.library);
  const std::string code = std::string(kMostDigits - text.size(), '0') + text;
  const std::string message = library.return_code_message(std::stoi(code));
  const Function* function = find_function_by_code(code);
  const bool known = !message.empty() && !message.starts_with("SAT Codigo Retorno[");
  const bool good = is_success_code(std::stoi(code));
  const RefusalClass& refusal = refusal_class(code);
  const std::string name = good                    ? "success"
                           : settles_nothing(code) ? kUnsettledName
                           : code.ends_with("098") ? "busy"
                                                   : refusal.name;
  if (settings.json) {
    print_json({{"code", code},
                {"known", known},
                {"message", valid_utf8(message)},
                {"function", function == nullptr ? nullptr : nlohmann::ordered_json(function->name)},
                {"class", known ? name : "unknown"}});
  } else if (settings.raw) {
    print_line(message);
  } else {
    print_line(code + "  " + printable(message));
    if (known && function != nullptr) print_line(std::string("  ") + function->name + ", " + name);
  }
  return known ? ExitStatus::success : ExitStatus::refused;
}

ExitStatus encode(const std::string& source, const Settings& settings) {
  const Library library(settings.library);
  const std::string bytes = read_argument(source);
  const auto encoder = library.function<decltype(OLK_Base64Encoder)>("OLK_Base64Encoder");
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  uint64_t length = 0;
  const LibraryOutputSilenced silence;
  if (!bytes.empty()) {
    encoder(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), text.data(), &length);
  }
  text.resize(length);
  print_line(text);
  return ExitStatus::success;
}

ExitStatus decode(const std::string& source, const Settings& settings) {
  const Library library(settings.library);
  const std::string text = read_argument(source);
  const auto bytes = trimmed(text).empty() ? std::optional<std::string>("") : library.decode_base64(text);
  if (!bytes) {
    print_error(std::string("satctl: ") + tr({"this is no base64", "isto não é base64"}));
    return ExitStatus::refused;
  }
  print(*bytes);
  return ExitStatus::success;
}

using Utility = ExitStatus (*)(const std::string&, const Settings&);

// name, help, the argument's name, its help, whether it is needed
struct UtilityRow {
  const char* name;
  Text help;
  const char* argument;
  Text argument_help;
  bool required;
  Utility run;
};

constexpr Text kSource{"the text, @FILE or - (default)", "o texto, @ARQUIVO ou - (padrão)"};

constexpr UtilityRow kUtilities[] = {
    {"cpf",
     {"check a CPF", "conferir um CPF"},
     "cpf",
     {"11 digits, or formatted", "11 dígitos, ou formatado"},
     true,
     [](const std::string& number, const Settings& settings) {
       return check_number("OLK_Check_CPF", number, settings);
     }},
    {"cnpj",
     {"check a CNPJ", "conferir um CNPJ"},
     "cnpj",
     {"14 digits, or formatted", "14 dígitos, ou formatado"},
     true,
     [](const std::string& number, const Settings& settings) {
       return check_number("OLK_Check_CNPJ", number, settings);
     }},
    {"uf",
     {"IBGE codes of the states", "códigos do IBGE das UFs"},
     "uf",
     {"code, two letters or name; none: all states", "código, sigla ou nome; nada: todas as UFs"},
     false,
     look_up_state},
    {"codigo",
     {"explain a return code", "explicar um código de retorno"},
     "codigo",
     {"EEEEE, e.g. 06010", "EEEEE, ex.: 06010"},
     true,
     explain_code},
};

}  // namespace

void add_utility_commands(CommandLine& line) {
  const auto add_argument = [&line](CLI::App* command, const char* argument, const Text& help, bool required,
                                    Utility run, const char* otherwise) {
    const auto text = std::make_shared<std::string>(otherwise);
    command->add_option(argument, *text, tr(help))->required(required);
    when_chosen(line, command, [text, run, &line] { return run(*text, line.settings); });
  };
  for (const UtilityRow& row : kUtilities) {
    CLI::App* command = add_command(line.app, row.name, groups::kUtilities, row.help);
    add_argument(command, row.argument, row.argument_help, row.required, row.run, "");
  }
  CLI::App* base64 =
      add_command(line.app, "base64", groups::kUtilities, {"encode or decode", "codificar ou decodificar"});
  base64->require_subcommand(1);
  const auto add_direction = [&](const char* name, const Text& help, Utility run) {
    CLI::App* command = add_command(*base64, name, groups::kUtilities, help);
    add_argument(command, "source", kSource, false, run, "-");
  };
  add_direction("encode", {"bytes to base64", "bytes para base64"}, encode);
  add_direction("decode", {"base64 to bytes", "base64 para bytes"}, decode);
}

}  // namespace satctl
