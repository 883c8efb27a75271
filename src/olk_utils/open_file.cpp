#include "olk_utils/open_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include "olk_utils/system_clock.h"

namespace {

constexpr int kLogFlags = O_WRONLY | O_APPEND;

constexpr int64_t kLeaseWaitMs = 1000;
constexpr unsigned kLeasePauseMicroseconds = 1000;

// What the call in progress has waited for a file; 0 in a record that is free.
struct LeaseWait {
  dev_t device;
  ino_t inode;
  int64_t waited_ms;
};

// More files than one call opens: both logs, at the end of a day twice, SAT.ini, SAT.conf and a result file.
LeaseWait lease_waits[8];

// The file's record, or a free one for it; null when there is none.
LeaseWait* lease_wait_of(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return nullptr;
  for (LeaseWait& wait : lease_waits) {
    if (wait.waited_ms == 0) wait = {status.st_dev, status.st_ino, 0};
    if (wait.device == status.st_dev && wait.inode == status.st_ino) return &wait;
  }
  return nullptr;
}

int open_when_released(const char* path, int flags, mode_t mode, LeaseWait& wait) {
  const timespec start = monotonic_now();
  const int64_t waited_before = wait.waited_ms;
  int descriptor = -1;
  errno = EWOULDBLOCK;
  while (descriptor == -1 && errno == EWOULDBLOCK && wait.waited_ms < kLeaseWaitMs) {
    pause_microseconds(kLeasePauseMicroseconds);
    wait.waited_ms = waited_before + elapsed_ms(start, monotonic_now());
    descriptor = open_at_once(path, flags, mode);
  }
  return descriptor;
}

}  // namespace

int open_at_once(const char* path, int flags, mode_t mode) {
  int descriptor;
  do {
    descriptor = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode);
  } while (descriptor == -1 && errno == EINTR);
  if (descriptor == -1 || descriptor > STDERR_FILENO) return descriptor;
  const int other = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return other;
}

int open_file(const char* path, int flags, mode_t mode) {
  const int descriptor = open_at_once(path, flags, mode);
  if (descriptor != -1 || errno != EWOULDBLOCK) return descriptor;
  LeaseWait* wait = lease_wait_of(path);
  if (wait != nullptr) return open_when_released(path, flags, mode, *wait);
  errno = EWOULDBLOCK;
  return -1;
}

void forget_lease_waits() {
  for (LeaseWait& wait : lease_waits) wait.waited_ms = 0;
}

int open_log_file(const char* path, mode_t mode) {
  const int descriptor = open_file(path, kLogFlags | O_CREAT | O_NOFOLLOW, mode);
  // What has a position is no FIFO. A status would tell too, but makes the file system write finer time
  // stamps.
  if (descriptor == -1 || lseek(descriptor, 0, SEEK_CUR) != -1) return descriptor;
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISFIFO(status.st_mode)) return descriptor;
  close(descriptor);
  errno = EINVAL;
  return -1;
}

bool is_open_log_file(int descriptor) {
  constexpr int kFlags = kLogFlags | O_NONBLOCK;
  const int flags = fcntl(descriptor, F_GETFL);
  return flags != -1 && (flags & (O_ACCMODE | kFlags)) == kFlags;
}
