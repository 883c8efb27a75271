#include "support/fault_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

namespace fault_calls {

namespace {

std::vector<Fault> table;
std::vector<int> hits;  // of each fault in the table
int counts[static_cast<int>(Call::kStartSearch) + 1];
std::vector<int> modem_lines;
std::function<void()> test_event;
int settings_file = -1;
int port = -1;  // as it was opened last

}  // namespace

void inject(std::vector<Fault> faults) {
  table = std::move(faults);
  hits.assign(table.size(), 0);
  std::fill(std::begin(counts), std::end(counts), 0);
  modem_lines.clear();
}

std::vector<std::string> unspent() {
  std::vector<std::string> left;
  for (std::size_t i = 0; i < table.size(); ++i) {
    const Fault& fault = table[i];
    if (fault.times == 0 || (fault.times == kForever && hits[i] > 0)) continue;
    left.push_back(std::string(kCallNames[static_cast<int>(fault.call)]) + " after " +
                   std::to_string(hits[i]) + " hits, error " + std::to_string(fault.error));
  }
  return left;
}

void on_event(std::function<void()> event) {
  test_event = std::move(event);
}

int count_of(Call call) {
  return counts[static_cast<int>(call)];
}

const std::vector<int>& raised_modem_lines() {
  return modem_lines;
}

namespace {

// The fault that befalls this call, if any.
std::optional<Fault> befalling(Call call, std::size_t asked = 0) {
  ++counts[static_cast<int>(call)];
  for (std::size_t i = 0; i < table.size(); ++i) {
    Fault& fault = table[i];
    if (fault.call != call || fault.times == 0) continue;
    if (fault.asked != 0 && fault.asked != asked) continue;
    if (fault.skip > 0) {
      --fault.skip;
      return {};
    }
    if (fault.times != kForever) --fault.times;
    ++hits[i];
    if (!fault.event) return fault;
    test_event();
    return {};
  }
  return {};
}

std::optional<Fault> befalling_port(Call call, int descriptor, std::size_t asked = 0) {
  if (descriptor != port) return {};
  return befalling(call, asked);
}

bool is_port(const char* path) {
  return std::strncmp(path, "/dev/pts/", 9) == 0 || std::strstr(path, "/dev/tty") != nullptr;
}

std::optional<Fault> befalling_open(const char* path) {
  if (is_port(path)) return befalling(Call::kOpen);
  if (std::strcmp(path, "SAT.ini") == 0) return befalling(Call::kOpenSettings);
  return {};
}

std::optional<Fault> befalling_read(int descriptor, std::size_t asked) {
  if (descriptor == settings_file) return befalling(Call::kReadSettings, asked);
  return befalling_port(Call::kRead, descriptor, asked);
}

long outcome(const Fault& fault) {
  errno = fault.error;
  return fault.result;
}

}  // namespace

}  // namespace fault_calls

using fault_calls::befalling;
using fault_calls::befalling_open;
using fault_calls::befalling_port;
using fault_calls::befalling_read;
using fault_calls::Call;
using fault_calls::outcome;

extern "C" {

int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __real_write(int descriptor, const void* bytes, size_t count);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
int __real_close(int descriptor);
int __real_flock(int descriptor, int operation);
int __real_ioctl(int descriptor, unsigned long request, ...);
int __real_tcgetattr(int descriptor, termios* settings);
int __real_tcsetattr(int descriptor, int when, const termios* settings);

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (const auto fault = befalling_open(path)) return static_cast<int>(outcome(*fault));
  const int descriptor = __real_open(path, flags, mode);
  if (fault_calls::is_port(path)) fault_calls::port = descriptor;
  if (std::strcmp(path, "SAT.ini") == 0) fault_calls::settings_file = descriptor;
  return descriptor;
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  const auto fault = befalling_read(descriptor, size);
  if (!fault) return __real_read(descriptor, buffer, size);
  if (fault->bytes.empty()) return outcome(*fault);
  const size_t count = std::min(size, fault->bytes.size());
  std::memcpy(buffer, fault->bytes.data(), count);
  return static_cast<ssize_t>(count);
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  const auto fault = befalling_port(Call::kWrite, descriptor);
  if (!fault) return __real_write(descriptor, bytes, count);
  if (fault->limit == 0) return outcome(*fault);
  return __real_write(descriptor, bytes, std::min(count, fault->limit));
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  if (count == 1) {
    if (const auto fault = befalling_port(Call::kPoll, descriptors->fd))
      return static_cast<int>(outcome(*fault));
  }
  return __real_poll(descriptors, count, timeout);
}

int __wrap_close(int descriptor) {
  if (descriptor == fault_calls::settings_file) fault_calls::settings_file = -1;
  const auto fault = befalling_port(Call::kClose, descriptor);
  if (descriptor == fault_calls::port) fault_calls::port = -1;
  const int result = __real_close(descriptor);
  return fault ? static_cast<int>(outcome(*fault)) : result;
}

int __wrap_flock(int descriptor, int operation) {
  if (const auto fault = befalling_port(Call::kFlock, descriptor)) return static_cast<int>(outcome(*fault));
  return __real_flock(descriptor, operation);
}

int __wrap_ioctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request == TIOCMBIS && descriptor == fault_calls::port)
    fault_calls::modem_lines.push_back(*static_cast<const int*>(argument));
  return __real_ioctl(descriptor, request, argument);
}

int __wrap_tcgetattr(int descriptor, termios* settings) {
  if (const auto fault = befalling_port(Call::kTcgetattr, descriptor))
    return static_cast<int>(outcome(*fault));
  return __real_tcgetattr(descriptor, settings);
}

int __wrap_tcsetattr(int descriptor, int when, const termios* settings) {
  if (const auto fault = befalling_port(Call::kTcsetattr, descriptor))
    return static_cast<int>(outcome(*fault));
  return __real_tcsetattr(descriptor, when, settings);
}

// Takes the place of the C library's for the whole program.
FILE* popen(const char* command, const char* mode) {
  using Popen = FILE* (*)(const char*, const char*);
  static const auto real_popen = reinterpret_cast<Popen>(dlsym(RTLD_NEXT, "popen"));
  if (const auto fault = befalling(Call::kStartSearch)) {
    errno = fault->error;
    return nullptr;
  }
  return real_popen(command, mode);
}

}  // extern "C"
