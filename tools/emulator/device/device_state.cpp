#include "device/device_state.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace emulator {

using nlohmann::json;

namespace {

constexpr int kFormat = 1;

// Texts come from tills; one that is no UTF-8 must not stop the device from being stored.
std::string dump(const json& value, int indent = -1) {
  return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

template <typename Record>
std::size_t size_of(const KeptList<Record>& list) {
  std::size_t size = 0;
  for (const auto& record : list) size += record->json().size() + 2;
  return size;
}

template <typename Record>
void write_list(std::string& text, const char* name, const KeptList<Record>& list) {
  text += ",\n\"";
  text += name;
  text += "\": [";
  const char* separator = "\n";
  for (const auto& record : list) {
    text += separator;
    text += record->json();
    separator = ",\n";
  }
  text += "\n]";
}

template <typename Record>
void read_list(const json& text, const char* name, KeptList<Record>& list) {
  for (const json& record : text.at(name)) {
    list.push_back(std::make_shared<const Kept<Record>>(record.get<Record>()));
  }
}

}  // namespace

NLOHMANN_JSON_SERIALIZE_ENUM(Activation, {{Activation::none, "none"},
                                          {Activation::awaiting_certificate, "awaiting_certificate"},
                                          {Activation::active, "active"}})
NLOHMANN_JSON_SERIALIZE_ENUM(Block, {{Block::none, "none"},
                                     {Block::sefaz, "sefaz"},
                                     {Block::contributor, "contributor"},
                                     {Block::autonomous, "autonomous"},
                                     {Block::deactivation, "deactivation"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Network, type, ip, mac, mask, gateway, dns1, dns2)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Receipt, key, kind, session, number, issued, total, buyer,
                                                cancels, cancelled_by, transmitted)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SessionReply, session, reply)
// The lists of receipts and sessions are written record by record, beside these.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(DeviceState, serial, uf, cnpj, software_version, signing_key,
                                                activation, activation_code, emergency_code, wrong_codes,
                                                code_locked, associated, signature, certificate_issued,
                                                certificate_expires, block, network, next_number,
                                                next_test_number, last_session, last_key, last_transmission,
                                                last_communication, last_fiscal_reply, log)

template <typename Record>
Kept<Record>::Kept(Record record) : record_(std::move(record)), json_(dump(nlohmann::json(record_))) {}

template class Kept<Receipt>;
template class Kept<SessionReply>;

void replace_receipt(KeptList<Receipt>& list, const Receipt& changed) {
  const auto found =
      std::find_if(list.rbegin(), list.rend(), [&](const auto& kept) { return (*kept)->key == changed.key; });
  if (found != list.rend()) *found = std::make_shared<const Kept<Receipt>>(changed);
}

void transmit_pending(DeviceState& state, const std::string& now) {
  for (auto& kept : state.receipts) {
    if ((*kept)->transmitted) continue;
    Receipt receipt = **kept;
    receipt.transmitted = true;
    kept = std::make_shared<const Kept<Receipt>>(std::move(receipt));
    state.last_transmission = now;
  }
  state.last_communication = now;
}

std::string to_json_text(const DeviceState& state) {
  std::string text = "{\n\"format\": " + std::to_string(kFormat) + ",\n\"device\": " + dump(json(state), 1);
  text.reserve(text.size() + size_of(state.receipts) + size_of(state.sessions) + 100);
  write_list(text, "receipts", state.receipts);
  write_list(text, "sessions", state.sessions);
  return text + "\n}\n";
}

DeviceState from_json_text(const std::string& text) {
  const json parsed = json::parse(text);
  if (parsed.at("format") != kFormat) throw std::runtime_error("unknown format of the state file");
  auto state = parsed.at("device").get<DeviceState>();
  read_list(parsed, "receipts", state.receipts);
  read_list(parsed, "sessions", state.sessions);
  return state;
}

json summary(const DeviceState& state) {
  json text = state;
  for (const char* secret : {"signing_key", "last_fiscal_reply", "log"}) text.erase(secret);
  text["receipts"] = state.receipts.size();
  text["sessions"] = state.sessions.size();
  return text;
}

}  // namespace emulator
