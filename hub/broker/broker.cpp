#include "hub/broker/broker.h"

#include <algorithm>

#include "hub/encoding.h"
#include "hub/text.h"

namespace hub {

namespace {

constexpr std::size_t kMostWaiting = 4;  // of one till
constexpr Moment kDay = Moment{24} * 60 * 60;
constexpr Moment kCancellationSeconds = Moment{30} * 60;
constexpr std::chrono::seconds kDefaultPatience{60};
constexpr std::chrono::seconds kQuestionPatience{5};
constexpr std::chrono::seconds kAdministrationPatience{60};

constexpr int kClosedSession = 97;  // ending of "invalid session"
constexpr int kSessionUnknown = 11003;
constexpr int kSessionInProcess = 11098;
constexpr int kNothingIssued = 19003;
constexpr int kLastInProcess = 19098;

JobKind kind_of(const Operation& operation) {
  const auto fiscal = operation.fiscal();
  if (!fiscal) return JobKind::administration;
  return *fiscal == Fiscal::sale ? JobKind::sale : JobKind::cancellation;
}

bool same_body(const Operation& operation, const FiscalRequest& request) {
  return operation.body == request.body && operation.cancels == request.cancels;
}

// Equal questions about the device's state have equal answers.
bool can_be_merged(const satctl::Function& function) {
  return function.name == std::string_view("ConsultarSAT") ||
         function.name == std::string_view("ConsultarStatusOperacional");
}

}  // namespace

Broker::Broker(Journal& journal, Clock clock) : journal_(journal), clock_(std::move(clock)) {}

// ---- Sales and cancellations ----

Receiving Broker::put(const Till& till, const FiscalRequest& request) {
  const auto found = journal_.find(till.id, name_of(request.function), request.key);
  if (!found) return begin(till, request);
  // A key that was closed before it was used stands for nothing, so any body is its own.
  const bool closed_unused = found->state == State::not_issued && found->body.empty();
  if (!closed_unused && !same_body(*found, request)) return {Taken::other_body, {}, {}};
  if (found->state == State::expired && request.attempt > found->attempt) return begin_again(request, *found);
  // A request of an attempt that is over comes late, from a proxy: it asks for nothing.
  if (request.attempt >= found->attempt) queue_.asked(found->id, clock_());
  if (work_) work_();
  return {Taken::operation, as_handed_over(*found), {}};
}

Receiving Broker::begin(const Till& till, const FiscalRequest& request) {
  if (!refusal_.empty()) return {Taken::refused, {}, refusal_};
  Operation operation;
  operation.till = till.id;
  operation.function = name_of(request.function);
  operation.key = request.key;
  operation.body = request.body;
  operation.cancels = request.cancels;
  operation.till_session = request.session;
  operation.attempt = request.attempt;
  if (request.session && journal_.is_closed(till.id, *request.session, wall_clock() - kDay)) {
    operation.state = State::done;
    operation.reason = "the till was told that this session does not exist";
    operation.reply = composed(*request.session, family(request.function) * 1000 + kClosedSession,
                               "0000|Numero de sessao invalido");
    return {Taken::operation, journal_.enter(operation), {}};
  }
  if (const auto orphan = orphan_like(request)) {
    operation.state = State::undecided;
    operation.serial = orphan->serial;
    operation.reason = "may be receipt CFe" + orphan->key + ", which nobody of the journal asked for";
    return {Taken::operation, journal_.enter(operation, {{"hub", operation.reason}}), {}};
  }
  if (queue_.waiting(till.id, JobKind::sale) + queue_.waiting(till.id, JobKind::cancellation) >=
      kMostWaiting) {
    return {Taken::too_many, {}, {}};
  }
  operation = journal_.enter(operation);
  enqueue(operation, request.patience, Queue::Interest::asked);
  return {Taken::operation, operation, {}};
}

Receiving Broker::begin_again(const FiscalRequest& request, const Operation& expired) {
  if (!refusal_.empty()) return {Taken::refused, {}, refusal_};
  // Its till was told that the session does not exist: nothing may happen under it.
  const auto closed = [&](int session) {
    return journal_.is_closed(expired.till, session, wall_clock() - kDay);
  };
  if (request.session && closed(*request.session)) return {Taken::operation, expired, {}};
  Change change;
  change.to = State::queued;
  change.reason = "attempt " + std::to_string(request.attempt);
  change.attempt = request.attempt;
  change.till_session = request.session;
  const Operation operation = journal_.change(expired, change);
  enqueue(operation, request.patience, Queue::Interest::asked);
  return {Taken::operation, operation, {}};
}

std::optional<Operation> Broker::find(const Till& till, Fiscal function, const std::string& key) {
  const auto found = journal_.find(till.id, name_of(function), key);
  if (!found) return std::nullopt;
  queue_.asked(found->id, clock_());
  if (work_) work_();
  return as_handed_over(*found);
}

std::optional<Operation> Broker::find(OperationId id) const {
  const auto found = journal_.find(id);
  if (!found) return std::nullopt;
  return as_handed_over(*found);
}

Receiving Broker::close(const Till& till, Fiscal function, const std::string& key) {
  const auto found = journal_.find(till.id, name_of(function), key);
  if (!found) {
    Operation operation;
    operation.till = till.id;
    operation.function = name_of(function);
    operation.key = key;
    operation.state = State::not_issued;
    operation.reason = "closed by its till";
    return {Taken::operation, journal_.enter(operation), {}};
  }
  if (found->state != State::queued && found->state != State::expired) return {Taken::operation, *found, {}};
  Change change;
  change.to = State::not_issued;
  change.reason = "closed by its till";
  const Operation operation = journal_.change(*found, change);
  changed(operation, {});
  return {Taken::operation, operation, {}};
}

Operation Broker::as_handed_over(const Operation& operation) const {
  const auto found = handed_over_.find(operation.id);
  return found == handed_over_.end() ? operation : found->second;
}

void Broker::enqueue(const Operation& operation, std::chrono::seconds patience, Queue::Interest interest) {
  Job job{operation.id, operation.till, kind_of(operation), patience, {}};
  if (job.kind == JobKind::cancellation) job.deadline = end_of_cancellation(operation.cancels);
  if (operation.state == State::queued)
    queue_.add(job, clock_(), interest);
  else
    queue_.add_running(job, clock_(), interest);
  if (work_) work_();
}

// A journal that was restored from a backup may lack the operation, but not its receipt: the device knew
// that.
std::optional<Receipt> Broker::orphan_like(const FiscalRequest& request) const {
  const auto orphans = journal_.orphans();
  if (orphans.empty()) return std::nullopt;
  const DocumentFacts data = facts_of(request.body);
  const auto found = std::find_if(orphans.begin(), orphans.end(), [&](const Receipt& orphan) {
    const Reply reply(orphan.reply);
    if (reply.code() != family(request.function) * 1000) return false;
    const auto document = from_wrapped_base64(reply.field(field::kDocument));
    return document && made_of(facts_of(*document), data);
  });
  if (found == orphans.end()) return std::nullopt;
  return *found;
}

// The device refuses later ones by itself; the deadline keeps one from waiting in vain. A clock that was set
// says nothing, and then there is none.
std::optional<Instant> Broker::end_of_cancellation(const std::string& receipt) const {
  const auto key = AccessKey::parse(receipt);
  const auto found = key ? journal_.receipt(key->digits()) : std::nullopt;
  if (!found) return std::nullopt;
  const Moment age = wall_clock() - found->moment;
  if (age < 0 || age >= kCancellationSeconds) return std::nullopt;
  return clock_() + std::chrono::seconds(kCancellationSeconds - age);
}

// ---- Functions ----

std::optional<JobId> Broker::ask(const Till& till, const FunctionRequest& request) {
  const Instant now = clock_();
  if (request.function->effect == satctl::Effect::change) {
    if (queue_.waiting(till.id, JobKind::administration) >= kMostWaiting) return std::nullopt;
    Operation operation;
    operation.till = till.id;
    operation.function = request.function->name;
    operation.key = hexadecimal(random_bytes(16));
    operation.till_session = request.session;
    operation = journal_.enter(operation);
    administration_[operation.id] = request;
    enqueue(operation, kAdministrationPatience, Queue::Interest::asked);
    return operation.id;
  }
  for (const auto& [id, question] : questions_) {
    if (!question.answered && can_be_merged(*request.function) &&
        question.request.function == request.function && queue_.contains(id)) {
      return id;
    }
  }
  if (queue_.waiting(till.id, JobKind::question) >= kMostWaiting) return std::nullopt;
  const JobId id = --last_question_;
  questions_[id].request = request;
  queue_.add({id, till.id, JobKind::question, kQuestionPatience, {}}, now);
  if (work_) work_();
  return id;
}

const FunctionRequest& Broker::request_of(JobId id) const {
  return id < 0 ? questions_.at(id).request : administration_.at(id);
}

void Broker::answer(JobId id, std::optional<std::string> reply) {
  queue_.remove(id);
  const auto found = questions_.find(id);
  if (found == questions_.end()) return;
  found->second.answered = true;
  found->second.reply = std::move(reply);
  tell(id);
  if (found->second.askers == 0) questions_.erase(found);
}

bool Broker::is_answered(JobId question) const {
  const auto found = questions_.find(question);
  return found == questions_.end() || found->second.answered;
}

std::optional<std::string> Broker::answer(JobId question) const {
  const auto found = questions_.find(question);
  return found == questions_.end() ? std::nullopt : found->second.reply;
}

// ---- What tills ask of the device's memory ----

std::string Broker::session_reply(const Till& till, int session, int asked) {
  const auto found = journal_.find_session(till.id, asked, wall_clock() - kDay);
  if (!found) {
    journal_.close_session(till.id, asked);
    return composed(session, kSessionUnknown, "Sessao nao existe");
  }
  return earlier_reply(as_handed_over(*found), session, kSessionInProcess);
}

std::string Broker::last_fiscal_reply(const Till& till, int session) {
  const Moment since = wall_clock() - kDay;
  const auto last = journal_.last_fiscal(till.id, since);
  if (last && !is_settled(as_handed_over(*last).state)) {
    return composed(session, kLastInProcess, "SAT em processamento. Tente novamente");
  }
  const auto issued = journal_.last_issued(till.id, since);
  if (!issued) return composed(session, kNothingIssued, "Nao existe sessao fiscal");
  return issued->reply_for_till();
}

std::string Broker::earlier_reply(const Operation& operation, int session, int in_process_code) {
  if (!is_settled(operation.state)) {
    return composed(session, in_process_code, "SAT em processamento. Tente novamente");
  }
  if (operation.state == State::done && !operation.reply.empty()) return operation.reply_for_till();
  // Nothing was issued under this session, and after this answer nothing will be.
  journal_.close_session(operation.till, *operation.till_session);
  return composed(session, kSessionUnknown, "Sessao nao existe");
}

std::string Broker::composed(int session, int code, std::string_view message) const {
  const std::string number = std::to_string(100'000 + code).substr(1);
  return six_digits(session) + '|' + number + '|' + std::string(message) + "||";
}

// ---- By hand ----

std::string Broker::decide(OperationId id, const Settlement& settlement) {
  const auto operation = journal_.find(id);
  if (!operation) return tr({"there is no such operation", "não existe essa operação"});
  const std::string by = settlement.who + ": " + settlement.reason;
  Change change;
  change.reason = by;
  change.alarms = {{settlement.who, settlement.reason}};
  if (settlement.decision == Decision::undecided) {
    if (operation->state != State::unknown) {
      return tr({"only an unknown operation can be declared undecided",
                 "só uma operação desconhecida pode ser declarada indecisa"});
    }
    change.to = State::undecided;
    changed(journal_.change(*operation, change), {});
    return {};
  }
  if (operation->state != State::undecided) {
    return tr({"the operation is not undecided", "a operação não está indecisa"});
  }
  const bool epoch = operation->function == function_name::kEpoch;
  if (epoch != (settlement.decision == Decision::confirmed)) {
    return tr({"this decision does not fit the operation", "essa decisão não serve para a operação"});
  }
  change.to = settlement.decision == Decision::not_issued ? State::not_issued : State::done;
  if (settlement.decision == Decision::issued) {
    const auto key = AccessKey::parse(settlement.receipt);
    if (!key) return tr({"chaveConsulta is no access key", "chaveConsulta não é uma chave de acesso"});
    if (!operation->serial.empty() && key->serial() != operation->serial) {
      return tr({"the receipt is another device's", "o cupom é de outro equipamento"});
    }
    const auto known = journal_.receipt(key->digits());
    if (known && known->operation) {
      return tr({"the receipt belongs to another operation", "o cupom pertence a outra operação"});
    }
    Receipt receipt = known.value_or(Receipt{});
    if (!known) {
      receipt.key = key->digits();
      receipt.serial = key->serial();
      receipt.number = key->number();
      receipt.moment = wall_clock();
    }
    change.reply = receipt.reply;
    change.receipt = receipt;
  }
  const bool spends_key = settlement.decision == Decision::not_issued && operation->fiscal();
  const Operation after = journal_.change(*operation, change);
  if (spends_key) {
    FiscalRequest request{*operation->fiscal(), {}, operation->body, {}, {}, 1, {}};
    if (const auto orphan = orphan_like(request)) journal_.settle_orphan(orphan->key);
  }
  changed(after, {});
  return {};
}

// ---- Waiting ----

void Broker::request_opened(JobId id) {
  queue_.request_opened(id, clock_());
  const auto question = questions_.find(id);
  if (question != questions_.end()) ++question->second.askers;
}

void Broker::request_closed(JobId id) {
  queue_.request_closed(id, clock_());
  const auto question = questions_.find(id);
  if (question == questions_.end()) return;
  --question->second.askers;
  if (question->second.askers > 0) return;
  // Nobody wants the answer any more; one that is with the device is let go when it comes.
  if (question->second.answered || !queue_.contains(id)) questions_.erase(question);
  if (work_) work_();
}

std::uint64_t Broker::listen(JobId id, Listener listener) {
  listeners_[++last_listener_] = {id, std::move(listener)};
  return last_listener_;
}

void Broker::stop_listening(std::uint64_t listener) {
  listeners_.erase(listener);
}

void Broker::tell(JobId id) {
  for (const auto& [key, listening] : listeners_) {
    if (listening.id == id) listening.listener();
  }
}

// ---- For the desk ----

void Broker::load() {
  for (const Operation& operation : journal_.in_state(State::queued)) {
    // What an administrator handed in was in memory only.
    if (operation.fiscal()) {
      enqueue(operation, kDefaultPatience, Queue::Interest::not_yet);
      continue;
    }
    Change change;
    change.to = State::expired;
    change.reason = "the hub was restarted";
    journal_.change(operation, change);
  }
  for (const Operation& operation : journal_.in_state(State::sent)) {
    Change change;
    change.to = State::unknown;
    change.reason = "the hub ended while it was with the device";
    journal_.change(operation, change);
  }
  for (const Operation& operation : journal_.in_state(State::unknown)) {
    if (operation.fiscal()) {
      enqueue(operation, kDefaultPatience, Queue::Interest::not_yet);
      continue;
    }
    // Of administration there is no proof; a human looks at the device.
    Change change;
    change.to = State::undecided;
    change.reason = operation.reason;
    journal_.change(operation, change);
  }
}

void Broker::changed(const Operation& operation, Instant not_before) {
  handed_over_.erase(operation.id);
  if (operation.state == State::queued && queue_.contains(operation.id)) {
    queue_.put_back(operation.id, not_before);
  } else if (operation.state == State::undecided || is_settled(operation.state)) {
    queue_.remove(operation.id);
    administration_.erase(operation.id);
  }
  tell(operation.id);
  if (work_) work_();
}

void Broker::put_back(JobId id, Instant not_before) {
  if (queue_.contains(id)) queue_.put_back(id, not_before);
}

void Broker::hand_over(const Operation& operation) {
  handed_over_.insert_or_assign(operation.id, operation);
  tell(operation.id);
}

void Broker::expire() {
  for (const Job& job : queue_.expire(clock_())) {
    if (job.kind == JobKind::question) {
      answer(job.id, std::nullopt);
      continue;
    }
    const auto operation = journal_.find(job.id);
    if (!operation || operation->state != State::queued) continue;
    Change change;
    change.to = State::expired;
    change.reason = "nobody waited any longer";
    try {
      changed(journal_.change(*operation, change), {});
    } catch (const JournalError&) {
      // Nobody is told before it is committed. It is tried again when patience is over once more.
      queue_.add(job, clock_(), Queue::Interest::not_yet);
    }
  }
}

}  // namespace hub
