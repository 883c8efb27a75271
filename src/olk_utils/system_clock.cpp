#include "olk_utils/system_clock.h"

#include <errno.h>
#include <limits.h>

#include <algorithm>

#include "olk_utils/clock_calls.h"

namespace {

constexpr int64_t kNanosecondsPerMillisecond = 1000000;

WaitResult wait_result_of(short events) {
  if ((events & POLLNVAL) != 0) return kWaitFailed;
  if ((events & (POLLHUP | POLLERR)) != 0) return kHungUp;
  return (events & POLLIN) != 0 ? kReadable : kWritable;
}

// poll, not select: a host may have more than FD_SETSIZE descriptors open.
WaitResult wait_for(short event, int descriptor, int64_t timeout_ms) {
  if (descriptor < 0) {  // poll would pass over it and wait
    errno = EBADF;
    return kWaitFailed;
  }
  pollfd port{descriptor, event, 0};
  const timespec start = monotonic_now();
  int64_t remaining = timeout_ms;
  for (;;) {
    const int ready = poll_descriptor(&port, static_cast<int>(std::min<int64_t>(remaining, INT_MAX)));
    if (ready > 0) return wait_result_of(port.revents);
    if (ready < 0 && errno != EINTR) return kWaitFailed;
    remaining = timeout_ms - elapsed_ms(start, monotonic_now());
    if (remaining <= 0) return kTimedOut;
  }
}

}  // namespace

LocalTime local_time_now() {
  const timespec now = read_clock(CLOCK_REALTIME);
  LocalTime local{};
  localtime_r(&now.tv_sec, &local.calendar);
  local.milliseconds = static_cast<int>(now.tv_nsec / kNanosecondsPerMillisecond);
  return local;
}

LocalTime local_time_in_current_zone() {
  tzset();
  return local_time_now();
}

uint64_t GetCurrentMilliTime() {
  const timespec now = read_clock(CLOCK_REALTIME);
  return static_cast<uint64_t>(now.tv_sec) * 1000 +
         static_cast<uint64_t>(now.tv_nsec / kNanosecondsPerMillisecond);
}

timespec monotonic_now() {
  return read_clock(CLOCK_MONOTONIC);
}

WaitResult wait_readable(int descriptor, int64_t timeout_ms) {
  return wait_for(POLLIN, descriptor, timeout_ms);
}

WaitResult wait_writable(int descriptor, int64_t timeout_ms) {
  return wait_for(POLLOUT, descriptor, timeout_ms);
}

void pause_microseconds(unsigned microseconds) {
  timespec remaining{static_cast<time_t>(microseconds / 1000000),
                     static_cast<long>(microseconds % 1000000) * 1000};
  while (sleep_for(&remaining) == -1 && errno == EINTR) {
  }
}
