// Writing to a file descriptor until everything is written.
#pragma once

#include <errno.h>
#include <stddef.h>
#include <unistd.h>

// False when the file takes no more; what was written before stays written.
inline bool write_whole(int descriptor, const char* bytes, size_t length) {
  while (length > 0) {
    const ssize_t written = write(descriptor, bytes, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    length -= static_cast<size_t>(written);
  }
  return true;
}
