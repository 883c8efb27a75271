// The search is run only when its answer may have changed. Whatever happens to the bus, findSat must find,
// trace and save what the plain command says at that moment.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <utility>

#include "api/usb_search.h"
#include "olk_utils/system_clock.h"
#include "support/api_trace.h"
#include "support/environment.h"
#include "support/file_status.h"
#include "support/find_sat.h"
#include "usb_search/mocked_bus.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

// udev's database: why it cannot be looked at, or how long ago by the library's clock, which stands still, it
// was changed last.
struct Database {
  int error;
  std::chrono::milliseconds age;
};

constexpr Database kSettled = {0, 2h};

Database database;
int runs;                         // of the search
std::string command_instead;      // of the search's, unless empty
std::function<void()> meanwhile;  // happens once while the search runs

}  // namespace

extern "C" int __real_stat(const char* path, struct stat* status);
extern "C" int __wrap_stat(const char* path, struct stat* status) {
  if (std::string(path) != "/run/udev/data") return __real_stat(path, status);
  errno = database.error;
  if (database.error != 0) return -1;
  const auto changed_ms = static_cast<std::int64_t>(GetCurrentMilliTime()) - database.age.count();
  *status = {};
  status->st_ctim = {changed_ms / 1000, changed_ms % 1000 * 1000000};
  return 0;
}

extern "C" FILE* __real_popen(const char* command, const char* mode);
extern "C" FILE* __wrap_popen(const char* command, const char* mode) {
  if (std::string(command) != kUsbSearchCommand) return __real_popen(command, mode);
  ++runs;
  return __real_popen(command_instead.empty() ? command : command_instead.c_str(), mode);
}

extern "C" int __real_pclose(FILE* stream);
extern "C" int __wrap_pclose(FILE* stream) {
  const int status = __real_pclose(stream);
  if (meanwhile) std::exchange(meanwhile, nullptr)();
  return status;
}

namespace {

const MockedBus::Properties kTalvex = {"ID_MODEL=TALVEX_SAT"};
const MockedBus::Properties kOther = {"ID_MODEL=Scanner"};
constexpr char kNone[] = "/dev/ttyNONE";

class RecalledSearch : public ApiTraceTest {
 protected:
  RecalledSearch() : former_path_(environment("PATH")) {
    log_up_to(kInfo);
    database = kSettled;
    // A PATH of its own for each test: a former test's answer must not be recalled.
    path_ = former_path_ + ":" + here("no-programs");
    setenv("PATH", path_.c_str(), 1);
  }

  ~RecalledSearch() override {
    setenv("PATH", former_path_.c_str(), 1);
    close_event_count();
  }

  static std::string here(const std::string& name) { return (fs::current_path() / name).string(); }

  std::string find() {
    take_all_lines();
    runs = 0;
    char name[kDeviceNameSize] = "";
    findSat(name);
    if (descriptors_ == 0) descriptors_ = open_descriptors();  // with the kernel's count, which stays open
    EXPECT_EQ(open_descriptors(), descriptors_);
    trace_ = take_lines();
    return name;
  }

  std::string find_by(const std::string& command) {
    command_instead = command;
    std::string name = find();
    command_instead.clear();
    return name;
  }

  void expect_run(const std::string& name) {
    EXPECT_EQ(find(), name);
    EXPECT_EQ(runs, 1) << "an old answer was recalled";
  }

  // The name and every line of the search before.
  void expect_recalled(const std::string& name) {
    const Lines former_trace = trace_;
    EXPECT_EQ(find(), name);
    EXPECT_EQ(runs, 0) << "the command was run again";
    EXPECT_EQ(trace_, former_trace);
  }

  void expect_found(const std::string& name) {
    expect_run(name);
    expect_recalled(name);
  }

  void expect_never_recalled(const std::string& name) {
    for (int search = 1; search <= 3; ++search) expect_run(name);
  }

  void exchange(int port, const std::string& node, const MockedBus::Properties& properties) {
    bus_.unplug(port);
    bus_.plug(port, node, properties);
  }

  MockedBus bus_;
  std::string path_;
  long descriptors_ = 0;

 private:
  Lines trace_;
  std::string former_path_;
};

TEST_F(RecalledSearch, SeesWhateverHappensToTheBus) {
  expect_found(kNone);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.plug(2, "ttyUSB0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.plug(3, "ttyACM1", {"ID_MODEL=VDR-K20"});
  expect_recalled(find());  // both; which comes last is the folder's order
  bus_.unplug(1);
  expect_found("/dev/ttyACM1");
  exchange(3, "ttyACM5", kTalvex);
  expect_found("/dev/ttyACM5");
  exchange(3, "ttyACM5", kOther);
  expect_run(kNone);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_run("/dev/ttyACM0");
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);  // these two exchange their names
  exchange(3, "ttyACM0", kOther);
  bus_.plug(1, "ttyACM5", kTalvex);
  expect_run("/dev/ttyACM5");
  bus_.unplug(1);
  bus_.unplug(3);
  expect_found(kNone);
}

// ---- What an answer depends on ----------------------------------------------------------------------

TEST_F(RecalledSearch, DependsOnEachPieceOfTheEvidence) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.count_event();
  expect_found("/dev/ttyACM0");
  database.age = 7199999ms;
  expect_found("/dev/ttyACM0");
  database.age = 5199999ms;
  expect_found("/dev/ttyACM0");
  database.error = ENOENT;  // no udev
  expect_found("/dev/ttyACM0");
  setenv("PATH", (path_ + ":/nowhere").c_str(), 1);
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, RunsWhereEvidenceCannotBeRead) {
  bus_.plug(1, "ttyACM0", kTalvex);
  setenv("PATH", (path_ + ":" + std::string(4096, 'x')).c_str(), 1);
  expect_never_recalled("/dev/ttyACM0");
  setenv("PATH", path_.c_str(), 1);
  descriptors_ = 0;  // the count was not even looked at

  database.error = ENOENT;
  expect_found("/dev/ttyACM0");
  database.error = EACCES;
  expect_never_recalled("/dev/ttyACM0");
  database.error = 0;

  write_file(bus_.path("kernel/uevent_seqnum"), "");
  expect_never_recalled("/dev/ttyACM0");
  fs::remove(bus_.path("kernel/uevent_seqnum"));
  close_event_count();
  descriptors_ = 0;
  expect_never_recalled("/dev/ttyACM0");
}

int descriptor_of(const fs::path& path) {
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the directory's own
    if (fs::read_symlink(entry, gone) == path) return std::stoi(entry.path().filename());
  }
  return -1;
}

// As a daemon does that closes all descriptors and opens files of its own.
TEST_F(RecalledSearch, LeavesAloneWhatAHostHasPutInThePlaceOfTheCount) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  const int descriptor = descriptor_of(fs::canonical(bus_.path("kernel/uevent_seqnum")));
  ASSERT_GT(descriptor, STDERR_FILENO);
  const int file = open("SAT.conf", O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(dup2(file, descriptor), descriptor);
  close(file);
  descriptors_ = 0;
  exchange(1, "ttyACM0", kOther);
  expect_run(kNone);
  EXPECT_EQ(descriptor_of(fs::canonical("SAT.conf")), descriptor);
  close(descriptor);
}

// A second change may bear the same time so soon.
TEST_F(RecalledSearch, ReliesOnADatabaseThatHasBeenAtRestForMoreThanASecond) {
  bus_.plug(1, "ttyACM0", kTalvex);
  for (const auto age : {-3600000ms, 0ms, 1000ms}) {
    database.age = age;
    expect_never_recalled("/dev/ttyACM0");
  }
  database.age = 1001ms;
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, SeesWhatComesDuringARun) {
  bus_.plug(1, "ttyACM0", kTalvex);
  meanwhile = [this] { exchange(1, "ttyACM0", kOther); };
  expect_run("/dev/ttyACM0");
  expect_run(kNone);
  meanwhile = [this] {  // as udev writes properties, behind the kernel's event
    bus_.set_properties(1, kTalvex);
    database.age = 1h;
  };
  expect_run(kNone);
  meanwhile = [this] {
    bus_.set_properties(1, kOther);
    database.age = 30min;
  };
  expect_run("/dev/ttyACM0");
  expect_run(kNone);
}

// ---- Answers that are not kept ----------------------------------------------------------------------

TEST_F(RecalledSearch, ForgetsTheAnswerOfACommandThatDidNotEndWell) {
  bus_.plug(1, "ttyACM0", kTalvex);
  EXPECT_EQ(find_by("echo /dev/ttyACM0; kill -KILL $$"), "/dev/ttyACM0");
  expect_run("/dev/ttyACM0");
  bus_.count_event();
  signal(SIGCHLD, SIG_IGN);  // such a host takes away how the command ended
  expect_never_recalled("/dev/ttyACM0");
  signal(SIGCHLD, SIG_DFL);
}

// The command ends well even when find or udevadm was killed.
TEST_F(RecalledSearch, ForgetsThatNothingWasFoundBesideAPort) {
  bus_.plug(1, "ttyACM0", kTalvex);
  EXPECT_EQ(find_by("true"), kNone);
  EXPECT_EQ(find_by("true"), kNone);
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, ForgetsAPortThatTheKernelDoesNotList) {
  bus_.plug(1, "ttyACM0", kTalvex);
  for (const char* lines : {"/dev/ttyACM1", "ttyACM0", "'/dev/ttyACM0\n/dev/ttyACM1'"}) {
    find_by(std::string("echo ") + lines);
    find_by(std::string("echo ") + lines);
    expect_found("/dev/ttyACM0");
    bus_.count_event();
  }
  bus_.unplug(1);
  find_by("echo /dev/ttyACM0");
  expect_run(kNone);
  fs::remove(bus_.path("class/tty"));
  bus_.count_event();
  expect_never_recalled(kNone);
}

TEST_F(RecalledSearch, ForgetsAnAnswerThatLeavesAPortOutUntilItIsRepeated) {
  bus_.plug(1, "ttyACM0", kOther);
  bus_.plug(2, "ttyACM1", kTalvex);
  for (const char* first_run :
       {"echo /dev/ttyACM0", "echo '/dev/ttyACM1\\n/dev/ttyACM1'", "echo /dev/ttyACM1; kill -KILL $$"}) {
    find_by(first_run);
    expect_run("/dev/ttyACM1");
    expect_found("/dev/ttyACM1");
    bus_.count_event();  // what was answered before it does not count either
    expect_run("/dev/ttyACM1");
    expect_found("/dev/ttyACM1");
    bus_.count_event();
  }
}

TEST_F(RecalledSearch, ForgetsMoreThan16Ports) {
  std::string all;
  for (int port = 1; port <= 17; ++port) {
    const std::string node = "ttyACM" + std::to_string(port);
    bus_.plug(port, node, {});
    all += "echo /dev/" + node + ";";
    find_by(all);
    find_by(all);
    EXPECT_EQ(runs, port <= 16 ? 0 : 1);
  }
}

TEST_F(RecalledSearch, IsNotCutShortByASignal) {
  struct sigaction action {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGUSR1, &action, nullptr);
  EXPECT_EQ(find_by("printf /dev/tty; sleep 0.1; kill -USR1 $PPID; sleep 0.1; echo ACM0"), "/dev/ttyACM0");
}

// ---- Other programs ---------------------------------------------------------------------------------

// A program that somebody has put in front of the system's own may answer as it likes.
class OtherProgram : public RecalledSearch, public testing::WithParamInterface<const char*> {};

TEST_P(OtherProgram, IsAskedEveryTime) {
  bus_.plug(1, "ttyACM0", kTalvex);
  const std::string deep = here(std::string(100, 'f')) + "/";
  const std::string folder_of_255 = deep + std::string(255 - deep.size(), 'g');
  const std::pair<std::string, std::string> folders_and_path[] = {
      {here("programs"), here("programs")},
      {here("."), ""},  // to the shell an empty folder is the working directory
      {here("."), here("no-programs") + ":"},
      {folder_of_255, folder_of_255},
      {folder_of_255 + "g", folder_of_255 + "g"},
  };
  for (const auto& [folder, path] : folders_and_path) {
    const std::string program = folder + "/" + GetParam();
    fs::create_directories(folder);
    write_file(program, std::string("#!/bin/sh\ntouch ") + here("asked") + "\nPATH=" + path_ + " exec " +
                            GetParam() + " \"$@\"\n");
    fs::permissions(program, fs::perms::owner_all);
    setenv("PATH", (path + ":" + path_).c_str(), 1);
    expect_never_recalled("/dev/ttyACM0");
    EXPECT_TRUE(fs::remove("asked")) << "the shell runs another program";
    fs::remove(program);
  }
}

INSTANTIATE_TEST_SUITE_P(Programs, OtherProgram, testing::Values("find", "udevadm", "grep"));

}  // namespace
