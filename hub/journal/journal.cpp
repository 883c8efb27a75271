#include "hub/journal/journal.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <ctime>
#include <limits>

#include "hub/journal/schema.h"
#include "hub/text.h"

namespace hub {

namespace {

constexpr int kBusyMilliseconds = 5000;

constexpr const char* kOperationColumns =
    "id, till, function, key, body, cancels, till_session, attempt, state, serial, session, baseline, "
    "port_changed, reply, receipt, reason, created, changed, stand_in";

std::string bytes(const SQLite::Column& column) {
  return std::string(static_cast<const char*>(column.getBlob()), static_cast<std::size_t>(column.getBytes()));
}

void bind_bytes(SQLite::Statement& statement, const char* name, const std::string& value) {
  statement.bind(name, value.data(), static_cast<int>(value.size()));
}

void bind_number(SQLite::Statement& statement, const char* name, std::optional<int> value) {
  if (value)
    statement.bind(name, *value);
  else
    statement.bind(name);
}

Operation operation_in(SQLite::Statement& row) {
  Operation operation;
  operation.id = row.getColumn(0).getInt64();
  operation.till = row.getColumn(1).getInt64();
  operation.function = row.getColumn(2).getString();
  operation.key = row.getColumn(3).getString();
  operation.body = bytes(row.getColumn(4));
  operation.cancels = row.getColumn(5).getString();
  if (!row.getColumn(6).isNull()) operation.till_session = row.getColumn(6).getInt();
  operation.attempt = row.getColumn(7).getInt();
  const auto state = state_named(row.getColumn(8).getString());
  if (!state) throw JournalError("an operation in a state that does not exist");
  operation.state = *state;
  operation.serial = row.getColumn(9).getString();
  operation.session = row.getColumn(10).getInt();
  operation.baseline = row.getColumn(11).getString();
  operation.port_changed = row.getColumn(12).getInt() != 0;
  operation.reply = bytes(row.getColumn(13));
  operation.receipt = row.getColumn(14).getString();
  operation.reason = row.getColumn(15).getString();
  operation.created = row.getColumn(16).getInt64();
  operation.changed = row.getColumn(17).getInt64();
  operation.stand_in = row.getColumn(18).getString();
  return operation;
}

constexpr const char* kReceiptColumns =
    "receipt.key, receipt.operation, coalesce(till.name, ''), receipt.serial, receipt.number, receipt.total, "
    "receipt.moment, CASE WHEN operation.reply IS NULL OR length(operation.reply) = 0 THEN receipt.reply "
    "ELSE operation.reply END "
    "FROM receipt LEFT JOIN operation ON operation.id = receipt.operation LEFT JOIN till ON till.id = operation.till";

Receipt receipt_in(SQLite::Statement& row) {
  Receipt receipt;
  receipt.key = row.getColumn(0).getString();
  if (!row.getColumn(1).isNull()) receipt.operation = row.getColumn(1).getInt64();
  receipt.till = row.getColumn(2).getString();
  receipt.serial = row.getColumn(3).getString();
  receipt.number = row.getColumn(4).getInt();
  receipt.total = row.getColumn(5).getString();
  receipt.moment = row.getColumn(6).getInt64();
  receipt.reply = bytes(row.getColumn(7));
  return receipt;
}

DeviceRecord device_in(SQLite::Statement& row) {
  return {row.getColumn(0).getString(), row.getColumn(1).getString(), row.getColumn(2).getString(),
          row.getColumn(3).getInt(),    row.getColumn(4).getInt(),    row.getColumn(5).getString()};
}
constexpr const char* kDeviceColumns = "serial, first_baseline, last, sessions_below, epoch, refused_code";

Till till_in(SQLite::Statement& row) {
  return {row.getColumn(0).getInt64(), row.getColumn(1).getString(), row.getColumn(2).getString(),
          row.getColumn(3).getInt64(), row.getColumn(4).getInt() != 0};
}
constexpr const char* kTillColumns =
    "till.id, till.name, till.role, till.created, "
    "EXISTS (SELECT 1 FROM token WHERE token.till = till.id AND token.revoked IS NULL)";

}  // namespace

Moment wall_clock() {
  return static_cast<Moment>(std::time(nullptr));
}

// ---- The database ----

struct Journal::Database {
  explicit Database(const std::filesystem::path& file)
      : sqlite(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyMilliseconds) {
    sqlite.exec("PRAGMA journal_mode = WAL");
    sqlite.exec("PRAGMA synchronous = FULL");
    sqlite.exec("PRAGMA foreign_keys = ON");
    migrate();
  }

  void migrate() {
    const auto steps = migrations();
    const auto version = static_cast<std::size_t>(sqlite.execAndGet("PRAGMA user_version").getInt());
    if (version > steps.size()) {
      throw JournalError(tr({"the journal was written by a newer version of this program",
                             "o diário foi gravado por uma versão mais nova deste programa"}));
    }
    if (version == steps.size()) return;
    SQLite::Transaction transaction(sqlite, SQLite::TransactionBehavior::IMMEDIATE);
    for (std::size_t step = version; step < steps.size(); ++step) sqlite.exec(steps[step]);
    sqlite.exec("PRAGMA user_version = " + std::to_string(steps.size()));
    transaction.commit();
  }

  template <typename Row>
  auto all(SQLite::Statement& statement, Row row) {
    std::vector<decltype(row(statement))> rows;
    while (statement.executeStep()) rows.push_back(row(statement));
    return rows;
  }

  template <typename Row>
  auto first(SQLite::Statement& statement, Row row) -> std::optional<decltype(row(statement))> {
    if (!statement.executeStep()) return std::nullopt;
    return row(statement);
  }

  void write_audit(const Alarm& alarm, bool is_alarm, std::optional<OperationId> operation) {
    SQLite::Statement insert(
        sqlite,
        "INSERT INTO audit (moment, alarm, who, operation, text) VALUES (:moment, :alarm, :who, :operation, :text)");
    insert.bind(":moment", wall_clock());
    insert.bind(":alarm", is_alarm ? 1 : 0);
    insert.bind(":who", alarm.who);
    if (operation) insert.bind(":operation", *operation);
    insert.bind(":text", alarm.text);
    insert.exec();
  }

  void write_receipt(const Receipt& receipt) {
    SQLite::Statement insert(
        sqlite,
        "INSERT INTO receipt (key, operation, serial, number, total, moment, reply) "
        "VALUES (:key, :operation, :serial, :number, :total, :moment, :reply) "
        "ON CONFLICT (key) DO UPDATE SET operation = :operation, claimed = 1 WHERE operation IS NULL");
    insert.bind(":key", receipt.key);
    if (receipt.operation) insert.bind(":operation", *receipt.operation);
    insert.bind(":serial", receipt.serial);
    insert.bind(":number", receipt.number);
    insert.bind(":total", receipt.total);
    insert.bind(":moment", receipt.moment);
    bind_bytes(insert, ":reply", receipt.operation ? std::string() : receipt.reply);
    if (insert.exec() != 1) throw JournalError("the receipt belongs to another operation");
  }

  // The device's last receipt, unless it knows a newer one already.
  void write_last(const Receipt& receipt) {
    SQLite::Statement query(sqlite, "SELECT last FROM device WHERE serial = ?");
    query.bind(1, receipt.serial);
    if (!query.executeStep()) return;
    const auto last = AccessKey::parse(query.getColumn(0).getString());
    if (!comes_after(last, *AccessKey::parse(receipt.key))) return;
    query.reset();
    SQLite::Statement update(sqlite, "UPDATE device SET last = ? WHERE serial = ?");
    update.bind(1, receipt.key);
    update.bind(2, receipt.serial);
    update.exec();
  }

  // All or nothing. Whatever goes wrong in it has one name.
  template <typename Work>
  auto commit(Work work) {
    return guarded([&] {
      SQLite::Transaction transaction(sqlite, SQLite::TransactionBehavior::IMMEDIATE);
      if constexpr (std::is_void_v<decltype(work())>) {
        work();
        transaction.commit();
      } else {
        auto result = work();
        transaction.commit();
        return result;
      }
    });
  }

  template <typename Work>
  static auto guarded(Work work) {
    try {
      return work();
    } catch (const SQLite::Exception& error) {
      throw JournalError(error.what());
    }
  }

  SQLite::Database sqlite;
};

Journal::Journal(const std::filesystem::path& file)
    : database_(Database::guarded([&] { return std::make_unique<Database>(file); })) {}

Journal::~Journal() = default;

// ---- Operations ----

std::optional<Operation> Journal::find(OperationId id) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kOperationColumns + " FROM operation WHERE id = ?");
    query.bind(1, id);
    return database_->first(query, operation_in);
  });
}

std::optional<Operation> Journal::find(TillId till, std::string_view function, const std::string& key) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kOperationColumns +
                                " FROM operation WHERE till = ? AND function = ? AND key = ?");
    query.bind(1, till);
    query.bind(2, std::string(function));
    query.bind(3, key);
    return database_->first(query, operation_in);
  });
}

std::vector<Operation> Journal::in_state(State state, int most) const {
  return Database::guarded([&] {
    // The state stands in the text: only so does SQLite see that the index of open operations serves.
    SQLite::Statement query(database_->sqlite, std::string("SELECT ") + kOperationColumns +
                                                   " FROM operation WHERE state = '" +
                                                   std::string(name_of(state)) + "' ORDER BY id LIMIT ?");
    query.bind(1, most);
    return database_->all(query, operation_in);
  });
}

std::vector<Operation> Journal::latest(int most) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite, std::string("SELECT ") + kOperationColumns +
                                                   " FROM operation ORDER BY id DESC LIMIT ?");
    query.bind(1, most);
    return database_->all(query, operation_in);
  });
}

std::optional<Operation> Journal::find_session(TillId till, int till_session, Moment since) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kOperationColumns +
                                " FROM operation WHERE till = ? AND till_session = ? AND changed >= ? "
                                "AND function IN ('EnviarDadosVenda', 'CancelarUltimaVenda') "
                                "ORDER BY id DESC LIMIT 1");
    query.bind(1, till);
    query.bind(2, till_session);
    query.bind(3, since);
    return database_->first(query, operation_in);
  });
}

std::optional<Operation> Journal::last_fiscal(TillId till, Moment since) const {
  return Database::guarded([&] {
    SQLite::Statement query(
        database_->sqlite, std::string("SELECT ") + kOperationColumns +
                               " FROM operation WHERE till = ? AND till_session IS NOT NULL AND changed >= ? "
                               "AND function IN ('EnviarDadosVenda', 'CancelarUltimaVenda') "
                               "ORDER BY id DESC LIMIT 1");
    query.bind(1, till);
    query.bind(2, since);
    return database_->first(query, operation_in);
  });
}

std::optional<Operation> Journal::last_issued(TillId till, Moment since) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kOperationColumns +
                                " FROM operation WHERE till = ? AND receipt <> '' AND length(reply) > 0 "
                                "AND changed >= ? ORDER BY changed DESC, id DESC LIMIT 1");
    query.bind(1, till);
    query.bind(2, since);
    return database_->first(query, operation_in);
  });
}

std::vector<Operation> Journal::watched(const std::string& serial, Moment since) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kOperationColumns +
                                " FROM operation WHERE state = 'not-issued' AND session > 0 "
                                "AND serial = ? AND changed >= ? ORDER BY id");
    query.bind(1, serial);
    query.bind(2, since);
    return database_->all(query, operation_in);
  });
}

Operation Journal::enter(Operation operation, const std::vector<Alarm>& alarms) {
  if (!is_allowed(std::nullopt, operation.state)) {
    throw std::logic_error("no operation begins as " + std::string(name_of(operation.state)));
  }
  return database_->commit([&] {
    operation.created = operation.changed = wall_clock();
    SQLite::Statement insert(
        database_->sqlite,
        "INSERT INTO operation (till, function, key, body, cancels, till_session, attempt, state, serial, reply, reason, "
        "created, changed) VALUES (:till, :function, :key, :body, :cancels, :till_session, :attempt, :state, :serial, "
        ":reply, :reason, :now, :now)");
    insert.bind(":till", operation.till);
    insert.bind(":function", operation.function);
    insert.bind(":key", operation.key);
    bind_bytes(insert, ":body", operation.body);
    insert.bind(":cancels", operation.cancels);
    bind_number(insert, ":till_session", operation.till_session);
    insert.bind(":attempt", operation.attempt);
    insert.bind(":state", std::string(name_of(operation.state)));
    insert.bind(":serial", operation.serial);
    bind_bytes(insert, ":reply", operation.reply);
    insert.bind(":reason", operation.reason);
    insert.bind(":now", operation.created);
    insert.exec();
    operation.id = database_->sqlite.getLastInsertRowid();
    for (const Alarm& alarm : alarms) database_->write_audit(alarm, true, operation.id);
    return operation;
  });
}

Operation Journal::change(const Operation& before, const Change& change) {
  if (!is_allowed(before.state, change.to)) {
    throw std::logic_error("no way from " + std::string(name_of(before.state)) + " to " +
                           std::string(name_of(change.to)));
  }
  Operation after = before;
  after.state = change.to;
  after.reason = change.reason;
  after.changed = wall_clock();
  after.port_changed = change.port_changed || before.port_changed;
  if (change.to == State::sent) {
    after.serial = change.serial;
    after.session = change.session;
    after.baseline = change.baseline;
    after.port_changed = false;
    after.stand_in.clear();
  }
  if (change.attempt) after.attempt = *change.attempt;
  if (change.till_session) after.till_session = change.till_session;
  if (!change.reply.empty()) after.reply = change.reply;
  if (change.receipt) after.receipt = change.receipt->key;
  return database_->commit([&] {
    SQLite::Statement update(
        database_->sqlite,
        "UPDATE operation SET state = :state, serial = :serial, session = :session, baseline = :baseline, "
        "port_changed = :port_changed, stand_in = :stand_in, reply = :reply, receipt = :receipt, reason = :reason, attempt = :attempt, "
        "till_session = :till_session, changed = :changed WHERE id = :id AND state = :before");
    update.bind(":state", std::string(name_of(after.state)));
    update.bind(":serial", after.serial);
    update.bind(":session", after.session);
    update.bind(":baseline", after.baseline);
    update.bind(":port_changed", after.port_changed ? 1 : 0);
    update.bind(":stand_in", after.stand_in);
    bind_bytes(update, ":reply", after.reply);
    update.bind(":receipt", after.receipt);
    update.bind(":reason", after.reason);
    update.bind(":attempt", after.attempt);
    bind_number(update, ":till_session", after.till_session);
    update.bind(":changed", after.changed);
    update.bind(":id", before.id);
    update.bind(":before", std::string(name_of(before.state)));
    if (update.exec() != 1) throw StaleOperation("the operation's state is not what it was");
    if (change.receipt) {
      Receipt receipt = *change.receipt;
      receipt.operation = before.id;
      database_->write_receipt(receipt);
      database_->write_last(receipt);
    }
    for (const Alarm& alarm : change.alarms) database_->write_audit(alarm, true, before.id);
    return after;
  });
}

void Journal::note_stand_in(const std::string& serial) {
  database_->commit([&] {
    SQLite::Statement update(
        database_->sqlite,
        "UPDATE operation SET stand_in = :serial WHERE state IN ('unknown', 'undecided') "
        "AND port_changed = 1 AND stand_in = '' AND serial <> :serial");
    update.bind(":serial", serial);
    update.exec();
  });
}

// ---- Devices ----

std::optional<DeviceRecord> Journal::device(const std::string& serial) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kDeviceColumns + " FROM device WHERE serial = ?");
    query.bind(1, serial);
    return database_->first(query, device_in);
  });
}

std::vector<DeviceRecord> Journal::devices() const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kDeviceColumns + " FROM device ORDER BY serial");
    return database_->all(query, device_in);
  });
}

void Journal::keep_device(const DeviceRecord& device, const std::vector<Alarm>& alarms) {
  database_->commit([&] {
    SQLite::Statement replace(
        database_->sqlite,
        "INSERT INTO device (serial, first_baseline, last, sessions_below, epoch, refused_code) "
        "VALUES (:serial, :first, :last, :sessions, :epoch, :refused) ON CONFLICT (serial) DO UPDATE SET "
        "last = :last, sessions_below = :sessions, epoch = :epoch, refused_code = :refused");
    replace.bind(":serial", device.serial);
    replace.bind(":first", device.first_baseline);
    replace.bind(":last", device.last);
    replace.bind(":sessions", device.sessions_below);
    replace.bind(":epoch", device.epoch);
    replace.bind(":refused", device.refused_code);
    replace.exec();
    for (const Alarm& alarm : alarms) database_->write_audit(alarm, true, std::nullopt);
  });
}

// ---- Receipts ----

bool Journal::knows(const AccessKey& key) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite, "SELECT 1 FROM receipt WHERE key = ?");
    query.bind(1, key.digits());
    return query.executeStep();
  });
}

std::optional<Receipt> Journal::receipt(const std::string& digits) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kReceiptColumns + " WHERE receipt.key = ?");
    query.bind(1, digits);
    return database_->first(query, receipt_in);
  });
}

std::vector<Receipt> Journal::receipts(const ReceiptSearch& search) const {
  return Database::guarded([&] {
    SQLite::Statement query(
        database_->sqlite,
        std::string("SELECT ") + kReceiptColumns +
            " WHERE receipt.moment >= :from AND receipt.moment < :to "
            "AND (:till = '' OR till.name = :till) AND (:total = '' OR receipt.total = :total) "
            "ORDER BY receipt.moment, receipt.key LIMIT :most");
    query.bind(":from", search.from.value_or(0));
    query.bind(":to", search.to.value_or(std::numeric_limits<Moment>::max()));
    query.bind(":till", search.till);
    query.bind(":total", search.total);
    query.bind(":most", search.most);
    return database_->all(query, receipt_in);
  });
}

std::vector<Receipt> Journal::orphans() const {
  return Database::guarded([&] {
    SQLite::Statement query(
        database_->sqlite,
        std::string("SELECT ") + kReceiptColumns +
            " WHERE receipt.operation IS NULL AND receipt.claimed = 0 ORDER BY receipt.key");
    return database_->all(query, receipt_in);
  });
}

void Journal::add_orphan(const Receipt& receipt, const Alarm& alarm) {
  database_->commit([&] {
    database_->write_receipt(receipt);
    database_->write_last(receipt);
    database_->write_audit(alarm, true, std::nullopt);
  });
}

void Journal::settle_orphan(const std::string& digits) {
  database_->commit([&] {
    SQLite::Statement update(database_->sqlite, "UPDATE receipt SET claimed = 1 WHERE key = ?");
    update.bind(1, digits);
    update.exec();
  });
}

// ---- Tills ----

std::optional<Till> Journal::till_with_token(const std::string& digest) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite, std::string("SELECT ") + kTillColumns +
                                                   " FROM token JOIN till ON till.id = token.till "
                                                   "WHERE token.digest = ? AND token.revoked IS NULL");
    query.bind(1, digest.data(), static_cast<int>(digest.size()));
    return database_->first(query, till_in);
  });
}

std::optional<Till> Journal::till_named(const std::string& name) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kTillColumns + " FROM till WHERE name = ?");
    query.bind(1, name);
    return database_->first(query, till_in);
  });
}

std::vector<Till> Journal::tills() const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            std::string("SELECT ") + kTillColumns + " FROM till ORDER BY id");
    return database_->all(query, till_in);
  });
}

Till Journal::add_till(const std::string& name, const std::string& role) {
  return database_->commit([&] {
    SQLite::Statement insert(database_->sqlite, "INSERT INTO till (name, role, created) VALUES (?, ?, ?)");
    insert.bind(1, name);
    insert.bind(2, role);
    insert.bind(3, wall_clock());
    insert.exec();
    return Till{database_->sqlite.getLastInsertRowid(), name, role, wall_clock(), false};
  });
}

void Journal::add_token(TillId till, const std::string& digest) {
  database_->commit([&] {
    SQLite::Statement insert(database_->sqlite, "INSERT INTO token (digest, till, created) VALUES (?, ?, ?)");
    insert.bind(1, digest.data(), static_cast<int>(digest.size()));
    insert.bind(2, till);
    insert.bind(3, wall_clock());
    insert.exec();
  });
}

int Journal::revoke_tokens(TillId till) {
  return database_->commit([&] {
    SQLite::Statement update(database_->sqlite,
                             "UPDATE token SET revoked = ? WHERE till = ? AND revoked IS NULL");
    update.bind(1, wall_clock());
    update.bind(2, till);
    return update.exec();
  });
}

// ---- Closed sessions ----

void Journal::close_session(TillId till, int session) {
  database_->commit([&] {
    SQLite::Statement replace(
        database_->sqlite, "INSERT OR REPLACE INTO closed_session (till, session, moment) VALUES (?, ?, ?)");
    replace.bind(1, till);
    replace.bind(2, session);
    replace.bind(3, wall_clock());
    replace.exec();
  });
}

bool Journal::is_closed(TillId till, int session, Moment since) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            "SELECT 1 FROM closed_session WHERE till = ? AND session = ? AND moment >= ?");
    query.bind(1, till);
    query.bind(2, session);
    query.bind(3, since);
    return query.executeStep();
  });
}

// ---- Audit ----

void Journal::note(const Alarm& alarm, bool is_alarm) {
  database_->commit([&] { database_->write_audit(alarm, is_alarm, std::nullopt); });
}

std::vector<std::string> Journal::alarms(int most) const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite,
                            "SELECT text FROM audit WHERE alarm = 1 ORDER BY id DESC LIMIT ?");
    query.bind(1, most);
    return database_->all(query, [](SQLite::Statement& row) { return row.getColumn(0).getString(); });
  });
}

std::vector<std::string> Journal::damages() const {
  return Database::guarded([&] {
    SQLite::Statement query(database_->sqlite, "PRAGMA integrity_check");
    auto lines = database_->all(query, [](SQLite::Statement& row) { return row.getColumn(0).getString(); });
    std::erase(lines, "ok");
    return lines;
  });
}

}  // namespace hub
