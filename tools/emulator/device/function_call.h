// One command being carried out on a copy of the device's state.
#pragma once

#include <string>
#include <string_view>

#include "device/device.h"
#include "documents/receipt.h"
#include "documents/rejection.h"

namespace emulator {

// The call ends without success, with this code.
struct Refusal {
  int code = 0;
  int cccc = 0;
  std::string message;  // empty: the code's own
};

// Return codes are families of a hundred. These endings mean the same in every family that has them.
namespace ending {
inline constexpr int kSuccess = 0;
inline constexpr int kWrongCode = 1;
inline constexpr int kInvalidSession = 97;
inline constexpr int kProcessing = 98;
inline constexpr int kUnknownError = 99;
}  // namespace ending

class FunctionCall {
 public:
  FunctionCall(Device& device, DeviceState& state, const Command& command, const FiscalFaults& faults);

  // The whole reply; the state has been changed accordingly.
  Reply run();

 private:
  using Handler = int (FunctionCall::*)();
  static Handler handler(FunctionId id);

  // The rules that come before every function.
  void check_session() const;
  void check_arguments() const;
  void check_activation_code();
  void count_wrong_code(const std::string& code);
  void check_reaches_sefaz(int last_two_digits) const;

  // The functions. Each makes all its checks before it changes anything, returns its code of success and
  // leaves the fields of its own in extra_.
  int consultar_sat() { return 8000; }
  int consultar_status_operacional();
  int consultar_numero_sessao();
  int consultar_ultima_sessao_fiscal();
  int extrair_logs();
  int configurar_interface_de_rede();
  int atualizar_software_sat();
  int bloquear_sat();
  int desbloquear_sat();

  // activation_functions.cpp
  int ativar_sat();
  int comunicar_certificado();
  int associar_assinatura();
  int trocar_codigo_de_ativacao();
  void activate(Activation activation);
  void issue_certificate();

  // fiscal_functions.cpp
  int enviar_dados_venda();
  int cancelar_ultima_venda();
  int teste_fim_a_fim();
  void check_may_sell() const;
  void check_layout(const std::string& document, const Layout& layout) const;
  void check_signature(const std::string& signature) const;
  const Receipt& sale_to_cancel() const;
  Reply filled_in(const std::string& reply_template);
  AccessKey new_key(const std::string& issuer_cnpj, int& counter);
  DocumentFacts new_document(const std::string& issuer_cnpj, int& counter, Cents total,
                             const std::string& buyer);
  void issue(const DocumentFacts& facts, const std::string& xml, Receipt receipt);

  [[noreturn]] void refuse(int last_two_digits, const std::string& message = {}, int cccc = 0) const;
  [[noreturn]] static void refuse_with(int code);
  Reply compose(int code, int cccc, const std::string& message) const;
  // What the till is told instead of a call, or of one that took place.
  Reply canned_reply(const ImposedReturn& imposed);
  Reply denial(const ImposedReturn& imposed);
  void shape(Reply& reply) const;
  void remember(const Reply& reply);
  void log(const char* origin, const char* level, const std::string& text);
  const std::string& argument(std::size_t index) const { return command_.arguments[index]; }

  Device& device_;
  Surroundings& surroundings_;
  DeviceState& state_;
  const Command& command_;
  const Function& function_;
  const FiscalFaults& faults_;
  Moment now_;
  std::vector<std::string> extra_;
  std::string verbatim_;  // a stored reply that takes the place of one of its own
};

inline constexpr const char* kLayoutVersion = "0.07";

std::string padded(int number, int width);
// A decimal number that is nothing but digits, perhaps with a minus sign.
std::optional<int> small_number(std::string_view text);

}  // namespace emulator
