// How the library opens whatever it opens.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

// Never waits (a FIFO in the place of a file must not stop a sale), takes no controlling terminal, and hands
// nothing to programs that the host starts. In a host that closed its standard streams the lowest free
// numbers are theirs: what host or library print would then go to the device or into a file, so none is ever
// used.
inline int open_file(const char* path, int flags, mode_t mode = 0) {
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

constexpr int kLogFlags = O_WRONLY | O_APPEND;

// For appending. The names of logs can be foretold: in a folder that others can write to, a link in their
// place would lead to any file of the till. A FIFO does not count as a log either: a write to it whose reader
// has gone would end the host.
inline int open_log_file(const char* path, mode_t mode) {
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

// Whether a descriptor still is what open_log_file opened. A host that becomes a daemon closes all
// descriptors, and may then have opened a file of its own under that number; hardly one with these flags. The
// file itself is not asked, for the reason above.
inline bool is_open_log_file(int descriptor) {
  constexpr int kFlags = kLogFlags | O_NONBLOCK;
  const int flags = fcntl(descriptor, F_GETFL);
  return flags != -1 && (flags & (O_ACCMODE | kFlags)) == kFlags;
}
