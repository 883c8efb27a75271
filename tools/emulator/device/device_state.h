// Everything that a device remembers when it is switched off.
#pragma once

#include <deque>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "documents/decimal.h"
#include "documents/moment.h"

namespace emulator {

enum class Activation { none, awaiting_certificate, active };

// The values are those of the operating state in ConsultarStatusOperacional.
enum class Block { none = 0, sefaz = 1, contributor = 2, autonomous = 3, deactivation = 4 };

struct Network {
  std::string type = "DHCP";
  std::string ip = "192.168.1.50";
  std::string mac = "02:53:41:54:00:01";
  std::string mask = "255.255.255.0";
  std::string gateway = "192.168.1.1";
  std::string dns1 = "192.168.1.1";
  std::string dns2 = "0.0.0.0";
};

// A document that the device has issued.
struct Receipt {
  std::string key;   // "CFe" and 44 digits
  std::string kind;  // "sale" or "cancellation"
  int session = 0;
  int number = 0;
  Moment issued = 0;
  Cents total = 0;
  std::string buyer;    // CPF, CNPJ or empty
  std::string cancels;  // of a cancellation: the key of the sale
  std::string cancelled_by;
  bool transmitted = true;
};

struct SessionReply {
  int session = 0;
  std::string reply;
};

// A record that never changes any more, with its JSON made once: a device with thousands of them is
// stored again after every call.
template <typename Record>
class Kept {
 public:
  explicit Kept(Record record);
  const Record& operator*() const { return record_; }
  const Record* operator->() const { return &record_; }
  const std::string& json() const { return json_; }

 private:
  Record record_;
  std::string json_;
};
template <typename Record>
using KeptList = std::deque<std::shared_ptr<const Kept<Record>>>;

struct DeviceState {
  // Identity.
  std::string serial = "900000001";
  int uf = 35;
  std::string cnpj;  // empty: any issuer may sell
  std::string software_version = "010000";
  std::string signing_key;  // PEM; empty until it is needed

  // Activation.
  Activation activation = Activation::none;
  std::string activation_code;
  std::string emergency_code = "emergencia";
  int wrong_codes = 0;  // in a row
  bool code_locked = false;
  bool associated = false;
  std::string signature;           // signAC to be sent; empty: any
  std::string certificate_issued;  // yyyymmdd
  std::string certificate_expires;

  // Operation.
  Block block = Block::none;
  Network network;
  int next_number = 1;
  int next_test_number = 1;
  int last_session = -1;
  std::string last_key;
  std::string last_transmission;  // yyyymmddHHMMSS
  std::string last_communication;
  std::string last_fiscal_reply;
  std::deque<std::string> log;

  KeptList<Receipt> receipts;       // oldest first
  KeptList<SessionReply> sessions;  // oldest first
};

// The bounds of a device's memory: the oldest records make room.
inline constexpr std::size_t kMostReceipts = 10'000;
inline constexpr std::size_t kMostSessions = 1'000;
inline constexpr std::size_t kMostLogLines = 500;

template <typename Record>
void keep(KeptList<Record>& list, Record record, std::size_t most) {
  list.push_back(std::make_shared<const Kept<Record>>(std::move(record)));
  if (list.size() > most) list.pop_front();
}

// The newest record for which the condition holds, or null.
template <typename Record, typename Condition>
const Record* newest(const KeptList<Record>& list, Condition condition) {
  for (auto it = list.rbegin(); it != list.rend(); ++it) {
    if (condition(***it)) return &***it;
  }
  return nullptr;
}

// Replaces the record whose key this is.
void replace_receipt(KeptList<Receipt>& list, const Receipt& changed);

// Hands the receipts that wait for the tax authority over to it.
void transmit_pending(DeviceState& state, const std::string& now);

std::string to_json_text(const DeviceState& state);
// Throws nlohmann::json::exception or std::runtime_error.
DeviceState from_json_text(const std::string& text);
// Without private key, replies and log: what the control socket shows.
nlohmann::json summary(const DeviceState& state);

}  // namespace emulator
