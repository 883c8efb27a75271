#include "device.h"

#include <array>
#include <cstdio>

#include "messages.h"

namespace emulator {

namespace {

const std::string kKey = "CFe35261111222333000181599000000010000011234564";
const std::string kStamp = "20261101120000";
const std::string kXml = "PENGZT48L0NGZT4=";

std::string five_digits(int code) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%05d", code);
  return text.data();
}

}  // namespace

std::string Device::execute(const Command& command) {
  if (command.function == nullptr) return join_fields({command.session, "99099", "Comando desconhecido", "", ""});
  const Function& function = *command.function;
  int code = function.code(0);
  if (command.arguments.size() < function.arguments || !session_number(command.session)) {
    code = function.code(99);
  } else if (!activated_ && function.not_activated != 0) {
    code = function.not_activated;
  } else if (function.code_check == CodeCheck::always &&
             (!activated_ || command.arguments[0] != options_.activation_code)) {
    code = function.code(1);
  } else if (function.id == FunctionId::consultar_numero_sessao) {
    code = 11003;
  } else if (function.id == FunctionId::consultar_ultima_sessao_fiscal) {
    code = 19003;
  } else if (function.id == FunctionId::ativar_sat) {
    activated_ = true;
    options_.activation_code = command.arguments[1];
  }

  std::vector<std::string> fields{command.session, five_digits(code)};
  const bool success = code == function.code(0);
  if (function.fiscal) fields.push_back(success ? "0000" : "1999");
  fields.emplace_back(return_code_message(code));
  fields.insert(fields.end(), {"", ""});
  if (!success) return join_fields(fields);

  switch (function.id) {
    case FunctionId::ativar_sat:
      fields.push_back(kXml);
      break;
    case FunctionId::enviar_dados_venda:
    case FunctionId::cancelar_ultima_venda:
      fields.insert(fields.end(), {kXml, kStamp, kKey, "10.00", "", "QQ=="});
      break;
    case FunctionId::teste_fim_a_fim:
      fields.insert(fields.end(), {kXml, kStamp, "000001", kKey});
      break;
    case FunctionId::consultar_status_operacional:
      fields.insert(fields.end(), {"900000001", "DHCP", "192.168.1.50", "02:00:00:00:00:01", "255.255.255.0",
                                   "192.168.1.1", "192.168.1.1", "0.0.0.0", "CONECTADO", "ALTO", "1 Gbytes",
                                   "12 Mbytes", kStamp, "01.00.00", "0.07", kKey, "", "", kStamp, kStamp, "20260101",
                                   "20310101", "0"});
      break;
    case FunctionId::extrair_logs:
      fields.emplace_back("QQ==");
      break;
    default:
      break;
  }
  return join_fields(fields);
}

}  // namespace emulator
