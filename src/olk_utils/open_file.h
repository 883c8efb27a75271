// How the library opens whatever it opens.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

// Never waits (a FIFO in the place of a file must not stop a sale), takes no controlling terminal, and hands
// nothing to programs that the host starts. In a host that closed its standard streams the lowest free numbers
// are theirs: what host or library print would then go to the device or into a file, so none is ever used.
inline int open_file(const char* path, int flags, mode_t mode = 0) {
  const int descriptor = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode);
  if (descriptor == -1 || descriptor > STDERR_FILENO) return descriptor;
  const int other = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return other;
}
