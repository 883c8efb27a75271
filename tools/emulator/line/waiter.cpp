#include "line/waiter.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace emulator {

Waiter::Waiter() {
  signal(SIGPIPE, SIG_IGN);
  sigset_t ending;
  sigemptyset(&ending);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&ending, number);
  sigprocmask(SIG_BLOCK, &ending, nullptr);
  signals_ = signalfd(-1, &ending, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signals_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

Waiter::~Waiter() {
  close(signals_);
}

void Waiter::detach(const SideChannel* channel) {
  std::erase(channels_, channel);
}

short Waiter::wait(int fd, short events, Clock::time_point deadline) {
  std::vector<pollfd> fds{{fd, events, 0}, {signals_, POLLIN, 0}};
  for (const SideChannel* channel : channels_) {
    channel->collect(fds);
    deadline = std::min(deadline, channel->due());
  }

  timespec limit{};
  const timespec* limit_or_none = nullptr;
  if (deadline != Clock::time_point::max()) {
    const auto left = std::max(Clock::duration::zero(), deadline - Clock::now());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    limit = {seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
    limit_or_none = &limit;
  }
  const int ready = ppoll(fds.data(), fds.size(), limit_or_none, nullptr);
  if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "ppoll");
  if (ready > 0 && fds[1].revents != 0) take_signals();
  for (std::size_t i = 2; ready > 0 && i < fds.size(); ++i) {
    if (fds[i].revents == 0) continue;
    for (SideChannel* channel : channels_) channel->serve(fds[i]);
  }
  for (SideChannel* channel : channels_) channel->tick(Clock::now());
  return ready > 0 ? fds[0].revents : short{0};
}

void Waiter::take_signals() const {
  signalfd_siginfo info{};
  if (read(signals_, &info, sizeof info) == sizeof info) throw Stopped{};
}

}  // namespace emulator
