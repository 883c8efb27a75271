#include "desk/profiles.h"

#include <algorithm>
#include <array>

#include "device/crypto.h"
#include "device/function_call.h"
#include "device/messages.h"
#include "documents/encoding.h"

namespace emulator {

namespace {

// Places of fields in a reply.
constexpr std::size_t kFiscalXml = 6, kFiscalKey = 8, kFiscalTotal = 9;
constexpr std::size_t kTestXml = 5, kTestKey = 8;
constexpr std::size_t kLogLines = 5, kRequest = 5;
constexpr std::size_t kLastKey = 20, kFirstPending = 21, kLastPending = 22;
constexpr std::size_t kLastTransmission = 23, kLastDate = 26, kOperatingState = 27;
constexpr std::size_t kStatusFields = 28;

bool is_status(const Function& function, const Reply& reply) {
  return function.id == FunctionId::consultar_status_operacional && reply.fields.size() == kStatusFields;
}

bool has_document(const Function& function, const Reply& reply) {
  return function.fiscal && reply.fields.size() > kFiscalTotal;
}

void change_keys(const Function& function, Reply& reply, void (*change)(std::string& key)) {
  const auto change_field = [&](std::size_t field) {
    if (reply.fields[field].starts_with("CFe")) change(reply.fields[field]);
  };
  if (has_document(function, reply)) change_field(kFiscalKey);
  if (function.id == FunctionId::teste_fim_a_fim && reply.fields.size() > kTestKey) change_field(kTestKey);
  if (is_status(function, reply)) {
    for (const std::size_t field : {kLastKey, kFirstPending, kLastPending}) change_field(field);
  }
}

void set_dates(const Function& function, Reply& reply, std::string (*value)(const std::string& date)) {
  if (!is_status(function, reply)) return;
  for (std::size_t field = kLastTransmission; field <= kLastDate; ++field) {
    reply.fields[field] = value(reply.fields[field]);
  }
}

void busy_extra_field(const Function& function, Reply& reply) {
  if (reply.code == function.code(ending::kProcessing)) reply.fields.emplace_back();
}

void crlf_base64(const Function& function, Reply& reply) {
  constexpr std::size_t kLineLength = 76;
  static constexpr std::array<std::pair<FunctionId, std::size_t>, 5> fields{{
      {FunctionId::ativar_sat, kRequest},
      {FunctionId::enviar_dados_venda, kFiscalXml},
      {FunctionId::cancelar_ultima_venda, kFiscalXml},
      {FunctionId::teste_fim_a_fim, kTestXml},
      {FunctionId::extrair_logs, kLogLines},
  }};
  for (const auto& [id, field] : fields) {
    if (function.id != id || reply.fields.size() <= field) continue;
    std::string& text = reply.fields[field];
    for (std::size_t at = kLineLength; at < text.size(); at += kLineLength + 2) text.insert(at, "\r\n");
  }
}

void short_list(const Function& function, Reply& reply) {
  if (is_status(function, reply)) reply.fields.pop_back();
}

void state_words(const Function& function, Reply& reply) {
  static constexpr std::array words{"DESBLOQUEADO", "BLOQUEADO SEFAZ", "BLOQUEADO CONTRIBUINTE",
                                    "BLOQUEADO AUTONOMO", "BLOQUEADO PARA DESATIVACAO"};
  if (!is_status(function, reply)) return;
  std::string& state = reply.fields[kOperatingState];
  state = words.at(static_cast<std::size_t>(small_number(state).value_or(0)));
}

void total_15_digits(const Function& function, Reply& reply) {
  if (!has_document(function, reply)) return;
  std::string& total = reply.fields[kFiscalTotal];
  std::erase(total, '.');
  total.insert(0, 15 - std::min<std::size_t>(15, total.size()), '0');
}

}  // namespace

const std::vector<Profile>& profiles() {
  static const std::vector<Profile> table{
      {"busy-extra-field", "the reply \"in process\" has one field more", busy_extra_field},
      {"crlf-base64", "CR LF after every 76 characters of Base64", crlf_base64},
      {"cfe-prefix", "access keys begin with \"Cfe\"",
       [](const Function& f, Reply& r) { change_keys(f, r, [](std::string& key) { key[1] = 'f'; }); }},
      {"bare-key", "access keys are 44 digits without a prefix",
       [](const Function& f, Reply& r) { change_keys(f, r, [](std::string& key) { key.erase(0, 3); }); }},
      {"short-list", "ConsultarStatusOperacional lacks its last field", short_list},
      {"state-words", "the operating state is a text", state_words},
      {"empty-dates", "the dates of ConsultarStatusOperacional are empty",
       [](const Function& f, Reply& r) {
         set_dates(f, r, [](const std::string&) { return std::string(); });
       }},
      {"zero-dates", "the dates of ConsultarStatusOperacional are zeros",
       [](const Function& f, Reply& r) {
         set_dates(f, r, [](const std::string& date) { return std::string(date.size(), '0'); });
       }},
      {"ascii-texts", "texts are ASCII: no accents",
       [](const Function&, Reply& r) {
         for (std::string& field : r.fields) field = without_accents(field);
       }},
      {"total-15-digits", "the total of a document is fifteen digits, in cents", total_15_digits},
      {kLastSaleOnlyProfile, "only the very last sale can be cancelled", nullptr},
      {kStaticProfile, "the same successful reply per function, whatever the state", nullptr},
  };
  return table;
}

const Profile* find_profile(const std::string& name) {
  const auto& table = profiles();
  const auto found =
      std::find_if(table.begin(), table.end(), [&](const Profile& profile) { return name == profile.name; });
  return found == table.end() ? nullptr : &*found;
}

Reply canned_reply(const Command& command) {
  // The parts of one sale that never was.
  static const std::string xml = base64_encode("<CFe/>");
  static const std::string moment = "20260101120000";
  static const std::string key = "CFe35260111222333000181599000000010000010000012";
  static const std::string signature = std::string(342, 'A') + "==";
  static const std::string request =
      base64_encode("-----BEGIN CERTIFICATE REQUEST-----\nMAA=\n-----END CERTIFICATE REQUEST-----\n");
  using enum FunctionId;
  static const std::vector<std::pair<FunctionId, std::vector<std::string>>> extra{
      {ativar_sat, {request}},
      {enviar_dados_venda, {xml, moment, key, "10.00", "", signature}},
      {cancelar_ultima_venda, {xml, moment, key, "10.00", "", signature}},
      {teste_fim_a_fim, {xml, moment, "000001", key}},
      {consultar_status_operacional,
       {"900000001",
        "DHCP",
        "192.168.1.50",
        "02:53:41:54:00:01",
        "255.255.255.0",
        "192.168.1.1",
        "192.168.1.1",
        "0.0.0.0",
        "CONECTADO",
        "ALTO",
        "1 Gbytes",
        "12 Mbytes",
        moment,
        "010000",
        kLayoutVersion,
        key,
        "",
        "",
        moment,
        moment,
        "20260101",
        "20310101",
        "0"}},
      {extrair_logs, {base64_encode(moment + "|SAT|info|ligado\n")}},
  };
  if (command.function == nullptr) return {99099, {command.session, "99099", "Comando desconhecido", "", ""}};
  const int code = command.function->code(ending::kSuccess);
  Reply reply{code, {command.session, padded(code, 5)}};
  if (command.function->fiscal) reply.fields.emplace_back("0000");
  reply.fields.insert(reply.fields.end(), {std::string(return_code_message(code)), "", ""});
  for (const auto& [id, fields] : extra) {
    if (id == command.function->id) reply.fields.insert(reply.fields.end(), fields.begin(), fields.end());
  }
  return reply;
}

}  // namespace emulator
