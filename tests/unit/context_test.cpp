// The library's set-up on its first call, and what each later call reads again.
#include "api/context.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <functional>
#include <string_view>
#include <utility>

#include "api/configuration.h"
#include "api/default_configuration.h"
#include "api/protocol_log.h"
#include "olk_sat_utils/return_codes.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/open_file.h"
#include "support/api_trace.h"
#include "support/virtual_clock.h"

// What happens while the library opens the file next; the linker is told to wrap the call.
namespace {
std::function<void()> meanwhile;
}
extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (meanwhile && std::strcmp(path, kIniFileName) == 0) std::exchange(meanwhile, nullptr)();
  return __real_open(path, flags, mode);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kFixedPort = "[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS0\n";
const std::string kEmptyFixedPort = "[SERIAL_PORT_CONFIG]\nFixarPorta=\n";

const std::string kStarted = api_line(
    "WRN", "init_global_sat_struct",
    "--- Sat Struct Initialized!!\n\t   Version[TALVEX DLL Ver. 02.00 - 23-JUL-2020]\n\t BuildDate[Jul 27 "
    "2020-10:41:14]\n\t   This Is[64 Bits] Platform\n");
const std::string kVersionBanner = api_line(
    "WRN", "UpdateTalvexConfiguration",
    "\n\t   Version[TALVEX DLL Ver. 02.00 - 23-JUL-2020]\n\t BuildDate[Jul 27 2020-10:41:14]\n\t   This Is[64 "
    "Bits] Platform\n");
// Shows the size of the configuration file that was found.
std::string pass_line() {
  return config_line("INF", "UpdateTalvexConfiguration",
                     printed("rc[%04d]OK:PASS  STEP00a  TalvexIniFileName[SAT.ini]OK\n",
                             static_cast<int>(std::filesystem::file_size("SAT.ini"))));
}

std::string log_section(const char* mode, const char* more = "LogFileMaxSize=1300000\n") {
  return printed("[LOG]\nLogFilePath=Log\n%sLogMode=%s\n", more, mode);
}

class Context : public ApiTraceTest {
 protected:
  Context() {
    gl_tSat = {};
    log_up_to(0);
    virtual_clock::set_local_time(2020, 7, 27, 10, 41, 14, 0);
  }
  ~Context() override {
    meanwhile = nullptr;
    if (gl_iFd > 0) close(gl_iFd);
    gl_iFd = 0;
  }

  // Writes SAT.ini with a modification time of its own, so that no test depends on how fast it runs.
  static void write_configuration(const std::string& text, time_t seconds = 1000000, long nanoseconds = 0) {
    write_file("SAT.ini", text);
    set_time(seconds, nanoseconds);
  }
  static void set_time(time_t seconds, long nanoseconds = 0) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, "SAT.ini", times, 0), 0);
  }

  // How often the next call reads the file; log mode 3 shows every pass.
  static std::size_t passes_of_a_call() {
    take_lines();
    init_global_sat_struct();
    return with_text(take_lines(), "STEP30").size();
  }
  static std::vector<std::size_t> passes_of_calls(int calls) {
    std::vector<std::size_t> passes;
    while (calls-- > 0) passes.push_back(passes_of_a_call());
    return passes;
  }
};
class FirstCall : public Context {};
class LaterCall : public Context {};
class Passes : public Context {};

// ---- First call -------------------------------------------------------------------------------------

TEST_F(FirstCall, Returns0AndLaterOnes1) {
  EXPECT_FALSE(gl_tSat.is_set_up);
  EXPECT_EQ(init_global_sat_struct(), 0);
  EXPECT_TRUE(gl_tSat.is_set_up);
  EXPECT_EQ(init_global_sat_struct(), 1);
  EXPECT_EQ(init_global_sat_struct(), 1);
}

TEST_F(FirstCall, CreatesTheMissingFileAndSaysSoToAHostThatListens) {
  bWarningLogsEnabled = 1;
  EXPECT_EQ(init_global_sat_struct(), 0);
  const int size = static_cast<int>(std::filesystem::file_size("SAT.ini"));
  EXPECT_GT(size, 0);
  EXPECT_THAT(take_all_lines(),
              ElementsAre(api_line("WRN", "CreateFile_TalvexIni",
                                   printed(" rc[%06d]OK file[SAT.ini]Successfull Created!!!\n", size)),
                          api_line("WRN", "init_global_sat_struct",
                                   printed("--- rc[%06d]OK ConfigFile[SAT.ini]Created!!!\n", size))));
}

TEST_F(FirstCall, WithAllFlagsOffCreatesTheFileSilently) {
  EXPECT_EQ(init_global_sat_struct(), 0);
  EXPECT_TRUE(std::filesystem::exists("SAT.ini"));
  EXPECT_THAT(take_all_lines(), IsEmpty());
}

TEST_F(FirstCall, WithTheDefaultFileLogsErrorsInLog) {
  init_global_sat_struct();
  EXPECT_NE(bErrorLogsEnabled, 0);
  EXPECT_EQ(tLog.ucModeMask, 1);
  EXPECT_EQ(tLog.iLogFileMaxSize, 1300000);
  EXPECT_STREQ(tLog.strLogFilePath, "Log");
  EXPECT_STREQ(tLog.strLogFileName, "SAT_api.log");
  EXPECT_TRUE(std::filesystem::is_directory("Log"));
}

TEST_F(FirstCall, WithAFileThatCannotBeCreatedGoesOn) {
  ASSERT_EQ(symlink("no/such/directory/SAT.ini", "SAT.ini"), 0);
  bErrorLogsEnabled = 1;
  EXPECT_EQ(init_global_sat_struct(), 0);
  const std::string not_created =
      api_line("ERR", "CreateFile_TalvexIni", " rc[-00001]ER file[SAT.ini]Could not be Created!!!\n");
  const std::string no_pass =
      config_line("ERR", "UpdateTalvexConfiguration",
                  "rc[-001]ER:FAIL  STEP00b  TalvexIniFileName[SAT.ini]Could  Not  Be  Created!!\n");
  EXPECT_THAT(take_lines(),
              ElementsAre(not_created,
                          api_line("ERR", "init_global_sat_struct",
                                   "--- rc[-00001]ER ConfigFile[SAT.ini]NotCreated!!!\n"),
                          not_created, no_pass,
                          api_line("ERR", "init_global_sat_struct", "--- rc[-00301]ER ConfigFile[SAT.ini]\n"),
                          not_created, no_pass));
  EXPECT_TRUE(gl_tSat.is_set_up);
  EXPECT_EQ(gl_tSat.settings.tIniFileTime, 0);
  EXPECT_EQ(init_global_sat_struct(), 1);
}

TEST_F(FirstCall, LeavesAFileAloneThatSomebodyElseMakesMeanwhile) {
  meanwhile = [] { write_file("SAT.ini", "[LOG]\nLogMode=2\n"); };
  EXPECT_EQ(init_global_sat_struct(), 0);
  EXPECT_EQ(read_file("SAT.ini"), "[LOG]\nLogMode=2\n");
  EXPECT_EQ(tLog.ucModeMask, 3);
}

TEST_F(FirstCall, FindsTheFileThatSomebodyElseMakesMeanwhile) {
  log_up_to(kInfo);
  meanwhile = [] { write_file("SAT.ini", "#\n"); };
  EXPECT_EQ(CreateFile_TalvexIni(), 2);
  EXPECT_THAT(take_lines(), ElementsAre(api_line("INF", "CreateFile_TalvexIni",
                                                 " rc[000002]OK file[SAT.ini]Already Exist!\n")));
}

// 2 GiB and 4 GiB: negative and 0 in 32 bits.
TEST_F(FirstCall, LeavesAFileOfAnySizeAlone) {
  for (const uintmax_t gibibytes : {uintmax_t{2}, uintmax_t{4}}) {
    for (const char* name : {"SAT.ini", "large.ini"}) {
      gl_tSat = {};
      write_file(name, "[LOG]\nLogMode=3\n");
      std::filesystem::resize_file(name, gibibytes << 30);
      if (!std::filesystem::exists("SAT.ini")) std::filesystem::create_symlink(name, "SAT.ini");
      EXPECT_EQ(init_global_sat_struct(), 0);
      EXPECT_EQ(std::filesystem::file_size(name), gibibytes << 30);
      EXPECT_EQ(tLog.ucModeMask, 1) << "as without memory to read it";
      EXPECT_THAT(with_text(take_all_lines(), "rc[-00302]ER ConfigFile[SAT.ini]"), SizeIs(1));
      EXPECT_STREQ(gl_tSat.settings.strResultPathLinux, "/etc/Arvolen/Cupons/New");
      EXPECT_EQ(init_global_sat_struct(), 1);
      std::filesystem::remove("SAT.ini");
    }
  }
}

TEST_F(FirstCall, LogsTheBannersInThisOrderAndLaterCallsNever) {
  write_configuration(kFixedPort + log_section("2"));
  init_global_sat_struct();
  std::filesystem::create_directory("Log");
  Lines banners = take_lines();
  std::erase_if(banners, [](const std::string& line) { return line != kStarted && line != kVersionBanner; });
  EXPECT_THAT(banners, ElementsAre(kVersionBanner, kStarted, kVersionBanner));
  init_global_sat_struct();
  EXPECT_THAT(take_lines(), IsEmpty());
  set_time(1000001);
  init_global_sat_struct();
  const Lines lines = take_lines();
  EXPECT_THAT(with_text(lines, "Sat Struct Initialized!!"), IsEmpty());
  EXPECT_THAT(with_text(lines, "This Is[64 Bits]"), ElementsAre(kVersionBanner));
}

// The log mode is set before the first pass, so that pass is logged too.
TEST_F(FirstCall, SetsTheLogModeBeforeItReadsTheConfiguration) {
  write_configuration(kFixedPort + log_section("3"));
  init_global_sat_struct();
  Lines lines = take_lines();
  std::erase_if(lines, [](const std::string& line) {
    return line.find("STEP30") == std::string::npos && line != kStarted;
  });
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(lines[1], kStarted);
}

TEST_F(FirstCall, HasNoPassLineForTheFile) {
  write_configuration(kFixedPort + log_section("3"));
  init_global_sat_struct();
  EXPECT_THAT(with_text(take_lines(), "STEP00a"), IsEmpty());
}

TEST_F(FirstCall, ClearsEveryFlagOfTheHostButTheModesOwn) {
  for (int64_t* flag :
       {&bErrorLogsEnabled, &bWarningLogsEnabled, &bMessageLogsEnabled, &bInfoLogsEnabled, &bTraceLogsEnabled,
        &bJniTraceLogsEnabled, &bDebugLogsEnabled, &bConsoleLogsEnabled}) {
    *flag = 1;
  }
  write_configuration(log_section("3"));
  testing::internal::CaptureStdout();
  init_global_sat_struct();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_NE(bInfoLogsEnabled, 0);
  for (const int64_t flag : {bErrorLogsEnabled, bWarningLogsEnabled, bMessageLogsEnabled, bTraceLogsEnabled,
                             bJniTraceLogsEnabled, bDebugLogsEnabled, bConsoleLogsEnabled}) {
    EXPECT_EQ(flag, 0);
  }
}

TEST_F(FirstCall, KeepsWarningsOnlyInMode2) {
  write_configuration(log_section("2"));
  init_global_sat_struct();
  EXPECT_NE(bWarningLogsEnabled, 0);
  EXPECT_EQ(bErrorLogsEnabled, 0);
}

TEST_F(FirstCall, ClearsTheWholeRecord) {
  copy_text(gl_tSat.strSatProtLogFilePath, "former");
  copy_text(gl_tSat.strSatProtLogFileName, "former");
  copy_text(gl_tSat.CurSatCmdInProc, "former");
  gl_tSat.settings.timeout_s[kConsultarSAT] = 77;
  gl_tSat.settings.lSatEmulatorOn = gl_tSat.settings.lResultFilesOn = true;
  write_configuration(kFixedPort + log_section("0"));
  EXPECT_EQ(init_global_sat_struct(), 0);
  EXPECT_STREQ(gl_tSat.strSatProtLogFilePath, "");
  EXPECT_STREQ(gl_tSat.strSatProtLogFileName, "");
  EXPECT_STREQ(gl_tSat.CurSatCmdInProc, "");
  EXPECT_EQ(gl_tSat.settings.timeout_s[kConsultarSAT], 0u);
  EXPECT_FALSE(gl_tSat.settings.lSatEmulatorOn || gl_tSat.settings.lResultFilesOn);
}

TEST_F(FirstCall, StoresTheFilesTime) {
  write_configuration(kFixedPort + log_section("0"), 1234567, 999999999);
  init_global_sat_struct();
  EXPECT_EQ(gl_tSat.settings.tIniFileTime, 1234567);
}

TEST_F(FirstCall, WithoutAFixedPortLosesTheFilesTimeInItsSecondPass) {
  write_configuration(log_section("0"), 1234567);
  init_global_sat_struct();
  EXPECT_EQ(gl_tSat.settings.tIniFileTime, 0);
  init_global_sat_struct();
  EXPECT_EQ(gl_tSat.settings.tIniFileTime, 1234567);
}

TEST_F(FirstCall, IsDoneAgainInFullWhenItWasInterrupted) {
  write_configuration(kFixedPort + log_section("3"));
  EXPECT_EQ(passes_of_a_call(), 2u);
  gl_tSat.is_set_up = false;
  EXPECT_EQ(init_global_sat_struct(), 0);
  EXPECT_THAT(with_text(take_lines(), "STEP30"), SizeIs(2));
}

// ---- Passes over the file on successive calls -------------------------------------------------------

TEST_F(Passes, WithoutAFixedPort) {
  write_configuration(log_section("3"));
  EXPECT_THAT(passes_of_calls(4), ElementsAre(2, 1, 0, 0));
}

TEST_F(Passes, WithAFixedPort) {
  write_configuration(kFixedPort + log_section("3"));
  EXPECT_THAT(passes_of_calls(3), ElementsAre(2, 0, 0));
}

TEST_F(Passes, WithAnEmptyFixedPort) {
  write_configuration(kEmptyFixedPort + log_section("3"));
  EXPECT_THAT(passes_of_calls(3), ElementsAre(2, 0, 0));
}

TEST_F(Passes, AfterATouch) {
  for (const std::string& port : {std::string(), kFixedPort, kEmptyFixedPort}) {
    gl_tSat = {};
    write_configuration(port + log_section("3"));
    passes_of_calls(3);
    set_time(1000001);
    EXPECT_THAT(passes_of_calls(2), ElementsAre(1, 0)) << port;
  }
}

TEST_F(Passes, AfterAChangeToAnOlderTime) {
  write_configuration(kFixedPort + log_section("3"));
  passes_of_calls(1);
  set_time(999999);
  EXPECT_THAT(passes_of_calls(2), ElementsAre(1, 0));
}

TEST_F(Passes, AfterAChangeWithinTheSameSecond) {
  write_configuration(kFixedPort + log_section("3"));
  passes_of_calls(1);
  set_time(1000000, 999999999);
  EXPECT_THAT(passes_of_calls(2), ElementsAre(0, 0));
}

// What was read may be the file as it was before: the time that counts is the one from before the reading.
TEST_F(Passes, OverAFileThatChangesWhileItIsReadAgain) {
  write_configuration(kFixedPort + log_section("3"));
  passes_of_calls(1);
  set_time(1000001);
  meanwhile = [] { set_time(1000002); };
  EXPECT_THAT(passes_of_calls(3), ElementsAre(1, 1, 0));
  EXPECT_FALSE(meanwhile);
}

TEST_F(Passes, OverAFileWhoseTimeIsTheClearedOne) {
  write_configuration(log_section("3"), 0);
  EXPECT_THAT(passes_of_calls(2), ElementsAre(2, 0));
}

// ---- Later calls ------------------------------------------------------------------------------------

TEST_F(LaterCall, TakesInAChangedFile) {
  write_configuration(kFixedPort + log_section("1"));
  init_global_sat_struct();
  write_configuration(
      "[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS7\n[SAT_TIMEOUT]\nConsultarSAT=77\n" + log_section("1"),
      1000001);
  init_global_sat_struct();
  EXPECT_EQ(reply_timeout_s(gl_tSat.settings, kConsultarSAT), 77u);
  EXPECT_EQ(gl_tSat.settings.tIniFileTime, 1000001);
}

TEST_F(LaterCall, DoesNotResetTheRecord) {
  write_configuration(kFixedPort + "[SAT_TIMEOUT]\nConsultarSAT=77\n" + log_section("1"));
  init_global_sat_struct();
  copy_text(gl_tSat.CurSatCmdInProc, "ConsultarSAT");
  write_configuration(kEmptyFixedPort + log_section("1"), 1000001);
  init_global_sat_struct();
  EXPECT_EQ(reply_timeout_s(gl_tSat.settings, kConsultarSAT), 77u);
  EXPECT_STREQ(gl_tSat.CurSatCmdInProc, "ConsultarSAT");
}

TEST_F(LaterCall, ReadsTheConfigurationBeforeItSetsTheLogMode) {
  write_configuration(kFixedPort + log_section("3"));
  init_global_sat_struct();
  take_lines();
  write_configuration(kFixedPort + log_section("0"), 1000001);
  init_global_sat_struct();
  Lines lines = take_lines();
  EXPECT_THAT(with_text(lines, "STEP30"), SizeIs(1));
  EXPECT_EQ(lines.at(0), pass_line());
  EXPECT_EQ(tLog.ucModeMask, 0);

  write_configuration(kFixedPort + log_section("3"), 1000002);
  init_global_sat_struct();
  EXPECT_THAT(take_lines(), IsEmpty());
  EXPECT_EQ(tLog.ucModeMask, 7);
}

TEST_F(LaterCall, ClearsTheHostsFlagsOnlyWhenItReadsTheFile) {
  write_configuration(kFixedPort + log_section("1"));
  init_global_sat_struct();
  bTraceLogsEnabled = bJniTraceLogsEnabled = bMessageLogsEnabled = 1;
  init_global_sat_struct();
  EXPECT_EQ(bTraceLogsEnabled, 1);
  EXPECT_EQ(bJniTraceLogsEnabled, 1);
  EXPECT_EQ(bMessageLogsEnabled, 1);
  set_time(1000001);
  init_global_sat_struct();
  EXPECT_EQ(bTraceLogsEnabled, 0);
  EXPECT_EQ(bJniTraceLogsEnabled, 0);
  EXPECT_EQ(bMessageLogsEnabled, 0);
  EXPECT_NE(bErrorLogsEnabled, 0);
}

TEST_F(LaterCall, WithoutTheFileKeepsTheSettingsAndMakesNone) {
  write_configuration(kFixedPort + "[SAT_EMULATOR]\nEnable=1\n" + log_section("3"));
  init_global_sat_struct();
  std::filesystem::remove("SAT.ini");
  EXPECT_THAT(passes_of_calls(2), ElementsAre(0, 0));
  EXPECT_FALSE(std::filesystem::exists("SAT.ini"));
  EXPECT_TRUE(gl_tSat.settings.lSatEmulatorOn);
  EXPECT_EQ(tLog.ucModeMask, 7);
}

TEST_F(LaterCall, NeverRewritesAnEmptyFile) {
  write_configuration(kFixedPort + log_section("1"));
  init_global_sat_struct();
  write_configuration("", 1000001);
  EXPECT_EQ(init_global_sat_struct(), 1);
  EXPECT_EQ(std::filesystem::file_size("SAT.ini"), 0u);
  EXPECT_EQ(gl_tSat.settings.tIniFileTime, 1000001);
}

TEST_F(FirstCall, NeverRewritesAnEmptyFile) {
  write_configuration("");
  EXPECT_EQ(init_global_sat_struct(), 0);
  EXPECT_EQ(std::filesystem::file_size("SAT.ini"), 0u);
  const Lines lines = take_lines();
  EXPECT_THAT(
      with_text(lines, "init_global_sat_struct"),
      ElementsAre(api_line("ERR", "init_global_sat_struct", "--- rc[-00301]ER ConfigFile[SAT.ini]\n")));
  EXPECT_THAT(with_text(lines, "rc[-301]ER:FAIL"), SizeIs(2 * 30));
}

// ---- Size control on later calls --------------------------------------------------------------------

constexpr char kLog[] = "Log/20200727_SAT_api.log";
constexpr char kBackup[] = "Log/20200727_SAT_api.log_bkp_00.log";

class SizeControl : public Context {
 protected:
  static void write_log(std::size_t size) {
    std::filesystem::create_directory("Log");
    write_file(kLog, std::string(size, '.'));
  }
  static std::uintmax_t backup_size() {
    return std::filesystem::exists(kBackup) ? std::filesystem::file_size(kBackup) : 0;
  }
};

TEST_F(SizeControl, DoesNotRunOnTheFirstCall) {
  write_configuration(kFixedPort + log_section("1", "LogFileMaxSize=100\n"));
  write_log(500);
  init_global_sat_struct();
  EXPECT_EQ(backup_size(), 0u);
}

TEST_F(SizeControl, RunsOnEveryLaterCall) {
  write_configuration(kFixedPort + log_section("1", "LogFileMaxSize=100\n"));
  init_global_sat_struct();
  write_log(100);
  init_global_sat_struct();
  EXPECT_EQ(backup_size(), 0u);
  write_log(101);
  init_global_sat_struct();
  EXPECT_EQ(backup_size(), 101u);
}

TEST_F(SizeControl, RunsBeforeTheFileIsReadAgainWithTheOldLimit) {
  write_configuration(kFixedPort + log_section("1", "LogFileMaxSize=100\n"));
  init_global_sat_struct();
  write_log(200);
  write_configuration(kFixedPort + log_section("1", "LogFileMaxSize=5000\n"), 1000001);
  init_global_sat_struct();
  EXPECT_EQ(backup_size(), 200u);
  EXPECT_EQ(tLog.iLogFileMaxSize, 5000);

  write_log(300);
  write_configuration(kFixedPort + log_section("1", "LogFileMaxSize=100\n"), 1000002);
  init_global_sat_struct();
  EXPECT_FALSE(std::filesystem::exists("Log/20200727_SAT_api.log_bkp_01.log"));
  EXPECT_EQ(tLog.iLogFileMaxSize, 100);
}

TEST_F(SizeControl, RunsWithLoggingOffToo) {
  write_configuration(kFixedPort + log_section("0", "LogFileMaxSize=100\n"));
  init_global_sat_struct();
  write_log(200);
  init_global_sat_struct();
  EXPECT_EQ(backup_size(), 200u);
}

TEST_F(SizeControl, RunsWithoutTheFileToo) {
  write_configuration(kFixedPort + log_section("1", "LogFileMaxSize=100\n"));
  init_global_sat_struct();
  std::filesystem::remove("SAT.ini");
  write_log(200);
  init_global_sat_struct();
  EXPECT_EQ(backup_size(), 200u);
}

TEST_F(SizeControl, ClosesTheProtocolLogOnLaterCallsOnly) {
  write_configuration(kFixedPort + log_section("1"));
  gl_iFd = open_log_file("/dev/null", 0600);
  const int descriptor = gl_iFd;
  LogSATProtocolMsg("x", true);
  init_global_sat_struct();
  EXPECT_EQ(gl_iFd, descriptor);
  init_global_sat_struct();
  EXPECT_EQ(gl_iFd, 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

}  // namespace
