// A disk without room: while one of these lives, no file of this process grows beyond so many bytes. The
// signal of a write that tries to is left as it is: it ends a host whose library does not hold it back.
#pragma once

#include <sys/resource.h>

class FullDisk {
 public:
  explicit FullDisk(rlim_t room = 0) {
    getrlimit(RLIMIT_FSIZE, &allowed_);
    rlimit full = allowed_;
    full.rlim_cur = room;
    setrlimit(RLIMIT_FSIZE, &full);
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &allowed_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit allowed_{};
};
