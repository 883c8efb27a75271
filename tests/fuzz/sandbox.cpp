// Between the fuzzed library and the system, by --wrap: logs go to /dev/null, nothing is made, renamed or run
// outside the folder of the run, whatever a configuration says; and a descriptor that is none, whose bytes
// are the input.
#include "fuzz/sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace sandbox {

namespace {

const char* next = nullptr;
const char* end = nullptr;
std::size_t longest_read = 0;
long bytes_written = 0;

// An escape, then what the read does.
constexpr char kEscape = '\xff';

}  // namespace

void feed(std::string_view bytes, std::size_t most_at_once) {
  next = bytes.data();
  end = next + bytes.size();
  longest_read = most_at_once;
  bytes_written = 0;
}

bool is_dry() {
  return next == end;
}
long written() {
  return bytes_written;
}

// The escape's outcome, or 1 when bytes follow.
static int next_event() {
  if (next == end) {
    errno = EAGAIN;
    return -1;
  }
  if (*next != kEscape || end - next < 2) return 1;
  const char event = next[1];
  next += 2;
  switch (event) {
    case 'Z':
      return 0;
    case 'I':
      errno = EIO;
      return -1;
    case 'B':
      errno = EBADF;
      return -1;
    case 'S':
      errno = EINTR;
      return -1;
    case 'A':
      errno = EAGAIN;
      return -1;
    default:
      next -= 1;  // the byte behind it stands for itself
      return 1;
  }
}

}  // namespace sandbox

extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __real_write(int descriptor, const void* bytes, size_t count);

int __wrap_open(const char* path, int flags, mode_t mode);
ssize_t __wrap_read(int descriptor, void* buffer, size_t size);
ssize_t __wrap_write(int descriptor, const void* bytes, size_t count);
int __wrap_mkdir(const char* path, mode_t mode);
int __wrap_rename(const char* from, const char* to);
int __wrap_ioctl(int descriptor, unsigned long request, ...);

int __wrap_open(const char* path, int flags, mode_t mode) {
  const std::string_view name = path;
  const bool is_own_file =
      name.find('/') == std::string_view::npos && !name.ends_with(".log") && !name.ends_with(".txt");
  if ((flags & O_ACCMODE) == O_RDONLY || is_own_file) return __real_open(path, flags, mode);
  return __real_open("/dev/null", flags & ~(O_CREAT | O_TRUNC), mode);
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  if (descriptor != sandbox::kDescriptor) return __real_read(descriptor, buffer, size);
  const int event = sandbox::next_event();
  if (event != 1) return event;
  const auto left = static_cast<size_t>(sandbox::end - sandbox::next);
  size_t count = std::min({size, left, sandbox::longest_read});
  const auto* escape = static_cast<const char*>(std::memchr(sandbox::next + 1, sandbox::kEscape, left - 1));
  if (escape != nullptr) count = std::min(count, static_cast<size_t>(escape - sandbox::next));
  std::memcpy(buffer, sandbox::next, count);
  sandbox::next += count;
  return static_cast<ssize_t>(count);
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  if (descriptor != sandbox::kDescriptor) return __real_write(descriptor, bytes, count);
  sandbox::bytes_written += static_cast<long>(count);
  return static_cast<ssize_t>(count);
}

int __wrap_mkdir(const char*, mode_t) {
  errno = EACCES;
  return -1;
}

int __wrap_rename(const char*, const char*) {
  errno = EACCES;
  return -1;
}

int __wrap_ioctl(int, unsigned long, ...) {
  errno = ENOTTY;
  return -1;
}

}  // extern "C"
