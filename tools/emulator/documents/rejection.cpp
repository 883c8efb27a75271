#include "documents/rejection.h"

#include <algorithm>

namespace emulator {

const std::vector<CauseRow>& causes() {
  static const std::vector<CauseRow> table{
      {Cause::not_understood, 1999, "erro nao identificado"},
      {Cause::not_xml, 1225, "falha no schema XML"},
      {Cause::missing_field, 1226, "campo obrigatorio ausente"},
      {Cause::too_many, 1227, "quantidade de ocorrencias fora do limite"},
      {Cause::issuer_unknown, 1203, "emitente nao autorizado neste SAT"},
      {Cause::issuer_cnpj, 1207, "CNPJ do emitente invalido"},
      {Cause::buyer_cnpj, 1208, "CNPJ do destinatario invalido"},
      {Cause::buyer_cpf, 1237, "CPF do destinatario invalido"},
      {Cause::software_house_cnpj, 1454, "CNPJ da software house invalido"},
      {Cause::empty_signature, 1455, "assinatura do aplicativo comercial invalida"},
      {Cause::register_number, 1456, "numero do caixa invalido"},
      {Cause::item_number, 1457, "numero do item fora de sequencia"},
      {Cause::empty_text, 1459, "texto em branco"},
      {Cause::outgoing_operation, 1462, "CFOP nao e de operacao de saida"},
      {Cause::quantity, 1464, "quantidade comercial invalida"},
      {Cause::unit_price, 1465, "valor unitario invalido"},
      {Cause::calculation_rule, 1467, "regra de calculo invalida"},
      {Cause::discount, 1468, "valor do desconto invalido"},
      {Cause::other_charges, 1469, "valor de outras despesas invalido"},
      {Cause::item_value, 1470, "valor liquido do item invalido"},
      {Cause::taxes, 1472, "grupo de tributos invalido"},
      {Cause::subtotal_adjustment, 1530, "desconto ou acrescimo sobre o subtotal invalido"},
      {Cause::total_value, 1531, "valor total fora do limite"},
      {Cause::payment_method, 1532, "meio de pagamento invalido"},
      {Cause::payment_value, 1533, "valor do pagamento invalido"},
      {Cause::payments_below_total, 1534, "pagamentos nao cobrem o valor total"},
      {Cause::receipt_unknown, 1217, "CF-e nao emitido por este SAT"},
      {Cause::already_cancelled, 1218, "CF-e ja cancelado"},
      {Cause::key_check_digit, 1236, "chave de acesso invalida"},
      {Cause::too_late_to_cancel, 1412, "CF-e nao emitido nos 30 minutos anteriores"},
  };
  return table;
}

const CauseRow& cause_row(Cause cause) {
  const auto& table = causes();
  return *std::find_if(table.begin(), table.end(),
                       [cause](const CauseRow& row) { return row.cause == cause; });
}

Rejected::Rejected(Cause cause, const std::string& field)
    : cccc_(cause_row(cause).cccc),
      field_(field),
      message_(std::string(cause_row(cause).text) + " (" + field + ")") {}

}  // namespace emulator
