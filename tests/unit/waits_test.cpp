// The waits of the library, in virtual time: neither signals nor the limits of poll's argument change their
// length.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <vector>

#include "olk_utils/system_clock.h"
#include "support/virtual_clock.h"

namespace {

std::vector<int64_t> signals_at_ms;  // since the start of the process, in order

bool signal_is_due() {
  if (signals_at_ms.empty() || signals_at_ms.front() > virtual_clock::monotonic_ms()) return false;
  signals_at_ms.erase(signals_at_ms.begin());
  return true;
}

}  // namespace

extern "C" int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
extern "C" int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  if (!signal_is_due()) return __real_poll(descriptors, count, timeout);
  errno = EINTR;
  return -1;
}

namespace {

class Waits : public testing::Test {
 protected:
  Waits() {
    EXPECT_EQ(pipe(ends_), 0);
    virtual_clock::on_turn([] {
      return signals_at_ms.empty() ? INT64_MAX : signals_at_ms.front() - virtual_clock::monotonic_ms();
    });
  }
  ~Waits() override {
    virtual_clock::on_turn(nullptr);
    for (const int end : ends_) {
      if (end != -1) close(end);
    }
  }
  [[nodiscard]] int silent() const { return ends_[0]; }
  [[nodiscard]] int other_end() const { return ends_[1]; }

  void send_byte() const { EXPECT_EQ(write(other_end(), "x", 1), 1); }
  void hang_up() {
    close(ends_[1]);
    ends_[1] = -1;
  }

  // What a wait at the silent end comes to, and how long it takes.
  void expect_silence_for(int64_t timeout_ms) const {
    const int64_t start = virtual_clock::monotonic_ms();
    EXPECT_EQ(wait_readable(silent(), timeout_ms), kTimedOut);
    EXPECT_EQ(virtual_clock::monotonic_ms() - start, timeout_ms);
  }

 private:
  int ends_[2] = {-1, -1};
};

TEST_F(Waits, SilenceTakesTheWholeWait) {
  expect_silence_for(1);
  expect_silence_for(11999);
  expect_silence_for(0);
}

TEST_F(Waits, SignalsNeitherShortenNorLengthenAWait) {
  signals_at_ms = {300, 301, 999};
  expect_silence_for(1000);
  EXPECT_TRUE(signals_at_ms.empty());
}

TEST_F(Waits, ASignalAtTheEndOfAWaitEndsIt) {
  signals_at_ms = {1000};
  expect_silence_for(1000);
  EXPECT_TRUE(signals_at_ms.empty());
}

TEST_F(Waits, AWaitMayBeLongerThanPollCanSay) {
  expect_silence_for(int64_t{INT_MAX} + 5000);
}

TEST_F(Waits, AByteAfterASignalIsSeenWhenItComes) {
  signals_at_ms = {200};
  virtual_clock::on_turn([this] {
    if (virtual_clock::monotonic_ms() == 700) send_byte();
    return virtual_clock::monotonic_ms() < 200 ? 200 : 500;
  });
  EXPECT_EQ(wait_readable(silent(), 1000), kReadable);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 700);
}

TEST_F(Waits, TellsWhatItFound) {
  EXPECT_EQ(wait_writable(other_end(), 1000), kWritable);
  EXPECT_EQ(wait_readable(-1, 1000), kWaitFailed);
  EXPECT_EQ(errno, EBADF);
  const int closed = dup(silent());
  close(closed);
  EXPECT_EQ(wait_readable(closed, 1000), kWaitFailed);
  hang_up();
  EXPECT_EQ(wait_readable(silent(), 1000), kHungUp);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 0) << "none of these is waited for";
}

TEST_F(Waits, APauseTakesItsMicroseconds) {
  const timespec start = monotonic_now();
  pause_microseconds(2500000);
  EXPECT_EQ(elapsed_ms(start, monotonic_now()), 2500);
}

}  // namespace
