// The only place where the emulator waits. While the link waits for its descriptor or for a moment to
// pass, side channels (the control socket) are served and signals are noticed, so that the link's code can
// be written as the plain procedure it is.
#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <vector>

namespace emulator {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// SIGTERM, SIGINT or SIGHUP arrived: unwinds to main, which ends cleanly.
struct Stopped {};

class SideChannel {
 public:
  virtual ~SideChannel() = default;
  virtual void collect(std::vector<pollfd>& fds) const = 0;
  virtual void serve(const pollfd& ready) = 0;
  // When the channel wants to be called although nothing happens, and that call.
  virtual Clock::time_point due() const { return Clock::time_point::max(); }
  virtual void tick(Clock::time_point) {}
};

class Waiter {
 public:
  // Blocks the ending signals; they are read from a descriptor from now on.
  Waiter();
  ~Waiter();
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  void attach(SideChannel* channel) { channels_.push_back(channel); }
  void detach(const SideChannel* channel);

  // Waits until the descriptor is ready, the deadline has passed or a side channel was served. Returns the
  // descriptor's ready events, 0 in the other cases.
  short wait(int fd, short events, Clock::time_point deadline);

 private:
  void take_signals() const;

  int signals_ = -1;
  std::vector<SideChannel*> channels_;
};

}  // namespace emulator
