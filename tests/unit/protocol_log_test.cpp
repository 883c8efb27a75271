// The protocol log: how each kind of frame is shown, when its file is opened, closed and named, and the
// size-control loop that a host may run.
#include "api/protocol_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>

#include "api/context.h"
#include "api/packet_buffer.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/open_file.h"
#include "support/api_trace.h"
#include "support/full_disk.h"
#include "support/virtual_clock.h"

// The linker is told to wrap these three.
namespace {
bool out_of_memory;
std::function<void()> after_create_dir;
std::function<void()> on_pause;
}  // namespace

extern "C" void* __real_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size) {
  return out_of_memory ? nullptr : __real_calloc(count, size);
}

extern "C" int __real_OLK_CreateDir(const char* name);
extern "C" int __wrap_OLK_CreateDir(const char* name) {
  const int result = __real_OLK_CreateDir(name);
  if (after_create_dir) after_create_dir();
  return result;
}

// void pause_microseconds(unsigned)
extern "C" void __real__Z18pause_microsecondsj(unsigned microseconds);
extern "C" void __wrap__Z18pause_microsecondsj(unsigned microseconds) {
  __real__Z18pause_microsecondsj(microseconds);
  if (on_pause) on_pause();
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::string_literals;

constexpr char kToday[] = "Log/20200727_SAT_ProtocolLog.txt";
constexpr char kTomorrow[] = "Log/20200728_SAT_ProtocolLog.txt";
constexpr unsigned kLevels[] = {0, kError, kWarning, kInfo, kTrace};
constexpr bool kSent = false;
constexpr bool kReceived = true;

class ProtocolLog : public ApiTraceTest {
 protected:
  ProtocolLog() {
    gl_tSat = {};
    std::memset(&tLog, 0, sizeof tLog);
    tLog.ucModeMask = 1;
    tLog.iLogFileMaxSize = 1300000;
    set_path("Log");
    log_up_to(kInfo);
    setenv("TZ", "UTC0", 1);
    tzset();
    virtual_clock::set_local_time(2020, 7, 27, 3, 15, 7, 250);
  }
  ~ProtocolLog() override {
    out_of_memory = false;
    after_create_dir = nullptr;
    on_pause = nullptr;
    if (gl_iFd > 0) close(gl_iFd);
    gl_iFd = 0;
    gl_hComm = -1;
  }

  static void set_path(const std::string& path) {
    std::memset(tLog.strLogFilePath, 0, sizeof tLog.strLogFilePath);
    path.copy(tLog.strLogFilePath, sizeof tLog.strLogFilePath - 1);
  }

  // The frame stands in memory of exactly its size with the given bytes behind it, so that a sanitizer
  // sees every byte outside.
  static void log(const std::string& bytes_with_what_follows, bool received) {
    std::unique_ptr<char[]> exact(new char[bytes_with_what_follows.size()]);
    bytes_with_what_follows.copy(exact.get(), bytes_with_what_follows.size());
    LogSATProtocolMsg(exact.get(), received);
  }

  static std::string open_log_and_stdout() {
    testing::internal::CaptureStdout();
    CreateSAT_ProtLogFile();
    std::fflush(stdout);
    return without_source_line(testing::internal::GetCapturedStdout());
  }
};

std::string message_line(const std::string& text) {
  return api_line("WRN", "LogSATProtocolMsg", text);
}
std::string create_line(const std::string& tag, const std::string& text) {
  return api_line(tag, "CreateSAT_ProtLogFile", text);
}
std::string opened_line(const std::string& name) {
  return create_line("INF", printed("---  rc[-01101]OK:logFd[%08Xh] pcLogName[%s]Created!!!\n",
                                    static_cast<unsigned>(gl_iFd), name.c_str()));
}
const std::string kUpdated = create_line("WRN", "---  gl_tSat.strSatProtLogFilePath[Log]UPDATED\n");

// ---- How frames are shown ---------------------------------------------------------------------------

struct Rendering {
  const char* name;
  std::string bytes;  // the frame, its NUL and what follows
  bool received;
  std::string line;   // without its time
  std::string trace;  // empty for none
};

void PrintTo(const Rendering& rendering, std::ostream* out) {
  *out << rendering.name;
}

std::string with_etx(int length) {
  return message_line(
      printed("All WR\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[03h]Rcvd ETX\n", length));
}
std::string with_zero_checksum(int length) {
  return message_line(
      printed("All WR:\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[00h]rcvd ETX CKSUM=0x00\n", length));
}
std::string without_etx(int length, unsigned last) {
  return message_line(
      printed("All WR:bInvalidPacket\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[%02Xh]Expected ETX\n",
              length, last));
}

const Rendering kRenderings[] = {
    // Sent.
    {"SentFrame",
     "\x02"s
     "A|1\xEE\x03\0"s,
     kSent, "PC->SAT >> [<02>A|1<EE><03>]OK:a\n", with_etx(6)},
    {"SentFrameWithALowChecksum",
     "\x02"s
     "A|1\x07\x03\0"s,
     kSent, "PC->SAT >> [<02>A|1<07><03>]OK:a\n", with_etx(6)},
    {"SentTextWithoutStxButWithEtx", "A|1\xEE\x03\0"s, kSent, "PC->SAT >> [<02>|1<EE><03>]OK:a\n", ""},
    {"SentTextWithoutStxAndEtx", "A|1\0\xAB\x07"s, kSent, "PC->SAT >> [<41>|1<AB><07>]WR:CKSUM=00h\n", ""},
    {"SentSingleCharacter", "A\0\0\0"s, kSent, "PC->SAT >> [<41><00><00>]WR:CKSUM=00h\n", ""},
    {"SentFrameWithAZeroChecksum",
     "\x02"s
     "A|1\0\x03\0"s,
     kSent, "SAT->PC << [A|<00><03>]WR:CKSUM=0x00--\n", with_zero_checksum(5)},
    {"SentOneCharacterWithAZeroChecksum",
     "\x02"s
     "A\0\x03\0"s,
     kSent, "SAT->PC << [<00><03>]WR:CKSUM=0x00--\n", with_zero_checksum(3)},
    {"SentNothingWithAZeroChecksum", "\x02\0\x03\0"s, kSent, "SAT->PC << [<00><03>]WR:CKSUM=0x00--\n",
     with_zero_checksum(2)},
    {"SentFrameWithoutEtx",
     "\x02"s
     "A|1\0\0"s,
     kSent,
     "PC->SAT >> [\x02"s
     "A|1]InvalidSatPkg\n",
     without_etx(4, '1')},
    {"SentStxAlone", "\x02\0\0"s, kSent, "PC->SAT >> [\x02]InvalidSatPkg\n", without_etx(1, 2)},
    {"SentStxAndEtx", "\x02\x03\0\0"s, kSent, "PC->SAT >> [<02><02><03>]OK:a\n", with_etx(2)},
    // Received.
    {"ReceivedFrame",
     "\x02"s
     "A|1\xEE\x03\0"s,
     kReceived, "SAT->PC << [<02>A|1<EE><03>]OK:c\n", with_etx(6)},
    {"ReceivedTextWithoutStxButWithEtx", "A|1\xEE\x03\0"s, kReceived,
     "SAT->PC << [<02>A|1\xEE\x03<EE><03>]OK:c\n", ""},
    {"ReceivedFrameWithAZeroChecksum",
     "\x02"s
     "A|1\0\x03\0"s,
     kReceived, "SAT->PC << [<02>A|<00><03>]WR:CKS=0x00\n", with_zero_checksum(5)},
    {"ReceivedNothingWithAZeroChecksum", "\x02\0\x03\0"s, kReceived, "SAT->PC << [<02><00><03>]WR:CKS=0x00\n",
     with_zero_checksum(2)},
    {"ReceivedTextWithoutStxAndEtx", "000042|08000|OK\0\x03\0"s, kReceived,
     "SAT->PC << [<02>000042|08000|OK<--><03>]WR:d\n", ""},
    {"ReceivedFrameWithoutEtx",
     "\x02"s
     "A|1\0\0"s,
     kReceived,
     "SAT->PC << [\x02"s
     "A|1]InvalidSatPkg\n",
     without_etx(4, '1')},
    {"ReceivedFrameWithAHighLastByte",
     "\x02"s
     "A|\xE9\0\0"s,
     kReceived,
     "SAT->PC << [\x02"s
     "A|\xE9]InvalidSatPkg\n",
     without_etx(4, 0xE9)},
    // Nothing else is escaped.
    {"SentControlBytes",
     "\x02"s
     "a\n\t\x01%s\\<02>\xC3\xA9\x7F|\xEE\x03\0"s,
     kSent, "PC->SAT >> [<02>a\n\t\x01%s\\<02>\xC3\xA9\x7F|<EE><03>]OK:a\n", with_etx(18)},
    {"ReceivedControlBytes", "a\n\t\x01%n\\\xC3\xA9|\0"s, kReceived,
     "SAT->PC << [<02>a\n\t\x01%n\\\xC3\xA9|<--><03>]WR:d\n", ""},
};

class ShownFrame : public ProtocolLog, public testing::WithParamInterface<Rendering> {};

TEST_P(ShownFrame, AsOneLine) {
  CreateSAT_ProtLogFile();
  take_lines();
  const Rendering& rendering = GetParam();
  log(rendering.bytes, rendering.received);
  EXPECT_EQ(read_file(kToday), "20200727031507 " + rendering.line);
  EXPECT_EQ(take_lines(), rendering.trace.empty() ? Lines{} : Lines{rendering.trace});
}

TEST_P(ShownFrame, IsTheSameLineAtEveryLevel) {
  CreateSAT_ProtLogFile();
  const Rendering& rendering = GetParam();
  std::string lines;
  for (const unsigned level : kLevels) {
    SCOPED_TRACE(level);
    log_up_to(level);
    log(rendering.bytes, rendering.received);
    lines += "20200727031507 " + rendering.line;
    EXPECT_EQ(read_file(kToday), lines);
  }
}

INSTANTIATE_TEST_SUITE_P(All, ShownFrame, testing::ValuesIn(kRenderings),
                         [](const auto& tested) { return std::string(tested.param.name); });

// What an empty text and an ETX alone look like is nobody's promise; they are one line and harmless.
TEST_F(ProtocolLog, ShowsTextsWithoutAFrameHarmlessly) {
  CreateSAT_ProtLogFile();
  log("\0\0\0"s, kSent);
  log("\0\0\0"s, kReceived);
  log("\x03\0\0\0"s, kSent);
  log("\x03\0\0\0"s, kReceived);
  const std::string text = read_file(kToday);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4);
  EXPECT_EQ(text.find('\0'), std::string::npos);
}

TEST_F(ProtocolLog, ClassificationIsTracedForFramesWithStxOnlyAndOnlyAtItsLevel) {
  CreateSAT_ProtLogFile();
  log_up_to(kError);
  take_lines();
  log("\x02"s
      "A|1\xEE\x03\0"s,
      kSent);
  log_up_to(kWarning);
  log("A|1\0\0\0"s, kReceived);
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(ProtocolLog, ALineLongerThanTheScratchBufferIsCutWithItsLineFeedKept) {
  CreateSAT_ProtLogFile();
  const std::string text(kPacketBufferSize + 1000000, 'x');
  log(text + "\0\0\0"s, kReceived);
  const std::string line = read_file(kToday);
  EXPECT_EQ(line.size(), kPacketBufferSize - 1);
  EXPECT_EQ(line.substr(0, 32), "20200727031507 SAT->PC << [<02>x");
  EXPECT_EQ(line.substr(line.size() - 3), "xx\n");
}

TEST_F(ProtocolLog, TheLongestLineThatFitsIsNotCut) {
  CreateSAT_ProtLogFile();
  const std::string head = "20200727031507 SAT->PC << [<02>";
  const std::string tail = "<--><03>]WR:d\n";
  const std::string text(kPacketBufferSize - 1 - head.size() - tail.size(), 'x');
  log(text + "\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), head + text + tail);
}

TEST_F(ProtocolLog, AnAbsentTextIsTracedAndNothingWritten) {
  CreateSAT_ProtLogFile();
  take_lines();
  LogSATProtocolMsg(nullptr, kSent);
  LogSATProtocolMsg(nullptr, kReceived);
  const std::string line = message_line("All WR:pText=NUL\nL");
  EXPECT_THAT(take_lines(), ElementsAre(line, line));
  EXPECT_EQ(read_file(kToday), "");
  LogSATProtocolSzCtl();
  EXPECT_NE(gl_iFd, 0) << "no line was logged";
}

TEST_F(ProtocolLog, WithoutMemoryIsTracedAndNothingWritten) {
  CreateSAT_ProtLogFile();
  take_lines();
  out_of_memory = true;
  log("\x02"s
      "A|1\xEE\x03\0"s,
      kSent);
  EXPECT_THAT(take_lines(), ElementsAre(message_line("All WR:calloc error iSatPkgLen[00000006]\n")));
  EXPECT_EQ(read_file(kToday), "");
}

// ---- Opening the file -------------------------------------------------------------------------------

TEST_F(ProtocolLog, FirstOpeningSetsThePathMakesTheDirectoryAndTheFile) {
  EXPECT_EQ(open_log_and_stdout(), "");
  EXPECT_THAT(take_lines(), ElementsAre(kUpdated, opened_line(kToday)));
  EXPECT_STREQ(gl_tSat.strSatProtLogFilePath, "Log");
  EXPECT_STREQ(gl_tSat.strSatProtLogFileName, kToday);
  EXPECT_EQ(read_file(kToday), "");
  EXPECT_GT(gl_iFd, 0);
}

TEST_F(ProtocolLog, FileIsForItsOwnerOnlyAndDirectoryToo) {
  const mode_t former = umask(0);
  CreateSAT_ProtLogFile();
  umask(former);
  struct stat status {};
  ASSERT_EQ(stat(kToday, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  ASSERT_EQ(stat("Log", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(ProtocolLog, FileIsWriteOnlyAppendingAndNotHandedToChildren) {
  CreateSAT_ProtLogFile();
  EXPECT_EQ(fcntl(gl_iFd, F_GETFL) & O_ACCMODE, O_WRONLY);
  EXPECT_NE(fcntl(gl_iFd, F_GETFL) & O_APPEND, 0);
  EXPECT_NE(fcntl(gl_iFd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(ProtocolLog, FileOfTheDayIsContinued) {
  std::filesystem::create_directory("Log");
  write_file(kToday, "before\n");
  CreateSAT_ProtLogFile();
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), "before\n20200727031507 SAT->PC << [<02>A<--><03>]WR:d\n");
}

TEST_F(ProtocolLog, OpenFileIsNotOpenedAgainAndSaysSoOnStandardOutput) {
  CreateSAT_ProtLogFile();
  take_lines();
  const int descriptor = gl_iFd;
  virtual_clock::set_local_time(2020, 7, 28, 0, 0, 0, 0);
  EXPECT_EQ(open_log_and_stdout(), printed("[] [../src/api/TALVEX] [CreateSAT_ProtLogFile]--- rc[-1101] "
                                           "gl_tSat.strSatProtLogFilePath[Log] gl_iFd[%08Xh]\n",
                                           static_cast<unsigned>(descriptor)));
  EXPECT_EQ(gl_iFd, descriptor);
  EXPECT_THAT(take_lines(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(kTomorrow));
}

TEST_F(ProtocolLog, DescriptorZeroIsNeverUsed) {
  const int standard_input = dup(0);
  close(0);
  CreateSAT_ProtLogFile();
  EXPECT_GT(gl_iFd, 0);
  EXPECT_EQ(fcntl(0, F_GETFD), -1);
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), "20200727031507 SAT->PC << [<02>A<--><03>]WR:d\n");
  dup2(standard_input, 0);
  close(standard_input);
}

TEST_F(ProtocolLog, WithLoggingOffOnlyThePathIsKeptInStep) {
  tLog.ucModeMask = 0;
  EXPECT_EQ(open_log_and_stdout(), "");
  EXPECT_THAT(take_lines(), ElementsAre(kUpdated));
  EXPECT_STREQ(gl_tSat.strSatProtLogFilePath, "Log");
  EXPECT_EQ(gl_iFd, 0);
  EXPECT_FALSE(std::filesystem::exists("Log"));
}

TEST_F(ProtocolLog, PathFollowsTheTraceLogsPath) {
  CreateSAT_ProtLogFile();
  take_lines();
  tLog.ucModeMask = 0;
  set_path("logs/sat");
  CreateSAT_ProtLogFile();
  CreateSAT_ProtLogFile();
  EXPECT_THAT(take_lines(),
              ElementsAre(create_line("WRN", "---  gl_tSat.strSatProtLogFilePath[logs/sat]UPDATED\n")));
  set_path("Log");
  CreateSAT_ProtLogFile();
  CreateSAT_ProtLogFile();
  EXPECT_THAT(take_lines(), ElementsAre(kUpdated));
  EXPECT_STREQ(gl_tSat.strSatProtLogFilePath, "Log");
}

TEST_F(ProtocolLog, AnEmptyTraceLogPathMeansLog) {
  set_path("");
  CreateSAT_ProtLogFile();
  EXPECT_THAT(take_lines(), ElementsAre(kUpdated, opened_line(kToday)));
  EXPECT_TRUE(std::filesystem::exists(kToday));
}

TEST_F(ProtocolLog, AnAbsolutePathIsUsedAsItIs) {
  const std::string path = (std::filesystem::current_path() / "elsewhere").string();
  set_path(path);
  CreateSAT_ProtLogFile();
  EXPECT_TRUE(std::filesystem::exists(path + "/20200727_SAT_ProtocolLog.txt"));
}

TEST_F(ProtocolLog, AnExistingDirectoryIsUsed) {
  std::filesystem::create_directories("a/b");
  set_path("a/b");
  CreateSAT_ProtLogFile();
  EXPECT_TRUE(std::filesystem::exists("a/b/20200727_SAT_ProtocolLog.txt"));
}

TEST_F(ProtocolLog, ADirectoryThatCannotBeMadeIsReportedTwice) {
  write_file("Log", "in the way");
  EXPECT_EQ(
      open_log_and_stdout(),
      "[] [../src/api/TALVEX] [CreateSAT_ProtLogFile]--- rc[-1101]ER gl_tSat.strSatProtLogFilePath[Log]\n");
  EXPECT_THAT(
      take_lines(),
      ElementsAre(kUpdated, create_line("ERR", "---   rc[-01101]ER: dir[Log]Not Created!!!!!!!!!\n")));
  EXPECT_EQ(gl_iFd, 0);
  EXPECT_EQ(read_file("Log"), "in the way");
}

TEST_F(ProtocolLog, ADirectoryWithoutItsParentIsReported) {
  set_path("no/parent");
  EXPECT_EQ(open_log_and_stdout(),
            "[] [../src/api/TALVEX] [CreateSAT_ProtLogFile]--- rc[-1101]ER "
            "gl_tSat.strSatProtLogFilePath[no/parent]\n");
  EXPECT_EQ(gl_iFd, 0);
}

const std::string kNotOpened = create_line(
    "ERR",
    "---   rc[-01102]ER:logFd[FFFFFFFFh]=NULL or -1 pcLogName[Log/20200727_SAT_ProtocolLog.txt]File Not Created\n");

TEST_F(ProtocolLog, AFailedOpenLeavesMinusOneWhichCountsAsOpen) {
  std::filesystem::create_directories(kToday);
  EXPECT_EQ(open_log_and_stdout(), "");
  EXPECT_THAT(take_lines(), ElementsAre(kUpdated, kNotOpened));
  EXPECT_EQ(gl_iFd, -1);

  EXPECT_EQ(open_log_and_stdout(),
            "[] [../src/api/TALVEX] [CreateSAT_ProtLogFile]--- rc[-1101] gl_tSat.strSatProtLogFilePath[Log] "
            "gl_iFd[FFFFFFFFh]\n");
  log("A\0\0\0"s, kReceived);
  EXPECT_THAT(take_lines(), IsEmpty());
  EXPECT_EQ(gl_iFd, -1);

  std::filesystem::remove(kToday);
  LogSATProtocolSzCtl();
  EXPECT_EQ(gl_iFd, 0);
  log("B\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), "20200727031507 SAT->PC << [<02>B<--><03>]WR:d\n");
}

TEST_F(ProtocolLog, AFifoInThePlaceOfTheFileIsAFailedOpenAndNoWait) {
  std::filesystem::create_directory("Log");
  ASSERT_EQ(mkfifo(kToday, 0600), 0);
  CreateSAT_ProtLogFile();
  EXPECT_EQ(gl_iFd, -1);
}

TEST_F(ProtocolLog, AFullDiskLosesTheLineAndNothingElse) {
  CreateSAT_ProtLogFile();
  EXPECT_GT(gl_iFd, 0);
  take_lines();
  {
    const FullDisk disk;
    log("A\0\0\0"s, kReceived);
  }
  EXPECT_THAT(take_lines(), IsEmpty());
  EXPECT_EQ(read_file(kToday), "");
  log("A\0\0\0"s, kReceived);
  EXPECT_NE(read_file(kToday), "");
}

TEST_F(ProtocolLog, ALinkInThePlaceOfTheFileLeadsNowhere) {
  std::filesystem::create_directory("Log");
  write_file("precious", "kept");
  ASSERT_EQ(symlink("../precious", kToday), 0);
  CreateSAT_ProtLogFile();
  EXPECT_EQ(gl_iFd, -1);
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file("precious"), "kept");
}

// The longest path that the trace log's settings hold.
TEST_F(ProtocolLog, ALongPathIsTheTraceLogsWhole) {
  std::string path;
  while (path.size() + 100 < sizeof tLog.strLogFilePath) path += std::string(99, 'd') + "/";
  path.resize(sizeof tLog.strLogFilePath - 1, 'e');
  std::filesystem::create_directories(path);
  set_path(path);
  log_up_to(kInfo);
  CreateSAT_ProtLogFile();
  EXPECT_EQ(gl_tSat.strSatProtLogFilePath, path);
  const std::string name = path + "/20200727_SAT_ProtocolLog.txt";
  EXPECT_EQ(gl_tSat.strSatProtLogFileName, name);
  EXPECT_TRUE(std::filesystem::exists(name));
  EXPECT_THAT(take_lines(),
              ElementsAre(create_line("WRN", "---  gl_tSat.strSatProtLogFilePath[" + path + "]UPDATED\n"),
                          opened_line(name)));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1) << "no directory of a cut name";
}

// ---- A frame while no file is open ------------------------------------------------------------------

const std::string kShown = "20200727031507 SAT->PC << [<02>A<--><03>]WR:d\n";
std::string opening_line(int length, const std::string& shown) {
  return message_line("All ER:gl_iFd[00000000h]=NULL\n\t Msg[" + printed("%06d:", length) + shown +
                      "] Trying to Open NOw\n");
}

TEST_F(ProtocolLog, AFrameOpensTheClosedFile) {
  log("A\0\0\0"s, kReceived);
  EXPECT_THAT(take_lines(), ElementsAre(opening_line(46, kShown), kUpdated, opened_line(kToday)));
  EXPECT_EQ(read_file(kToday), kShown);
}

TEST_F(ProtocolLog, WithLoggingOffAFrameIsTracedTwiceAndDropped) {
  tLog.ucModeMask = 0;
  log("A\0\0\0"s, kReceived);
  EXPECT_THAT(take_lines(),
              ElementsAre(opening_line(46, kShown), kUpdated,
                          message_line("All ER:gl_iFd[00000000h]=NULL\n\t Msg[000046:" + kShown + "]\n")));
  EXPECT_FALSE(std::filesystem::exists("Log"));
}

TEST_F(ProtocolLog, WithLoggingOffAndNoListenerAFrameLeavesNoFileAndNoDirectory) {
  tLog.ucModeMask = 0;
  log_up_to(0);
  log("A\0\0\0"s, kReceived);
  EXPECT_TRUE(std::filesystem::is_empty("."));
  gl_iFd = open_log_file("/dev/null", 0600);
  LogSATProtocolSzCtl();
  EXPECT_EQ(gl_iFd, 0) << "a line was logged";
}

TEST_F(ProtocolLog, WithLoggingOffAFrameIsTracedForAHostThatLogsWarnings) {
  tLog.ucModeMask = 0;
  log_up_to(kWarning);
  log("A\0\0\0"s, kReceived);
  EXPECT_THAT(take_lines(),
              ElementsAre(opening_line(46, kShown), kUpdated,
                          message_line("All ER:gl_iFd[00000000h]=NULL\n\t Msg[000046:" + kShown + "]\n")));
}

TEST_F(ProtocolLog, WithLoggingOffAFileLeftOpenStillTakesTheLine) {
  CreateSAT_ProtLogFile();
  tLog.ucModeMask = 0;
  log_up_to(0);
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), kShown);
}

void block_the_first_attempt() {
  write_file("Log", "in the way");
  after_create_dir = [] {
    after_create_dir = nullptr;
    std::filesystem::remove("Log");
  };
}

TEST_F(ProtocolLog, ASecondAttemptOpensTheFileForTheNextLineAtEveryLevel) {
  for (const unsigned level : kLevels) {
    SCOPED_TRACE(level);
    log_up_to(level);
    block_the_first_attempt();
    testing::internal::CaptureStdout();
    log("A\0\0\0"s, kReceived);
    std::fflush(stdout);
    EXPECT_EQ(without_source_line(testing::internal::GetCapturedStdout()),
              "[] [../src/api/TALVEX] [CreateSAT_ProtLogFile]--- rc[-1101]ER "
              "gl_tSat.strSatProtLogFilePath[Log]\n");
    EXPECT_GT(gl_iFd, 0);
    EXPECT_EQ(read_file(kToday), "");
    log("A\0\0\0"s, kReceived);
    EXPECT_EQ(read_file(kToday), kShown);
    close_protocol_log();
    std::filesystem::remove_all("Log");
  }
}

TEST_F(ProtocolLog, ASecondAttemptsSuccessComesTooLateForTheLine) {
  block_the_first_attempt();
  testing::internal::CaptureStdout();
  log("A\0\0\0"s, kReceived);
  testing::internal::GetCapturedStdout();
  EXPECT_GT(gl_iFd, 0);
  EXPECT_THAT(
      take_lines(),
      ElementsAre(
          opening_line(46, kShown), kUpdated,
          create_line("ERR", "---   rc[-01101]ER: dir[Log]Not Created!!!!!!!!!\n"), opened_line(kToday),
          message_line(printed("All ER:gl_iFd[%08Xh]=NULL\n\t Msg[000046:", static_cast<unsigned>(gl_iFd)) +
                       kShown + "]\n")));
  EXPECT_EQ(read_file(kToday), "");
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), kShown);
}

TEST_F(ProtocolLog, AFrameWhoseFileCannotBeOpenedIsLostAfterOneAttempt) {
  std::filesystem::create_directories(kToday);
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(gl_iFd, -1);
  EXPECT_THAT(take_lines(), ElementsAre(opening_line(46, kShown), kUpdated, kNotOpened));
}

// ---- Size control and change of day -----------------------------------------------------------------

TEST_F(ProtocolLog, SizeControlClosesTheFileOnceALineWasComposed) {
  CreateSAT_ProtLogFile();
  const int descriptor = gl_iFd;
  LogSATProtocolSzCtl();
  EXPECT_EQ(gl_iFd, descriptor);
  log("A\0\0\0"s, kReceived);
  LogSATProtocolSzCtl();
  EXPECT_EQ(gl_iFd, 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  LogSATProtocolSzCtl();
  EXPECT_EQ(gl_iFd, 0);
}

// A host that becomes a daemon closes all descriptors, and opens its own files under their numbers.
class DaemonsLog : public ProtocolLog {
 protected:
  DaemonsLog() {
    CreateSAT_ProtLogFile();
    log("A\0\0\0"s, kReceived);
    descriptor_ = gl_iFd;
    length_ = read_file(kToday).size();
    close(descriptor_);
  }
  ~DaemonsLog() override { close(descriptor_); }

  void open_own_file() {
    const int own = open("own", O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (own != descriptor_) {
      EXPECT_EQ(dup2(own, descriptor_), descriptor_);
      close(own);
    }
  }
  void expect_own_file_untouched() const {
    EXPECT_NE(fcntl(descriptor_, F_GETFD), -1);
    EXPECT_EQ(read_file("own"), "");
  }
  std::string logged_since() const { return read_file(kToday).substr(length_); }

 private:
  int descriptor_;
  std::size_t length_;
};

TEST_F(DaemonsLog, IsOpenedAnewBesideItsOwnFile) {
  open_own_file();
  log("B\0\0\0"s, kReceived);
  EXPECT_THAT(logged_since(), HasSubstr("<02>B"));
  expect_own_file_untouched();
}

TEST_F(DaemonsLog, IsOpenedAnewWhereNothingTookItsPlace) {
  log("B\0\0\0"s, kReceived);
  EXPECT_THAT(logged_since(), HasSubstr("<02>B"));
}

TEST_F(DaemonsLog, IsAllThatSizeControlAndUnloadingClose) {
  open_own_file();
  const int descriptor = gl_iFd;
  LogSATProtocolSzCtl();
  EXPECT_EQ(gl_iFd, 0);
  gl_iFd = descriptor;
  close_protocol_log();
  EXPECT_EQ(gl_iFd, 0);
  expect_own_file_untouched();
}

TEST_F(ProtocolLog, SizeControlGivesAMaximumSizeOfZeroItsDefault) {
  tLog.iLogFileMaxSize = 0;
  LogSATProtocolSzCtl();
  EXPECT_EQ(tLog.iLogFileMaxSize, 0);
  log("A\0\0\0"s, kReceived);
  LogSATProtocolSzCtl();
  EXPECT_EQ(tLog.iLogFileMaxSize, 800000);
}

TEST_F(ProtocolLog, SizeControlLeavesANegativeMaximumSizeAlone) {
  tLog.iLogFileMaxSize = -5;
  log("A\0\0\0"s, kReceived);
  LogSATProtocolSzCtl();
  EXPECT_EQ(tLog.iLogFileMaxSize, -5);
}

TEST_F(ProtocolLog, AFileAboveThreeTimesTheLimitStaysInPlaceAndKeepsGrowing) {
  tLog.iLogFileMaxSize = 10;
  log_up_to(0);
  std::filesystem::create_directory("Log");
  write_file(kToday, std::string(31, '.'));
  log("A\0\0\0"s, kReceived);
  LogSATProtocolSzCtl();
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), std::string(31, '.') + kShown + kShown);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("Log"), {}), 1);
}

TEST_F(ProtocolLog, ADayChangeBetweenTwoCallsMovesToTheNewDaysFile) {
  write_file("SAT.ini", "[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS0\n[LOG]\nLogFilePath=Log\nLogMode=1\n");
  virtual_clock::set_local_time(2020, 7, 27, 23, 59, 58, 0);
  init_global_sat_struct();
  CreateSAT_ProtLogFile();
  log("A\0\0\0"s, kReceived);
  virtual_clock::advance_ms(2000);
  log("B\0\0\0"s, kReceived);  // still the first call
  init_global_sat_struct();
  CreateSAT_ProtLogFile();
  log("C\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday),
            "20200727235958 SAT->PC << [<02>A<--><03>]WR:d\n20200728000000 SAT->PC << [<02>B<--><03>]WR:d\n");
  EXPECT_EQ(read_file(kTomorrow), "20200728000000 SAT->PC << [<02>C<--><03>]WR:d\n");
}

TEST_F(ProtocolLog, AFileWithoutALineIsNotClosedAndTakesTheNextDaysFirstLine) {
  write_file("SAT.ini", "[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS0\n[LOG]\nLogFilePath=Log\nLogMode=1\n");
  init_global_sat_struct();
  CreateSAT_ProtLogFile();
  virtual_clock::set_local_time(2020, 7, 28, 1, 0, 0, 0);
  init_global_sat_struct();
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), "20200728010000 SAT->PC << [<02>A<--><03>]WR:d\n");
  EXPECT_FALSE(std::filesystem::exists(kTomorrow));
}

// A host may change its time zone between two calls; each begins with CreateSAT_ProtLogFile.
TEST_F(ProtocolLog, DatesAndTimesAreThoseOfTheCallsTimeZone) {
  virtual_clock::set_local_time(2020, 7, 28, 1, 30, 0, 0);
  CreateSAT_ProtLogFile();
  log("A\0\0\0"s, kReceived);
  setenv("TZ", "BRT3", 1);
  LogSATProtocolSzCtl();
  CreateSAT_ProtLogFile();
  log("B\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kTomorrow), "20200728013000 SAT->PC << [<02>A<--><03>]WR:d\n");
  EXPECT_EQ(read_file(kToday), "20200727223000 SAT->PC << [<02>B<--><03>]WR:d\n");
}

TEST_F(ProtocolLog, TimesAreThoseOfTheCallsTimeZoneInAFileLeftOpenToo) {
  CreateSAT_ProtLogFile();
  setenv("TZ", "BRT3", 1);
  open_log_and_stdout();
  log("A\0\0\0"s, kReceived);
  EXPECT_EQ(read_file(kToday), "20200727001507 SAT->PC << [<02>A<--><03>]WR:d\n");
}

// ---- The size-control loop --------------------------------------------------------------------------

// Runs the loop, which never returns, for so many of its one-second pauses. The seconds after which the
// size control ran are those where it has closed the protocol log again.
class SizeControlLoop : public ProtocolLog {
 protected:
  static std::vector<int> seconds_of_size_control(int seconds,
                                                  const std::function<void(int)>& at_second = {}) {
    static std::jmp_buf out;
    static std::vector<int> found;
    static int second;
    found.clear();
    second = 0;
    leave_a_line_open();
    on_pause = [seconds, at_second] {
      ++second;
      if (gl_iFd == 0) {
        found.push_back(second - 1);
        leave_a_line_open();
      }
      if (at_second) at_second(second);
      if (second > seconds) std::longjmp(out, 1);
    };
    if (setjmp(out) == 0) LogSzCtlTherad();
    on_pause = nullptr;
    return found;
  }

  static void leave_a_line_open() {
    gl_iFd = open_log_file("/dev/null", 0600);
    LogSATProtocolMsg("x\0", kReceived);
  }

  static void run_command(const char* name) { copy_text(gl_tSat.CurSatCmdInProc, name); }
};

std::string loop_line(const std::string& text) {
  return "WRN [] ../src/api/TALVEX LogSzCtlTherad " + text;
}

TEST_F(SizeControlLoop, RunsEveryFiveSeconds) {
  const int64_t start = virtual_clock::monotonic_ms();
  EXPECT_THAT(seconds_of_size_control(21), ElementsAre(5, 10, 15, 20));
  EXPECT_EQ(virtual_clock::monotonic_ms() - start, 22000);
  EXPECT_THAT(take_lines(), ElementsAre(loop_line("Entering hT[00000000h]\n")));
}

TEST_F(SizeControlLoop, RunsTheTraceLogsControlToo) {
  tLog.iLogFileMaxSize = 10;
  copy_text(tLog.strLogFileName, "SAT_api.log");
  log_up_to(0);
  write_file("20200727_SAT_api.log", std::string(11, '.'));
  seconds_of_size_control(5);
  EXPECT_EQ(read_file("20200727_SAT_api.log_bkp_00.log"), std::string(11, '.'));
}

TEST_F(SizeControlLoop, IsHeldBackForNineteenCyclesDuringALongCommandOnAnOpenPort) {
  gl_hComm = 5;
  run_command("EnviarDadosVenda");
  EXPECT_THAT(seconds_of_size_control(299), ElementsAre(100, 200));
  EXPECT_THAT(
      take_lines(),
      ElementsAre(
          loop_line("Entering hT[00000000h]\n"),
          loop_line("hT[00000000h] i[20] CurSatCmdInProc[EnviarDadosVenda]Running for Long Time!!!\n"),
          loop_line("hT[00000000h] i[20] CurSatCmdInProc[EnviarDadosVenda]Running for Long Time!!!\n")));
}

TEST_F(SizeControlLoop, StartsCountingAnewAfterACommandHasEnded) {
  gl_hComm = 5;
  run_command("ExtrairLogs");
  EXPECT_THAT(seconds_of_size_control(160,
                                      [](int second) {
                                        if (second == 52) run_command("ConsultarSAT");
                                        if (second == 57) run_command("ExtrairLogs");
                                      }),
              ElementsAre(55, 155));
}

TEST_F(SizeControlLoop, CountsOverAChangeFromOneLongCommandToAnother) {
  gl_hComm = 5;
  run_command("ExtrairLogs");
  EXPECT_THAT(seconds_of_size_control(101,
                                      [](int second) {
                                        if (second == 52) run_command("AtivarSAT");
                                      }),
              ElementsAre(100));
  EXPECT_THAT(
      with_text(take_lines(), "Long Time"),
      ElementsAre(loop_line("hT[00000000h] i[20] CurSatCmdInProc[AtivarSAT]Running for Long Time!!!\n")));
}

TEST_F(SizeControlLoop, IsHeldBackForEveryHandleButZeroAndMinusOne) {
  run_command("ExtrairLogs");
  gl_hComm = -2;
  EXPECT_THAT(seconds_of_size_control(99), IsEmpty());
}

struct LoopCommand {
  const char* name;
  bool is_long;
};
void PrintTo(const LoopCommand& tested, std::ostream* out) {
  *out << tested.name;
}
class CommandInLoop : public SizeControlLoop, public testing::WithParamInterface<LoopCommand> {};

TEST_P(CommandInLoop, IsLongOrNot) {
  const auto& [name, is_long] = GetParam();
  run_command(name);
  gl_hComm = 1;
  const std::vector<int> seconds = is_long ? std::vector<int>{} : std::vector<int>{5};
  EXPECT_EQ(seconds_of_size_control(6), seconds);
  for (const int closed : {0, -1}) {
    gl_hComm = closed;
    EXPECT_THAT(seconds_of_size_control(6), ElementsAre(5));
  }
}
INSTANTIATE_TEST_SUITE_P(
    All, CommandInLoop,
    testing::Values(LoopCommand{"AtivarSAT", true}, LoopCommand{"ComunicarCertificadoICPBRASIL", false},
                    LoopCommand{"EnviarDadosVenda", true}, LoopCommand{"CancelarUltimaVenda", true},
                    LoopCommand{"ConsultarSAT", false}, LoopCommand{"TesteFimAFim", true},
                    LoopCommand{"ConsultarStatusOperacional", false},
                    LoopCommand{"ConsultarNumeroSessao", false},
                    LoopCommand{"ConfigurarInterfaceDeRede", false}, LoopCommand{"AssociarAssinatura", false},
                    LoopCommand{"AtualizarSoftwareSAT", true}, LoopCommand{"ExtrairLogs", true},
                    LoopCommand{"BloquearSAT", false}, LoopCommand{"DesbloquearSAT", false},
                    LoopCommand{"TrocarCodigoDeAtivacao", false},
                    LoopCommand{"ConsultarUltimaSessaoFiscal", false}, LoopCommand{"VersaoDllTalvex", false},
                    LoopCommand{"AtivarSA", false}, LoopCommand{"AtivarSATx", false},
                    LoopCommand{"None", false}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(ProtocolLog, TheHostsHandleStartsClosed) {
  EXPECT_EQ(gl_hComm, -1);
}

}  // namespace
