// Why the content of a sale or a cancellation is refused: the reply's CCCC, and a message that names the
// field.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

enum class Cause {
  not_understood,
  not_xml,
  encoding,
  byte_order_mark,
  unknown_version,
  unknown_element,
  element_order,
  alternatives,
  format,
  signature_length,
  missing_field,
  too_many,
  issuer_unknown,
  issuer_cnpj,
  buyer_cnpj,
  buyer_cpf,
  software_house_cnpj,
  empty_signature,
  register_number,
  item_number,
  empty_text,
  outgoing_operation,
  quantity,
  unit_price,
  calculation_rule,
  discount,
  other_charges,
  item_value,
  taxes,
  subtotal_adjustment,
  total_value,
  payment_method,
  payment_value,
  payments_below_total,
  receipt_unknown,
  already_cancelled,
  not_the_last_sale,
  key_check_digit,
  too_late_to_cancel,
};

struct CauseRow {
  Cause cause;
  int cccc;
  std::string_view text;
};

const std::vector<CauseRow>& causes();
const CauseRow& cause_row(Cause cause);

class Rejected : public std::exception {
 public:
  Rejected(Cause cause, const std::string& field);

  Cause cause() const { return cause_; }
  int cccc() const { return cause_row(cause_).cccc; }
  const std::string& field() const { return field_; }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  Cause cause_;
  std::string field_;
  std::string message_;
};

}  // namespace emulator
