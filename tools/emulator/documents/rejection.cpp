#include "documents/rejection.h"

#include <algorithm>

namespace emulator {

const std::vector<CauseRow>& causes() {
  static const std::vector<CauseRow> table{
      {Cause::not_understood, 1999, "erro não identificado"},
      {Cause::not_xml, 1225, "falha no schema XML"},
      {Cause::encoding, 1224, "bytes não correspondem à codificação declarada"},
      {Cause::byte_order_mark, 1228, "marca de ordem de bytes (BOM) antes do XML"},
      {Cause::unknown_version, 1229, "versão de leiaute desconhecida"},
      {Cause::unknown_element, 1230, "campo desconhecido neste leiaute"},
      {Cause::element_order, 1231, "campo fora de ordem"},
      {Cause::alternatives, 1232, "campos alternativos juntos ou ausentes"},
      {Cause::format, 1233, "formato ou tamanho inválido"},
      {Cause::signature_length, 1234, "assinatura do aplicativo comercial não tem 344 caracteres"},
      {Cause::missing_field, 1226, "campo obrigatório ausente"},
      {Cause::too_many, 1227, "quantidade de ocorrências fora do limite"},
      {Cause::issuer_unknown, 1203, "emitente não autorizado neste SAT"},
      {Cause::issuer_cnpj, 1207, "CNPJ do emitente inválido"},
      {Cause::buyer_cnpj, 1208, "CNPJ do destinatário inválido"},
      {Cause::buyer_cpf, 1237, "CPF do destinatário inválido"},
      {Cause::software_house_cnpj, 1454, "CNPJ da software house inválido"},
      {Cause::empty_signature, 1455, "assinatura do aplicativo comercial inválida"},
      {Cause::register_number, 1456, "número do caixa inválido"},
      {Cause::item_number, 1457, "número do item fora de sequência"},
      {Cause::empty_text, 1459, "texto em branco"},
      {Cause::outgoing_operation, 1462, "CFOP não é de operação de saída"},
      {Cause::quantity, 1464, "quantidade comercial inválida"},
      {Cause::unit_price, 1465, "valor unitário inválido"},
      {Cause::calculation_rule, 1467, "regra de cálculo inválida"},
      {Cause::discount, 1468, "valor do desconto inválido"},
      {Cause::other_charges, 1469, "valor de outras despesas inválido"},
      {Cause::item_value, 1470, "valor líquido do item inválido"},
      {Cause::taxes, 1472, "grupo de tributos inválido"},
      {Cause::subtotal_adjustment, 1530, "desconto ou acréscimo sobre o subtotal inválido"},
      {Cause::total_value, 1531, "valor total fora do limite"},
      {Cause::payment_method, 1532, "meio de pagamento inválido"},
      {Cause::payment_value, 1533, "valor do pagamento inválido"},
      {Cause::payments_below_total, 1534, "pagamentos não cobrem o valor total"},
      {Cause::receipt_unknown, 1217, "CF-e não emitido por este SAT"},
      {Cause::already_cancelled, 1218, "CF-e já cancelado"},
      {Cause::not_the_last_sale, 1219, "CF-e não é o último emitido"},
      {Cause::key_check_digit, 1236, "chave de acesso inválida"},
      {Cause::too_late_to_cancel, 1412, "CF-e não emitido nos 30 minutos anteriores"},
  };
  return table;
}

const CauseRow& cause_row(Cause cause) {
  const auto& table = causes();
  return *std::find_if(table.begin(), table.end(),
                       [cause](const CauseRow& row) { return row.cause == cause; });
}

Rejected::Rejected(Cause cause, const std::string& field)
    : cause_(cause), field_(field), message_(std::string(cause_row(cause).text) + " (" + field + ")") {}

}  // namespace emulator
