// AtivarSAT, ComunicarCertificadoICPBRASIL, AssociarAssinatura, TrocarCodigoDeAtivacao.

#include <algorithm>

#include "device/crypto.h"
#include "device/function_call.h"
#include "documents/identifiers.h"

namespace emulator {

namespace {

constexpr std::size_t kSignatureBytes = 256;
constexpr const char* kCodeRule = "Código de ativação deve ter de 8 a 32 caracteres visíveis";

bool valid_code(const std::string& code) {
  return code.size() >= 8 && code.size() <= 32 &&
         std::all_of(code.begin(), code.end(), [](char c) { return c > ' ' && c < 0x7F; });
}

}  // namespace

int FunctionCall::ativar_sat() {
  constexpr int kSefazCertificate = 1, kIcpBrasilCertificate = 2, kRenewal = 3;
  check_reaches_sefaz(5);
  const std::string& cnpj = argument(2);
  if (!valid_cnpj(cnpj)) refuse(2);
  if (!state_.cnpj.empty() && cnpj != state_.cnpj) refuse_with(4219);
  if (small_number(argument(3)) != state_.uf) refuse_with(4250);
  switch (small_number(argument(0)).value_or(0)) {
    case kSefazCertificate:
      activate(Activation::active);
      return 4000;
    case kIcpBrasilCertificate:
      activate(Activation::awaiting_certificate);
      return 4006;
    case kRenewal:
      if (state_.activation != Activation::active || argument(1) != state_.activation_code) refuse_with(4200);
      issue_certificate();
      return 4000;
    default:
      refuse(ending::kUnknownError, "Erro desconhecido na ativação: subcomando inválido");
  }
}

void FunctionCall::activate(Activation activation) {
  constexpr int kAlreadyActive = 3;
  if (state_.activation != Activation::none) refuse(kAlreadyActive);
  if (!valid_code(argument(1))) refuse(ending::kUnknownError, kCodeRule);
  state_.activation = activation;
  state_.activation_code = argument(1);
  state_.cnpj = argument(2);
  state_.wrong_codes = 0;
  issue_certificate();
}

void FunctionCall::issue_certificate() {
  start_certificate(state_, now_);
  state_.last_communication = format_moment(now_);
  extra_.push_back(base64_encode(device_.signing_key().certificate_request(
      "SEFAZ emulada", "SAT " + state_.serial + ":" + state_.cnpj)));
}

int FunctionCall::comunicar_certificado() {
  constexpr int kInvalidCertificate = 3;
  check_reaches_sefaz(2);
  if (state_.activation == Activation::none) refuse(ending::kWrongCode);
  count_wrong_code(argument(0));
  if (argument(1).find("-----BEGIN CERTIFICATE-----") == std::string::npos) refuse(kInvalidCertificate);
  state_.activation = Activation::active;
  state_.last_communication = format_moment(now_);
  return 5000;
}

int FunctionCall::associar_assinatura() {
  constexpr int kBadForm = 3, kBadContent = 4, kOtherContributor = 7;
  constexpr std::size_t kCnpjLength = 14;  // software house, then contributor
  check_reaches_sefaz(2);
  const std::string& pair = argument(1);
  if (pair.size() != 2 * kCnpjLength || !valid_cnpj(pair.substr(0, kCnpjLength)) ||
      !valid_cnpj(pair.substr(kCnpjLength))) {
    refuse(kBadContent);
  }
  if (!state_.cnpj.empty() && pair.substr(kCnpjLength) != state_.cnpj) refuse(kOtherContributor);
  const auto signature = base64_decode(argument(2));
  if (!signature || signature->size() != kSignatureBytes) refuse(kBadForm);
  state_.signature = argument(2);
  state_.associated = true;
  state_.last_communication = format_moment(now_);
  return 13000;
}

int FunctionCall::trocar_codigo_de_ativacao() {
  constexpr int kByActivationCode = 1, kByEmergencyCode = 2, kWrongEmergencyCode = 2;
  if (state_.activation != Activation::active) refuse(ending::kWrongCode);
  const auto option = small_number(argument(1));
  if (option == kByEmergencyCode) {
    if (argument(0) != state_.emergency_code) refuse(kWrongEmergencyCode);
  } else if (option == kByActivationCode) {
    count_wrong_code(argument(0));
  } else {
    refuse(ending::kUnknownError, "Erro desconhecido: opção inválida");
  }
  if (argument(2) != argument(3)) {
    refuse(ending::kUnknownError, "Erro desconhecido: confirmação difere do novo código");
  }
  if (!valid_code(argument(2))) refuse(ending::kUnknownError, kCodeRule);
  state_.activation_code = argument(2);
  state_.wrong_codes = 0;
  state_.code_locked = false;
  return 18000;
}

}  // namespace emulator
