#include "support/virtual_clock.h"

#include <errno.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "olk_utils/clock_calls.h"

namespace {

constexpr int64_t kNanosecondsPerMillisecond = 1000000;
constexpr int64_t kNanosecondsPerSecond = 1000000000;

// Any start will do; this one is not round, so that truncations show.
int64_t monotonic_ns = 1234567890123456;
int64_t wall_ns = 1700000000LL * kNanosecondsPerSecond;
constexpr int64_t kMonotonicStart = 1234567890123456;

int64_t tick_ns = 0;
std::function<int64_t()> other_end;

int64_t give_turn() {
  if (!other_end) return std::numeric_limits<int64_t>::max();
  const int error = errno;  // reading a clock does not change it
  const int64_t next_turn = other_end();
  errno = error;
  return next_turn;
}

void advance_ns(int64_t nanoseconds) {
  monotonic_ns += nanoseconds;
  wall_ns += nanoseconds;
}

timespec to_timespec(int64_t nanoseconds) {
  return {static_cast<time_t>(nanoseconds / kNanosecondsPerSecond),
          static_cast<long>(nanoseconds % kNanosecondsPerSecond)};
}

}  // namespace

namespace virtual_clock {

void set_local_time(int year, int month, int day, int hour, int minute, int second, int milliseconds) {
  tm calendar{};
  calendar.tm_year = year - 1900;
  calendar.tm_mon = month - 1;
  calendar.tm_mday = day;
  calendar.tm_hour = hour;
  calendar.tm_min = minute;
  calendar.tm_sec = second;
  calendar.tm_isdst = -1;
  wall_ns = static_cast<int64_t>(mktime(&calendar)) * kNanosecondsPerSecond +
            milliseconds * kNanosecondsPerMillisecond;
}

void advance_ms(std::int64_t milliseconds) {
  advance_ns(milliseconds * kNanosecondsPerMillisecond);
}

std::int64_t monotonic_ms() {
  return (monotonic_ns - kMonotonicStart) / kNanosecondsPerMillisecond;
}

void on_turn(std::function<std::int64_t()> turn) {
  other_end = std::move(turn);
}

void set_tick_ms(std::int64_t milliseconds) {
  tick_ns = milliseconds * kNanosecondsPerMillisecond;
}

}  // namespace virtual_clock

timespec read_clock(clockid_t clock) {
  if (clock == CLOCK_REALTIME) return to_timespec(wall_ns);
  give_turn();
  advance_ns(tick_ns);
  return to_timespec(monotonic_ns);
}

// A ready port answers at once; a silent or full one costs the whole wait, in virtual time only.
int poll_descriptor(pollfd* descriptor, int timeout_ms) {
  for (int64_t remaining = timeout_ms;;) {
    const int64_t next_turn = give_turn();
    const int ready = poll(descriptor, 1, 0);
    if (ready != 0) return ready;
    if (remaining == 0) return 0;
    if (remaining < 0) std::abort();  // would wait for ever
    const int64_t step = std::clamp<int64_t>(next_turn, 1, remaining);
    virtual_clock::advance_ms(step);
    remaining -= step;
  }
}

int sleep_for(timespec* time) {
  advance_ns(static_cast<int64_t>(time->tv_sec) * kNanosecondsPerSecond + time->tv_nsec);
  give_turn();
  return 0;
}
