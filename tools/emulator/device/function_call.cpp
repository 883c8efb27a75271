#include "device/function_call.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "device/crypto.h"
#include "device/messages.h"
#include "device/network_settings.h"

namespace emulator {

namespace {

constexpr int kCodeLocked = 9;  // of sale and cancellation

Refusal refusal_of(const ImposedReturn& imposed) {
  return {imposed.code, imposed.cccc, imposed.message};
}

}  // namespace

std::string padded(int number, int width) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%0*d", width, number);
  return text.data();
}

std::optional<int> small_number(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

FunctionCall::FunctionCall(Device& device, DeviceState& state, const Command& command,
                           const FiscalFaults& faults)
    : device_(device),
      surroundings_(device.surroundings()),
      state_(state),
      command_(command),
      function_(*command.function),
      faults_(faults),
      now_(surroundings_.clock.now()) {}

FunctionCall::Handler FunctionCall::handler(FunctionId id) {
  static constexpr std::array<Handler, 16> handlers{
      &FunctionCall::ativar_sat,
      &FunctionCall::comunicar_certificado,
      &FunctionCall::enviar_dados_venda,
      &FunctionCall::cancelar_ultima_venda,
      &FunctionCall::consultar_sat,
      &FunctionCall::teste_fim_a_fim,
      &FunctionCall::consultar_status_operacional,
      &FunctionCall::consultar_numero_sessao,
      &FunctionCall::configurar_interface_de_rede,
      &FunctionCall::associar_assinatura,
      &FunctionCall::atualizar_software_sat,
      &FunctionCall::extrair_logs,
      &FunctionCall::bloquear_sat,
      &FunctionCall::desbloquear_sat,
      &FunctionCall::trocar_codigo_de_ativacao,
      &FunctionCall::consultar_ultima_sessao_fiscal,
  };
  return handlers.at(static_cast<std::size_t>(id));
}

Reply FunctionCall::run() {
  const ImposedReturn* imposed = faults_.imposed ? &*faults_.imposed : nullptr;
  if (imposed != nullptr && !faults_.processing && !imposed->carried_out && !imposed->whole.empty()) {
    return canned_reply(*imposed);
  }
  // A session that is refused or told to come back is as if it had never been: the reply that its number
  // may already have stays, and the number may be used again. A device at work looks at nothing.
  try {
    if (faults_.processing) refuse(ending::kProcessing);
    check_session();
  } catch (const Refusal& refusal) {
    Reply reply = compose(refusal.code, refusal.cccc, refusal.message);
    shape(reply);
    return reply;
  }

  Reply reply;
  try {
    check_arguments();
    if (imposed != nullptr && !imposed->carried_out) throw refusal_of(*imposed);
    check_activation_code();
    reply = compose((this->*handler(function_.id))(), 0, "");
  } catch (const Refusal& refusal) {
    extra_.clear();
    reply = compose(refusal.code, refusal.cccc, refusal.message);
  }
  if (verbatim_.empty())
    shape(reply);
  else
    reply.fields = split_fields(verbatim_);
  remember(reply);
  return imposed != nullptr && imposed->carried_out ? denial(*imposed) : reply;
}

// Given whatever the command holds, as by a device that a test suite has made up.
Reply FunctionCall::canned_reply(const ImposedReturn& imposed) {
  Reply reply = filled_in(imposed.whole);
  if (session_number(command_.session)) remember(reply);
  return reply;
}

Reply FunctionCall::denial(const ImposedReturn& imposed) {
  extra_.clear();
  Reply reply;
  if (imposed.whole.empty()) {
    reply = compose(imposed.code, imposed.cccc, imposed.message);
    shape(reply);
  } else {
    reply = filled_in(imposed.whole);
  }
  if (imposed.stored && function_.recorded) {
    keep(state_.sessions, SessionReply{state_.last_session, reply.text()}, kMostSessions);
  }
  return reply;
}

void FunctionCall::shape(Reply& reply) const {
  if (surroundings_.shape) surroundings_.shape(function_, reply);
}

Reply FunctionCall::compose(int code, int cccc, const std::string& message) const {
  Reply reply{code, {command_.session, padded(code, 5)}};
  if (function_.fiscal) reply.fields.push_back(padded(cccc, 4));
  reply.fields.push_back(message.empty() ? std::string(return_code_message(code)) : message);
  const auto notice = sefaz_notice(surroundings_.sefaz_notice);
  reply.fields.push_back(notice ? std::to_string(surroundings_.sefaz_notice) : "");
  reply.fields.emplace_back(notice.value_or(""));
  reply.fields.insert(reply.fields.end(), extra_.begin(), extra_.end());
  return reply;
}

void FunctionCall::remember(const Reply& reply) {
  state_.last_session = *session_number(command_.session);
  log("AC", reply.code == function_.code(ending::kSuccess) ? "info" : "alerta",
      command_.name + " sessao " + command_.session + " retorno " + padded(reply.code, 5));
  if (!function_.recorded) return;
  keep(state_.sessions, SessionReply{state_.last_session, reply.text()}, kMostSessions);
  // Only an issued document leaves fields of its own.
  if (function_.fiscal && !extra_.empty()) state_.last_fiscal_reply = reply.text();
}

void FunctionCall::log(const char* origin, const char* level, const std::string& text) {
  state_.log.push_back(format_moment(now_) + "|" + origin + "|" + level + "|" + text);
  if (state_.log.size() > kMostLogLines) state_.log.pop_front();
}

void FunctionCall::refuse_with(int code) {
  throw Refusal{code, 0, {}};
}

void FunctionCall::refuse(int last_two_digits, const std::string& message, int cccc) const {
  throw Refusal{function_.code(last_two_digits), cccc, message};
}

void FunctionCall::check_session() const {
  const auto number = session_number(command_.session);
  if (!number || *number == state_.last_session) refuse(ending::kInvalidSession);
}

void FunctionCall::check_arguments() const {
  if (command_.arguments.size() < function_.arguments) {
    refuse(ending::kUnknownError, "Erro desconhecido: faltam argumentos");
  }
}

void FunctionCall::check_activation_code() {
  const bool active = state_.activation == Activation::active;
  if (function_.code_check == CodeCheck::never) return;
  if (!active && function_.code_check == CodeCheck::when_activated) return;
  if (!active && function_.not_activated != 0) refuse_with(function_.not_activated);
  if (!active) refuse(ending::kWrongCode);
  if (function_.fiscal && state_.code_locked) refuse(kCodeLocked);
  count_wrong_code(argument(0));
}

void FunctionCall::count_wrong_code(const std::string& code) {
  if (code == state_.activation_code) {
    state_.wrong_codes = 0;
    return;
  }
  ++state_.wrong_codes;
  if (state_.wrong_codes >= surroundings_.wrong_code_limit) state_.code_locked = true;
  refuse(ending::kWrongCode);
}

void FunctionCall::check_reaches_sefaz(int code) const {
  if (!surroundings_.sefaz_reachable) refuse(code);
}

// ---- queries

int FunctionCall::consultar_status_operacional() {
  std::string first_pending, last_pending;
  for (const auto& receipt : state_.receipts) {
    if ((*receipt)->transmitted) continue;
    if (first_pending.empty()) first_pending = (*receipt)->key;
    last_pending = (*receipt)->key;
  }
  // A receipt takes about two kilobytes of the device's memory.
  const std::size_t used_megabytes = 12 + state_.receipts.size() * 2 / 1'024;
  const Network& network = state_.network;
  extra_ = {state_.serial,
            network.type,
            network.ip,
            network.mac,
            network.mask,
            network.gateway,
            network.dns1,
            network.dns2,
            surroundings_.sefaz_reachable ? "CONECTADO" : "NAO_CONECTADO",
            surroundings_.battery,
            surroundings_.memory_total,
            std::to_string(used_megabytes) + " Mbytes",
            format_moment(now_),
            state_.software_version,
            kLayoutVersion,
            state_.last_key,
            first_pending,
            last_pending,
            state_.last_transmission,
            state_.last_communication,
            state_.certificate_issued,
            state_.certificate_expires,
            std::to_string(static_cast<int>(faults_.block.value_or(state_.block)))};
  return 10000;
}

int FunctionCall::consultar_numero_sessao() {
  const auto wanted = session_number(argument(1));
  const SessionReply* found =
      newest(state_.sessions, [&](const SessionReply& record) { return record.session == wanted; });
  if (found == nullptr) refuse(3);
  verbatim_ = found->reply;
  return 11000;
}

int FunctionCall::consultar_ultima_sessao_fiscal() {
  if (state_.last_fiscal_reply.empty()) refuse(3);
  verbatim_ = state_.last_fiscal_reply;
  return 19000;
}

int FunctionCall::extrair_logs() {
  std::string lines;
  for (const std::string& line : state_.log) lines += line + "\n";
  extra_.push_back(base64_encode(lines));
  return 15000;
}

// ---- settings

int FunctionCall::configurar_interface_de_rede() {
  const auto network = read_network_settings(argument(1), state_.network);
  if (!network) refuse(2);
  state_.network = *network;
  return 12000;
}

int FunctionCall::atualizar_software_sat() {
  check_reaches_sefaz(3);
  state_.software_version = padded(small_number(state_.software_version).value_or(0) + 1, 6);
  state_.last_communication = format_moment(now_);
  log("SEFAZ", "info", "software atualizado para " + state_.software_version);
  return 14000;
}

int FunctionCall::bloquear_sat() {
  check_reaches_sefaz(3);
  if (state_.block != Block::none) refuse(2);
  state_.block = Block::contributor;
  state_.last_communication = format_moment(now_);
  return 16000;
}

int FunctionCall::desbloquear_sat() {
  check_reaches_sefaz(4);
  switch (state_.block) {
    case Block::none:
      refuse(5);
    case Block::sefaz:
      refuse(3);
    case Block::autonomous:
      refuse(6);
    case Block::deactivation:
      refuse(7);
    case Block::contributor:
      break;
  }
  state_.block = Block::none;
  state_.last_communication = format_moment(now_);
  return 17000;
}

}  // namespace emulator
