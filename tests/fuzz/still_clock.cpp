// A clock for fuzz targets: each look takes a millisecond, each wait is over at once, and a wait for a port
// that has run dry takes its whole time.
#include <cstdint>
#include <cstdlib>

#include "fuzz/sandbox.h"
#include "olk_utils/clock_calls.h"

namespace {

// The same calendar on every machine.
[[maybe_unused]] const int utc = setenv("TZ", "UTC0", 1);

constexpr int64_t kStart = 1600000000000;
int64_t now_ms = kStart;

timespec to_timespec(int64_t ms) {
  return {ms / 1000, (ms % 1000) * 1000000};
}

}  // namespace

timespec read_clock(clockid_t clock) {
  return to_timespec(clock == CLOCK_REALTIME ? now_ms : ++now_ms);
}

int poll_descriptor(pollfd* descriptor, int timeout_ms) {
  if ((descriptor->events & POLLIN) != 0 && sandbox::is_dry()) {
    now_ms += timeout_ms;
    return 0;
  }
  descriptor->revents = descriptor->events;
  return 1;
}

int sleep_for(timespec* time) {
  now_ms += static_cast<int64_t>(time->tv_sec) * 1000 + (time->tv_nsec + 999999) / 1000000;
  return 0;
}
