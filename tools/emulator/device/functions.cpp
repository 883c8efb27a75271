#include "device/functions.h"

#include <algorithm>
#include <limits>

namespace emulator {

namespace {

using enum FunctionId;
using enum CodeCheck;

constexpr char kSeparator = '|';

std::vector<std::string> split(std::string_view text, std::size_t most) {
  std::vector<std::string> fields;
  while (fields.size() + 1 < most) {
    const auto bar = text.find(kSeparator);
    if (bar == std::string_view::npos) break;
    fields.emplace_back(text.substr(0, bar));
    text.remove_prefix(bar + 1);
  }
  fields.emplace_back(text);
  return fields;
}

}  // namespace

const std::vector<Function>& functions() {
  static const std::vector<Function> table{
      {ativar_sat, "AtivarSAT", 40, 4, never, 0, false, true},
      {comunicar_certificado, "ComunicarCertificadoICPBRASIL", 50, 2, never, 0, false, true},
      {enviar_dados_venda, "EnviarDadosVenda", 60, 2, always, 6002, true, true},
      {cancelar_ultima_venda, "CancelarUltimaVenda", 70, 3, always, 0, true, true},
      {consultar_sat, "ConsultarSAT", 80, 0, never, 0, false, true},
      {teste_fim_a_fim, "TesteFimAFim", 90, 2, always, 9002, false, true},
      {consultar_status_operacional, "ConsultarStatusOperacional", 100, 1, when_activated, 0, false, true},
      {consultar_numero_sessao, "ConsultarNumeroSessao", 110, 2, always, 11002, false, false},
      {configurar_interface_de_rede, "ConfigurarInterfaceDeRede", 120, 2, when_activated, 0, false, true},
      {associar_assinatura, "AssociarAssinatura", 130, 3, always, 0, false, true},
      {atualizar_software_sat, "AtualizarSoftwareSAT", 140, 1, when_activated, 0, false, true},
      {extrair_logs, "ExtrairLogs", 150, 1, when_activated, 0, false, true},
      {bloquear_sat, "BloquearSAT", 160, 1, always, 0, false, true},
      {desbloquear_sat, "DesbloquearSAT", 170, 1, always, 0, false, true},
      {trocar_codigo_de_ativacao, "TrocarCodigoDeAtivacao", 180, 4, never, 0, false, true},
      {consultar_ultima_sessao_fiscal, "ConsultarUltimaSessaoFiscal", 190, 1, always, 19002, false, false},
  };
  return table;
}

const Function* find_function(std::string_view name) {
  const auto& table = functions();
  const auto found =
      std::find_if(table.begin(), table.end(), [name](const Function& row) { return row.name == name; });
  return found == table.end() ? nullptr : &*found;
}

Command parse_command(std::string_view text) {
  Command command;
  command.function = find_function(text.substr(0, text.find(kSeparator)));
  const std::size_t wanted = command.function != nullptr ? command.function->arguments : 0;
  // One place more than wanted only for a function without arguments, to keep the session by itself.
  auto fields = split(text, 2 + std::max<std::size_t>(1, wanted));
  command.name = std::move(fields[0]);
  if (fields.size() > 1) command.session = std::move(fields[1]);
  for (std::size_t i = 2; i < fields.size(); ++i) command.arguments.push_back(std::move(fields[i]));
  return command;
}

std::optional<int> session_number(std::string_view text) {
  if (text.size() != 6) return std::nullopt;
  int number = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    number = number * 10 + (c - '0');
  }
  return number;
}

std::vector<std::string> split_fields(std::string_view text) {
  return split(text, std::numeric_limits<std::size_t>::max());
}

std::string join_fields(const std::vector<std::string>& fields) {
  std::string text;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) text += kSeparator;
    text += fields[i];
  }
  return text;
}

}  // namespace emulator
