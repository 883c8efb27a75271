#include "olk_utils/output.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int kRaisedByWrites[] = {SIGXFSZ, SIGPIPE};

// Both signals, blocked on this thread while the object lives.
class HeldSignals {
 public:
  HeldSignals() {
    sigemptyset(&held_);
    for (const int signal : kRaisedByWrites) sigaddset(&held_, signal);
    pthread_sigmask(SIG_BLOCK, &held_, &former_mask_);
    leave_to_host();
  }
  ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  // After a write that failed.
  void drop_raised() const {
    constexpr timespec kAtOnce{};
    const int error = errno;
    while (sigtimedwait(&held_, nullptr, &kAtOnce) == -1 && errno == EINTR) {
    }
    errno = error;
  }

 private:
  // A signal that a host had blocked and that waited before is the host's; waiting twice counts as once.
  void leave_to_host() {
    for (const int signal : kRaisedByWrites) {
      if (sigismember(&former_mask_, signal) == 0) continue;
      sigset_t pending;
      sigpending(&pending);
      if (sigismember(&pending, signal) == 1) sigdelset(&held_, signal);
    }
  }

  sigset_t held_;
  sigset_t former_mask_;
};

bool write_rest(int descriptor, const char* bytes, size_t length) {
  while (length > 0) {
    const ssize_t written = write(descriptor, bytes, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    length -= static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

bool write_whole(int descriptor, const char* bytes, size_t length) {
  const HeldSignals signals;
  const bool written = write_rest(descriptor, bytes, length);
  if (!written) signals.drop_raised();
  return written;
}

bool write_whole_to_file(int descriptor, const char* bytes, size_t length) {
  rlimit limit{};
  const bool unlimited = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY;
  return unlimited ? write_rest(descriptor, bytes, length) : write_whole(descriptor, bytes, length);
}

void print(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print_list(format, arguments);
  va_end(arguments);
}

void print_list(const char* format, va_list arguments) {
  const HeldSignals signals;
  if (vprintf(format, arguments) < 0) signals.drop_raised();
}
