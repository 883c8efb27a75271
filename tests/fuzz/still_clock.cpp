// A clock for fuzz targets: each look takes a millisecond, each wait is over at once, and a wait for a port
// that has run dry takes its whole time.
#include <cerrno>

#include "fuzz/sandbox.h"
#include "olk_utils/system_clock.h"

namespace {

constexpr int64_t kStart = 1600000000000;
int64_t now_ms = kStart;

timespec to_timespec(int64_t ms) {
  return {ms / 1000, (ms % 1000) * 1000000};
}

}  // namespace

LocalTime local_time_now() {
  LocalTime local{};
  const time_t seconds = now_ms / 1000;
  gmtime_r(&seconds, &local.calendar);
  return local;
}

LocalTime local_time_in_current_zone() {
  return local_time_now();
}
uint64_t GetCurrentMilliTime() {
  return static_cast<uint64_t>(now_ms);
}
timespec monotonic_now() {
  return to_timespec(++now_ms);
}

WaitResult wait_readable(int descriptor, int64_t timeout_ms) {
  if (descriptor < 0) {
    errno = EBADF;
    return kWaitFailed;
  }
  if (!sandbox::is_dry()) return kReadable;
  now_ms += timeout_ms;
  return kTimedOut;
}

WaitResult wait_writable(int, int64_t) {
  return kWritable;
}

void pause_microseconds(unsigned microseconds) {
  now_ms += (microseconds + 999) / 1000;
}
