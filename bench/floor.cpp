#include "floor.h"

#include <fcntl.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "line_protocol.h"

namespace bench {

namespace {

void check(bool done, const char* what) {
  if (!done) throw std::system_error(errno, std::generic_category(), what);
}

void write_all(int port, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(port, bytes, count);
    check(written > 0, "writing");
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
}

void await_ack(int port) {
  char byte = 0;
  check(read(port, &byte, 1) == 1, "reading the ACK");
  if (byte != kAck) throw std::runtime_error("the device did not acknowledge");
}

void send_frame(int port, const std::string& frame) {
  for (std::size_t offset = 0; offset < frame.size(); offset += kBlock) {
    write_all(port, frame.data() + offset, std::min(kBlock, frame.size() - offset));
    await_ack(port);
  }
}

std::size_t receive_frame(int port, char* buffer, std::size_t capacity) {
  std::size_t held = 0;
  std::size_t block_end = kBlock;
  for (;;) {
    const ssize_t count = read(port, buffer + held, std::min(block_end, capacity) - held);
    check(count > 0, "reading the reply");
    const void* etx = std::memchr(buffer + held, kEtx, static_cast<std::size_t>(count));
    held += static_cast<std::size_t>(count);
    if (etx != nullptr) break;
    if (held < block_end) continue;
    write_all(port, &kAck, 1);
    block_end += kBlock;
  }
  write_all(port, &kAck, 1);
  return held;
}

}  // namespace

std::size_t floor_call(const char* port, const std::string& frame, char* buffer, std::size_t capacity) {
  const int descriptor = open(port, O_RDWR | O_NOCTTY);
  check(descriptor >= 0, port);
  check(flock(descriptor, LOCK_EX | LOCK_NB) == 0, "locking");
  termios settings{};
  check(tcgetattr(descriptor, &settings) == 0, "reading the port's settings");
  cfmakeraw(&settings);
  check(tcsetattr(descriptor, TCSANOW, &settings) == 0, "setting the port raw");
  send_frame(descriptor, frame);
  const std::size_t length = receive_frame(descriptor, buffer, capacity);
  check(close(descriptor) == 0, "closing");
  return length;
}

}  // namespace bench
