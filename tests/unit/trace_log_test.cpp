// The trace log with a clock that stands still: filter, tags, prefix, files, rotation, echo and set-up.
#include "olk_utils/trace_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "api/api_trace.h"
#include "olk_sat_utils/sat_utils_trace.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/utils_trace.h"
#include "support/file_status.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"
#include "support/virtual_clock.h"
#include "support/write_calls.h"

namespace {

namespace fs = std::filesystem;
using std::string;

constexpr char kToday[] = "20200727_SAT_api.log";
constexpr char kName[] = "SAT_api.log";

const std::map<string, int64_t*> kFlags = {
    {"error", &bErrorLogsEnabled}, {"warning", &bWarningLogsEnabled}, {"message", &bMessageLogsEnabled},
    {"info", &bInfoLogsEnabled},   {"trace", &bTraceLogsEnabled},     {"jni", &bJniTraceLogsEnabled},
    {"debug", &bDebugLogsEnabled}, {"console", &bConsoleLogsEnabled},
};

class TraceLog : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "<-03>3", 1);
    tzset();
    virtual_clock::set_local_time(2020, 7, 27, 12, 34, 56, 789);
    clear_flags();
    tLog = {};
    pOlkUtilsLogFile = "olk_utils.log";
    alarm(100);
  }
  void TearDown() override {
    alarm(0);
    clear_flags();
  }

  static void clear_flags() {
    for (const auto& [name, flag] : kFlags) *flag = 0;
  }

  ScratchDirectory scratch_;
};

// What one message leaves in the file of the day; nothing stays behind.
string written(uint32_t level, const string& text = "text\n") {
  unlink(kToday);
  EXPECT_EQ(TraceFileLog(kName, level, "%s", text.c_str()), 0);
  return fs::exists(kToday) ? read_file(kToday) : "no file";
}

void set_path(const string& path) {
  path.copy(tLog.strLogFilePath, sizeof tLog.strLogFilePath - 1);
}
void set_name(const string& name) {
  name.copy(tLog.strLogFileName, sizeof tLog.strLogFileName - 1);
}

// ---- levels and tags ----

TEST_F(TraceLog, NothingIsLoggedAtLoad) {
  for (uint32_t level = 0; level <= 64; ++level) EXPECT_EQ(written(level), "no file");
}

TEST_F(TraceLog, EveryLevelHasItsTag) {
  bErrorLogsEnabled = bDebugLogsEnabled = 1;
  const std::map<uint32_t, string> tags = {{1, "ERR"},  {2, "WRN"},         {4, "INF"}, {8, "TRC"},
                                           {16, "JNI"}, {3, "Unk"},         {5, "Unk"}, {33, "Unk"},
                                           {48, "Unk"}, {0x80000001, "Unk"}};
  for (const auto& [level, tag] : tags)
    EXPECT_EQ(written(level), "[09:34:56.789]" + tag + " text\n") << level;
}

TEST_F(TraceLog, EveryFlagPassesItsMask) {
  const std::map<string, uint32_t> masks = {{"error", 1},  {"warning", 3}, {"message", 7}, {"info", 7},
                                            {"trace", 15}, {"jni", 16},    {"debug", 31},  {"console", 0}};
  for (const auto& [name, mask] : masks) {
    clear_flags();
    *kFlags.at(name) = 1;
    for (uint32_t level = 0; level < 128; ++level) {
      const bool passes = (level & mask) != 0;
      EXPECT_EQ(trace_passes(level), passes) << name << " level " << level;
      EXPECT_EQ(written(level) != "no file", passes) << name << " level " << level;
    }
  }
}

TEST_F(TraceLog, FlagsAreAnyNonZero64BitValue) {
  for (const int64_t value : {int64_t{1} << 32, int64_t{-1}, INT64_MIN}) {
    bErrorLogsEnabled = value;
    EXPECT_TRUE(trace_passes(1)) << value;
  }
}

TEST_F(TraceLog, Level3PassesWithErrorWarningInfoTraceAndDebug) {
  for (const auto& [name, flag] : kFlags) {
    clear_flags();
    *flag = 1;
    EXPECT_EQ(written(3) == "[09:34:56.789]Unk text\n", name != "jni" && name != "console") << name;
  }
}

// ---- prefix ----

TEST_F(TraceLog, HourRunsThreeHoursBehindAndTheDateDoesNot) {
  bErrorLogsEnabled = 1;
  constexpr std::array<const char*, 24> shifted = {"21", "22", "23", "24", "01", "02", "03", "04",
                                                   "05", "06", "07", "08", "09", "10", "11", "12",
                                                   "13", "14", "15", "16", "17", "18", "19", "20"};
  for (size_t hour = 0; hour < shifted.size(); ++hour) {
    virtual_clock::set_local_time(2020, 7, 27, static_cast<int>(hour), 5, 6, 7);
    EXPECT_EQ(written(1), "[" + string(shifted[hour]) + ":05:06.007]ERR text\n");
  }
}

TEST_F(TraceLog, PrefixAtAQuarterPastThreeAndAtFour) {
  bErrorLogsEnabled = 1;
  virtual_clock::set_local_time(2020, 7, 27, 3, 15, 7, 250);
  EXPECT_EQ(written(1), "[24:15:07.250]ERR text\n");
  virtual_clock::set_local_time(2020, 7, 27, 4, 0, 0, 0);
  EXPECT_EQ(written(1), "[01:00:00.000]ERR text\n");
}

TEST_F(TraceLog, ANewDayIsANewFile) {
  bErrorLogsEnabled = 1;
  virtual_clock::set_local_time(2020, 12, 31, 23, 59, 59, 999);
  TraceFileLog(kName, 1, "old\n");
  virtual_clock::advance_ms(1);
  TraceFileLog(kName, 1, "new\n");
  EXPECT_EQ(read_file("20201231_SAT_api.log"), "[20:59:59.999]ERR old\n");
  EXPECT_EQ(read_file("20210101_SAT_api.log"), "[21:00:00.000]ERR new\n");
}

TEST_F(TraceLog, MessagesAreAppendedWithoutALineFeedOfTheLogsOwn) {
  bErrorLogsEnabled = 1;
  TraceFileLog(kName, 1, "%d", 1);
  TraceFileLog(kName, 1, "%s\n", "two");
  EXPECT_EQ(read_file(kToday), "[09:34:56.789]ERR 1[09:34:56.789]ERR two\n");
}

TEST_F(TraceLog, LongMessagesAreWhole) {
  bErrorLogsEnabled = 1;
  const string text(300000, 'x');
  EXPECT_EQ(written(1, text), "[09:34:56.789]ERR " + text);
}

TEST_F(TraceLog, ShortAndInterruptedWritesAreContinued) {
  bErrorLogsEnabled = 1;
  const string short_text = "a text of some length\n";
  const string long_text = string(8000, 'x') + string(2000, 'y') + "\n";  // in memory of its own
  const write_calls::Reluctant writes;
  EXPECT_EQ(written(1, short_text), "[09:34:56.789]ERR " + short_text);
  EXPECT_EQ(written(1, long_text), "[09:34:56.789]ERR " + long_text);
}

TEST_F(TraceLog, MacrosSupplyTheSourcePosition) {
  bErrorLogsEnabled = 1;
  API_TRACE(kError, " rc[%04d]\n", 1);
  SAT_UTILS_TRACE(kError, " plain\n");
  UTILS_TRACE(kError, " rc[%06d]\n", -2);
  UTILS_BRACKET_TRACE(kError, " x\n");
  UTILS_PATH_TRACE_IN("Name", kError, " y\n");
  EXPECT_EQ(trace_messages("SAT_api.log"),
            (std::vector<string>{"ERR [] [../src/api/TALVEX] [TestBody] rc[0001]\n",
                                 "ERR [] [../src/olk_sat_utils/olk_sat_utils] [TestBody] plain\n"}));
  EXPECT_EQ(trace_messages("olk_utils.log"),
            (std::vector<string>{"ERR [] TestBody rc[-00002]\n",
                                 "ERR [] [../src/olk_utils/olk_utils] [TestBody] x\n",
                                 "ERR [] ../src/olk_utils/olk_utils Name y\n"}));
}

TEST_F(TraceLog, MacrosEvaluateTheirArgumentsOnlyWhenTheLevelPasses) {
  int evaluated = 0;
  API_TRACE(kError, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  bErrorLogsEnabled = 1;
  API_TRACE(kWarning, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  API_TRACE(kError, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 1);
}

// ---- which file ----

TEST_F(TraceLog, ConfiguredDirectoryIsUsedWhenItExists) {
  bErrorLogsEnabled = 1;
  fs::create_directory("Log");
  set_path("Log");
  EXPECT_EQ(written(1), "no file");
  EXPECT_EQ(read_file("Log/20200727_SAT_api.log"), "[09:34:56.789]ERR text\n");
}

TEST_F(TraceLog, DirectoryOfTwoCharactersIsUsed) {
  bErrorLogsEnabled = 1;
  fs::create_directory("Lo");
  set_path("Lo");
  EXPECT_EQ(written(1), "no file");
  EXPECT_EQ(read_file("Lo/20200727_SAT_api.log"), "[09:34:56.789]ERR text\n");
}

TEST_F(TraceLog, AbsoluteDirectoryIsUsedForMessages) {
  bErrorLogsEnabled = 1;
  fs::create_directory("Log");
  set_path(fs::absolute("Log"));
  EXPECT_EQ(written(1), "no file");
  EXPECT_TRUE(fs::exists("Log/20200727_SAT_api.log"));
}

TEST_F(TraceLog, OtherPathsPutTheFilesIntoTheWorkingDirectory) {
  bErrorLogsEnabled = 1;
  fs::create_directory("L");
  write_file("file", "");
  for (const char* path : {"", "L", "missing", "file"}) {
    tLog = {};
    set_path(path);
    EXPECT_EQ(written(1), "[09:34:56.789]ERR text\n") << path;
  }
  EXPECT_TRUE(fs::is_empty("L")) << "a path of one character is not used";
}

TEST_F(TraceLog, FileThatCannotBeOpenedLosesTheMessageSilently) {
  bErrorLogsEnabled = 1;
  fs::create_directory(kToday);
  EXPECT_EQ(TraceFileLog(kName, 1, "lost\n"), 0);
  EXPECT_TRUE(fs::is_empty(kToday));
  fs::remove(kToday);
  EXPECT_EQ(written(1), "[09:34:56.789]ERR text\n");
}

TEST_F(TraceLog, FileThatCannotBeOpenedInTheConfiguredDirectoryHasNoSubstitute) {
  bErrorLogsEnabled = 1;
  fs::create_directories("Log/20200727_SAT_api.log");
  set_path("Log");
  EXPECT_EQ(written(1), "no file");
  EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 1) << "Log and nothing else";
  EXPECT_TRUE(fs::is_empty("Log/20200727_SAT_api.log"));
}

TEST_F(TraceLog, FilesAreOpenToOthersAsFarAsTheUmaskAllows) {
  bErrorLogsEnabled = 1;
  fs::create_directory("Log");
  for (const mode_t mask : {0u, 022u}) {
    const Umask umask(mask);
    for (const string path : {"", "Log", "missing"}) {
      tLog = {};
      set_path(path);
      const string file = (path == "Log" ? "Log/" : "") + string(kToday);
      fs::remove(file);
      TraceFileLog(kName, 1, "text\n");
      EXPECT_EQ(mode_of(file), 0666u & ~mask) << path;
    }
  }
}

TEST_F(TraceLog, FifoInThePlaceOfTheFileDoesNotBlock) {
  bErrorLogsEnabled = 1;
  ASSERT_EQ(mkfifo(kToday, 0600), 0);
  EXPECT_EQ(TraceFileLog(kName, 1, "lost\n"), 0);
  const int reader = open(kToday, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_NE(reader, -1);
  const string text(1 << 20, 'x');  // more than a FIFO holds
  EXPECT_EQ(TraceFileLog(kName, 1, "%s\n", text.c_str()), 0);
  close(reader);
}

TEST_F(TraceLog, LinkInThePlaceOfTheFileLeadsNowhere) {
  bErrorLogsEnabled = 1;
  write_file("precious", "kept");
  fs::create_symlink("precious", kToday);
  EXPECT_EQ(TraceFileLog(kName, 1, "lost\n"), 0);
  EXPECT_EQ(read_file("precious"), "kept");
}

TEST_F(TraceLog, LongNamesAreSafe) {
  bErrorLogsEnabled = 1;
  fs::create_directory("Log");
  set_path("Log" + string(300, '/'));
  EXPECT_EQ(TraceFileLog(string(5000, 'n').c_str(), 1, "lost\n"), 0);
  EXPECT_TRUE(fs::is_empty("Log"));
}

TEST_F(TraceLog, ErrnoStaysAsItWas) {
  for (const int64_t flag : {0, 1}) {
    bErrorLogsEnabled = bConsoleLogsEnabled = flag;
    errno = ENODEV;
    TraceFileLog(kName, 1, "written\n");
    EXPECT_EQ(errno, ENODEV);
  }
  fs::remove(kToday);
  fs::create_directory(kToday);
  errno = EAGAIN;
  TraceFileLog(kName, 1, "lost\n");
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(TraceLog, NoDescriptorStaysOpen) {
  bErrorLogsEnabled = 1;
  const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(before);
  for (int count = 0; count < 10; ++count) TraceFileLog(kName, 1, "x\n");
  const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(after);
  EXPECT_EQ(after, before);
}

// ---- console ----

string echoed(uint32_t level) {
  testing::internal::CaptureStdout();
  TraceFileLog(kName, level, "text %d\n", 1);
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST_F(TraceLog, EchoNeedsTheLevelsOwnFlag) {
  const std::map<string, std::vector<uint32_t>> echoes = {
      {"error", {1}}, {"warning", {2}}, {"message", {}}, {"info", {4}}, {"trace", {1, 2, 3, 4, 5, 8}},
      {"jni", {}},    {"debug", {}}};
  for (const auto& [name, levels] : echoes) {
    clear_flags();
    bConsoleLogsEnabled = *kFlags.at(name) = 1;
    for (const uint32_t level : {1U, 2U, 3U, 4U, 5U, 8U, 16U, 32U}) {
      const bool expected = std::find(levels.begin(), levels.end(), level) != levels.end();
      EXPECT_EQ(echoed(level), expected ? "text 1\n" : "") << name << " level " << level;
    }
  }
}

TEST_F(TraceLog, EchoOfAMessageThatAnotherFlagLetPass) {
  bConsoleLogsEnabled = bDebugLogsEnabled = bInfoLogsEnabled = 1;
  EXPECT_EQ(echoed(4), "text 1\n");
  EXPECT_EQ(echoed(1), "") << "the error flag is off";
  bTraceLogsEnabled = 1;
  EXPECT_EQ(echoed(16), "text 1\n") << "trace echoes all that passes";
  EXPECT_EQ(echoed(32), "");
}

TEST_F(TraceLog, NothingIsEchoedWithoutTheConsoleFlag) {
  bTraceLogsEnabled = 1;
  EXPECT_EQ(echoed(1), "");
}

TEST_F(TraceLog, EchoHappensEvenIfTheFileCannotBeOpened) {
  bConsoleLogsEnabled = bErrorLogsEnabled = 1;
  fs::create_directory(kToday);
  EXPECT_EQ(echoed(1), "text 1\n");
}

// ---- size control ----

class SizeControl : public TraceLog {
 protected:
  void SetUp() override {
    TraceLog::SetUp();
    set_name(kName);
    tLog.iLogFileMaxSize = 10;
  }

  static string backup(int number) {
    std::array<char, 64> name{};
    snprintf(name.data(), name.size(), "%s_bkp_%02d.log", kToday, number);
    return name.data();
  }
};

TEST_F(SizeControl, MissingFileIsWithinTheLimit) {
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
}

TEST_F(SizeControl, FileUpToTheLimitStays) {
  for (const size_t size : {0U, 1U, 10U}) {
    write_file(kToday, string(size, 'x'));
    EXPECT_EQ(TraleFileLogSzCtl(), static_cast<int>(size));
    EXPECT_TRUE(fs::exists(kToday));
  }
}

TEST_F(SizeControl, FileOverTheLimitIsMovedToTheFirstBackup) {
  write_file(kToday, string(11, 'x'));
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_FALSE(fs::exists(kToday));
  EXPECT_EQ(read_file("20200727_SAT_api.log_bkp_00.log"), string(11, 'x'));
  bErrorLogsEnabled = 1;
  TraceFileLog(kName, 1, "fresh\n");
  EXPECT_EQ(read_file(kToday), "[09:34:56.789]ERR fresh\n");
}

TEST_F(SizeControl, BackupsInUseAreSteppedOver) {
  write_file(backup(0), "0");
  write_file(backup(1), "1");
  write_file(kToday, "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_EQ(read_file("20200727_SAT_api.log_bkp_02.log"), "eleven char");
  EXPECT_EQ(read_file(backup(0)), "0");
  EXPECT_EQ(read_file(backup(1)), "1");
}

TEST_F(SizeControl, EmptyBackupIsUsedAgain) {
  write_file(backup(0), "");
  write_file(kToday, "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), 0);
  EXPECT_EQ(read_file(backup(0)), "eleven char");
  EXPECT_FALSE(fs::exists(backup(1)));
}

TEST_F(SizeControl, BackupNumbersGoBeyondTwoDigits) {
  for (int number = 0; number < 100; ++number) write_file(backup(number), "x");
  write_file(kToday, "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_EQ(read_file("20200727_SAT_api.log_bkp_100.log"), "eleven char");
}

TEST_F(SizeControl, RelativeDirectoryIsWatched) {
  fs::create_directory("Log");
  set_path("Log");
  write_file("Log/20200727_SAT_api.log", "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_EQ(read_file("Log/20200727_SAT_api.log_bkp_00.log"), "eleven char");
}

TEST_F(SizeControl, DirectoryOfTwoCharactersIsWatched) {
  fs::create_directory("Lo");
  set_path("Lo");
  write_file("Lo/20200727_SAT_api.log", "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_EQ(read_file("Lo/20200727_SAT_api.log_bkp_00.log"), "eleven char");
}

TEST_F(SizeControl, LinkToADirectoryIsWatched) {
  fs::create_directory("elsewhere");
  fs::create_directory_symlink("elsewhere", "Log");
  set_path("Log");
  write_file("Log/20200727_SAT_api.log", "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_EQ(read_file("elsewhere/20200727_SAT_api.log_bkp_00.log"), "eleven char");
}

TEST_F(SizeControl, AbsoluteDirectoryIsNeverRotated) {
  fs::create_directory("Log");
  set_path(fs::absolute("Log"));
  write_file("Log/20200727_SAT_api.log", "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_EQ(read_file("Log/20200727_SAT_api.log"), "eleven char");
  EXPECT_FALSE(fs::exists("Log/20200727_SAT_api.log_bkp_00.log"));
}

TEST_F(SizeControl, PathsThatAreNoDirectoryMeanTheWorkingDirectory) {
  fs::create_directory("L");
  for (const char* path : {"", "L", "missing"}) {
    fs::remove(backup(0));
    tLog.strLogFilePath[0] = '\0';
    set_path(path);
    write_file(kToday, "eleven char");
    EXPECT_EQ(TraleFileLogSzCtl(), -1) << path;
    EXPECT_EQ(read_file(backup(0)), "eleven char") << path;
  }
}

TEST_F(SizeControl, OnlyTheWatchedNameOfTodayIsMoved) {
  write_file("20200726_SAT_api.log", "eleven char");
  write_file("20200727_olk_utils.log", "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_TRUE(fs::exists("20200726_SAT_api.log"));
  EXPECT_TRUE(fs::exists("20200727_olk_utils.log"));
}

TEST_F(SizeControl, FailedMoveLeavesTheFileForTheNextCheck) {
  // The backup's name is a link to nowhere that cannot be replaced by moving a directory onto it.
  fs::create_directory(kToday);
  write_file(string(kToday) + "/entry", "");
  tLog.iLogFileMaxSize = 0;
  fs::create_symlink("nowhere", backup(0));
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_TRUE(fs::exists(kToday));
  EXPECT_TRUE(fs::is_symlink(backup(0)));
}

TEST_F(SizeControl, NamesAreNoShellText) {
  set_name("a b; touch evil");
  tLog.strLogFileName[15] = '\0';
  write_file("20200727_a b; touch evil", "eleven char");
  EXPECT_EQ(TraleFileLogSzCtl(), -1);
  EXPECT_EQ(read_file("20200727_a b; touch evil_bkp_00.log"), "eleven char");
  EXPECT_FALSE(fs::exists("evil"));
}

TEST_F(SizeControl, SizeIsComparedAsASigned32BitNumber) {
  write_file(kToday, "");
  ASSERT_EQ(truncate(kToday, 3LL << 30), 0);
  EXPECT_EQ(TraleFileLogSzCtl(), -1073741824);
  EXPECT_TRUE(fs::exists(kToday));
}

// ---- set-up ----

class LogSetUp : public TraceLog {
 protected:
  static int set_up(const string& section_content) {
    write_file("SAT.ini", "[LOG]\n" + section_content);
    return OLK_SetIniFileLogMode(kName, "SAT.ini");
  }
  // Names of the flags that are on.
  static std::vector<string> flags_on() {
    std::vector<string> names;
    for (const auto& [name, flag] : kFlags) {
      if (*flag != 0) names.push_back(name);
    }
    return names;
  }
};

constexpr char kComplete[] = "LogFilePath=Logs\nLogFileName=abcd\nLogFileMaxSize=1300000\n";

struct Mode {
  const char* value;
  int mask;
  const char* flag;
  uint32_t levels;  // that reach the file
};

constexpr std::array<Mode, 12> kModes = {{{"0", 0, nullptr, 0},
                                          {"1", 1, "error", 1},
                                          {"2", 3, "warning", 3},
                                          {"3", 7, "info", 7},
                                          {"4", 15, "trace", 15},
                                          {"5", 31, "debug", 31},
                                          {"6", 1, "error", 1},
                                          {"7", 1, "error", 1},
                                          {"x", 1, "error", 1},
                                          {"", 1, "error", 1},
                                          {"25", 3, "warning", 3},
                                          {"-1", 1, "error", 1}}};

TEST_F(LogSetUp, EveryModeSetsItsMaskAndItsFlagOnly) {
  for (const Mode& mode : kModes) {
    for (const auto& [name, flag] : kFlags) *flag = 7;
    EXPECT_EQ(set_up(string(kComplete) + "LogMode=" + mode.value + "\n"), mode.mask) << mode.value;
    EXPECT_EQ(tLog.ucModeMask, mode.mask) << mode.value;
    EXPECT_EQ(flags_on(), mode.flag == nullptr ? std::vector<string>{} : std::vector<string>{mode.flag})
        << mode.value;
    EXPECT_EQ(tLog.ulSetUpTime, GetCurrentMilliTime()) << mode.value;
  }
}

TEST_F(LogSetUp, LevelsThatReachTheFileInEveryMode) {
  for (const Mode& mode : kModes) {
    set_up(string(kComplete) + "LogMode=" + mode.value + "\n");
    for (const uint32_t level : {1U, 2U, 4U, 8U, 16U, 32U}) {
      EXPECT_EQ(written(level) != "no file", (level & mode.levels) != 0) << mode.value << " level " << level;
    }
  }
}

TEST_F(LogSetUp, MissingModeIsModeOneAndANegativeResult) {
  EXPECT_EQ(set_up(kComplete), -305);
  EXPECT_EQ(tLog.ucModeMask, 1);
  EXPECT_EQ(flags_on(), std::vector<string>{"error"});
  EXPECT_EQ(tLog.ulSetUpTime, 0U) << "not stamped";
  EXPECT_STREQ(tLog.strLogFileName, "abcd") << "the other items hold";
}

TEST_F(LogSetUp, RecordHoldsTheItems) {
  EXPECT_EQ(set_up(string(kComplete) + "LogMode=1\n"), 1);
  EXPECT_EQ(tLog.ucInitMark, 0xAA);
  EXPECT_EQ(tLog.ucInitTail, 0xAA);
  EXPECT_STREQ(tLog.strLogFilePath, "Logs");
  EXPECT_STREQ(tLog.strLogFileName, "abcd");
  EXPECT_EQ(tLog.iLogFileMaxSize, 1300000);
}

TEST_F(LogSetUp, EveryCallStartsAfresh) {
  EXPECT_EQ(set_up(string(kComplete) + "LogMode=5\n"), 31);
  bConsoleLogsEnabled = bJniTraceLogsEnabled = bMessageLogsEnabled = 1;
  memset(tLog.strLogFilePath, 'x', sizeof tLog.strLogFilePath);
  EXPECT_EQ(set_up("LogFilePath=ab\nLogMode=0\n"), 0);
  EXPECT_EQ(flags_on(), std::vector<string>{});
  for (const char* at = tLog.strLogFilePath + 2; at != std::end(tLog.strLogFilePath); ++at)
    ASSERT_EQ(*at, '\0');
  EXPECT_STREQ(tLog.strLogFileName, kName) << "the name given to the set-up";
}

TEST_F(LogSetUp, EndMarkOf0x55WouldKeepEverything) {
  EXPECT_EQ(set_up(string(kComplete) + "LogMode=1\n"), 1);
  tLog.ucInitTail = 0x55;
  bConsoleLogsEnabled = 1;
  EXPECT_EQ(set_up(string(kComplete) + "LogMode=3\n"), 7);
  EXPECT_EQ(bConsoleLogsEnabled, 1);
  EXPECT_EQ(tLog.ucInitTail, 0x55);
}

TEST_F(LogSetUp, EndMarkOf0x55AloneKeepsNothing) {
  set_up(string(kComplete) + "LogMode=1\n");
  tLog.ucInitMark = 0;
  tLog.ucInitTail = 0x55;
  bConsoleLogsEnabled = 1;
  pOlkUtilsLogFile = "olk_utils.log";
  EXPECT_EQ(set_up(string(kComplete) + "LogMode=3\n"), 7);
  EXPECT_EQ(flags_on(), std::vector<string>{"info"});
  EXPECT_EQ(tLog.ucInitMark, 0xAA);
  EXPECT_EQ(tLog.ucInitTail, 0xAA);
  EXPECT_STREQ(pOlkUtilsLogFile, kName);
}

// Seen with the end mark that keeps the host's flags.
TEST_F(LogSetUp, WarningFlagIsClearedByEveryModeButTwo) {
  for (const Mode& mode : kModes) {
    tLog.ucInitMark = 0xAA;
    tLog.ucInitTail = 0x55;
    clear_flags();
    bWarningLogsEnabled = 7;
    EXPECT_EQ(set_up(string(kComplete) + "LogMode=" + mode.value + "\n"), mode.mask) << mode.value;
    EXPECT_EQ(bWarningLogsEnabled, mode.mask == 3 ? 1 : 0) << mode.value;
  }
  bWarningLogsEnabled = 7;
  EXPECT_EQ(set_up(kComplete), -305);
  EXPECT_EQ(bWarningLogsEnabled, 7) << "a missing mode ends the set-up before that";
}

TEST_F(LogSetUp, UtilitiesTakeOverTheGivenName) {
  EXPECT_STREQ(pApiLogFileName, "SAT_api.log");
  EXPECT_STREQ(pLogOlkSatUtils, "SAT_api.log");
  EXPECT_STREQ(pOlkUtilsLogFile, "olk_utils.log");
  write_file("SAT.ini", "[LOG]\nLogMode=1\n");
  EXPECT_EQ(OLK_SetIniFileLogMode(nullptr, "SAT.ini"), 1);
  EXPECT_STREQ(pOlkUtilsLogFile, "olk_utils.log");
  EXPECT_STREQ(tLog.strLogFileName, "olk_utils.log");
  EXPECT_EQ(OLK_SetIniFileLogMode(pApiLogFileName, "SAT.ini"), 1);
  EXPECT_STREQ(pOlkUtilsLogFile, "SAT_api.log");
  EXPECT_STREQ(tLog.strLogFileName, "SAT_api.log");
}

TEST_F(LogSetUp, PathDefaultsToLogWhenItIsMissing) {
  set_up("LogMode=1\n");
  EXPECT_STREQ(tLog.strLogFilePath, "Log");
  set_up("LogFilePath=\nLogMode=1\n");
  EXPECT_STREQ(tLog.strLogFilePath, "") << "an empty path stays empty";
  set_up("LogFilePath=" + string(511, 'p') + "\nLogMode=1\n");
  EXPECT_EQ(string(tLog.strLogFilePath), string(511, 'p'));
  set_up("LogFilePath=" + string(512, 'p') + "\nLogMode=1\n");
  EXPECT_STREQ(tLog.strLogFilePath, "Log") << "what does not fit cannot be read";
}

TEST_F(LogSetUp, ShortNamesAreReplaced) {
  const std::map<string, string> names = {{"", kName}, {"a", kName}, {"abc", kName}, {"abcd", "abcd"}};
  for (const auto& [value, expected] : names) {
    set_up("LogFileName=" + value + "\nLogMode=1\n");
    EXPECT_EQ(string(tLog.strLogFileName), expected) << value;
  }
}

TEST_F(LogSetUp, NameHasUpTo511Characters) {
  set_up("LogFileName=" + string(511, 'n') + "\nLogMode=1\n");
  EXPECT_EQ(string(tLog.strLogFileName), string(511, 'n'));
  set_up("LogFileName=" + string(512, 'n') + "\nLogMode=1\n");
  EXPECT_STREQ(tLog.strLogFileName, kName) << "what does not fit cannot be read";
}

TEST_F(LogSetUp, MaximumSizeIsAPositiveDecimalNumber) {
  const std::map<string, int> sizes = {
      {"1300000", 1300000}, {"1", 1},     {"0", 800000}, {"-5", 800000},
      {"abc", 800000},      {"", 800000}, {"12kB", 12},  {"99999999999999999999", INT32_MAX}};
  for (const auto& [value, expected] : sizes) {
    set_up("LogFileMaxSize=" + value + "\nLogMode=1\n");
    EXPECT_EQ(tLog.iLogFileMaxSize, expected) << value;
  }
  set_up("LogMode=1\n");
  EXPECT_EQ(tLog.iLogFileMaxSize, 800000);
}

TEST_F(LogSetUp, MissingFileAndMissingSectionTakeEveryDefault) {
  EXPECT_EQ(OLK_SetIniFileLogMode(kName, "SAT.ini"), -301);
  write_file("SAT.ini", "[OTHER]\nLogMode=5\n");
  EXPECT_EQ(OLK_SetIniFileLogMode(kName, "SAT.ini"), -304);
  EXPECT_STREQ(tLog.strLogFilePath, "Log");
  EXPECT_STREQ(tLog.strLogFileName, kName);
  EXPECT_EQ(tLog.iLogFileMaxSize, 800000);
  EXPECT_EQ(flags_on(), std::vector<string>{"error"});
}

TEST_F(LogSetUp, NullFileNameIsALineInTheFormerLogWhileFlagsAreOn) {
  bErrorLogsEnabled = 1;
  EXPECT_EQ(OLK_SetIniFileLogMode(kName, nullptr), -300);
  EXPECT_EQ(trace_messages("olk_utils.log"),
            (std::vector<string>{"ERR [] ../src/olk_utils/olk_utils OLK_SetIniFileLogMode rc[0001]ER "
                                 "pIniFileName=NULL\n"}));
  EXPECT_EQ(trace_messages(kName), std::vector<string>{});
  EXPECT_EQ(flags_on(), std::vector<string>{"error"});
  EXPECT_STREQ(tLog.strLogFilePath, "Log");
}

TEST_F(LogSetUp, SetUpLinesNeverAppear) {
  for (const Mode& mode : kModes) {
    for (const auto& [name, flag] : kFlags) *flag = name != "console" ? 1 : 0;
    set_up(string(kComplete) + "LogMode=" + mode.value + "\n");
    for (const auto& [name, flag] : kFlags) *flag = name != "console" ? 1 : 0;
    set_up("LogMode=" + string(mode.value) + "\n");
  }
  EXPECT_EQ(trace_messages(kName), std::vector<string>{});
  EXPECT_EQ(trace_messages("olk_utils.log"), std::vector<string>{});
}

// With the end mark that the set-up looks for, a host's flags survive and its lines can be seen.
class SetUpLines : public LogSetUp {
 protected:
  static std::vector<string> lines_of(const string& section_content) {
    tLog = {};
    tLog.ucInitMark = 0xAA;
    tLog.ucInitTail = 0x55;
    pOlkUtilsLogFile = "SAT_api.log";
    clear_flags();
    bDebugLogsEnabled = 1;
    fs::remove(kToday);
    set_up(section_content);
    clear_flags();
    std::vector<string> lines;
    const string head = " [] ../src/olk_utils/olk_utils OLK_SetIniFileLogMode ";
    for (const string& message : trace_messages(kName)) {
      if (const size_t at = message.find(head); at != string::npos) {
        lines.push_back(message.substr(0, at) + " " + message.substr(at + head.size()));
      }
    }
    return lines;
  }
};

TEST_F(SetUpLines, AllItemsGiven) {
  EXPECT_EQ(lines_of(string(kComplete) + "LogMode=3\n"),
            (std::vector<string>{
                "WRN rc[0003]WR FileName[SAT.ini] Session[LOG] item[LogFilePath=Logs]\n",
                "WRN rc[0003]WR FileName[SAT.ini] Session[LOG] item[LogFileName=abcd]\n",
                "WRN rc[0000]WR FileName[SAT.ini] Session[LOG] item[LogFileMaxSize=1300000]\n",
                "WRN rc[0000]WR FileName[SAT.ini] Session[LOG] item[LogMode=3]INFO_LOGS_ENABLED\n"}));
}

TEST_F(SetUpLines, ReplacedItems) {
  const std::vector<string> lines = lines_of("LogFilePath=\nLogFileName=abc\nLogFileMaxSize=-5\nLogMode=9\n");
  EXPECT_EQ(
      lines,
      (std::vector<string>{
          "WRN rc[0003]WR FileName[SAT.ini] Session[LOG] item[LogFilePath=]\n",
          "WRN rc[0003]WR FileName[SAT.ini] Session[LOG] item[LogFileName=SAT_api.log]<DEFAULT>\n",
          "WRN rc[0000]WR FileName[SAT.ini] Session[LOG] item[LogFileMaxSize=-5<DEFAULT>\n",
          "WRN rc[0000]WR FileName[SAT.ini] Session[LOG] item[LogMode=9]ERROR_LOGS_ENABLED<DEFAULT>\n"}));
}

TEST_F(SetUpLines, MissingItems) {
  EXPECT_EQ(lines_of(""),
            (std::vector<string>{
                "ERR rc[-305]ER FileName[SAT.ini] Session[LOG] item[LogFilePath=Log]<DEFAULT>\n",
                "ERR rc[-305]ER FileName[SAT.ini] Session[LOG] item[LogFileName=SAT_api.log]<DEFAULT>\n",
                "WRN rc[-305]WR FileName[SAT.ini] Session[LOG] item[LogFileMaxSize=]<DEFAULT>\n",
                "ERR rc[-305]ER FileName[SAT.ini] Session[LOG] item[LogMode=1]<DEFAULT>\n"}));
}

TEST_F(SetUpLines, EveryModeHasItsNote) {
  const std::map<string, string> notes = {{"0", "DISABLED!"},
                                          {"1", "ERROR_LOGS_ENABLED"},
                                          {"2", "WARNING_LOGS_ENABLED"},
                                          {"3", "INFO_LOGS_ENABLED"},
                                          {"4", "TRACE_LOGS_ENABLED"},
                                          {"5", "DEBUG_LOGS_ENABLED"},
                                          {"6", "ERROR_LOGS_ENABLED<DEFAULT>"}};
  for (const auto& [mode, note] : notes) {
    const std::vector<string> lines = lines_of(string(kComplete) + "LogMode=" + mode + "\n");
    ASSERT_EQ(lines.size(), 4U);
    string expected = "WRN rc[0000]WR FileName[SAT.ini] Session[LOG] item[LogMode=";
    expected.append(mode).append("]").append(note).append("\n");
    EXPECT_EQ(lines[3], expected);
  }
}

}  // namespace
