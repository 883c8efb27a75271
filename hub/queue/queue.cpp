#include "hub/queue/queue.h"

#include <algorithm>

namespace hub {

void Queue::add(const Job& job, Instant now, Interest interest) {
  const bool added =
      entries_.try_emplace(job.id, Entry{job, now, now, interest == Interest::asked, false, 0}).second;
  if (added) stand_in_line(job.id, job.till, false);
}

void Queue::add_running(const Job& job, Instant now, Interest interest) {
  entries_.try_emplace(job.id, Entry{job, now, now, interest == Interest::asked, true, 0});
}

void Queue::put_back(JobId id, Instant not_before) {
  Entry& entry = entries_.at(id);
  entry.running = false;
  entry.not_before = not_before;
  stand_in_line(id, entry.job.till, true);
}

void Queue::remove(JobId id) {
  const auto found = entries_.find(id);
  if (found == entries_.end()) return;
  leave_line(found->second.job);
  entries_.erase(found);
}

void Queue::asked(JobId id, Instant now) {
  const auto found = entries_.find(id);
  if (found == entries_.end()) return;
  found->second.last_asked = now;
  found->second.wanted = true;
}

void Queue::request_opened(JobId id, Instant now) {
  asked(id, now);
  const auto found = entries_.find(id);
  if (found != entries_.end()) ++found->second.open_requests;
}

void Queue::request_closed(JobId id, Instant now) {
  asked(id, now);
  const auto found = entries_.find(id);
  if (found != entries_.end() && found->second.open_requests > 0) --found->second.open_requests;
}

std::optional<Job> Queue::next(Instant now, const Allowed& allowed) {
  // Cancellations have half an hour; sales can wait for them.
  for (const auto& [id, entry] : entries_) {
    if (entry.job.kind == JobKind::cancellation && may_run(entry, now, allowed)) return start(id);
  }
  for (auto turn = turns_.begin(); turn != turns_.end(); ++turn) {
    const auto id = first_of(*turn, now, allowed);
    if (!id) continue;
    // Who has had a turn goes to the end, and those in front, who could not use theirs, keep their places.
    const TillId till = *turn;
    turns_.erase(turn);
    turns_.push_back(till);
    return start(*id);
  }
  return std::nullopt;
}

std::vector<Job> Queue::expire(Instant now) {
  std::vector<Job> over;
  for (const auto& [id, entry] : entries_) {
    if (!entry.running && end_of(entry) <= now) over.push_back(entry.job);
  }
  for (const Job& job : over) remove(job.id);
  return over;
}

std::optional<Instant> Queue::next_event(Instant now) const {
  std::optional<Instant> earliest;
  const auto consider = [&](Instant instant) {
    if (!earliest || instant < *earliest) earliest = instant;
  };
  for (const auto& [id, entry] : entries_) {
    if (entry.running) continue;
    if (end_of(entry) != Instant::max()) consider(end_of(entry));
    if (entry.not_before > now) consider(entry.not_before);
  }
  return earliest;
}

std::size_t Queue::waiting(TillId till, JobKind kind) const {
  return static_cast<std::size_t>(std::count_if(entries_.begin(), entries_.end(), [&](const auto& item) {
    return !item.second.running && item.second.job.till == till && item.second.job.kind == kind;
  }));
}

bool Queue::may_run(const Entry& entry, Instant now, const Allowed& allowed) const {
  return !entry.running && entry.wanted && entry.not_before <= now && now < end_of(entry) &&
         allowed(entry.job);
}

// An open request asks all the time.
Instant Queue::end_of(const Entry& entry) const {
  const Instant deadline = entry.job.deadline.value_or(Instant::max());
  if (entry.open_requests > 0) return deadline;
  return std::min(deadline, entry.last_asked + entry.job.patience);
}

std::optional<JobId> Queue::first_of(TillId till, Instant now, const Allowed& allowed) const {
  const auto& line = lines_.at(till);
  const auto found = std::find_if(line.begin(), line.end(),
                                  [&](JobId id) { return may_run(entries_.at(id), now, allowed); });
  if (found == line.end()) return std::nullopt;
  return *found;
}

void Queue::stand_in_line(JobId id, TillId till, bool in_front) {
  auto& line = lines_[till];
  if (in_front)
    line.push_front(id);
  else
    line.push_back(id);
  if (std::find(turns_.begin(), turns_.end(), till) == turns_.end()) turns_.push_back(till);
}

void Queue::leave_line(const Job& job) {
  const auto line = lines_.find(job.till);
  if (line == lines_.end()) return;
  std::erase(line->second, job.id);
  if (!line->second.empty()) return;
  lines_.erase(line);
  std::erase(turns_, job.till);
}

const Job& Queue::start(JobId id) {
  Entry& entry = entries_.at(id);
  entry.running = true;
  leave_line(entry.job);
  return entry.job;
}

}  // namespace hub
