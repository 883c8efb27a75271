#include "hub/desk/desk.h"

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "hub/encoding.h"
#include "hub/text.h"

namespace hub {

namespace asio = boost::asio;
using asio::awaitable;
using std::chrono::seconds;

namespace {

constexpr seconds kCallLimit{180};
constexpr seconds kLongCallLimit{2 * 60 * 60};
constexpr int kLongFunctionSeconds = 300;  // from this time-out on a function is a long one
constexpr seconds kStatusAge{5 * 60};
constexpr std::chrono::milliseconds kPortPoll{500};
constexpr seconds kLongestWaitForProof{30};
constexpr seconds kLongestWait{15};
constexpr Moment kDay = Moment{24} * 60 * 60;
constexpr int kFirstRandomSession = 1;
constexpr int kMostStrangersSessions = 200;  // asked in a row without finding a receipt
constexpr int kActivationFamily = 4;         // its xx001 does not mean a wrong code
const char* const kHub = "hub";

// 1 s, 2, 4, … up to the longest.
seconds back_off(int failures, seconds longest) {
  return std::min(longest, seconds{1 << std::min(failures, 10)});
}

const satctl::Function& function_named(std::string_view name) {
  return *satctl::find_function(name);
}

bool carries_code(const satctl::Function& function) {
  return std::any_of(function.parameters.begin(), function.parameters.end(),
                     [](const satctl::Parameter& parameter) {
                       return parameter.kind == satctl::ParameterKind::activation_code;
                     });
}

std::string digits(const std::optional<AccessKey>& key) {
  return key ? key->digits() : std::string();
}

// g++ 12 cannot compile lists in braces inside of coroutines.
std::vector<Alarm> alarm_of(std::string text) {
  return {Alarm{kHub, std::move(text)}};
}

std::vector<std::string> values_of(const Operation& operation) {
  if (operation.fiscal() == Fiscal::cancellation) return {operation.cancels, operation.body};
  return {operation.body};
}

}  // namespace

Desk::Desk(asio::any_io_executor executor, Journal& journal, Broker& broker, const Settings& settings,
           const std::filesystem::path& child_program)
    : journal_(journal),
      broker_(broker),
      settings_(settings),
      child_(executor, {child_program, settings.state / "device", settings.locks, settings.library}),
      timer_(executor) {
  broker_.on_work([this] { wake(); });
  const auto devices = journal_.devices();
  // The numbers go on where they ended, before it is known which device answers: a number that an open
  // operation has must not be used for anything else.
  const auto known = std::find_if(devices.begin(), devices.end(), [&](const DeviceRecord& device) {
    return settings_.device.serial.empty() || device.serial == settings_.device.serial;
  });
  sessions_ = Sessions(known == devices.end() ? random_number(kFirstRandomSession, kLastSession)
                                              : known->sessions_below);
  if (known != devices.end()) {
    view_.serial = known->serial;
    refused_code_ = known->refused_code;
  }
}

void Desk::stop() {
  stopping_ = true;
  wake();
}

void Desk::wake() {
  woken_ = true;
  timer_.cancel();
}

awaitable<void> Desk::pause(Instant until) {
  if (woken_) {
    woken_ = false;
    co_return;
  }
  timer_.expires_at(until);
  co_await timer_.async_wait(asio::as_tuple(asio::use_awaitable));
  woken_ = false;
}

// ---- Finding the device ----

awaitable<void> Desk::run() {
  while (!stopping_) {
    bool failed = false;
    try {
      if (co_await appear()) co_await work();
    } catch (const JournalError& error) {
      view_.trouble = error.what();
      failed = true;
    }
    child_.kill();  // whatever ended the work
    identity_.reset();
    compared_ = false;
    if (failed) co_await pause(broker_.now() + seconds{1});
  }
}

std::optional<std::filesystem::path> Desk::port() const {
  return settings_.device.port.empty() ? find_usb_port() : std::optional(settings_.device.port);
}

awaitable<bool> Desk::appear() {
  const auto where = port();
  node_ = where ? node_of(*where) : std::nullopt;
  if (node_ && broker_.now() < next_start_) {
    // It was tried a moment ago.
  } else if (node_) {
    const ChildAnswer said = co_await child_.start(*where);
    if (said.kind == ChildAnswer::Kind::ready) {
      failures_ = 0;
      co_return true;
    }
    next_start_ = broker_.now() + kPortPoll;
    view_.trouble = said.kind == ChildAnswer::Kind::held
                        ? fill({"another hub has it ({})", "outro hub está com ele ({})"}, {said.text})
                        : said.text;
  } else {
    view_.trouble = tr({"no port", "nenhuma porta"});
  }
  view_.state = DeviceState::absent;
  tell_tills();
  broker_.expire();
  co_await pause(broker_.now() + kPortPoll);
  co_return false;
}

awaitable<void> Desk::identify() {
  next_identification_ = broker_.now() + back_off(failures_++, kLongestWait);
  const Reply status = co_await question("ConsultarStatusOperacional");
  const auto found = identity_in(status);
  if (!found) {
    view_.state = code_usable() ? DeviceState::silent : DeviceState::no_code;
    view_.trouble = utf8(status.text());
    co_return;
  }
  if (!settings_.device.serial.empty() && found->serial != settings_.device.serial) {
    view_.state = DeviceState::other;
    view_.trouble = fill({"this is device {}", "este é o equipamento {}"}, {found->serial});
    co_return;
  }
  if (!co_await lock_serial(found->serial)) co_return;
  const auto record = journal_.device(found->serial);
  if (!record) {
    meet(*found);
  } else if (view_.serial != found->serial) {
    // A device that another one stood in for: its own numbers go on.
    sessions_ = Sessions(record->sessions_below);
  }
  journal_.note_stand_in(found->serial);
  view_.serial = found->serial;
  identity_ = found;
  failures_ = 0;
}

// A device that the journal has never seen: what it knows already is not ours.
void Desk::meet(const Identity& identity) {
  DeviceRecord record;
  record.serial = identity.serial;
  record.first_baseline = record.last = digits(identity.last);
  record.sessions_below = sessions_.end_of_next_block();
  journal_.keep_device(record);
  sessions_.add_block();
}

awaitable<bool> Desk::lock_serial(const std::string& serial) {
  ChildOrder lock;
  lock.kind = ChildOrder::Kind::lock_serial;
  lock.serial = serial;
  const auto said = co_await child_.ask(lock, seconds{10});
  if (said && said->kind == ChildAnswer::Kind::locked) co_return true;
  child_.kill();
  view_.state = DeviceState::absent;
  view_.trouble = fill({"another hub has device {}", "outro hub está com o equipamento {}"}, {serial});
  co_return false;
}

// ---- What its past says ----

std::optional<Operation> Desk::first_unknown() const {
  for (const Operation& operation : journal_.in_state(State::unknown)) {
    if (operation.serial == identity_->serial) return operation;
  }
  return std::nullopt;
}

bool Desk::is_held() const {
  for (const State state : {State::unknown, State::undecided}) {
    for (const Operation& operation : journal_.in_state(state)) {
      if (operation.serial == identity_->serial) return true;
    }
  }
  return false;
}

bool Desk::knows(const AccessKey& key) const {
  return journal_.knows(key);
}

awaitable<void> Desk::find_out(const Operation& operation) {
  const Order wanted = operation.order();
  // A new session for each question: our own must stay what the device knows it as.
  Reply status = co_await question("ConsultarStatusOperacional");
  Reply session = co_await question("ConsultarNumeroSessao", operation.session);
  Reply last = co_await question("ConsultarUltimaSessaoFiscal");
  const Answers answers{std::move(status), std::move(session), std::move(last)};
  // A supervisor may have been faster than the device.
  const auto now = journal_.find(operation.id);
  if (!now || now->state != State::unknown) co_return;
  const FindingRow& row = hub::find_out(wanted, answers, [this](const AccessKey& key) { return knows(key); });
  next_finding_ = broker_.now() + back_off(findings_++, kLongestWaitForProof);
  Change change;
  change.reason = row.name;
  switch (row.finding) {
    case Finding::issued_by_session:
      settle_issued(operation, answers.session, row.name, false);
      break;
    case Finding::issued_by_last:
      settle_issued(operation, answers.last, row.name, false);
      break;
    case Finding::not_issued:
      change.to = State::queued;
      settle(operation, change);
      break;
    case Finding::undecided:
      change.to = State::undecided;
      change.alarms = alarm_of("undecided: " + operation.key);
      settle(operation, change);
      break;
    case Finding::ask_again: {
      const auto identity = identity_in(answers.status);
      if (identity && identity->serial != operation.serial) child_.kill();
      co_return;
    }
  }
  findings_ = 0;
  next_finding_ = {};
}

// What a supervisor declared as not issued stays so for its till; the receipt that turns up is nobody's.
awaitable<void> Desk::watch() {
  for (const Operation& operation : journal_.watched(identity_->serial, wall_clock() - kDay)) {
    const Reply stored = co_await question("ConsultarNumeroSessao", operation.session);
    if (!proves_issue(operation.order(), stored, [this](const AccessKey& key) { return knows(key); }))
      continue;
    journal_.add_orphan(receipt_in(stored),
                        alarm_of("issued although declared as not issued: " + operation.key).front());
  }
}

awaitable<void> Desk::compare() {
  co_await watch();
  const Reply status = co_await question("ConsultarStatusOperacional");
  const auto identity = identity_in(status);
  if (!identity || identity->serial != identity_->serial) {
    next_comparison_ = broker_.now() + seconds{1};
    co_return;
  }
  auto record = *journal_.device(identity->serial);
  const auto expected = AccessKey::parse(record.last);
  identity_ = identity;
  if (identity->last != expected) {
    if (identity->last && comes_after(expected, *identity->last)) {
      const int missing = co_await collect_orphans(record, *identity->last);
      begin_epoch(record, *identity->last, missing);
    } else {
      record.last = digits(identity->last);
      journal_.keep_device(record, alarm_of("the device knows fewer receipts than the journal"));
    }
  }
  compared_ = true;
  next_status_ = broker_.now() + kStatusAge;
}

// The sessions that follow the journal's last are asked for until no receipt is missing. Returns how many
// are.
awaitable<int> Desk::collect_orphans(const DeviceRecord& record, const AccessKey& newest) {
  const auto last = AccessKey::parse(record.last);
  int missing = last ? numbers_between(last->number(), newest.number()) : newest.number();
  const auto add = [&](const Reply& stored) {
    const auto key = stored.receipt();
    if (!key || key->serial() != record.serial || knows(*key) || !comes_after(last, *key)) return false;
    journal_.add_orphan(receipt_in(stored),
                        alarm_of("a receipt that nobody of the journal asked for: " + key->text()).front());
    return true;
  };
  if (add(co_await question("ConsultarUltimaSessaoFiscal"))) --missing;
  // Back to the beginning of the block: a restored journal may have handed out none of it yet.
  int session = session_after(record.sessions_below, kLastSession - kSessionBlock);
  for (int in_vain = 0; missing > 0 && in_vain < kMostStrangersSessions + kSessionBlock && child_.alive();
       ++in_vain) {
    if (add(co_await question("ConsultarNumeroSessao", session))) {
      --missing;
      in_vain = 0;
    }
    session = session_after(session);
  }
  co_return missing;
}

void Desk::begin_epoch(DeviceRecord record, const AccessKey& newest, int missing) {
  ++record.epoch;
  record.last = newest.digits();
  sessions_ = Sessions(random_number(kFirstRandomSession, kLastSession));
  record.sessions_below = sessions_.end_of_next_block();
  const std::string text =
      "epoch " + std::to_string(record.epoch) + ": the device knows receipts that the journal lacks";
  journal_.keep_device(record, {{kHub, text}});
  sessions_.add_block();
  if (missing == 0) return;
  Operation reading;
  reading.till = journal_.tills().front().id;
  reading.function = function_name::kEpoch;
  reading.key = record.serial + "-" + std::to_string(record.epoch);
  reading.serial = record.serial;
  reading.state = State::undecided;
  reading.reason = text + ", " + std::to_string(missing) +
                   " of them are not to be had: a key that is older may be sold again";
  journal_.enter(reading, {{kHub, reading.reason}});
}

// ---- Serving ----

awaitable<void> Desk::work() {
  while (child_.alive() && !stopping_) {
    bool failed = false;
    try {
      broker_.expire();
      co_await take_turn();
    } catch (const JournalError& error) {
      view_.trouble = error.what();
      failed = true;
    }
    tell_tills();
    if (failed) co_await pause(broker_.now() + seconds{1});
  }
}

// One step, the most important one that is due.
awaitable<void> Desk::take_turn() {
  const Instant now = broker_.now();
  if (unsettled_ && now >= next_settlement_) {
    const Unsettled again = *unsettled_;
    unsettled_.reset();
    settle(again.operation, again.change, again.not_before);
  }
  if (code_usable()) {
    if (!identity_ && now >= next_identification_) co_return co_await identify();
    if (identity_) {
      const auto unknown = first_unknown();
      if (unknown && !unsettled_ && now >= next_finding_) co_return co_await find_out(*unknown);
      if (!compared_ && !is_held() && now >= next_comparison_) co_return co_await compare();
    }
  } else {
    view_.state = DeviceState::no_code;
  }
  const bool held = !identity_ || is_held();
  if (identity_) {
    const bool finding_out = first_unknown() || (!held && !compared_);
    view_.state = finding_out ? DeviceState::finding_out : held ? DeviceState::undecided : DeviceState::ready;
    view_.trouble.clear();
  }
  tell_tills();
  if (const auto job =
          broker_.next([&](const Job& waiting) { return may_run(waiting) && (!held || waiting.id < 0); })) {
    co_return co_await carry_out(*job);
  }
  if (compared_ && !held && now >= next_status_) co_return co_await refresh_status();
  if (sessions_.runs_short()) reserve_sessions();
  Instant until = now + seconds{1};
  if (const auto event = broker_.next_event()) until = std::min(until, *event);
  // Whoever comes wakes the desk; the port and the activation code's file are looked at once a second.
  co_await pause(until);
  const auto where = port();
  if (!where || node_of(*where) != node_) child_.kill();
}

bool Desk::may_run(const Job& job) const {
  const Instant now = broker_.now();
  if (job.id < 0) {
    const auto& function = *broker_.request_of(job.id).function;
    // While an outcome is not known, the device is asked nothing but whether it is there.
    return !carries_code(function) || (code_ && identity_ && !is_held());
  }
  if (!code_ || !identity_ || !compared_ || unsettled_ || now < next_order_) return false;
  if (job.kind != JobKind::cancellation) return true;
  const auto operation = journal_.find(job.id);
  const auto key = operation ? AccessKey::parse(operation->cancels) : std::nullopt;
  return !key || key->serial() == identity_->serial;
}

awaitable<void> Desk::carry_out(const Job& job) {
  if (job.id < 0) co_return co_await answer_question(job.id);
  std::optional<Operation> operation;
  try {
    operation = journal_.find(job.id);
  } catch (const JournalError&) {
    broker_.put_back(job.id, broker_.now() + seconds{1});
    throw;
  }
  if (!operation || operation->state != State::queued) co_return;
  if (operation->fiscal())
    co_await sell(*operation);
  else
    co_await administer(*operation);
}

awaitable<void> Desk::answer_question(JobId id) {
  const FunctionRequest request = broker_.request_of(id);
  const int session = next_session();
  const auto said = co_await order(*request.function, session, request.values);
  if (!said || said->kind != ChildAnswer::Kind::reply) co_return broker_.answer(id, std::nullopt);
  notice(*request.function, Reply(said->text));
  broker_.answer(id, said->text);
}

awaitable<void> Desk::refresh_status() {
  next_status_ = broker_.now() + kStatusAge;
  const Reply status = co_await question("ConsultarStatusOperacional");
  const auto identity = identity_in(status);
  if (!identity) co_return;
  if (identity->serial != identity_->serial) co_return child_.kill();
  auto record = *journal_.device(identity->serial);
  if (digits(identity->last) == record.last) co_return;
  record.last = digits(identity->last);
  journal_.keep_device(record, alarm_of("somebody else used the device: its last receipt is " + record.last));
}

// ---- Sales, cancellations, administration ----

// Committed, with all that a proof will need, before the device gets the order.
Operation Desk::mark_sent(const Operation& operation) {
  try {
    if (sessions_owed_) reserve_sessions();
    Change change;
    change.to = State::sent;
    change.serial = identity_->serial;
    change.session = next_session();
    change.baseline = journal_.device(identity_->serial)->last;
    return journal_.change(operation, change);
  } catch (const JournalError&) {
    // Whether it was taken or not, nothing has been sent; a restart finds that out.
    broker_.put_back(operation.id, broker_.now() + seconds{1});
    throw;
  }
}

awaitable<void> Desk::sell(const Operation& operation) {
  const Operation sent = mark_sent(operation);
  const auto said = co_await order(function_named(sent.function), sent.session, values_of(sent));
  if (!said || said->kind == ChildAnswer::Kind::failed) {
    Change change;
    change.to = State::unknown;
    change.reason = "the device's program ended";
    const auto where = port();
    change.port_changed = !where || node_of(*where) != node_;
    settle(sent, change);
  } else if (said->kind == ChildAnswer::Kind::port_changed) {
    Change change;
    change.to = State::queued;
    change.reason = "the port changed before the call";
    settle(sent, change);
    child_.kill();
  } else {
    try {
      judge_reply(sent, *said);
    } catch (const JournalError&) {
      Change change;
      change.to = State::unknown;
      change.reason = "the journal could not be asked";
      settle(sent, change);
    }
    if (said->port_changed) child_.kill();
  }
}

void Desk::judge_reply(const Operation& sent, const ChildAnswer& answer) {
  const Reply reply(answer.text);
  const OutcomeRow& row = judge(sent.order(), reply, [this](const AccessKey& key) { return knows(key); });
  Change change;
  change.reason = row.name;
  change.port_changed = answer.port_changed;
  switch (row.outcome) {
    case Outcome::issued:
      settle_issued(sent, reply, row.name, answer.port_changed);
      break;
    case Outcome::refused:
      change.to = State::done;
      change.reply = reply.text();
      settle(sent, change);
      notice(function_named(sent.function), reply);
      break;
    case Outcome::held_by_stranger:
      if (unsent_ == 0) alarm("another program holds the port");
      [[fallthrough]];
    case Outcome::nothing_sent:
      change.to = State::queued;
      next_order_ = broker_.now() + back_off(unsent_++, kLongestWait);
      settle(sent, change, next_order_);
      return;
    case Outcome::unknown:
      change.to = State::unknown;
      // The text is kept for whoever has to decide. It holds what the device said, never what it was told.
      change.reason += ": " + utf8(reply.text().substr(0, 200));
      settle(sent, change);
      break;
  }
  unsent_ = 0;
}

void Desk::settle_issued(const Operation& operation, const Reply& reply, const std::string& reason,
                         bool port_changed) {
  Change change;
  change.to = State::done;
  change.reason = reason;
  change.port_changed = port_changed;
  change.reply = reply.text();
  change.receipt = receipt_in(reply);
  const auto key = *reply.receipt();
  const auto baseline = AccessKey::parse(operation.baseline);
  if (key.serial() != operation.serial) {
    change.alarms.push_back({kHub, "receipt " + key.text() + " is another device's"});
  } else if (numbers_between(baseline ? baseline->number() : 0, key.number()) != 1) {
    change.alarms.push_back(
        {kHub, "receipts are missing before " + key.text() + ": somebody else used the device"});
  }
  settle(operation, change);
}

awaitable<void> Desk::administer(const Operation& operation) {
  const FunctionRequest request = broker_.request_of(operation.id);
  const Operation sent = mark_sent(operation);
  const auto said = co_await order(*request.function, sent.session, request.values);
  Change change;
  if (said && said->kind == ChildAnswer::Kind::reply) {
    change.to = State::done;
    change.reply = said->text;
    settle(sent, change);
    notice(*request.function, Reply(said->text));
    co_return;
  }
  change.to = State::unknown;
  change.reason = "the device's program ended";
  settle(sent, change);
  if (unsettled_) co_return;
  // Nothing proves what became of it; a human looks at the device.
  change.to = State::undecided;
  settle(*journal_.find(operation.id), change);
}

// ---- One call ----

awaitable<std::optional<ChildAnswer>> Desk::order(const satctl::Function& function, int session,
                                                  std::vector<std::string> values) {
  ChildOrder call;
  call.function = function.name;
  call.session = session;
  // The activation code stands where the function has it: first, but for AtivarSAT.
  for (std::size_t i = 0, given = 0; i < function.parameters.size(); ++i) {
    const bool is_code = function.parameters[i].kind == satctl::ParameterKind::activation_code;
    call.values.push_back(is_code ? code_->code : std::move(values.at(given++)));
  }
  const seconds limit = function.limit_seconds >= kLongFunctionSeconds ? kLongCallLimit : kCallLimit;
  auto said = co_await child_.ask(call, limit);
  if (said && said->kind == ChildAnswer::Kind::port_changed) child_.kill();
  co_return said;
}

awaitable<Reply> Desk::question(const char* name, std::optional<int> about) {
  const auto& function = function_named(name);
  if (!code_usable() || !child_.alive()) co_return Reply("SAT Erro[0]");
  const int session = next_session();
  std::vector<std::string> values;
  if (about) values.push_back(std::to_string(*about));
  const auto said = co_await order(function, session, std::move(values));
  Reply reply(said && said->kind == ChildAnswer::Kind::reply ? said->text : "SAT Erro[0]");
  notice(function, reply);
  co_return reply;
}

// The code's file may come, or change, at any time. A code that was refused is not sent again: five wrong
// ones lock the device.
bool Desk::code_usable() {
  try {
    code_ = read_activation_code(settings_.device.activation_code_file);
  } catch (const SettingsError& error) {
    code_.reset();
    view_.trouble = error.what();
    return false;
  }
  if (!code_) {
    view_.trouble = fill({"no activation code in {}", "falta o código de ativação em {}"},
                         {settings_.device.activation_code_file.string()});
    return false;
  }
  if (code_->stamp != refused_code_) return true;
  view_.trouble =
      tr({"the device refused the activation code", "o equipamento recusou o código de ativação"});
  code_.reset();
  return false;
}

void Desk::notice(const satctl::Function& function, const Reply& reply) {
  if (reply.code() / 1000 == function.code_prefix / 10 && carries_code(function) && reply.is_wrong_code() &&
      reply.code() / 1000 != kActivationFamily) {
    refuse_code();
  }
  if (!identity_in(reply)) return;
  view_.status = reply.fields();
  view_.status_read = broker_.now();
}

void Desk::refuse_code() {
  if (!code_) return;
  refused_code_ = code_->stamp;
  code_.reset();
  alarm("the device refused the activation code");
  if (auto record = journal_.device(view_.serial)) {
    record->refused_code = refused_code_;
    journal_.keep_device(*record);
  }
}

// ---- Journal ----

void Desk::settle(const Operation& operation, Change change, Instant not_before) {
  try {
    broker_.changed(journal_.change(operation, change), not_before);
  } catch (const StaleOperation& error) {
    alarm(error.what());
  } catch (const JournalError& error) {
    // The device has said it, so its till may know; whether the journal has it, a restart would find out.
    view_.trouble = error.what();
    if (change.to == State::done) {
      Operation said = operation;
      said.state = State::done;
      said.reply = change.reply;
      if (change.receipt) said.receipt = change.receipt->key;
      broker_.hand_over(said);
    }
    unsettled_ = {operation, std::move(change), not_before};
    next_settlement_ = broker_.now() + seconds{1};
  }
}

Receipt Desk::receipt_in(const Reply& reply) const {
  const auto key = *reply.receipt();
  Receipt receipt;
  receipt.key = key.digits();
  receipt.serial = key.serial();
  receipt.number = key.number();
  receipt.total = utf8(reply.field(field::kTotal));
  receipt.moment = wall_clock();
  receipt.reply = reply.text();
  return receipt;
}

void Desk::alarm(const std::string& text) {
  try {
    journal_.note({kHub, text});
  } catch (const JournalError&) {
    view_.trouble = text;
  }
}

int Desk::next_session() {
  if (!sessions_.needs_block()) return sessions_.take();
  try {
    reserve_sessions();
  } catch (const JournalError&) {
    // Questions go on without the journal; a sale waits until it has caught up.
    sessions_.add_block();
    sessions_owed_ = true;
  }
  return sessions_.take();
}

void Desk::reserve_sessions() {
  auto record = journal_.device(view_.serial);
  if (record) {
    record->sessions_below = sessions_.end_of_next_block();
    journal_.keep_device(*record);
  }
  sessions_.add_block();
  sessions_owed_ = false;
}

// Why nothing can be sold, for tills that ask now. A device that is merely away is waited for.
void Desk::tell_tills() {
  if (unsettled_)
    broker_.refuse_sales(tr({"the journal cannot be written", "o diário não pode ser gravado"}));
  else if (view_.state == DeviceState::no_code || view_.state == DeviceState::other)
    broker_.refuse_sales(view_.trouble);
  else
    broker_.refuse_sales({});
}

}  // namespace hub
