#include "api/link_io.h"

#include <unistd.h>

#include <algorithm>

#include "olk_utils/system_clock.h"

namespace {

constexpr unsigned kPaceMicroseconds = 1000;
constexpr int64_t kPaceMs = 1;

int64_t endless_wait_ms = kEndlessWaitMs;

// The last wait ended early, and no byte has been read or written since.
bool woke_for_nothing;
bool woke_without_room;

// A wait that ends early although nothing can be done must not be repeated at once.
void pace_false_alarm(WaitResult result, bool& woke_in_vain) {
  if (result == kTimedOut) return;
  if (result == kHungUp || result == kWaitFailed || woke_in_vain) pace();
  woke_in_vain = true;
}

}  // namespace

void set_function_timeout(uint32_t seconds) {
  endless_wait_ms = std::max<int64_t>(kEndlessWaitMs, int64_t{3} * 1000 * seconds);
}

bool is_endless_wait(int64_t elapsed) {
  return elapsed > endless_wait_ms;
}

ssize_t read_port(int descriptor, void* buffer, size_t size) {
  ssize_t count;
  do {
    errno = 0;
    count = read(descriptor, buffer, size);
  } while (count == -1 && errno == EINTR);
  if (count > 0) woke_for_nothing = false;
  return count;
}

ssize_t write_port(int descriptor, const void* bytes, size_t count) {
  ssize_t written;
  do {
    errno = 0;
    written = write(descriptor, bytes, count);
  } while (written == -1 && errno == EINTR);
  if (written > 0) woke_without_room = false;
  return written;
}

void wait_for_bytes(int descriptor, int64_t timeout_ms) {
  pace_false_alarm(wait_readable(descriptor, timeout_ms), woke_for_nothing);
}

void wait_for_room(int descriptor) {
  pace_false_alarm(wait_writable(descriptor, kPaceMs), woke_without_room);
}

void pace() {
  pause_microseconds(kPaceMicroseconds);
}
