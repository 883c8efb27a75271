// While a call runs: a line on a terminal that says what happens, and what Ctrl-C leaves behind.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "library/functions.h"

namespace satctl {

// Shows on standard error, if that is a terminal, what the call is doing and for how long.
class Progress {
 public:
  Progress(const Function& function, int session, int limit_seconds);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  void show_until_done();

  const Function& function_;
  int session_;
  int limit_seconds_;
  bool done_ = false;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::thread thread_;
};

// On SIGINT, SIGTERM and SIGHUP: says what is known about the outcome, then lets the signal end the process.
// The kernel then closes the port, which unlocks it.
class InterruptNotice {
 public:
  InterruptNotice(const Function& function, int session);
  ~InterruptNotice();
  InterruptNotice(const InterruptNotice&) = delete;
  InterruptNotice& operator=(const InterruptNotice&) = delete;
};

// How to find out what became of a call whose reply is not known.
std::string how_to_find_out(const Function& function, int session);

}  // namespace satctl
