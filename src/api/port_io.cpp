#include "api/port_io.h"

#include <unistd.h>

#include "olk_utils/system_clock.h"

namespace {

constexpr unsigned kPaceMicroseconds = 1000;
constexpr int64_t kPaceMs = 1;

// A wait that ends early although nothing can be done must not be repeated at once.
void pace_false_alarm(WaitResult result, bool& woke_in_vain) {
  if (result == kTimedOut) return;
  if (result == kHungUp || result == kWaitFailed || woke_in_vain) pace();
  woke_in_vain = true;
}

}  // namespace

ssize_t read_port(SerialPort& port, void* buffer, size_t size) {
  ssize_t count;
  do {
    errno = 0;
    count = read(port.descriptor, buffer, size);
  } while (count == -1 && errno == EINTR);
  if (count > 0) port.woke_for_nothing = false;
  return count;
}

ssize_t write_port(SerialPort& port, const void* bytes, size_t count) {
  ssize_t written;
  do {
    errno = 0;
    written = write(port.descriptor, bytes, count);
  } while (written == -1 && errno == EINTR);
  if (written > 0) port.woke_without_room = false;
  return written;
}

void wait_for_bytes(SerialPort& port, int64_t timeout_ms) {
  pace_false_alarm(wait_readable(port.descriptor, timeout_ms), port.woke_for_nothing);
}

void wait_for_room(SerialPort& port) {
  pace_false_alarm(wait_writable(port.descriptor, kPaceMs), port.woke_without_room);
}

void pace() {
  pause_microseconds(kPaceMicroseconds);
}
