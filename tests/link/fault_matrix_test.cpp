// Plays every cell of the fault matrix in virtual time: documented text, duration to the millisecond, every
// injected fault spent, port closed and unlocked, no descriptor and no memory more than before, and a next
// call that is right, on the same line wherever that still stands.
#include "link/fault_matrix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <ostream>
#include <sstream>
#include <utility>

#include "api/context.h"
#include "api/serial_port.h"
#include "olk_utils/system_clock.h"
#include "support/environment.h"
#include "support/file_status.h"
#include "support/full_disk.h"
#include "support/printed.h"
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

// AddressSanitizer's own allocator knows nothing of this, and finds leaks by itself.
std::size_t heap_in_use() {
  return mallinfo2().uordblks;
}

tm today() {
  return local_time_now().calendar;
}
std::string date(const tm& day) {
  return printed("%04d%02d%02d", day.tm_year + 1900, day.tm_mon + 1, day.tm_mday);
}
std::string trace_name(const std::string& day) {
  return day + "_SAT_api.log";
}
std::string protocol_name(const std::string& day) {
  return "Log/" + day + "_SAT_ProtocolLog.txt";
}
// Takes in the time zone, as the library does in each call.
std::string result_name() {
  const tm now = local_time_in_current_zone().calendar;
  return printed("Results/venda-cprx-%02d%02d%02d%02d-%02d-1.sat", now.tm_mday, now.tm_hour, now.tm_min,
                 now.tm_sec, kSession);
}

// Time stamp and direction of each line of that day's protocol log.
std::vector<std::string> protocol_lines(const std::string& day) {
  constexpr std::size_t kShown = sizeof "20200727120000 PC->SAT" - 1;
  std::vector<std::string> lines;
  std::istringstream log(read_file(protocol_name(day)));
  for (std::string line; std::getline(log, line);) lines.push_back(line.substr(0, kShown));
  return lines;
}
// What a right call writes: both blocks, then the reply.
std::vector<std::string> lines_of_call(const std::string& sent_at, const std::string& received_at) {
  return {sent_at + " PC->SAT", sent_at + " PC->SAT", received_at + " SAT->PC"};
}
std::vector<std::string> lines_of_call(const std::string& at) {
  return lines_of_call(at, at);
}
std::vector<std::string> both(std::vector<std::string> first, const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

bool can_be_locked(int descriptor) {
  return flock(descriptor, LOCK_EX | LOCK_NB) == 0 && flock(descriptor, LOCK_UN) == 0;
}

// SIGUSR1 five thousand times a second, with calls not restarted behind it.
class SignalStorm {
 public:
  SignalStorm() {
    signals_ = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { ++signals_; };
    sigaction(SIGUSR1, &action, &former_);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR1;
    const itimerspec pace{{0, 200000}, {0, 200000}};
    if (timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0 || timer_settime(timer_, 0, &pace, nullptr) != 0)
      std::abort();
  }
  ~SignalStorm() {
    timer_delete(timer_);
    sigaction(SIGUSR1, &former_, nullptr);
  }
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;
  static int signals() { return signals_; }

 private:
  static inline std::atomic<int> signals_;
  timer_t timer_{};
  struct sigaction former_ {};
};

// While it lives, PATH leads to a find and a udevadm of its own: the one device on the bus has the port's
// name for as long as that leads somewhere. The search takes its time, so that signals meet it.
class OwnSearch {
 public:
  explicit OwnSearch(const std::string& port) : former_path_(environment("PATH")) {
    fs::create_directory("search");
    write_program("find", "sleep 0.02\n[ -e " + port + " ] && echo /none/dev\n");
    write_program("udevadm", "case $3 in name) echo .." + port + ";; *) echo ID_MODEL=TALVEX_SAT;; esac\n");
    setenv("PATH", ((fs::current_path() / "search").string() + ":" + former_path_).c_str(), 1);
  }
  ~OwnSearch() {
    setenv("PATH", former_path_.c_str(), 1);
    fs::remove_all("search");
  }
  OwnSearch(const OwnSearch&) = delete;
  OwnSearch& operator=(const OwnSearch&) = delete;

 private:
  static void write_program(const std::string& name, const std::string& script) {
    write_file("search/" + name, "#!/bin/sh\n" + script);
    fs::permissions("search/" + name, fs::perms::owner_all);
  }

  std::string former_path_;
};

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

// How much the library writes beside its work.
enum class Writing { kLittle, kEverything };

class FaultMatrix : public testing::TestWithParam<Cell> {
 protected:
  FaultMatrix() : port_((scratch_.path() / "dev/ttyACM0").string()) {
    alarm(100);
    setenv("TZ", "UTC", 1);
    virtual_clock::set_local_time(2020, 7, 27, 12, 0, 0, 0);
    virtual_clock::on_turn([this] { return take_turn(); });
    fault_calls::on_event([this] { event_(); });
    fs::create_directory("dev");
    plug_in();
  }
  ~FaultMatrix() override {
    fault_calls::inject({});
    fault_calls::on_event(nullptr);
    virtual_clock::on_turn(nullptr);
    unsetenv("TZ");
    alarm(0);
  }

  // A new device under the port's name.
  void plug_in() {
    device_.reset();
    device_ = std::make_unique<ScriptedDevice>(virtual_clock::monotonic_ms);
    fs::remove(port_);
    fs::create_symlink(device_->path(), port_);
  }
  // The same in the middle of a call, which still has the former one open.
  void come_back() {
    former_device_ = std::move(device_);
    plug_in();
  }

  void configure(Writing writing) {
    writing_ = writing;
    configure("FixarPorta=" + port_);
  }
  void configure(const std::string& port_line) {
    const bool everything = writing_ == Writing::kEverything;
    write_file("SAT.ini", "[SERIAL_PORT_CONFIG]\n" + port_line +
                              "\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nEnable=0\n[ARVOLEN]\nPathLinux=" +
                              (scratch_.path() / "Results").string() +
                              "\nEnable=" + (everything ? "1" : "0") +
                              "\n[LOG]\nLogFilePath=Log\nLogMode=" + (everything ? "5" : "1") + "\n");
    // The library looks at whole seconds.
    static fs::file_time_type changed = fs::last_write_time("SAT.ini");
    changed += std::chrono::seconds(1);
    fs::last_write_time("SAT.ini", changed);
  }

  std::int64_t take_turn() {
    const std::int64_t next = device_->take_turn();
    if (back_at_once_ && device_->master() == -1) {
      back_at_once_ = false;
      come_back();
    }
    return next;
  }

  void go_on() {
    device_->release();
    take_turn();
  }

  // From the device's own end of the port, until the kernel has moved up what it can and refuses the rest.
  // Where poll sees no room, or where many bytes are refused, a single one may still go in.
  void fill_line() {
    constexpr int kQueue = 4095;  // of the master's end
    constexpr int kNoRoomMs = 20;
    const std::string bytes(4096, 'F');
    int queued = 0;
    for (int refused = 0; refused < 2 || queued < kQueue;) {
      const ssize_t count = write(device_->port(), bytes.data(), refused == 0 ? bytes.size() : 1);
      filled_ += count > 0 ? static_cast<std::size_t>(count) : 0;
      refused = count > 0 ? 0 : refused + 1;
      pollfd line{device_->port(), POLLOUT, 0};
      if (refused > 0 && poll(&line, 1, kNoRoomMs) == 1) refused = 0;
      ioctl(device_->master(), FIONREAD, &queued);
    }
  }
  void empty_line() {
    std::string bytes(filled_, '\0');
    while (filled_ > 0) {
      const ssize_t count = read(device_->master(), bytes.data(), filled_);
      ASSERT_GT(count, 0);
      filled_ -= static_cast<std::size_t>(count);
    }
  }

  static std::string call() { return EnviarDadosVenda(kSession, kActivationCode, sale().c_str()); }

  // Between a call without a device and the next one nothing is open, not even the protocol log.
  static long descriptors_at_rest() {
    VersaoDllTalvex();
    return open_descriptors();
  }

  void expect_right_call() {
    fault_calls::inject({});
    fs::remove_all("Results");
    fs::create_directory("Results");
    device_->play(right_exchange());
    EXPECT_TRUE(call() == reply());
    EXPECT_EQ(device_->verdict(), "");
    if (writing_ == Writing::kEverything) {
      EXPECT_TRUE(read_file(result_name()) == reply());
    }
  }

  void expect_closed_and_unlocked() const {
    EXPECT_TRUE(can_be_locked(device_->port()));
    if (former_device_) {
      EXPECT_TRUE(can_be_locked(former_device_->port()));
    }
  }

  std::string expected_text(const Cell& cell) const {
    const char* port = opened_.c_str();
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

  // One call with the fault.
  void play(const Cell& cell) {
    opened_ = port_;
    event_ = [this] { go_on(); };
    arrange(cell.surroundings);
    device_->play(cell.script);
    // Before the port is configured nothing waits, so that the device gets no turn of its own.
    if (cell.stage <= Stage::kConfigured) device_->take_turn();

    fault_calls::inject(cell.calls);
    const std::int64_t start = virtual_clock::monotonic_ms();
    const std::string text = call();
    const std::int64_t took = virtual_clock::monotonic_ms() - start;
    EXPECT_THAT(fault_calls::unspent(), testing::IsEmpty());
    fault_calls::inject({});

    EXPECT_TRUE(text == expected_text(cell)) << text.substr(0, 300) << "\nexpected\n"
                                             << expected_text(cell).substr(0, 300);
    if (cell.ends_sharply()) {
      EXPECT_EQ(took, cell.ms);
    } else {
      EXPECT_GT(took, cell.ms);
      EXPECT_LE(took, cell.ms + kOtherLooks);
      device_->release();
    }
    if (storm_) {
      EXPECT_GT(SignalStorm::signals(), 10);
    }
    const bool can_save = !full_disk_ && !without_privileges_;
    if (writing_ == Writing::kEverything && can_save) {
      EXPECT_TRUE(read_file(result_name()) == text);
    }
    undo(cell.surroundings);
    expect_closed_and_unlocked();
    EXPECT_EQ(device_->verdict(), "");
    if (former_device_) {
      EXPECT_EQ(former_device_->verdict(), "");
    }
  }

  void arrange(Surroundings surroundings) {
    const std::string day = date(today());
    switch (surroundings) {
      case Surroundings::kNormal:
        break;
      case Surroundings::kNoPortConfigured:
        configure("");
        break;
      case Surroundings::kNoPort:
        opened_ = "/dev/talvex-none0";
        configure("FixarPorta=" + opened_);
        break;
      case Surroundings::kPortGone:
        fs::remove(port_);
        break;
      case Surroundings::kPortBack:
        back_at_once_ = true;
        break;
      case Surroundings::kPortHeld:
        holder_ = std::make_unique<PortHolder>(port_);
        ASSERT_TRUE(holder_->holds());
        break;
      case Surroundings::kLineFull:
        event_ = [this] { fill_line(); };
        break;
      case Surroundings::kSearched:
        search_ = std::make_unique<OwnSearch>(port_);
        configure("");
        storm_ = std::make_unique<SignalStorm>();
        break;
      case Surroundings::kSearchedGone:
        search_ = std::make_unique<OwnSearch>(port_);
        configure("");
        fs::remove(port_);
        break;
      case Surroundings::kSearchFails:
        search_ = std::make_unique<OwnSearch>(port_);
        opened_ = "";
        break;
      case Surroundings::kFullDisk:
        full_disk_ = std::make_unique<FullDisk>();
        break;
      case Surroundings::kReadOnlyFolder:
        VersaoDllTalvex();
        fs::remove_all("Log");
        fs::remove("SAT.conf");
        if (chmod(".", 0555) != 0 || chmod(device_->path().c_str(), 0666) != 0) std::abort();
        without_privileges_ = std::make_unique<WithoutPrivileges>();
        break;
      case Surroundings::kLogFolderRemoved:
        start_logs_at_noon();
        event_ = [] { fs::remove_all("Log"); };
        break;
      case Surroundings::kClockBackwards:
        start_logs_at_noon();
        event_ = [] { virtual_clock::set_local_time(2019, 1, 1, 0, 0, 0, 0); };
        break;
      case Surroundings::kTimeZoneChange:
        start_logs_at_noon();
        event_ = [] { setenv("TZ", "XYZ+12", 1); };
        break;
      case Surroundings::kMidnight:
        start_logs_at_noon();
        virtual_clock::set_local_time(2020, 7, 27, 23, 59, 59, 999);
        expect_right_call();
        virtual_clock::set_local_time(2020, 7, 28, 0, 0, 0, 0);
        break;
      case Surroundings::kEndlessGarbage:
        virtual_clock::set_tick_ms(kTick);
        break;
    }
  }

  static void start_logs_at_noon() {
    virtual_clock::set_local_time(2020, 7, 27, 12, 0, 0, 0);
    VersaoDllTalvex();
    fs::remove_all("Log");
  }

  // What must not last until the next call.
  void undo(Surroundings surroundings) {
    virtual_clock::set_tick_ms(0);
    holder_.reset();
    without_privileges_.reset();
    full_disk_.reset();
    storm_.reset();
    empty_line();
    switch (surroundings) {
      case Surroundings::kReadOnlyFolder:
        if (chmod(".", 0700) != 0) std::abort();
        break;
      case Surroundings::kNoPortConfigured:
      case Surroundings::kNoPort:
        configure(writing_);
        break;
      default:
        break;
    }
  }

  void repair(Surroundings surroundings) {
    former_device_.reset();
    back_at_once_ = false;
    const bool is_away =
        surroundings == Surroundings::kPortGone || surroundings == Surroundings::kSearchedGone;
    if (is_away || device_->master() == -1) plug_in();
  }

  // Behind the next call: what both have written.
  void expect_logs(const Cell& cell) {
    const bool is_whole_call = cell.stage == Stage::kWholeCall;
    const bool has_trace = writing_ == Writing::kEverything;
    const auto traced = [&](const std::string& day) { return read_file("Log/" + trace_name(day)); };
    switch (cell.surroundings) {
      case Surroundings::kMidnight:
        EXPECT_EQ(protocol_lines("20200727"), lines_of_call("20200727235959"));
        EXPECT_EQ(protocol_lines("20200728"),
                  both(lines_of_call("20200728000000"), lines_of_call("20200728000000")));
        if (!has_trace) break;
        EXPECT_THAT(traced("20200727"), testing::StartsWith("[20:59:59.999]"));
        EXPECT_THAT(traced("20200727"), testing::Not(testing::HasSubstr("[21:00:00.000]")));
        EXPECT_THAT(traced("20200728"), testing::StartsWith("[21:00:00.000]"));
        break;
      case Surroundings::kLogFolderRemoved:
        EXPECT_EQ(protocol_lines("20200727"), lines_of_call("20200727120000")) << "a folder made anew";
        if (!has_trace) break;
        EXPECT_THAT(read_file(trace_name("20200727")), testing::StartsWith("[09:00:00.000]"))
            << "lines without a folder";
        EXPECT_THAT(traced("20200727"), testing::StartsWith("[09:00:00.000]"));
        break;
      case Surroundings::kClockBackwards:
        if (is_whole_call) {
          EXPECT_EQ(protocol_lines("20200727"), lines_of_call("20200727120000", "20190101000000"));
        }
        EXPECT_EQ(protocol_lines("20190101"), lines_of_call("20190101000000"));
        if (has_trace) {
          EXPECT_THAT(traced("20190101"), testing::StartsWith("[21:00:00.000]"));
        }
        break;
      case Surroundings::kTimeZoneChange:
        EXPECT_EQ(protocol_lines("20200727"),
                  both(lines_of_call("20200727120000"), lines_of_call("20200727000000")));
        if (has_trace) {
          EXPECT_THAT(traced("20200727"), testing::HasSubstr("\n[21:00:00.000]"));
        }
        break;
      default:
        break;
    }
  }

  // What the next call still has had to live with.
  void settle() {
    if (search_) {
      search_.reset();
      configure(writing_);
    }
    fs::remove_all("Log");
    for (const char* day : {"20190101", "20200727", "20200728"}) fs::remove(trace_name(day));
    setenv("TZ", "UTC", 1);
    virtual_clock::set_local_time(2020, 7, 27, 12, 0, 0, 0);
    tzset();
  }

  void play_once(const Cell& cell, long descriptors) {
    play(cell);
    repair(cell.surroundings);
    EXPECT_EQ(descriptors_at_rest(), descriptors) << "descriptors";
    expect_right_call();
    expect_closed_and_unlocked();
    expect_logs(cell);
    settle();
  }

  // Buffers of the test's own grow now and then; what leaks grows in every round.
  void play_again_and_again(const Cell& cell) {
    constexpr int kRounds = 3;
    constexpr int kMostRounds = 10;
    const long descriptors = descriptors_at_rest();
    bool heap_grows = true;
    for (int round = 0; (round < kRounds || heap_grows) && !HasFailure(); ++round) {
      ASSERT_LT(round, kMostRounds) << "the heap grows in every round";
      const std::size_t heap = heap_in_use();
      play_once(cell, descriptors);
      heap_grows = heap_in_use() > heap;
    }
  }

 private:
  ScratchDirectory scratch_;
  std::string port_;    // the name of the port
  std::string opened_;  // the name that the call opens
  Writing writing_ = Writing::kLittle;
  std::unique_ptr<ScriptedDevice> device_;
  std::unique_ptr<ScriptedDevice> former_device_;
  bool back_at_once_ = false;
  std::size_t filled_ = 0;
  std::function<void()> event_;
  std::unique_ptr<PortHolder> holder_;
  std::unique_ptr<WithoutPrivileges> without_privileges_;
  std::unique_ptr<FullDisk> full_disk_;
  std::unique_ptr<OwnSearch> search_;
  std::unique_ptr<SignalStorm> storm_;
};

TEST_P(FaultMatrix, EndsAsDocumentedAndTheNextCallIsRight) {
  for (const Writing writing : {Writing::kLittle, Writing::kEverything}) {
    SCOPED_TRACE(writing == Writing::kLittle ? "LogMode=1" : "LogMode=5, result files");
    configure(writing);
    expect_right_call();
    settle();
    play_again_and_again(GetParam());
  }
}

std::string name_of(const testing::TestParamInfo<Cell>& test) {
  std::string name = std::string(kStageNames[static_cast<int>(test.param.stage)]) + "__" + test.param.fault;
  for (char& character : name) {
    if (!std::isalnum(static_cast<unsigned char>(character))) character = '_';
  }
  return name + "_" + std::to_string(test.index);
}

INSTANTIATE_TEST_SUITE_P(Cells, FaultMatrix, testing::ValuesIn(cells()), name_of);

// Every fault at this stage is played or has its reason, never both.
class FaultMatrixStage : public testing::TestWithParam<Stage> {};

TEST_P(FaultMatrixStage, EveryFaultHasACellOrAReason) {
  for (const Family& family : families()) {
    const auto cell_count = std::ranges::count_if(cells(), [&](const Cell& cell) {
      return cell.stage == GetParam() && family_of(cell.fault) == &family;
    });
    const auto reason_count = std::ranges::count_if(reasons(), [&](const Reason& reason) {
      return std::ranges::count(reason.stages, GetParam()) != 0 &&
             std::ranges::count(reason.families, family.name) != 0;
    });
    EXPECT_TRUE(cell_count > 0 ? reason_count == 0 : reason_count == 1)
        << family.name << ": " << cell_count << " cells, " << reason_count << " reasons";
  }
}

std::vector<Stage> stages_of_a_call() {
  std::vector<Stage> stages;
  stages.reserve(static_cast<std::size_t>(Stage::kWholeCall));
  for (int stage = 0; stage < static_cast<int>(Stage::kWholeCall); ++stage)
    stages.push_back(static_cast<Stage>(stage));
  return stages;
}

INSTANTIATE_TEST_SUITE_P(Pairs, FaultMatrixStage, testing::ValuesIn(stages_of_a_call()),
                         [](const auto& test) {
                           std::string name = kStageNames[static_cast<int>(test.param)];
                           std::ranges::replace(name, ' ', '_');
                           return name + "__pairs";
                         });

// What the reasons and the families name is there, and what a cell shows belongs to a family or to one stage.
class FaultMatrixNames : public testing::TestWithParam<const char*> {};

TEST_P(FaultMatrixNames, AreKnown) {
  for (const Reason& reason : reasons()) {
    for (const std::string& name : reason.families)
      EXPECT_EQ(std::ranges::count(families(), name, [](const Family& family) { return family.name; }), 1)
          << name;
  }
  for (const Family& family : families()) {
    for (const std::string& label : family.labels)
      EXPECT_GT(std::ranges::count(cells(), label, &Cell::fault), 0) << label;
  }
  const std::vector<std::string> of_one_stage = {"no device", "port held by another process", "EMFILE",
                                                 "SAT.ini unreadable"};
  for (const Cell& cell : cells())
    EXPECT_NE(family_of(cell.fault) != nullptr, std::ranges::count(of_one_stage, cell.fault) != 0)
        << cell.fault;
}

INSTANTIATE_TEST_SUITE_P(Names, FaultMatrixNames, testing::Values("whole_call__names"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace

void PrintTo(const Cell& cell, std::ostream* out) {
  *out << cell.fault << " at " << kStageNames[static_cast<int>(cell.stage)];
}

}  // namespace fault_matrix
