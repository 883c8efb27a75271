// The search is run only when its answer may have changed. Whatever happens to the bus, findSat must find,
// trace and save what the plain command says at that moment.
#include <signal.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <utility>

#include "api/usb_search.h"
#include "olk_utils/system_clock.h"
#include "support/api_trace.h"
#include "support/environment.h"
#include "support/file_status.h"
#include "support/find_sat.h"
#include "usb_search/mocked_bus.h"

namespace fs = std::filesystem;

namespace {

std::string udev_database;  // of the test; there is none while it is empty or names nothing
std::string nodes;          // folder of the test in the place of /dev, unless empty
std::string mounts;         // in the place of /proc/self/mountinfo, unless empty

}  // namespace

// As stat, but udev's database and the nodes lie where the test has put them.
extern "C" int __real_stat(const char* path, struct stat* status);
extern "C" int __wrap_stat(const char* path, struct stat* status) {
  const std::string name = path;
  if (name == "/run/udev/data") return __real_stat(udev_database.c_str(), status);
  if (name == "/dev" && !nodes.empty()) return __real_stat(nodes.c_str(), status);
  return __real_stat(path, status);
}

extern "C" FILE* __real_fopen(const char* path, const char* mode);
extern "C" FILE* __wrap_fopen(const char* path, const char* mode) {
  const bool is_mounts = std::string(path) == "/proc/self/mountinfo" && !mounts.empty();
  return __real_fopen(is_mounts ? mounts.c_str() : path, mode);
}

namespace {

int runs_of_the_search;
std::string command_instead;      // of the search's, unless empty
std::function<void()> meanwhile;  // what happens while the search runs

}  // namespace

// Counts the searches of the library, and lets things happen during one.
extern "C" FILE* __real_popen(const char* command, const char* mode);
extern "C" FILE* __wrap_popen(const char* command, const char* mode) {
  const bool is_search = std::string(command) == kUsbSearchCommand;
  if (is_search) ++runs_of_the_search;
  return __real_popen(is_search && !command_instead.empty() ? command_instead.c_str() : command, mode);
}

extern "C" int __real_pclose(FILE* stream);
extern "C" int __wrap_pclose(FILE* stream) {
  const int status = __real_pclose(stream);
  if (meanwhile) std::exchange(meanwhile, nullptr)();
  return status;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const MockedBus::Properties kTalvex = {"ID_MODEL=TALVEX_SAT"};
const MockedBus::Properties kOther = {"ID_MODEL=Scanner"};

class RecalledSearch : public ApiTraceTest {
 protected:
  RecalledSearch() : former_path_(environment("PATH")) {
    log_up_to(kInfo);
    runs_of_the_search = 0;
    // A PATH of its own for each test: a former test's answer must not be recalled.
    setenv("PATH", (former_path_ + ":" + here("no-programs")).c_str(), 1);
  }

  ~RecalledSearch() override {
    signal(SIGCHLD, SIG_DFL);
    setenv("PATH", former_path_.c_str(), 1);
    udev_database = nodes = mounts = command_instead = "";
    meanwhile = nullptr;
  }

  static std::string here(const std::string& name) { return (fs::current_path() / name).string(); }

  // How often the library has run the command.
  static int runs() { return runs_of_the_search; }

  // The command's output by itself, which the library has no part in.
  static Lines plain_search() {
    const std::string command = std::string("\n") + kUsbSearchCommand;
    FILE* output = popen(command.c_str(), "re");
    Lines lines(1);
    for (int character; (character = std::fgetc(output)) != EOF;) {
      lines.back() += static_cast<char>(character);
      if (character == '\n') lines.emplace_back();
    }
    pclose(output);
    lines.pop_back();
    return lines;
  }

  // Searches and compares everything that is to be seen of it with the plain command's output.
  void expect_plain_result() {
    fs::remove("SAT.conf");
    take_all_lines();
    const long descriptors = open_descriptors();
    char name[kDeviceNameSize] = "";
    const int rc = findSat(name);
    EXPECT_EQ(open_descriptors(), descriptors);
    trace_ = take_lines();

    const Lines plain = plain_search();
    Lines expected;
    for (std::size_t i = 0; i < plain.size(); ++i) {
      expected.push_back(api_line("INF", "findSat",
                                  printed("Lnx: rc[%06d]WR portNameFmt[%05d:%s]\n", static_cast<int>(i),
                                          static_cast<int>(plain[i].size()), plain[i].c_str())));
    }
    EXPECT_EQ(with_text(trace_, "]WR portNameFmt["), expected);
    const std::string found =
        plain.empty() ? "/dev/ttyNONE" : plain.back().substr(0, plain.back().size() - 1);
    EXPECT_EQ(name, found);
    EXPECT_EQ(rc, plain.empty() ? -2000 : 0);
    EXPECT_EQ(read_file("SAT.conf"), found);
    found_ = found;
  }

  // A search that must not need the command, and whose trace is that of the search before.
  void expect_recalled() {
    const int runs_before = runs();
    const Lines trace_before = trace_;
    expect_plain_result();
    EXPECT_EQ(runs(), runs_before) << "the command was run again";
    EXPECT_EQ(trace_, trace_before);
  }

  // A search behind a change.
  void expect_run(const std::string& name) {
    const int runs_before = runs();
    expect_plain_result();
    EXPECT_EQ(found_, name);
    EXPECT_EQ(runs(), runs_before + 1);
  }

  // A search behind a change, then one that finds nothing changed.
  void expect_found(const std::string& name) {
    expect_run(name);
    expect_recalled();
  }

  void put_udev_database(std::chrono::milliseconds age) {
    udev_database = here("udev-database");
    fs::create_directory(udev_database);
    fs::last_write_time(udev_database, file_time(age));
  }

  // Port nodes that were last changed so long ago, on a file system of this type.
  void put_nodes(std::chrono::milliseconds age, const std::string& type = "devtmpfs") {
    nodes = here("nodes");
    fs::create_directory(nodes);
    fs::last_write_time(nodes, file_time(age));
    struct stat status {};
    ASSERT_EQ(__real_stat(nodes.c_str(), &status), 0);
    mounts = here("mounts");
    write_file(mounts,
               printed("23 27 0:22 / /sys rw - sysfs sysfs rw\n24 27 %u:%u / /dev rw,relatime - %s x rw\n",
                       major(status.st_dev), minor(status.st_dev), type.c_str()));
  }

  MockedBus bus_;
  std::string found_;

 private:
  // So long ago by the library's clock, which stands still.
  static fs::file_time_type file_time(std::chrono::milliseconds age) {
    const std::chrono::milliseconds now(static_cast<std::int64_t>(GetCurrentMilliTime()));
    return fs::file_time_type::clock::from_sys(std::chrono::sys_time<std::chrono::milliseconds>(now - age));
  }

  std::string former_path_;
  Lines trace_;
};

constexpr char kNone[] = "/dev/ttyNONE";

TEST_F(RecalledSearch, TheMockedBusIsSeenByThePlainCommand) {
  EXPECT_THAT(plain_search(), IsEmpty());
  bus_.plug(1, "ttyACM0", kTalvex);
  EXPECT_THAT(plain_search(), ElementsAre("/dev/ttyACM0\n"));
}

TEST_F(RecalledSearch, UnchangedBusIsSearchedOnce) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  expect_recalled();
  expect_recalled();
  EXPECT_EQ(runs(), 1U);
}

TEST_F(RecalledSearch, AnEmptyAnswerIsRecalledToo) {
  expect_found(kNone);
  expect_recalled();
}

TEST_F(RecalledSearch, PlugAndUnplug) {
  expect_found(kNone);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);
  expect_found(kNone);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, ADeviceThatComesBackUnderAnotherName) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);
  bus_.plug(1, "ttyACM5", kTalvex);
  expect_found("/dev/ttyACM5");
}

TEST_F(RecalledSearch, ADeviceThatComesBackAtAnotherPort) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);
  bus_.plug(2, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, ReplacementUnderTheSameName) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);
  bus_.plug(1, "ttyACM0", kOther);
  expect_run(kNone);
  bus_.unplug(1);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, NamesThatTwoDevicesHaveExchanged) {
  bus_.plug(1, "ttyACM0", kTalvex);
  bus_.plug(2, "ttyACM1", kOther);
  expect_run("/dev/ttyACM0");
  bus_.unplug(1);
  bus_.unplug(2);
  bus_.plug(1, "ttyACM1", kTalvex);
  bus_.plug(2, "ttyACM0", kOther);
  expect_run("/dev/ttyACM1");
}

TEST_F(RecalledSearch, ASecondDevice) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.plug(2, "ttyACM1", {"ID_MODEL=VDR-K20"});
  ASSERT_EQ(plain_search().size(), 2U);
  expect_found(plain_search().back() == "/dev/ttyACM0\n" ? "/dev/ttyACM0" : "/dev/ttyACM1");
  bus_.unplug(1);
  expect_found("/dev/ttyACM1");
}

TEST_F(RecalledSearch, PropertiesThatComeLate) {
  bus_.plug(1, "ttyACM0", {});
  expect_run(kNone);
  bus_.set_properties(1, kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.set_properties(1, kOther);
  expect_run(kNone);
}

TEST_F(RecalledSearch, AnotherDeviceComesAndGoes) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.plug(2, "ttyUSB0", kOther);
  expect_found("/dev/ttyACM0");
  bus_.unplug(2);
  expect_found("/dev/ttyACM0");
}

// ---- udev's database --------------------------------------------------------------------------------

TEST_F(RecalledSearch, ADatabaseThatWasWrittenMeanwhile) {
  bus_.plug(1, "ttyACM0", kTalvex);
  put_udev_database(std::chrono::hours(2));
  expect_found("/dev/ttyACM0");
  put_udev_database(std::chrono::hours(1));
  expect_found("/dev/ttyACM0");
  fs::remove(udev_database);
  expect_found("/dev/ttyACM0");
  put_udev_database(std::chrono::hours(1));
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, ADatabaseJustWrittenIsNotRelied) {
  bus_.plug(1, "ttyACM0", kTalvex);
  put_udev_database(std::chrono::hours(-1));
  for (std::size_t run = 1; run <= 3; ++run) {
    expect_plain_result();
    EXPECT_EQ(runs(), run);
  }
  put_udev_database(std::chrono::hours(1));
  expect_found("/dev/ttyACM0");
}

// The stamp of a second change may be the same so soon.
TEST_F(RecalledSearch, ADatabaseIsReliedOnOnceItHasBeenAtRestForMoreThanASecond) {
  bus_.plug(1, "ttyACM0", kTalvex);
  for (const int age : {0, 1, 1000}) {
    put_udev_database(std::chrono::milliseconds(age));
    expect_run("/dev/ttyACM0");
    expect_run("/dev/ttyACM0");
  }
  put_udev_database(std::chrono::milliseconds(1001));
  expect_found("/dev/ttyACM0");
}

// ---- The kernel's count -----------------------------------------------------------------------------

TEST_F(RecalledSearch, EveryEventIsLookedInto) {
  bus_.set_event_count(100);
  expect_found(kNone);
  bus_.plug(1, "ttyACM0", kTalvex);
  bus_.set_event_count(101);
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);
  bus_.plug(1, "ttyACM0", kOther);
  bus_.set_event_count(103);
  expect_run(kNone);
}

TEST_F(RecalledSearch, AnEventThatChangesNothingHereNeedsNoCommand) {
  bus_.plug(1, "ttyACM0", kTalvex);
  bus_.set_event_count(100);
  expect_found("/dev/ttyACM0");
  bus_.set_event_count(101);
  expect_recalled();
  expect_recalled();
}

// No device comes or goes without an event, so the folders are not read while none was counted.
TEST_F(RecalledSearch, TheCountVouchesForTheFolders) {
  bus_.plug(1, "ttyACM0", kTalvex);
  bus_.set_event_count(100);
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);
  char name[kDeviceNameSize] = "";
  EXPECT_EQ(findSat(name), 0);
  EXPECT_STREQ(name, "/dev/ttyACM0");
  bus_.set_event_count(101);
  expect_found(kNone);
}

// ---- The kernel's nodes -----------------------------------------------------------------------------

// Nor does a port come or go without its node. The first search finds out whose nodes they are.
TEST_F(RecalledSearch, TheNodesVouchForTheFolders) {
  put_nodes(std::chrono::hours(2));
  bus_.set_event_count(100);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.set_event_count(101);
  bus_.unplug(1);
  char name[kDeviceNameSize] = "";
  EXPECT_EQ(findSat(name), 0);
  EXPECT_STREQ(name, "/dev/ttyACM0");
  put_nodes(std::chrono::hours(1));
  expect_found(kNone);
}

TEST_F(RecalledSearch, NodesJustChangedDoNotVouch) {
  put_nodes(std::chrono::hours(2));
  bus_.set_event_count(100);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  put_nodes(std::chrono::hours(-1));
  expect_recalled();
  bus_.set_event_count(101);
  bus_.unplug(1);
  expect_found(kNone);
  bus_.set_event_count(102);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, NodesVouchOnceTheyHaveBeenAtRestForMoreThanASecond) {
  bus_.set_event_count(100);
  bus_.plug(1, "ttyACM0", kTalvex);
  put_nodes(std::chrono::milliseconds(1000));
  expect_found("/dev/ttyACM0");
  bus_.set_event_count(101);
  bus_.unplug(1);
  expect_found(kNone);

  bus_.plug(1, "ttyACM0", kTalvex);
  put_nodes(std::chrono::milliseconds(1001));
  expect_found("/dev/ttyACM0");
  bus_.set_event_count(102);
  bus_.unplug(1);
  char name[kDeviceNameSize] = "";
  EXPECT_EQ(findSat(name), 0);
  EXPECT_STREQ(name, "/dev/ttyACM0");
}

TEST_F(RecalledSearch, NodesOnAnotherFileSystemDoNotVouch) {
  put_nodes(std::chrono::hours(2), "tmpfs");
  bus_.set_event_count(100);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.set_event_count(101);
  bus_.unplug(1);
  expect_found(kNone);
}

TEST_F(RecalledSearch, NodesDoNotVouchForAnotherSysfs) {
  put_nodes(std::chrono::hours(2));
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  bus_.unplug(1);
  expect_found(kNone);
}

// ---- Answers that are not kept ----------------------------------------------------------------------

TEST_F(RecalledSearch, ABusThatChangesDuringTheSearch) {
  bus_.plug(1, "ttyACM0", kTalvex);
  bus_.set_event_count(100);
  const std::string folder = environment("UMOCKDEV_DIR") + "/sys/class/tty";
  meanwhile = [folder] { fs::create_symlink("nowhere", folder + "/ttyACM7"); };
  expect_plain_result();
  expect_found("/dev/ttyACM0");
  EXPECT_EQ(runs(), 2);
}

TEST_F(RecalledSearch, ADeviceExchangedUnderItsNameDuringTheSearch) {
  bus_.plug(1, "ttyACM0", kTalvex);
  meanwhile = [this] {
    bus_.unplug(1);
    bus_.plug(1, "ttyACM0", kOther);
  };
  char name[kDeviceNameSize] = "";
  EXPECT_EQ(findSat(name), 0);
  EXPECT_STREQ(name, "/dev/ttyACM0");
  expect_run(kNone);
}

// What was written may tell the command something else.
TEST_F(RecalledSearch, ADatabaseWrittenDuringTheSearch) {
  bus_.plug(1, "ttyACM0", kTalvex);
  put_udev_database(std::chrono::hours(2));
  meanwhile = [this] { put_udev_database(std::chrono::hours(1)); };
  expect_run("/dev/ttyACM0");
  expect_found("/dev/ttyACM0");
}

// Whatever it was, it may have come too late for the search.
TEST_F(RecalledSearch, AnEventDuringTheSearchIsLookedInto) {
  bus_.plug(1, "ttyACM0", kTalvex);
  bus_.set_event_count(100);
  meanwhile = [this] { bus_.set_event_count(101); };
  expect_plain_result();
  bus_.unplug(1);
  expect_found(kNone);
}

TEST_F(RecalledSearch, AnotherPathOfPrograms) {
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_found("/dev/ttyACM0");
  setenv("PATH", (environment("PATH") + ":/nowhere").c_str(), 1);
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, APortThatTheKernelDoesNotList) {
  bus_.plug(1, "ttyACM0", kTalvex);
  bus_.hide_from_class(1);
  expect_plain_result();
  EXPECT_EQ(found_, "/dev/ttyACM0");
  expect_plain_result();
  EXPECT_EQ(runs(), 2);
}

// Such a host takes away how the command ended; it may have been killed half-way.
TEST_F(RecalledSearch, AHostThatIgnoresItsChildren) {
  signal(SIGCHLD, SIG_IGN);
  bus_.plug(1, "ttyACM0", kTalvex);
  expect_plain_result();
  expect_plain_result();
  EXPECT_EQ(runs(), 2);
}

TEST_F(RecalledSearch, ACommandThatWasKilled) {
  bus_.plug(1, "ttyACM0", kTalvex);
  command_instead = "kill -KILL $$";
  char name[kDeviceNameSize] = "";
  EXPECT_EQ(findSat(name), -2000);
  command_instead.clear();
  expect_found("/dev/ttyACM0");
}

// An answer that the kernel's list of ports does not bear out is not trusted: one of the command's processes
// may have failed.
TEST_F(RecalledSearch, NoAnswerBesideAPortIsNeverKept) {
  bus_.plug(1, "ttyACM0", kOther);
  for (int search = 1; search <= 4; ++search) {
    expect_plain_result();
    EXPECT_EQ(runs(), search);
  }
}

TEST_F(RecalledSearch, ASearchThatFailedUnseenIsRunAgain) {
  bus_.plug(1, "ttyACM0", kTalvex);
  command_instead = "true";
  char name[kDeviceNameSize] = "";
  EXPECT_EQ(findSat(name), -2000);
  command_instead.clear();
  expect_found("/dev/ttyACM0");
}

TEST_F(RecalledSearch, AnAnswerThatLeavesAPortOutIsKeptOnceItWasGivenTwice) {
  bus_.plug(1, "ttyACM0", kOther);
  bus_.plug(2, "ttyACM1", kTalvex);
  expect_plain_result();
  expect_plain_result();
  EXPECT_EQ(runs(), 2);
  expect_recalled();
  EXPECT_EQ(found_, "/dev/ttyACM1");
}

// ---- Other programs ---------------------------------------------------------------------------------

// Programs that somebody has put in front of the system's own may answer as they like.
class OtherProgram : public RecalledSearch, public testing::WithParamInterface<const char*> {
 protected:
  // A program of that name in a folder, which notes that it was run and does what the system's own does.
  static void put_program(const std::string& name, const std::string& folder) {
    fs::create_directories(folder);
    const std::string program = folder + "/" + name;
    write_file(program, "#!/bin/sh\necho " + name + " >> " + here("runs") +
                            "\nPATH=/usr/bin:/bin:/usr/sbin:/sbin\nexec " + name + " \"$@\"\n");
    fs::permissions(program, fs::perms::owner_all);
  }

  void expect_asked_every_time() {
    bus_.plug(1, "ttyACM0", kTalvex);
    for (int search = 1; search <= 3; ++search) {
      expect_run("/dev/ttyACM0");
      EXPECT_TRUE(fs::remove("runs")) << "the shell runs another program";
    }
  }
};

TEST_P(OtherProgram, InFrontOfTheSystemsIsAskedEveryTime) {
  put_program(GetParam(), here("programs"));
  setenv("PATH", (here("programs") + ":" + environment("PATH")).c_str(), 1);
  expect_asked_every_time();
}

// To the shell an empty folder in the PATH is the working directory.
TEST_P(OtherProgram, InTheWorkingDirectoryIsAskedEveryTimeWhenThePathBeginsWithAnEmptyFolder) {
  put_program(GetParam(), here("."));
  setenv("PATH", (":" + environment("PATH")).c_str(), 1);
  expect_asked_every_time();
}

TEST_P(OtherProgram, InTheWorkingDirectoryIsAskedEveryTimeWhenThePathHasAnEmptyFolder) {
  put_program(GetParam(), here("."));
  setenv("PATH", (here("no-programs") + "::" + environment("PATH")).c_str(), 1);
  expect_asked_every_time();
}

TEST_P(OtherProgram, InAFolderOfAnyLengthIsAskedEveryTime) {
  for (const std::size_t length : {255u, 256u, 300u}) {
    std::string folder = here("");
    folder += std::to_string(length) + std::string(100, 'f') + "/";
    folder += std::string(length - folder.size(), 'g');
    ASSERT_EQ(folder.size(), length);
    put_program(GetParam(), folder);
    const std::string former_path = environment("PATH");
    setenv("PATH", std::string(folder).append(":").append(former_path).c_str(), 1);
    expect_asked_every_time();
    setenv("PATH", former_path.c_str(), 1);
    bus_.unplug(1);
  }
}

INSTANTIATE_TEST_SUITE_P(Programs, OtherProgram, testing::Values("find", "udevadm", "grep"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
