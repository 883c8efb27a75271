// The sixteen functions of the device: one row each.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

enum class FunctionId {
  ativar_sat,
  comunicar_certificado,
  enviar_dados_venda,
  cancelar_ultima_venda,
  consultar_sat,
  teste_fim_a_fim,
  consultar_status_operacional,
  consultar_numero_sessao,
  configurar_interface_de_rede,
  associar_assinatura,
  atualizar_software_sat,
  extrair_logs,
  bloquear_sat,
  desbloquear_sat,
  trocar_codigo_de_ativacao,
  consultar_ultima_sessao_fiscal,
};

// When the first argument (the activation code) is looked at.
enum class CodeCheck {
  never,           // the function has no code, or looks at it itself
  when_activated,  // a device that is not activated yet knows no code and lets everybody in
  always,          // a device that is not activated refuses every code
};

struct Function {
  FunctionId id;
  std::string_view name;
  int family;             // the first three digits of its return codes: 60 for 060xx
  std::size_t arguments;  // behind the session number
  CodeCheck code_check;
  int not_activated;  // return code of a device that is not activated; 0: it has none
  bool fiscal;        // a sale or a cancellation: its reply carries a CCCC
  bool recorded;      // ConsultarNumeroSessao finds its reply

  int code(int last_two_digits) const { return family * 100 + last_two_digits; }
};

const std::vector<Function>& functions();
const Function* find_function(std::string_view name);

// A command text taken apart. The last argument is everything that is left, separators included.
struct Command {
  const Function* function = nullptr;  // null: unknown name
  std::string name;
  std::string session;                 // as received
  std::vector<std::string> arguments;  // as many as the function has, unless some are missing
};

Command parse_command(std::string_view text);

// The session number of six decimal digits, or nothing.
std::optional<int> session_number(std::string_view text);

std::vector<std::string> split_fields(std::string_view text);
std::string join_fields(const std::vector<std::string>& fields);

}  // namespace emulator
