#include "hub/queue/queue.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace hub {
namespace {

using std::chrono::seconds;

const Instant kStart{};
const Queue::Allowed kAll = [](const Job&) { return true; };

Job sale(JobId id, TillId till, seconds patience = seconds{60}) {
  return {id, till, JobKind::sale, patience, {}};
}

std::vector<JobId> served(Queue& queue, Instant now) {
  std::vector<JobId> ids;
  while (const auto job = queue.next(now, kAll)) ids.push_back(job->id);
  return ids;
}

TEST(Queue, RoundRobinOverTillsFirstInFirstOutWithinOne) {
  Queue queue;
  for (const JobId id : {11, 12, 13}) queue.add(sale(id, 1), kStart);
  for (const JobId id : {21, 22}) queue.add(sale(id, 2), kStart);
  queue.add(sale(31, 3), kStart);
  EXPECT_EQ(served(queue, kStart), (std::vector<JobId>{11, 21, 31, 12, 22, 13}));
}

TEST(Queue, ATillThatAsksAlwaysDoesNotStarveAnother) {
  Queue queue;
  JobId next = 100;
  for (int i = 0; i < 4; ++i) queue.add(sale(next++, 1), kStart);
  std::vector<TillId> turns;
  for (int i = 0; i < 10; ++i) {
    const auto job = queue.next(kStart, kAll);
    turns.push_back(job->till);
    queue.remove(job->id);
    queue.add(sale(next++, 1), kStart);
    if (i == 3) queue.add(sale(1, 2), kStart);
  }
  const auto second = std::find(turns.begin(), turns.end(), 2);
  ASSERT_NE(second, turns.end());
  EXPECT_LE(second - turns.begin(), 5);
}

TEST(Queue, CancellationsStandInFront) {
  Queue queue;
  queue.add(sale(1, 1), kStart);
  queue.add({2, 2, JobKind::cancellation, seconds{60}, {}}, kStart);
  EXPECT_EQ(served(queue, kStart), (std::vector<JobId>{2, 1}));
}

TEST(Queue, WhatIsNotAllowedKeepsItsPlace) {
  Queue queue;
  queue.add(sale(1, 1), kStart);
  queue.add({-2, 1, JobKind::question, seconds{60}, {}}, kStart);
  queue.add(sale(3, 2), kStart);
  const auto questions = [](const Job& job) { return job.kind == JobKind::question; };
  EXPECT_EQ(queue.next(kStart, questions)->id, -2);
  EXPECT_FALSE(queue.next(kStart, questions));
  EXPECT_EQ(served(queue, kStart).size(), 2U);
}

TEST(Queue, PatienceCountsFromTheLastAsking) {
  Queue queue;
  queue.add(sale(1, 1, seconds{60}), kStart);
  queue.asked(1, kStart + seconds{50});
  EXPECT_TRUE(queue.expire(kStart + seconds{109}).empty());
  EXPECT_EQ(queue.next_event(kStart), kStart + seconds{110});
  EXPECT_FALSE(queue.next(kStart + seconds{110}, kAll)) << "nobody waits for it any longer";
  EXPECT_EQ(queue.expire(kStart + seconds{110}).size(), 1U);
  EXPECT_FALSE(queue.contains(1));
}

TEST(Queue, AnOpenRequestAsksAllTheTime) {
  Queue queue;
  queue.add(sale(1, 1, seconds{1}), kStart);
  queue.request_opened(1, kStart);
  queue.request_opened(1, kStart);
  EXPECT_TRUE(queue.expire(kStart + seconds{1000}).empty());
  queue.request_closed(1, kStart + seconds{1000});
  EXPECT_TRUE(queue.expire(kStart + seconds{2000}).empty());
  queue.request_closed(1, kStart + seconds{2000});
  EXPECT_TRUE(queue.expire(kStart + seconds{2000}).empty());
  EXPECT_EQ(queue.expire(kStart + seconds{2001}).size(), 1U);
}

TEST(Queue, NothingRunsAfterARestartBeforeItsTillAsks) {
  Queue queue;
  queue.add(sale(1, 1), kStart, Queue::Interest::not_yet);
  EXPECT_FALSE(queue.next(kStart, kAll));
  queue.asked(1, kStart + seconds{1});
  EXPECT_TRUE(queue.next(kStart + seconds{1}, kAll));
}

TEST(Queue, WhatIsPutBackWaitsAndKeepsItsPatience) {
  Queue queue;
  queue.add(sale(1, 1, seconds{10}), kStart);
  queue.add(sale(2, 1, seconds{10}), kStart);
  ASSERT_EQ(queue.next(kStart, kAll)->id, 1);
  EXPECT_TRUE(queue.expire(kStart + seconds{30}).size() == 1) << "the one that runs does not expire";
  queue.put_back(1, kStart + seconds{4});
  EXPECT_FALSE(queue.next(kStart + seconds{3}, kAll));
  EXPECT_EQ(queue.next(kStart + seconds{4}, kAll)->id, 1);
  queue.put_back(1, kStart + seconds{4});
  EXPECT_EQ(queue.expire(kStart + seconds{10}).size(), 1U) << "its till asked ten seconds ago";
}

TEST(Queue, AskingWhileItRunsCounts) {
  Queue queue;
  queue.add_running(sale(1, 1, seconds{10}), kStart, Queue::Interest::not_yet);
  EXPECT_FALSE(queue.next(kStart, kAll));
  queue.asked(1, kStart + seconds{9});
  queue.put_back(1, kStart);
  EXPECT_EQ(queue.next(kStart + seconds{18}, kAll)->id, 1);
}

TEST(Queue, ADeadlineEndsWhateverThePatience) {
  Queue queue;
  Job job = sale(1, 1, seconds{600});
  job.deadline = kStart + seconds{5};
  queue.add(job, kStart);
  queue.request_opened(1, kStart);
  EXPECT_EQ(queue.expire(kStart + seconds{5}).size(), 1U);
}

TEST(Queue, CountsWhoWaits) {
  Queue queue;
  queue.add(sale(1, 1), kStart);
  queue.add(sale(2, 1), kStart);
  ASSERT_TRUE(queue.next(kStart, kAll));
  EXPECT_EQ(queue.waiting(1, JobKind::sale), 1U);
  EXPECT_EQ(queue.waiting(2, JobKind::sale), 0U);
}

}  // namespace
}  // namespace hub
