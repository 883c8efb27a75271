// A disk without room: while one of these lives, no file of this process grows beyond so many bytes.
#pragma once

#include <signal.h>
#include <sys/resource.h>

class FullDisk {
 public:
  explicit FullDisk(rlim_t room = 0) : on_excess_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &allowed_);
    rlimit full = allowed_;
    full.rlim_cur = room;
    setrlimit(RLIMIT_FSIZE, &full);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &allowed_);
    signal(SIGXFSZ, on_excess_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  sighandler_t on_excess_;
  rlimit allowed_{};
};
