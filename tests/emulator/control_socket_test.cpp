#include "desk/control_socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "support/scratch_directory.h"

namespace emulator {
namespace {

using std::chrono::seconds;

class Client {
 public:
  explicit Client(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~Client() { close(fd_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void say(const std::string& text) const {
    EXPECT_EQ(write(fd_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  bool is_closed() const {
    char byte = 0;
    return recv(fd_, &byte, 1, MSG_DONTWAIT) == 0;
  }

 private:
  int fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

class IdleClients : public testing::Test {
 protected:
  // Serves what is ready now, as the waiter does.
  void serve() {
    std::vector<pollfd> fds;
    control.collect(fds);
    ASSERT_GT(poll(fds.data(), fds.size(), 5'000), 0);
    for (const pollfd& fd : fds) {
      if (fd.revents != 0) control.serve(fd);
    }
  }

  ScratchDirectory scratch;
  ControlSocket control{scratch.path() / "control", [](const std::string&) { return "{}"; }};
};

TEST_F(IdleClients, AreClosedAfterTheirLimitAndNotBefore) {
  EXPECT_EQ(control.due(), Clock::time_point::max());
  const Client client(scratch.path() / "control");
  serve();
  const auto limit = control.due();
  EXPECT_LE(limit, Clock::now() + ControlSocket::kIdleLimit);
  control.tick(limit - seconds(1));
  EXPECT_FALSE(client.is_closed());
  control.tick(limit);
  EXPECT_TRUE(client.is_closed());
  EXPECT_EQ(control.due(), Clock::time_point::max());
}

TEST_F(IdleClients, AreThoseThatSayNothing) {
  const Client silent(scratch.path() / "control");
  serve();
  const auto limit = control.due();
  const Client busy(scratch.path() / "control");
  serve();
  usleep(10'000);
  busy.say("state\n");
  serve();
  control.tick(limit);
  EXPECT_TRUE(silent.is_closed());
  EXPECT_FALSE(busy.is_closed());
  EXPECT_GT(control.due(), limit);
}

class DueChannel : public SideChannel {
 public:
  explicit DueChannel(Clock::time_point due) : due_(due) {}
  void collect(std::vector<pollfd>&) const override {}
  void serve(const pollfd&) override {}
  Clock::time_point due() const override { return due_; }
  void tick(Clock::time_point now) override { ticked_in_time = now >= due_; }

  bool ticked_in_time = false;

 private:
  Clock::time_point due_;
};

TEST(SideChannels, AreCalledWhenTheyAreDueAlthoughNothingHappens) {
  alarm(30);
  Waiter waiter;
  DueChannel channel(Clock::now() + Milliseconds(20));
  waiter.attach(&channel);
  EXPECT_EQ(waiter.wait(-1, 0, Clock::time_point::max()), 0);
  EXPECT_TRUE(channel.ticked_in_time);
  alarm(0);
}

}  // namespace
}  // namespace emulator
