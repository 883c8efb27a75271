// Plays every cell of the fault matrix in virtual time: documented text, duration to the millisecond, port
// closed and unlocked, no descriptor and no memory more than before, and a next call that is right.
#include "reliability/fault_matrix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <ostream>
#include <utility>

#include "api/context.h"
#include "api/serial_port.h"
#include "olk_utils/system_clock.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"
#include "support/virtual_clock.h"
#include "talvex/talvex.h"

namespace fault_matrix {

namespace {

namespace fs = std::filesystem;
using scripted::Script;
using scripted::ScriptedDevice;

constexpr uid_t kNobody = 65534;
// A clock that moves when it is looked at, and the looks of a call beside the endless wait.
constexpr std::int64_t kTick = 50;
constexpr std::int64_t kOtherLooks = 50 * kTick;

__attribute__((format(printf, 1, 2))) std::string printed(const char* format, ...) {
  char text[512];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

long open_descriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// AddressSanitizer's own allocator knows nothing of this, and finds leaks by itself.
std::size_t heap_in_use() {
  return mallinfo2().uordblks;
}

std::string trace_name(const tm& day) {
  return printed("Log/%04d%02d%02d_SAT_api.log", day.tm_year + 1900, day.tm_mon + 1, day.tm_mday);
}
std::string protocol_name(const tm& day) {
  return printed("Log/%04d%02d%02d_SAT_ProtocolLog.txt", day.tm_year + 1900, day.tm_mon + 1, day.tm_mday);
}

// Holds the lock on the port, as the library sees another process hold it.
class PortHolder {
 public:
  explicit PortHolder(const std::string& port) : port_(open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {
    holds_ = port_ != -1 && flock(port_, LOCK_EX | LOCK_NB) == 0;
  }
  ~PortHolder() { close(port_); }
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;
  bool holds() const { return holds_; }

 private:
  int port_;
  bool holds_;
};

// File permissions do not bind root; they bind the account "nobody".
class WithoutPrivileges {
 public:
  WithoutPrivileges() : was_root_(geteuid() == 0) {
    if (was_root_ && seteuid(kNobody) != 0) std::abort();
  }
  ~WithoutPrivileges() {
    if (was_root_ && seteuid(0) != 0) std::abort();
  }
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

 private:
  bool was_root_;
};

class FaultMatrix : public testing::TestWithParam<Cell> {
 protected:
  FaultMatrix() {
    alarm(100);
    setenv("TZ", "UTC", 1);
    virtual_clock::set_local_time(2020, 7, 27, 12, 0, 0, 0);
    virtual_clock::on_turn([this] { return take_turn(); });
    plug_in();
  }
  ~FaultMatrix() override {
    fault_calls::inject({});
    virtual_clock::on_turn(nullptr);
    unsetenv("TZ");
    alarm(0);
  }

  void plug_in() {
    device_.reset();
    device_ = std::make_unique<ScriptedDevice>(virtual_clock::monotonic_ms);
    configure("FixarPorta=" + device_->path());
  }

  static void configure(const std::string& port_line) {
    write_file(
        "SAT.ini",
        "[SERIAL_PORT_CONFIG]\n" + port_line +
            "\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nEnable=0\n[ARVOLEN]\n[LOG]\nLogFilePath=Log\nLogMode=1\n");
  }

  std::int64_t take_turn() {
    const std::int64_t next = device_->take_turn();
    // The command is with the device: the middle of the call.
    if (during_call_ && device_->received().size() >= 2) std::exchange(during_call_, nullptr)();
    return next;
  }

  static std::string call() { return EnviarDadosVenda(kSession, kActivationCode, sale().c_str()); }

  // Between a call without a device and the next one nothing is open, not even the protocol log.
  static long descriptors_at_rest() {
    VersaoDllTalvex();
    return open_descriptors();
  }

  void expect_right_call() {
    fault_calls::inject({});
    device_->play(right_exchange());
    EXPECT_TRUE(call() == reply());
    EXPECT_EQ(device_->verdict(), "");
  }

  std::string expected_text(const Cell& cell) const {
    const char* port = port_.c_str();
    switch (cell.outcome) {
      case Outcome::kReply:
        return reply();
      case Outcome::kLateReply:
        return late_reply();
      case Outcome::kNotFound:
        return printed("SAT Erro[%06d]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]",
                       cell.code);
      case Outcome::kNotOpened:
        return printed("SAT Erro[%06d]Lnx SAT nao encontrado Dev[%s] L[2254] F[Communicate]", cell.code,
                       port);
      case Outcome::kBusy:
        return "42|06098|0000|SAT em processamento, tente novamente.||";
      case Outcome::kNotLocked:
        return printed("SAT Erro[%06d]Lnx SAT  Dev[%s] ocupado L[2272] F[Communicate]", cell.code, port);
      case Outcome::kNotConfigured:
        return printed("SAT Erro[%06d]Lnx SAT  Dev[%s] falhou ao configurar L[2286] F[Communicate]",
                       cell.code, port);
      case Outcome::kNotSent:
        return printed(
            "SAT Erro[%06d]Lnx Dev[%s] L[2305] F[Communicate] >> CMD or << ACK LibVer[23-JUL-2020]",
            cell.code, port);
      case Outcome::kNotReceived:
        return printed(
            "SAT Erro[%06d]Lnx SAT  Dev[%s] falhou na recepcao da resposta L[2324] F[Communicate] "
            "LibVer[23-JUL-2020]",
            cell.code, port);
    }
    return "";
  }

  // One call with the fault, and everything set right again behind it.
  void play(const Cell& cell) {
    port_ = device_->path();
    // The other device is there before the first one goes, so that the port's name is not used again.
    if (cell.surroundings == Surroundings::kPortGone)
      device_ = std::make_unique<ScriptedDevice>(virtual_clock::monotonic_ms);
    const std::unique_ptr<PortHolder> holder =
        cell.surroundings == Surroundings::kPortHeld ? std::make_unique<PortHolder>(port_) : nullptr;
    const std::unique_ptr<WithoutPrivileges> without_privileges = arrange(cell.surroundings);
    device_->play(cell.script);
    // Before the port is configured nothing waits, so that the device gets no turn of its own.
    if (cell.stage <= Stage::kConfigured) device_->take_turn();

    fault_calls::inject(cell.calls);
    const std::int64_t start = virtual_clock::monotonic_ms();
    const std::string text = call();
    const std::int64_t took = virtual_clock::monotonic_ms() - start;
    fault_calls::inject({});

    EXPECT_TRUE(text == expected_text(cell)) << text.substr(0, 300) << "\nexpected\n"
                                             << expected_text(cell).substr(0, 300);
    if (cell.surroundings == Surroundings::kEndlessGarbage) {
      EXPECT_GE(took, cell.ms);
      EXPECT_LE(took, cell.ms + kOtherLooks);
      device_->release();
    } else {
      EXPECT_EQ(took, cell.ms);
    }
    EXPECT_EQ(hComm, -1);
    EXPECT_EQ(device_->verdict(), "");
  }

  std::unique_ptr<WithoutPrivileges> arrange(Surroundings surroundings) {
    const tm today = local_time_now().calendar;
    switch (surroundings) {
      case Surroundings::kNoPortConfigured:
        configure("");
        break;
      case Surroundings::kNoPort:
        port_ = "/dev/talvex-none0";
        configure("FixarPorta=" + port_);
        break;
      case Surroundings::kPortGone:
        break;
      case Surroundings::kFullDisk:
        VersaoDllTalvex();  // closes the protocol log
        fs::remove_all("Log");
        fs::create_directory("Log");
        fs::create_symlink("/dev/full", trace_name(today));
        fs::create_symlink("/dev/full", protocol_name(today));
        fs::remove("SAT.conf");
        fs::create_symlink("/dev/full", "SAT.conf");
        break;
      case Surroundings::kReadOnlyFolder:
        VersaoDllTalvex();
        fs::remove_all("Log");
        fs::remove("SAT.conf");
        if (chmod(".", 0555) != 0 || chmod(port_.c_str(), 0666) != 0) std::abort();
        return std::make_unique<WithoutPrivileges>();
      case Surroundings::kLogFolderRemoved:
        during_call_ = [] { fs::remove_all("Log"); };
        break;
      case Surroundings::kClockBackwards:
        during_call_ = [] { virtual_clock::set_local_time(2019, 1, 1, 0, 0, 0, 0); };
        break;
      case Surroundings::kTimeZoneChange:
        during_call_ = [] { setenv("TZ", "XYZ+12", 1); };
        break;
      case Surroundings::kMidnight:
        virtual_clock::set_local_time(2020, 7, 27, 23, 59, 59, 999);
        expect_right_call();
        virtual_clock::set_local_time(2020, 7, 28, 0, 0, 0, 0);
        break;
      case Surroundings::kEndlessGarbage:
        virtual_clock::set_tick_ms(kTick);
        break;
      default:
        break;
    }
    return nullptr;
  }

  void restore(const Cell& cell) {
    switch (cell.surroundings) {
      case Surroundings::kFullDisk:
        fs::remove_all("Log");
        fs::remove("SAT.conf");
        break;
      case Surroundings::kReadOnlyFolder:
        if (chmod(".", 0700) != 0) std::abort();
        break;
      default:
        break;
    }
    virtual_clock::set_tick_ms(0);
    during_call_ = nullptr;
    setenv("TZ", "UTC", 1);
    plug_in();
  }

 private:
  ScratchDirectory scratch_;
  std::unique_ptr<ScriptedDevice> device_;
  std::string port_;
  std::function<void()> during_call_;
};

TEST_P(FaultMatrix, EndsAsDocumentedAndTheNextCallIsRight) {
  const Cell& cell = GetParam();
  constexpr int kRounds = 3;
  constexpr std::size_t kAllowedGrowth = 64 * 1024;  // what the test itself keeps
  expect_right_call();
  std::size_t heap = 0;
  const long descriptors = descriptors_at_rest();
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    play(cell);
    restore(cell);
    EXPECT_EQ(descriptors_at_rest(), descriptors) << "descriptors";
    expect_right_call();
    if (round == 0) heap = heap_in_use();
  }
  EXPECT_LE(heap_in_use(), heap + kAllowedGrowth);
}

std::string name_of(const testing::TestParamInfo<Cell>& test) {
  std::string name = std::string(kStageNames[static_cast<int>(test.param.stage)]) + "__" + test.param.fault;
  for (char& character : name) {
    if (!std::isalnum(static_cast<unsigned char>(character))) character = '_';
  }
  return name + "_" + std::to_string(test.index);
}

INSTANTIATE_TEST_SUITE_P(Cells, FaultMatrix, testing::ValuesIn(cells()), name_of);

}  // namespace

void PrintTo(const Cell& cell, std::ostream* out) {
  *out << cell.fault << " at " << kStageNames[static_cast<int>(cell.stage)];
}

}  // namespace fault_matrix
