// The journal: every command and reply that matters, on disk before anybody acts on it. It alone knows SQL.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "hub/journal/operation.h"

namespace hub {

// The journal cannot be read or written. What was being committed counts neither as done nor as undone.
class JournalError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Till {
  TillId id = 0;
  std::string name;
  std::string role;
  Moment created = 0;
  bool has_token = false;
};

struct DeviceRecord {
  std::string serial;
  std::string first_baseline;
  std::string last;
  int sessions_below = 0;
  int epoch = 0;
  std::string refused_code;
};

struct Receipt {
  std::string key;  // 44 digits
  std::optional<OperationId> operation;
  std::string till;  // name; empty for an orphan
  std::string serial;
  int number = 0;
  std::string total;
  Moment moment = 0;
  std::string reply;
};

struct ReceiptSearch {
  std::optional<Moment> from, to;
  std::string till, total;
  int most = 1000;
};

struct Alarm {
  std::string who;
  std::string text;
};

// The operation has changed its state meanwhile.
class StaleOperation : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// What a change of state brings along; all of it is committed together or not at all.
struct Change {
  State to = State::queued;
  std::string reason;
  // sent
  std::string serial;
  int session = 0;
  std::string baseline;
  // done
  std::string reply;
  std::optional<Receipt> receipt;  // becomes the device's last, too
  // queued: a new attempt
  std::optional<int> attempt;
  std::optional<int> till_session;
  bool port_changed = false;
  std::vector<Alarm> alarms;
};

class Journal {
 public:
  // Makes the journal if there is none, and brings an older one up to date. One that is newer than this
  // program, or is damaged, is refused and left as it is.
  explicit Journal(const std::filesystem::path& file);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // ---- Operations
  std::optional<Operation> find(OperationId id) const;
  std::optional<Operation> find(TillId till, std::string_view function, const std::string& key) const;
  std::vector<Operation> in_state(State state, int most = 1000) const;
  std::vector<Operation> latest(int most) const;
  // The newest one of a till under its own session number, not older than the moment.
  std::optional<Operation> find_session(TillId till, int till_session, Moment since) const;
  std::optional<Operation> last_fiscal(TillId till, Moment since) const;
  std::optional<Operation> last_issued(TillId till, Moment since) const;
  // Declared "not issued" by hand, under a session that the device may still know.
  std::vector<Operation> watched(const std::string& serial, Moment since) const;

  // The only way into the journal, and the only change of an operation's state. Both refuse what the diagram
  // lacks.
  Operation enter(Operation operation, const std::vector<Alarm>& alarms = {});
  Operation change(const Operation& operation, const Change& change);
  // Another device was seen while the outcome of orders whose port had changed was not known.
  void note_stand_in(const std::string& serial);

  // ---- Devices
  std::optional<DeviceRecord> device(const std::string& serial) const;
  std::vector<DeviceRecord> devices() const;
  void keep_device(const DeviceRecord& device, const std::vector<Alarm>& alarms = {});

  // ---- Receipts
  bool knows(const AccessKey& key) const;
  std::optional<Receipt> receipt(const std::string& digits) const;
  std::vector<Receipt> receipts(const ReceiptSearch& search) const;
  std::vector<Receipt> orphans() const;  // not settled yet
  void add_orphan(const Receipt& receipt, const Alarm& alarm);
  void settle_orphan(const std::string& digits);

  // ---- Tills
  std::optional<Till> till_with_token(const std::string& digest) const;
  std::optional<Till> till_named(const std::string& name) const;
  std::vector<Till> tills() const;
  Till add_till(const std::string& name, const std::string& role);
  void add_token(TillId till, const std::string& digest);
  int revoke_tokens(TillId till);

  // ---- Sessions that tills were told do not exist
  void close_session(TillId till, int session);
  bool is_closed(TillId till, int session, Moment since) const;

  void note(const Alarm& alarm, bool is_alarm = true);
  std::vector<std::string> alarms(int most) const;

  // Reads every page; minutes for a long journal.
  std::vector<std::string> damages() const;

 private:
  struct Database;
  std::unique_ptr<Database> database_;
};

Moment wall_clock();

}  // namespace hub
