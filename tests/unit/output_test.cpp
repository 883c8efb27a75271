// What a failed write of the library leaves behind: a false, and no signal.
#include "olk_utils/output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "support/full_disk.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

namespace {

// One way in which a write fails and raises its signal.
struct Failure {
  const char* name;
  int signal;
  int error;
  std::function<int()> open_file;
};

int open_full_file() {
  return open("full", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
}

// The writing end of a pipe that nobody reads.
int open_broken_pipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  close(ends[0]);
  return ends[1];
}

void PrintTo(const Failure& failure, std::ostream* out) {
  *out << failure.name;
}

constexpr rlim_t kRoom = 4;

volatile sig_atomic_t signals_caught = 0;
void count_signal(int) {
  signals_caught = signals_caught + 1;
}

class RaisedSignal : public testing::TestWithParam<Failure> {
 protected:
  int open_file() const { return GetParam().open_file(); }
  int signal_number() const { return GetParam().signal; }

  sigset_t only_signal() const {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal_number());
    return set;
  }
  bool is_blocked() const {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal_number()) == 1;
  }
  bool is_pending() const {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal_number()) == 1;
  }

  ScratchDirectory scratch_;
  FullDisk disk_{kRoom};
};
INSTANTIATE_TEST_SUITE_P(, RaisedSignal,
                         testing::Values(Failure{"SIGXFSZ", SIGXFSZ, EFBIG, open_full_file},
                                         Failure{"SIGPIPE", SIGPIPE, EPIPE, open_broken_pipe}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(RaisedSignal, DoesNotEndTheHost) {
  const int file = open_file();
  EXPECT_FALSE(write_whole(file, "123456", 6));
  EXPECT_EQ(errno, GetParam().error);
  EXPECT_FALSE(is_blocked());
  EXPECT_FALSE(is_pending());
  close(file);
}

TEST_P(RaisedSignal, DoesNotReachTheHostsHandler) {
  signals_caught = 0;
  const auto former = signal(signal_number(), count_signal);
  const int file = open_file();
  EXPECT_FALSE(write_whole(file, "123456", 6));
  EXPECT_EQ(signals_caught, 0);
  raise(signal_number());
  EXPECT_EQ(signals_caught, 1) << "the host's own still does";
  signal(signal_number(), former);
  close(file);
}

TEST_P(RaisedSignal, DoesNotWaitForAHostThatHadBlockedIt) {
  const sigset_t set = only_signal();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  const int file = open_file();
  EXPECT_FALSE(write_whole(file, "123456", 6));
  EXPECT_TRUE(is_blocked());
  EXPECT_FALSE(is_pending());
  close(file);
}

TEST_P(RaisedSignal, LeavesTheOneThatWaitedBefore) {
  const sigset_t set = only_signal();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  pthread_kill(pthread_self(), signal_number());
  const int file = open_file();
  EXPECT_FALSE(write_whole(file, "123456", 6));
  EXPECT_TRUE(is_blocked());
  EXPECT_TRUE(is_pending());
  close(file);
  const timespec at_once{};
  EXPECT_EQ(sigtimedwait(&set, nullptr, &at_once), signal_number());
}

TEST_P(RaisedSignal, IsBlockedNoLongerThanAWrite) {
  const int file = open("full", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_TRUE(write_whole(file, "1234", kRoom));
  EXPECT_EQ(read_file("full"), "1234");
  EXPECT_FALSE(is_blocked());
  close(file);
}

TEST_P(RaisedSignal, OfStandardOutputDoesNotEndTheHost) {
  const pid_t host = fork();
  if (host == 0) {
    dup2(open_file(), STDOUT_FILENO);
    for (int i = 0; i < 10; ++i) {
      print("[%s]\n", std::string(BUFSIZ, 'x').c_str());
    }
    _exit(is_pending() || is_blocked() ? 1 : 0);
  }
  int status = -1;
  waitpid(host, &status, 0);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
