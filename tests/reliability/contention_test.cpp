// Several hosts at one port, and hosts in unusual states: forked, with thousands of descriptors, without
// standard streams.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "olk_utils/trace_log.h"
#include "reliability/child_device.h"
#include "reliability/hosts.h"
#include "support/scratch_directory.h"
#include "support/usb_bus.h"

namespace {

constexpr int kRight = 0;
constexpr int kWrong = 1;
constexpr useconds_t kPauseAfterBusy = 1000;

// What the hosts of a test count together.
struct Tally {
  int replies;
  int busy;
};

class Hosts : public testing::Test {
 protected:
  Hosts() { alarm(100); }
  ~Hosts() override {
    alarm(0);
    munmap(tally_, kTallySize);
  }

  const std::string& port() const { return device_.port(); }
  ChildDevice& device() { return device_; }
  static constexpr int kMostHosts = 16;
  Tally& tally(int host) { return tally_[host]; }

  // One call: right, busy, or wrong.
  int call(int host, int session, std::size_t length) {
    const std::string reply = ConsultarStatusOperacional(session, ("A" + std::to_string(length)).c_str());
    if (is_right_reply(reply, session, length)) {
      ++tally_[host].replies;
    } else if (is_busy_reply(reply, session)) {
      ++tally_[host].busy;
    } else {
      std::printf("host %d, session %d: %s\n", host, session, reply.substr(0, 200).c_str());
      return kWrong;
    }
    return kRight;
  }

  int call_often(int host, int calls) {
    std::mt19937 random(static_cast<unsigned>(host));
    for (int i = 0; i < calls; ++i) {
      const int busy_before = tally_[host].busy;
      if (call(host, host * 1000 + i, 50 + random() % 3000) != kRight) return kWrong;
      if (tally_[host].busy > busy_before) usleep(kPauseAfterBusy);
    }
    return kRight;
  }

  void expect_undisturbed_device(unsigned long commands) {
    const DeviceCount count = device_.stop();
    EXPECT_EQ(count.commands, commands);
    EXPECT_EQ(count.damaged, 0u);
    EXPECT_EQ(count.interrupted, 0u);
  }

  // Lines of the day's protocol log that are no whole frame.
  static std::vector<std::string> torn_lines(const std::string& folder) {
    std::vector<std::string> torn;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (!entry.path().string().ends_with("_SAT_ProtocolLog.txt")) continue;
      std::ifstream log(entry.path());
      for (std::string line; std::getline(log, line);) {
        if (!line.ends_with("]OK:a") && !line.ends_with("]WR:d") && !line.ends_with("]WR:CKSUM=0x00--"))
          torn.push_back(line);
      }
    }
    return torn;
  }

 private:
  static constexpr std::size_t kTallySize = kMostHosts * sizeof(Tally);
  ScratchDirectory scratch_;
  ChildDevice device_{TALVEX_PLANNED_DEVICE};
  Tally* tally_ = static_cast<Tally*>(
      mmap(nullptr, kTallySize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
};

TEST_F(Hosts, EightWithFiveHundredCallsEachGetTheirOwnReplies) {
  constexpr int kHosts = 8;
  constexpr int kCalls = 500;
  std::vector<pid_t> hosts;
  hosts.reserve(kHosts);
  for (int host = 0; host < kHosts; ++host) {
    hosts.push_back(start_host("host" + std::to_string(host), [this, host] {
      configure_port(port());
      return call_often(host, kCalls);
    }));
  }
  for (const pid_t host : hosts) EXPECT_EQ(end_of_host(host), kRight);
  int replies = 0;
  int busy = 0;
  for (int host = 0; host < kHosts; ++host) {
    replies += tally(host).replies;
    busy += tally(host).busy;
    EXPECT_EQ(torn_lines("host" + std::to_string(host) + "/Log"), std::vector<std::string>{});
  }
  std::printf("%d calls: %d replies, %d busy replies, none wrong\n", kHosts * kCalls, replies, busy);
  EXPECT_EQ(replies + busy, kHosts * kCalls);
  EXPECT_GT(replies, kCalls / 10);
  EXPECT_GT(busy, 0) << "they met";
  expect_undisturbed_device(static_cast<unsigned long>(replies));
}

TEST_F(Hosts, ForkedAfterUseTheySharePortAndProtocolLog) {
  constexpr int kCalls = 200;
  configure_port(port());
  const int end = run_host(".", [this] {
    if (call_often(0, 5) != kRight) return kWrong;
    const pid_t child = start_host(".", [this] { return call_often(1, kCalls); });
    const int own = call_often(2, kCalls);
    return own == kRight && end_of_host(child) == kRight ? kRight : kWrong;
  });
  EXPECT_EQ(end, kRight);
  EXPECT_EQ(torn_lines("Log"), std::vector<std::string>{});
  expect_undisturbed_device(static_cast<unsigned>(tally(0).replies + tally(1).replies + tally(2).replies));
}

TEST_F(Hosts, WithFiveThousandDescriptorsWaitAndTalkAsAnyOther) {
  constexpr int kDescriptors = 5000;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < kDescriptors + 100) GTEST_SKIP() << "this machine allows fewer descriptors";
  configure_port(port());
  const int end = run_host(".", [&] {
    limit.rlim_cur = kDescriptors + 100;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return kWrong;
    while (open("/dev/null", O_RDONLY) < kDescriptors) {
    }
    return call_often(0, 20);
  });
  EXPECT_EQ(end, kRight);
  EXPECT_EQ(tally(0).replies, 20);
  expect_undisturbed_device(20);
}

TEST_F(Hosts, WithoutADescriptorLeftGetAFailureTextAndRecover) {
  configure_port(port());
  const int end = run_host(".", [&] {
    if (call(0, 1, 100) != kRight) return kWrong;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit tight{3, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &tight);
    const std::string reply = ConsultarStatusOperacional(2, "A100");
    setrlimit(RLIMIT_NOFILE, &limit);
    if (!reply.starts_with("SAT Erro[-02000]")) return kWrong;
    return call(0, 3, 100);
  });
  EXPECT_EQ(end, kRight);
  EXPECT_EQ(tally(0).replies, 2);
  expect_undisturbed_device(2);
}

// ---- Writes that raise a signal ---------------------------------------------------------------------

// A limit that a service manager sets, and a signal that nobody has made arrangements for.
TEST_F(Hosts, AtTheirFileSizeLimitSellAndLoseLogLinesOnly) {
  constexpr rlim_t kLimit = 4000;
  write_file("SAT.ini", "[SERIAL_PORT_CONFIG]\nFixarPorta=" + port() +
                            "\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\n[ARVOLEN]\nPathLinux=results\nEnable=1\n"
                            "[LOG]\nLogFilePath=Log\nLogMode=4\n");
  std::filesystem::create_directory("results");
  const int end = run_host(".", [] {
    signal(SIGXFSZ, SIG_DFL);
    const rlimit limit{kLimit, kLimit};
    setrlimit(RLIMIT_FSIZE, &limit);
    for (int session = 1; session <= 5; ++session) {
      if (!is_right_reply(EnviarDadosVenda(session, "A5000", "<CFe/>"), session, 5000)) return kWrong;
    }
    return kRight;
  });
  EXPECT_EQ(end, kRight);
  for (const char* folder : {"Log", "results"}) {
    EXPECT_FALSE(std::filesystem::is_empty(folder));
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      EXPECT_EQ(entry.file_size(), kLimit);
  }
  expect_undisturbed_device(5);
}

// The library prints on standard output when it cannot make its log folder, and what a host wants echoed.
TEST_F(Hosts, WhoseStandardOutputNobodyReadsSell) {
  configure_port(port());
  write_file("Log", "");
  const int end = run_host(".", [this] {
    signal(SIGPIPE, SIG_DFL);
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) == -1) return kWrong;
    close(ends[0]);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    VersaoDllTalvex();
    bConsoleLogsEnabled = bErrorLogsEnabled = bTraceLogsEnabled = 1;
    return call_often(0, 5);
  });
  EXPECT_EQ(end, kRight);
  expect_undisturbed_device(5);
}

// ---- Without standard streams -----------------------------------------------------------------------

class StandardStreams : public Hosts, public testing::WithParamInterface<int> {
 protected:
  // Closes the streams whose bits are set.
  static void close_streams() {
    setvbuf(stdout, nullptr, _IONBF, 0);
    for (int stream = 0; stream < 3; ++stream) {
      if ((GetParam() & (1 << stream)) != 0) close(stream);
    }
  }

  // The library as talkative as it can be.
  static void echo_everything() {
    VersaoDllTalvex();
    bConsoleLogsEnabled = bTraceLogsEnabled = bErrorLogsEnabled = bWarningLogsEnabled = bInfoLogsEnabled = 1;
  }
};

TEST_P(StandardStreams, ClosedOnesNeverBecomeThePortOrAFile) {
  configure_port(port());
  const int end = run_host(".", [this] {
    close_streams();
    VersaoDllTalvex();
    echo_everything();
    for (int session = 1; session <= 5; ++session) {
      if (call(0, session, 20000) != kRight) return kWrong;
    }
    for (int stream = 0; stream < 3; ++stream) {
      const bool closed = (GetParam() & (1 << stream)) != 0;
      if (closed && fcntl(stream, F_GETFD) != -1) return kWrong;
    }
    return kRight;
  });
  EXPECT_EQ(end, kRight);
  EXPECT_EQ(tally(0).replies, 5);
  EXPECT_EQ(read_file("SAT.conf"), port());
  EXPECT_EQ(torn_lines("Log"), std::vector<std::string>{});
  expect_undisturbed_device(5);
}

// A log folder that cannot be made is reported on standard output.
TEST_P(StandardStreams, ReportsOfAMissingLogFolderDoNotReachTheDevice) {
  configure_port(port());
  write_file("Log", "");
  const int end = run_host(".", [this] {
    close_streams();
    return call_often(0, 5);
  });
  EXPECT_EQ(end, kRight);
  EXPECT_EQ(tally(0).replies, 5);
  EXPECT_EQ(read_file("SAT.conf"), port());
  expect_undisturbed_device(5);
}

TEST_P(StandardStreams, TheSearchForADeviceNeedsNone) {
  const std::vector<UsbNode> nodes = {{"ttyACM77", {"ID_MODEL=TALVEX"}}};
  const CannedSearch bus(nodes);
  configure_port("");
  const int end = run_host(".", [] {
    close_streams();
    const std::string reply = ConsultarSAT(1);
    return reply == "SAT Erro[-02000]Lnx SAT nao encontrado Dev[/dev/ttyACM77] L[2254] F[Communicate]"
               ? kRight
               : kWrong;
  });
  EXPECT_EQ(end, kRight);
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM77");
}

INSTANTIATE_TEST_SUITE_P(Closed, StandardStreams, testing::Range(1, 8));

}  // namespace
