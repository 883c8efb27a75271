// The link at its true pace, with the device on a thread of its own: durations, signals, many descriptors and
// what waiting costs.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <ctime>

#include "link/link_fixture.h"
#include "olk_utils/bounded_text.h"
#include "talvex/talvex.h"

namespace {

using namespace scripted;
using testing::AllOf;
using testing::Ge;
using testing::Lt;

double cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Wall and processor time of the calling thread since its making.
class Stopwatch {
 public:
  double wall() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }
  double cpu() const { return cpu_seconds() - cpu_start_; }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  double cpu_start_ = cpu_seconds();
};

class RealTimeTest : public LinkTest {
 protected:
  RealTimeTest() : LinkTest(steady_clock_ms) {}
  void SetUp() override { write_file("SAT.ini", configuration(device().path(), "", "1")); }

  // Waiting must cost next to nothing; this is generous to a busy machine.
  static void expect_idle(const Stopwatch& watch) { EXPECT_LT(watch.cpu(), 0.15 * watch.wall()); }
};

constexpr char kCommand[] = "ConsultarSAT|000042";

// ---- Durations --------------------------------------------------------------------------------------

TEST_F(RealTimeTest, SilentDeviceFailsAfterTwelveSeconds) {
  open_port();
  device().play({expect_frame()});
  DeviceThread thread(device());
  const Stopwatch watch;
  EXPECT_EQ(transmit(kCommand), -2);
  EXPECT_THAT(watch.wall(), AllOf(Ge(12.0), Lt(13.5)));
  expect_idle(watch);
  EXPECT_EQ(thread.finish(), "");
}

TEST_F(RealTimeTest, MissingReplyFailsAfterNineSeconds) {
  open_port();
  const Stopwatch watch;
  EXPECT_EQ(receive(10), -2003);
  EXPECT_THAT(watch.wall(), AllOf(Ge(9.0), Lt(10.5)));
  expect_idle(watch);
}

TEST_F(RealTimeTest, MissingStxFailsAfterTheLimit) {
  open_port();
  device().play({send("Z")});
  DeviceThread thread(device());
  const Stopwatch watch;
  EXPECT_EQ(receive(4), -2004);
  EXPECT_THAT(watch.wall(), AllOf(Ge(4.0), Lt(5.0)));
  expect_idle(watch);
  EXPECT_EQ(thread.finish(), "");
}

TEST_F(RealTimeTest, FullLineFailsAfterTwoSeconds) {
  open_port();
  fill_line();
  const Stopwatch watch;
  EXPECT_EQ(transmit(kCommand), -2007) << "nobody reads";
  EXPECT_THAT(watch.wall(), AllOf(Ge(2.0), Lt(3.5)));
  EXPECT_LT(watch.cpu(), 0.5 * watch.wall()) << "a thousand looks a second, not more";
}

TEST_F(RealTimeTest, BrokenFramesFailAfterThreeGaps) {
  open_port();
  device().play(3 * Script{send("\x02"
                                "A"),
                           expect_nak()});
  DeviceThread thread(device());
  const Stopwatch watch;
  EXPECT_EQ(receive(10), -2006);
  EXPECT_THAT(watch.wall(), AllOf(Ge(0.3), Lt(2.0)));
  EXPECT_EQ(thread.finish(), "");
}

// ---- Hung-up ports are paced ------------------------------------------------------------------------

TEST_F(RealTimeTest, WaitForAnAnswerOfAHungUpPortIsPaced) {
  open_port();
  device().play({expect_frame(), hang_up()});
  DeviceThread thread(device());
  const Stopwatch watch;
  EXPECT_EQ(transmit(kCommand), -2);
  EXPECT_THAT(watch.wall(), AllOf(Ge(2.0), Lt(3.5)));
  EXPECT_LT(watch.cpu(), 0.3 * watch.wall());
}

TEST_F(RealTimeTest, WaitForAReplyOfAHungUpPortIsPaced) {
  open_port();
  device().play({hang_up()});
  device().take_turn();
  const Stopwatch watch;
  EXPECT_EQ(receive(4), -2004);
  EXPECT_THAT(watch.wall(), AllOf(Ge(4.0), Lt(5.5)));
  EXPECT_LT(watch.cpu(), 0.3 * watch.wall());
}

// ---- Whole transactions -----------------------------------------------------------------------------

TEST_F(RealTimeTest, TransactionWithADeviceThatThinks) {
  device().play({expect_frame(), pause_ms(300), ack(), pause_ms(700),
                 send_frame("000042|08000|SAT em operacao||"), expect_ack()});
  DeviceThread thread(device());
  EXPECT_STREQ(ConsultarSAT(42), "000042|08000|SAT em operacao||");
  EXPECT_EQ(thread.finish(), "");
}

TEST_F(RealTimeTest, SeveralMebibytesInBothDirections) {
  constexpr std::size_t kBlocks = 128;
  const std::string front = "EnviarDadosVenda|000042|code|";
  const std::string sale(kBlocks * kBlock - front.size() - 3, 's');
  const std::string reply = text_for_frame_of(kBlocks * kBlock);
  Script script = static_cast<int>(kBlocks) * Script{expect_block(kBlock), ack()};
  script.push_back(send_frame(reply));
  script.push_back(expect(std::string(kBlocks, kAck)));
  write_file("SAT.ini", configuration(device().path(), "", "0"));
  device().play(script);
  DeviceThread thread(device());
  EXPECT_TRUE(EnviarDadosVenda(42, "code", sale.c_str()) == reply);
  EXPECT_EQ(thread.finish(), "");
}

TEST_F(RealTimeTest, ManyCallsInARow) {
  for (int session = 1; session <= 30; ++session) {
    device().play({expect_frame(), ack(), send_frame("reply " + std::to_string(session)), expect_ack()});
    DeviceThread thread(device());
    EXPECT_EQ(ConsultarSAT(session), "reply " + std::to_string(session));
    ASSERT_EQ(thread.finish(), "");
  }
}

TEST_F(RealTimeTest, HostMayHaveMoreThanAThousandDescriptorsOpen) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = limit.rlim_max;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  ASSERT_GT(limit.rlim_max, 1300u) << "this machine's hard limit is too low for the test";
  int highest = 0;
  while (highest < 1200) ASSERT_GT(highest = open("/dev/null", O_RDONLY | O_CLOEXEC), 0);

  device().play({expect_frame(), pause_ms(50), ack(), pause_ms(50), send_frame("AB"), expect_ack()});
  DeviceThread thread(device());
  EXPECT_STREQ(ConsultarSAT(42), "AB");
  EXPECT_EQ(thread.finish(), "");
}

// ---- Signals ----------------------------------------------------------------------------------------

class SignalTest : public RealTimeTest {
 protected:
  // A signal every two milliseconds, to this thread only, that interrupts system calls.
  SignalTest() {
    struct sigaction action {};
    action.sa_handler = [](int) { signals = signals + 1; };
    sigaction(SIGRTMIN, &action, nullptr);
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGRTMIN;
    event._sigev_un._tid = gettid();
    timer_create(CLOCK_MONOTONIC, &event, &timer_);
  }
  ~SignalTest() override { timer_delete(timer_); }

  void start_signals() {
    const itimerspec every{{0, 2000000}, {0, 2000000}};
    ASSERT_EQ(timer_settime(timer_, 0, &every, nullptr), 0);
  }

  static volatile std::sig_atomic_t signals;

 private:
  timer_t timer_{};
};
volatile std::sig_atomic_t SignalTest::signals = 0;

TEST_F(SignalTest, SignalsDoNotShortenTheWaits) {
  open_port();
  start_signals();
  const Stopwatch watch;
  EXPECT_EQ(receive(10), -2003);
  EXPECT_THAT(watch.wall(), AllOf(Ge(8.99), Lt(10.5)));
  EXPECT_GT(signals, 1000);
}

TEST_F(SignalTest, SignalsDoNotDisturbATransaction) {
  const std::string reply = text_for_frame_of(20 * kBlock);
  device().play({expect_frame(), pause_ms(200), ack(), pause_ms(200), send_frame(reply),
                 expect(std::string(20, kAck))});
  DeviceThread thread(device());
  start_signals();
  EXPECT_TRUE(ConsultarSAT(42) == reply);
  EXPECT_EQ(thread.finish(), "");
  EXPECT_GT(signals, 100);
}

}  // namespace
