// Takes what tills ask for, hands it to the desk in the queue's order, and tells who waits what became of it.
// Knows nothing of sockets and processes; the time is handed in.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hub/journal/journal.h"
#include "hub/queue/queue.h"
#include "satctl/library/functions.h"

namespace hub {

struct FiscalRequest {
  Fiscal function = Fiscal::sale;
  std::string key;
  std::string body;
  std::string cancels;
  std::optional<int> session;
  int attempt = 1;
  std::chrono::seconds patience{60};
};

// A question or an administrative call: the values of the function's parameters, without the activation code.
struct FunctionRequest {
  const satctl::Function* function = nullptr;
  std::optional<int> session;
  std::vector<std::string> values;
};

enum class Taken {
  operation,   // it is in the journal
  other_body,  // the key stands for something else
  too_many,    // of this till wait already
  refused,     // nothing can be sold now; says nothing about the key
};

struct Receiving {
  Taken taken = Taken::operation;
  std::optional<Operation> operation;
  std::string reason;
};

enum class Decision { issued, not_issued, undecided, confirmed };

struct Settlement {
  Decision decision = Decision::undecided;
  std::string receipt;
  std::string reason;
  std::string who;
};

// A question that somebody waits for. Questions have ids below zero: operations have those above.
struct Question {
  FunctionRequest request;
  bool answered = false;
  std::optional<std::string> reply;  // under the device's session; none if there was no reply
  int askers = 0;
};

class Broker {
 public:
  using Clock = std::function<Instant()>;
  Broker(Journal& journal, Clock clock);

  // ---- For tills
  Receiving put(const Till& till, const FiscalRequest& request);
  std::optional<Operation> find(const Till& till, Fiscal function, const std::string& key);
  std::optional<Operation> find(OperationId id) const;
  Receiving close(const Till& till, Fiscal function, const std::string& key);
  // The id of a question or, for administration, of an operation; none if too many wait.
  std::optional<JobId> ask(const Till& till, const FunctionRequest& request);
  // ConsultarNumeroSessao and ConsultarUltimaSessaoFiscal of a till, from the journal: 11003 or 19003 where
  // it has nothing of that till.
  std::string session_reply(const Till& till, int session, int asked);
  std::string last_fiscal_reply(const Till& till, int session);
  // Why it may not be done, or empty.
  std::string decide(OperationId id, const Settlement& settlement);

  // A request waits for the job: as long as it does, its till asks.
  void request_opened(JobId id);
  void request_closed(JobId id);
  bool is_answered(JobId question) const;
  std::optional<std::string> answer(JobId question) const;

  using Listener = std::function<void()>;
  std::uint64_t listen(JobId id, Listener listener);
  void stop_listening(std::uint64_t listener);

  // ---- For the desk
  void load();  // what a former run left open
  void on_work(Listener listener) { work_ = std::move(listener); }
  std::optional<Job> next(const Queue::Allowed& allowed) { return queue_.next(clock_(), allowed); }
  const FunctionRequest& request_of(JobId id) const;
  void answer(JobId question, std::optional<std::string> reply);
  // The operation has changed its state in the journal; whoever waits for it is told.
  void changed(const Operation& operation, Instant not_before);
  // A job that could not be begun.
  void put_back(JobId id, Instant not_before);
  // The device's reply, handed over although the journal could not take it.
  void hand_over(const Operation& operation);
  void expire();
  std::optional<Instant> next_event() const { return queue_.next_event(clock_()); }
  bool anybody_waits() const { return queue_.size() > 0; }
  void refuse_sales(const std::string& reason) { refusal_ = reason; }
  const std::string& refusal() const { return refusal_; }
  Instant now() const { return clock_(); }

 private:
  Receiving begin(const Till& till, const FiscalRequest& request);
  Receiving begin_again(const FiscalRequest& request, const Operation& expired);
  Operation as_handed_over(const Operation& operation) const;
  void enqueue(const Operation& operation, std::chrono::seconds patience, Queue::Interest interest);
  std::optional<Receipt> orphan_like(const FiscalRequest& request) const;
  std::optional<Instant> end_of_cancellation(const std::string& receipt) const;
  std::string composed(int session, int code, std::string_view message) const;
  std::string earlier_reply(const Operation& operation, int session, int in_process_code);
  void tell(JobId id);

  Journal& journal_;
  Clock clock_;
  Queue queue_;
  Listener work_;
  std::string refusal_;
  std::map<JobId, Question> questions_;
  std::map<OperationId, FunctionRequest> administration_;
  std::map<OperationId, Operation> handed_over_;
  JobId last_question_ = 0;

  struct Listening {
    JobId id;
    Listener listener;
  };
  std::map<std::uint64_t, Listening> listeners_;
  std::uint64_t last_listener_ = 0;
};

}  // namespace hub
