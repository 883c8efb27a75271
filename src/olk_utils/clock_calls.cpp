#include "olk_utils/clock_calls.h"

timespec read_clock(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now;
}

int poll_descriptor(pollfd* descriptor, int timeout_ms) {
  return poll(descriptor, 1, timeout_ms);
}

int sleep_for(timespec* time) {
  return nanosleep(time, time);
}
