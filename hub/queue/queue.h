// Whose turn it is. Round robin over the tills, first in first out within a till; cancellations stand in
// front of sales. A job runs only while its till wants it. Pure logic: the time is handed in.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace hub {

using Instant = std::chrono::steady_clock::time_point;
using JobId = std::int64_t;
using TillId = std::int64_t;

enum class JobKind { cancellation, sale, question, administration };

struct Job {
  JobId id = 0;
  TillId till = 0;
  JobKind kind = JobKind::sale;
  std::chrono::seconds patience{60};
  std::optional<Instant> deadline;  // whatever the patience
};

class Queue {
 public:
  // A job that nobody has asked for yet, as after a restart, waits for its till; its patience runs all the
  // same.
  enum class Interest { asked, not_yet };
  void add(const Job& job, Instant now, Interest interest = Interest::asked);
  // A job that is with the device already. Who asks for it is remembered until it is put back or removed.
  void add_running(const Job& job, Instant now, Interest interest);
  // A running job goes back in front of its till's others, not to be tried before the instant.
  void put_back(JobId id, Instant not_before);
  void remove(JobId id);
  bool contains(JobId id) const { return entries_.contains(id); }

  // The till asks for it; while a request is open it does so all the time.
  void asked(JobId id, Instant now);
  void request_opened(JobId id, Instant now);
  void request_closed(JobId id, Instant now);

  // The next job that may run, which is running from now on; none if nobody waits who may.
  using Allowed = std::function<bool(const Job&)>;
  std::optional<Job> next(Instant now, const Allowed& allowed);

  // Jobs whose patience is over; they leave the queue.
  std::vector<Job> expire(Instant now);
  // When next() or expire() may have something that they have not now.
  std::optional<Instant> next_event(Instant now) const;

  std::size_t waiting(TillId till, JobKind kind) const;
  std::size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    Job job;
    Instant last_asked;
    Instant not_before;
    bool wanted = true;
    bool running = false;
    int open_requests = 0;
  };

  bool may_run(const Entry& entry, Instant now, const Allowed& allowed) const;
  Instant end_of(const Entry& entry) const;
  std::optional<JobId> first_of(TillId till, Instant now, const Allowed& allowed) const;
  void stand_in_line(JobId id, TillId till, bool in_front);
  void leave_line(const Job& job);
  const Job& start(JobId id);

  std::map<JobId, Entry> entries_;
  std::map<TillId, std::deque<JobId>> lines_;
  std::deque<TillId> turns_;  // tills that have a line, the one whose turn it is in front
};

}  // namespace hub
