// The size of a file as the utilities tell it.
#pragma once

#include <sys/stat.h>

// In 32 bits, as it always was: a file of 2 GiB shows a negative size. -1 for what is not there.
inline int file_size(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 ? static_cast<int>(status.st_size) : -1;
}
