// Reader and writer of INI files: every rule by name, every message whole, and both compared with a model
// on many small random files.
#include "olk_utils/ini_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "olk_utils/trace_log.h"
#include "support/file_status.h"
#include "support/full_disk.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"
#include "support/write_calls.h"

// The engine's system calls pass through here, so that a test can let memory fail or the file change
// between two of them.
namespace {
bool calloc_fails = false;
std::function<void()> before_open;
std::function<void()> after_seek;
bool reads_fail = false;
}  // namespace

extern "C" {
void* __real_calloc(size_t count, size_t size);
int __real_open(const char* name, int flags, mode_t mode);
off_t __real_lseek(int descriptor, off_t offset, int whence);
ssize_t __real_read(int descriptor, void* buffer, size_t size);

void* __wrap_calloc(size_t count, size_t size);
int __wrap_open(const char* name, int flags, mode_t mode);
off_t __wrap_lseek(int descriptor, off_t offset, int whence);
ssize_t __wrap_read(int descriptor, void* buffer, size_t size);

void* __wrap_calloc(size_t count, size_t size) {
  return calloc_fails ? nullptr : __real_calloc(count, size);
}

int __wrap_open(const char* name, int flags, mode_t mode) {
  if (before_open) std::exchange(before_open, nullptr)();
  return __real_open(name, flags, mode);
}

off_t __wrap_lseek(int descriptor, off_t offset, int whence) {
  const off_t result = __real_lseek(descriptor, offset, whence);
  if (after_seek) std::exchange(after_seek, nullptr)();
  return result;
}

// A medium that fails behind the first bytes, and a signal in front of them.
ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  static int failing_calls = 0;
  if (!reads_fail) return __real_read(descriptor, buffer, size);
  const int call = failing_calls++ % 3;
  if (call == 1) return __real_read(descriptor, buffer, size < 8 ? size : 8);
  errno = call == 0 ? EINTR : EIO;
  return -1;
}
}

namespace {

using std::string;
using namespace std::string_literals;

constexpr char kIni[] = "x.ini";
constexpr char kLog[] = "olk_utils.log";

// Everything but debug lines is logged, into the scratch directory.
class IniFile : public testing::Test {
 protected:
  void SetUp() override {
    bTraceLogsEnabled = 1;
    alarm(100);
  }
  void TearDown() override {
    alarm(0);
    bTraceLogsEnabled = 0;
    calloc_fails = false;
    reads_fail = false;
    before_open = nullptr;
    after_seek = nullptr;
  }

  ScratchDirectory scratch_;
};

struct Reading {
  int code;
  string value;
  bool operator==(const Reading&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Reading& reading) {
  return out << reading.code << " [" << reading.value << "]";
}

Reading get(const string& section, const string& item, const char* file = kIni) {
  std::array<char, 128> value{};
  const int code = OLK_GetIniFileValue(file, section.c_str(), item.c_str(), value.data());
  return {code, value.data()};
}

Reading get_from(const string& content, const string& section, const string& item) {
  write_file(kIni, content);
  return get(section, item);
}

struct Setting {
  int code;
  string content;
  bool operator==(const Setting&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Setting& setting) {
  return out << setting.code << " " << testing::PrintToString(setting.content);
}

Setting set_in(const string& content, const char* section, const char* item, const char* value) {
  write_file(kIni, content);
  const int code = OLK_SetIniFileValue(kIni, section, item, value);
  return {code, read_file(kIni)};
}

using Messages = std::vector<string>;

Messages messages() {
  return trace_messages(kLog);
}

string hex(const void* address) {
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), "%08Xh", hex32(address));
  return text.data();
}

// File permissions do not bind root; they bind the account "nobody".
class WithoutPrivileges {
 public:
  WithoutPrivileges() {
    if (geteuid() != 0) return;
    if (chmod(".", 0777) != 0 || seteuid(65534) != 0) ADD_FAILURE() << "cannot drop privileges";
    dropped_ = true;
  }
  ~WithoutPrivileges() {
    if (dropped_ && seteuid(0) != 0) abort();
  }
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

 private:
  bool dropped_ = false;
};

void chmod_or_fail(const char* name, mode_t mode) {
  ASSERT_EQ(chmod(name, mode), 0);
}

constexpr char kDefaultFile[] =
    "# [LOG] settings of the log\n[LOG]\nLogFilePath=Log\nLogFileName=\nLogFileMaxSize=1300000\nLogMode=1\n"
    "\n[SAT_EMULATOR]\nEnable=0\nSerialPort=/dev/ttyS9\n\n[SAT_TIMEOUT]\n"
    "AtivarSAT                     =1800\n";

// ---- reading ----

TEST_F(IniFile, FirstTextualHeaderCountsEvenInAComment) {
  EXPECT_EQ(get_from("# [LOG] Mode=7\n[LOG]\nMode=1\n", "LOG", "Mode"), (Reading{0, "7"}));
  EXPECT_EQ(get_from("# [LOG] see below\n[LOG]\nMode=1\n", "LOG", "Mode").code, -305)
      << "the search ends at the real header's bracket";
  EXPECT_EQ(get_from("a=[S]k=1\n[S]\nk=2\n", "S", "k"), (Reading{0, "1"})) << "inside a value";
}

TEST_F(IniFile, HeadersAndItemsAreCaseSensitive) {
  EXPECT_EQ(get_from("[log]\nk=1\n", "LOG", "k").code, -304);
  EXPECT_EQ(get_from("[LOG]\nK=1\n", "LOG", "k").code, -305);
}

TEST_F(IniFile, ItemMatchesAsASubstring) {
  EXPECT_EQ(get_from("[S]\nXEnable=1\nEnable=2\n", "S", "Enable"), (Reading{0, "1"}));
  EXPECT_EQ(get_from("[S]Enable=3\n", "S", "Enable"), (Reading{0, "3"})) << "directly behind the header";
}

TEST_F(IniFile, LogFileMatchesLogFilePath) {
  write_file(kIni, "[LOG]\nLogFilePath=Log\n");
  EXPECT_EQ(get("LOG", "LogFile"), (Reading{0, "PathLog"}));
}

TEST_F(IniFile, EmulatorIsOffInTheDefaultFile) {
  EXPECT_EQ(get_from(kDefaultFile, "SAT_EMULATOR", "Enable"), (Reading{0, "0"}));
}

TEST_F(IniFile, PaddedItemReadsItsNumber) {
  EXPECT_EQ(get_from(kDefaultFile, "SAT_TIMEOUT", "AtivarSAT"), (Reading{0, "1800"}));
}

TEST_F(IniFile, EqualSignsAndBlanksAreDroppedEverywhere) {
  EXPECT_EQ(get_from("[S]\nX= a b \n", "S", "X"), (Reading{0, "ab"}));
  EXPECT_EQ(get_from("[S]\nKey = a b=c\n", "S", "Key"), (Reading{0, "abc"}));
  EXPECT_EQ(get_from("[S]\nX=\ta\tb\t\n", "S", "X"), (Reading{0, "\ta\tb\t"})) << "tabs stay";
}

TEST_F(IniFile, ItemOfTheNextSectionIsNotFound) {
  EXPECT_EQ(get_from("[A]\nx=1\n[B]\ny=2\n", "A", "y").code, -305);
  EXPECT_EQ(get_from("[A]\nx=a[b\ny=2\n", "A", "y").code, -305) << "any bracket ends the section";
}

TEST_F(IniFile, CommentSignHasNoMeaning) {
  EXPECT_EQ(get_from("[A]\n#x=1\nx=2\n", "A", "x"), (Reading{0, "1"}));
}

TEST_F(IniFile, MissingFileGivesItsLineWithoutTheSize) {
  std::array<char, 128> value{"before"};
  EXPECT_EQ(OLK_GetIniFileValue(kIni, "S", "K", value.data()), -301);
  EXPECT_STREQ(value.data(), "before") << "cleared only once the file is known to exist";
  EXPECT_EQ(
      messages(),
      (Messages{"WRN [] OLK_FileExist rc[-00001]WR pFileName[x.ini] NOT FOUND!!\n",
                "ERR [] OLK_GetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND \n\t pIniFileName[x.ini] "
                "\n\t     pSession[S] \n\t        pItem[K] \n\t    pRetValue[before]\n"}));
}

TEST_F(IniFile, UnterminatedValueBufferIsNotReadBeyondItsEnd) {
  std::array<char, 129> value;
  value.fill('v');
  value[128] = '\0';
  EXPECT_EQ(OLK_GetIniFileValue(kIni, "S", "K", value.data()), -301);
  EXPECT_NE(messages().at(1).find("pRetValue[" + string(127, 'v') + "]"), string::npos);
}

TEST_F(IniFile, EmptyFileGivesTheLineWithTheSize) {
  write_file(kIni, "");
  std::array<char, 128> value{"before"};
  EXPECT_EQ(OLK_GetIniFileValue(kIni, "S", "K", value.data()), -301);
  EXPECT_STREQ(value.data(), "");
  EXPECT_EQ(
      messages(),
      (Messages{"ERR [] OLK_GetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND \n\t pIniFileName[x.ini] "
                "\n\t     pSession[S] \n\t        pItem[K] \n\t    pRetValue[]\n\t sztFileSize[0]=0\n"}));
}

TEST_F(IniFile, ReaderRefusesEachNullPointer) {
  write_file(kIni, "[S]\nK=V\n");
  std::array<char, 128> value{"before"};
  struct Arguments {
    const char* file;
    const char* section;
    const char* item;
    char* value;
  };
  const std::array<Arguments, 4> cases = {{{nullptr, "S", "K", value.data()},
                                           {kIni, nullptr, "K", value.data()},
                                           {kIni, "S", nullptr, value.data()},
                                           {kIni, "S", "K", nullptr}}};
  Messages expected;
  for (const Arguments& arguments : cases) {
    EXPECT_EQ(OLK_GetIniFileValue(arguments.file, arguments.section, arguments.item, arguments.value), -300);
    expected.push_back("ERR [] OLK_GetIniFileValue rc[-00300]ER:INI_FILE_ERR_INVALID_PARAM pIniFileName[" +
                       hex(arguments.file) + "] pSession[" + hex(arguments.section) + "] pItem[" +
                       hex(arguments.item) + "] pRetValue[" + hex(arguments.value) +
                       "] bSessionFound[0] bItemFound[0] bValueMatch[0]\n");
  }
  EXPECT_EQ(messages(), expected);
  EXPECT_STREQ(value.data(), "before");
}

TEST_F(IniFile, MissingMemoryFailsTheRead) {
  write_file(kIni, "[S]\nK=V\n");
  calloc_fails = true;
  EXPECT_EQ(get("S", "K").code, -302);
  calloc_fails = false;
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_GetIniFileValue rc[-00302]ER:INI_FILE_ERR_OPEN calloc() Fail\n\t "
                      "pIniFileName[x.ini] \n\t     pSession[S] \n\t        pItem[K] \n\t    pRetValue[] "
                      "sztFileSize[00008]\n"}));
}

TEST_F(IniFile, UnreadableFileFailsTheRead) {
  write_file(kIni, "[S]\nK=V\n");
  chmod_or_fail(kIni, 0);
  const WithoutPrivileges nobody;
  EXPECT_EQ(get("S", "K").code, -302);
  EXPECT_EQ(
      messages(),
      (Messages{"ERR [] OLK_GetIniFileValue rc[-00302]ER:INI_FILE_ERR_OPEN fopen() Fail\n\t "
                "pIniFileName[x.ini] \n\t     pSession[S] \n\t        pItem[K] \n\t    pRetValue[]\n"}));
}

TEST_F(IniFile, MissingSectionLine) {
  EXPECT_EQ(get_from("[T]\nK=V\n", "S", "K").code, -304);
  EXPECT_EQ(
      messages(),
      (Messages{"ERR [] OLK_GetIniFileValue rc[-00304]ER:INI_FILE_ERR_SESSION_NOT_FOUND Fail\n\t "
                "pIniFileName[x.ini] \n\t     pSession[S] \n\t        pItem[K] \n\t    pRetValue[]\n"}));
}

TEST_F(IniFile, MissingItemLine) {
  EXPECT_EQ(get_from("[S]\nK=V\n", "S", "Q").code, -305);
  EXPECT_EQ(
      messages(),
      (Messages{"ERR [] OLK_GetIniFileValue rc[-00305]ER:INI_FILE_ERR_ITEM_NOT_FOUND OLK_GetIniFileValue "
                "Fail\n\t pIniFileName[x.ini] \n\t pSession[S] \n\t        pItem[Q]ITEM NOT FOUND!!\n"}));
}

TEST_F(IniFile, FixarPortaIsSilentOnlyAsAMissingItem) {
  EXPECT_EQ(get_from("[S]\nK=V\n", "S", "FixarPorta").code, -305);
  EXPECT_EQ(messages(), Messages{});
  EXPECT_EQ(get_from("[S]\nK=V\n", "T", "FixarPorta").code, -304);
  EXPECT_EQ(get_from("", "S", "FixarPorta").code, -301);
  write_file(kIni, "[S]\n");
  calloc_fails = true;
  EXPECT_EQ(get("S", "FixarPorta").code, -302);
  calloc_fails = false;
  EXPECT_EQ(messages().size(), 3U);
  EXPECT_EQ(get_from("[S]\nK=V\n", "S", "FixarPorta2").code, -305);
  EXPECT_EQ(messages().size(), 4U);
}

TEST_F(IniFile, ValueEndsWithTheTextAndWithTheLine) {
  EXPECT_EQ(get_from("[S]\nK=V", "S", "K"), (Reading{0, "V"}));
  EXPECT_EQ(get_from("[S]\nK=V\n\nW", "S", "K"), (Reading{0, "V"}));
  EXPECT_EQ(get_from("[S]\nK=\n", "S", "K"), (Reading{0, ""}));
  EXPECT_EQ(get_from("[S]\nK", "S", "K"), (Reading{0, ""}));
  EXPECT_EQ(get_from("[S]\nK=V\0W\n"s, "S", "K"), (Reading{0, "V"})) << "text ends at a zero byte";
  EXPECT_EQ(get_from("a\0[S]\nK=V\n"s, "S", "K").code, -304);
}

TEST_F(IniFile, CarriageReturnsAtTheEndOfAValueAreRemoved) {
  EXPECT_EQ(get_from("[S]\r\nK=V\r\nL=W\r\n", "S", "K"), (Reading{0, "V"}));
  EXPECT_EQ(get_from("##########\n[S]\nK=V\r\r\nL=W\r\n", "S", "K"), (Reading{0, "V"}));
  EXPECT_EQ(get_from("##########\n[S]\nK=V\r =\r\n", "S", "K"), (Reading{0, "V"}));
}

TEST_F(IniFile, HeaderAtTheStartEndsAValueAtItsFirstCarriageReturn) {
  EXPECT_EQ(get_from("[S]\nK=V\rW\n", "S", "K"), (Reading{0, "V"}));
  EXPECT_EQ(get_from("#[S]\nK=V\rW\n", "S", "K"), (Reading{0, ""}))
      << "one byte further on: the carriage return behind V already ends the value in front of it";
  EXPECT_EQ(get_from("#########[S]\nK=V\rW\n", "S", "K"), (Reading{0, "V\rW"}));
}

TEST_F(IniFile, CarriageReturnFurtherOnEndsAValueEarly) {
  // The header lies 4 bytes into the file: 4 bytes behind "c" stands a carriage return, in another line.
  EXPECT_EQ(get_from("#ab\n[S]\nK=abcdef\n\r\n", "S", "K"), (Reading{0, "abc"}));
  EXPECT_EQ(get_from("#ab\n[S]\nK=abcdef\n\n", "S", "K"), (Reading{0, "abcdef"}));
}

TEST_F(IniFile, LookAheadSeesDroppedCharactersAndStopsAtTheEndOfTheFile) {
  EXPECT_EQ(get_from("##[S]\nK==a\rb\n", "S", "K"), (Reading{0, ""}))
      << "two bytes behind the second equal sign stands the carriage return";
  EXPECT_EQ(get_from("#####################[S]\nK=a\n\r", "S", "K"), (Reading{0, "a"}));
  EXPECT_EQ(get_from("##[S]\nK=abc\0\r"s, "S", "K"), (Reading{0, "ab"})) << "bytes behind the text count";
}

TEST_F(IniFile, EmptyItemNameIsFoundAtOnce) {
  EXPECT_EQ(get_from("[S]x=1\n", "S", ""), (Reading{0, "x1"}));
  EXPECT_EQ(get_from("[S]", "S", ""), (Reading{0, ""}));
  EXPECT_EQ(get_from("[S][T]", "S", "").code, -305);
}

TEST_F(IniFile, ValueOf127CharactersIsReadAndALongerOneIsAFailedRead) {
  EXPECT_EQ(get_from("[S]\nK=" + string(127, 'v') + "\r\n", "S", "K"), (Reading{0, string(127, 'v')}));
  EXPECT_EQ(messages(), Messages{});
  EXPECT_EQ(get_from("[S]\nK=" + string(128, 'v') + "\n", "S", "K"), (Reading{-302, ""}));
  EXPECT_EQ(messages(), (Messages{"ERR [] OLK_GetIniFileValue rc[-00302]ER:INI_FILE_ERR_OPEN value too long "
                                  "pIniFileName[x.ini] pSession[S] pItem[K] capacity[128]\n"}));
}

TEST_F(IniFile, ReaderHonoursEveryCapacity) {
  write_file(kIni, "[S]\nK=" + string(600, 'v') + "\nL=1234\n");
  for (size_t capacity = 1; capacity <= 8; ++capacity) {
    std::vector<char> value(capacity, 'x');  // a write behind it is a sanitizer's error
    const int code = read_ini_value(kIni, "S", "L", value.data(), capacity);
    EXPECT_EQ(code, capacity >= 5 ? 0 : -302);
    EXPECT_STREQ(value.data(), capacity >= 5 ? "1234" : "");
  }
  std::array<char, 1> untouched{'x'};
  EXPECT_EQ(read_ini_value(kIni, "S", "L", untouched.data(), 0), -300);
  EXPECT_EQ(untouched[0], 'x');
  std::array<char, 601> large{};
  EXPECT_EQ(read_ini_value(kIni, "S", "K", large.data(), large.size()), 0);
  EXPECT_EQ(read_ini_value(kIni, "S", "K", large.data(), 600), -302);
}

TEST_F(IniFile, NamesOfAnyLengthAreReadSafely) {
  const string section(5000, 's');
  const string item(5000, 'i');
  EXPECT_EQ(get_from("[" + section + "]\n" + item + "=1\n", section, item), (Reading{0, "1"}));
  EXPECT_EQ(get(section + "s", item).code, -304);
  EXPECT_EQ(get(section, item + "i").code, -305);
}

TEST_F(IniFile, NamesAreDataAndNeverFormats) {
  EXPECT_EQ(get_from("[%s%n]\n%d=%s%s\n", "%s%n", "%d"), (Reading{0, "%s%s"}));
  EXPECT_EQ(get("%n%n", "%s").code, -304);
  EXPECT_EQ(set_in("", "%s", "%n", "%d"), (Setting{4, "\n[%s]\n%n=%d\n"}));
}

TEST_F(IniFile, DirectoryInThePlaceOfTheFile) {
  std::filesystem::create_directory(kIni);
  write_file(string(kIni) + "/entry", "");
  const int code = get("S", "K").code;
  EXPECT_TRUE(code == -304 || code == -301) << code;  // file systems without a size for directories: -301
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "V"), -401);
  EXPECT_TRUE(std::filesystem::exists(string(kIni) + "/entry"));
}

TEST_F(IniFile, FifoInThePlaceOfTheFileDoesNotBlock) {
  ASSERT_EQ(mkfifo(kIni, 0600), 0);
  EXPECT_EQ(get("S", "K").code, -301);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "V"), -401);
}

TEST_F(IniFile, FileThatChangesWhileItIsReadIsSurvived) {
  const string content = "[S]\nK=V\n";
  write_file(kIni, content);
  before_open = [] { write_file(kIni, "[S]"); };
  EXPECT_EQ(get("S", "K").code, -305) << "shrunk";
  write_file(kIni, content);
  before_open = [&] { write_file(kIni, "[S]\nK=" + string(100000, 'v') + "\n"); };
  EXPECT_EQ(get("S", "K"), (Reading{0, "vv"})) << "grown: as many bytes as were measured";
  write_file(kIni, content);
  before_open = [] { write_file(kIni, ""); };
  EXPECT_EQ(get("S", "K").code, -304) << "emptied";
  write_file(kIni, content);
  before_open = [] { unlink(kIni); };
  EXPECT_EQ(get("S", "K").code, -302) << "gone";
}

TEST_F(IniFile, FileThatChangesWhileItIsWrittenIsSurvived) {
  write_file(kIni, "[S]\nK=V\n");
  after_seek = [] { write_file(kIni, "[S]\nK=1"); };
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "22"), 5) << "shrunk";
  EXPECT_EQ(read_file(kIni), "[S]\nK=22");

  write_file(kIni, "[S]\nK=V\n");
  const string grown = "[S]\nK=V\n" + string(1000, 'x') + "\r\n";
  after_seek = [&] { write_file(kIni, grown); };
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", string(1089, 'w').c_str()), 5)
      << "grown by more than is read ahead";
  EXPECT_EQ(read_file(kIni), "[S]\nK=" + string(1089, 'w') + "\n" + string(64, 'x'));
}

// ---- writing ----

TEST_F(IniFile, NewFileBecomesHeaderAndItem) {
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "V"), 4);
  EXPECT_EQ(read_file(kIni), "[S]\nK=V\n");
  EXPECT_EQ(
      messages(),
      (Messages{"WRN [] OLK_FileExist rc[-00001]WR pFileName[x.ini] NOT FOUND!!\n",
                "WRN [] OLK_SetIniFileValue rc[-00001]WR: pIniFileName[x.ini] Not Found! Create it now!!!\n",
                "WRN [] OLK_SetIniFileValue rc[000000]OK: pIniFileName[x.ini]File Successful Openned!!!\n"}));
}

TEST_F(IniFile, NewFileWithoutAWholeItemIsTheHeaderAlone) {
  struct Case {
    const char* item;
    const char* value;
  };
  for (const Case& names :
       std::vector<Case>{{nullptr, nullptr}, {nullptr, "V"}, {"", "V"}, {"K", nullptr}, {"K", ""}}) {
    unlink(kIni);
    EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", names.item, names.value), 2);
    EXPECT_EQ(read_file(kIni), "[S]\n");
  }
}

TEST_F(IniFile, FileThatCannotBeCreated) {
  EXPECT_EQ(OLK_SetIniFileValue("no/x.ini", "S", "K", "V"), -401);
  EXPECT_EQ(OLK_SetIniFileValue("no/x.ini", "S", nullptr, nullptr), -401);
  const Messages all = messages();
  ASSERT_EQ(all.size(), 6U);
  EXPECT_EQ(all[2],
            "ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE fopen Fail pIniFileName[no/x.ini] "
            "pSession[S] pItem[K]\n");
  EXPECT_EQ(all[5],
            "ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE fopen Fail pIniFileName[no/x.ini] "
            "pSession[S] pItem[]\n");
}

TEST_F(IniFile, WriterRefusesNullFileAndNullSection) {
  const char* section = "S";
  const char* item = "K";
  const char* value = "V";
  EXPECT_EQ(OLK_SetIniFileValue(nullptr, section, item, value), -300);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, nullptr, nullptr, nullptr), -300);
  const string start = "ERR [] OLK_SetIniFileValue rc[-00300]ER:INI_FILE_ERR_INVALID_PARAM Invalid Params ";
  EXPECT_EQ(messages(),
            (Messages{start + "pIniFileName[00000000h] pSession[" + hex(section) + "] pItem[" + hex(item) +
                          "] pRetValue[" + hex(value) + "] bSessionFound[0]\n",
                      start + "pIniFileName[" + hex(kIni) +
                          "] pSession[00000000h] pItem[00000000h] pRetValue[00000000h] bSessionFound[0]\n"}));
  EXPECT_FALSE(std::filesystem::exists(kIni));
}

TEST_F(IniFile, EveryWrapperIsTheWriter) {
  write_file(kIni, "[S]\nK=1\n");
  EXPECT_EQ(OLK_SetIniFileItemValue(kIni, "S", "K", "2"), 5);
  EXPECT_EQ(OLK_AddIniFileItem(kIni, "S", "L", "3"), 7);
  EXPECT_EQ(OLK_AddIniFileSection(kIni, "T", "ignored"), 2);
  EXPECT_EQ(read_file(kIni), "[S]\nK=2\nL=3\n\n[T]\n");
  EXPECT_EQ(OLK_SetIniFileItemValue(nullptr, "S", "K", "2"), -300);
  EXPECT_EQ(OLK_AddIniFileItem(nullptr, "S", "K", "2"), -300);
  EXPECT_EQ(OLK_AddIniFileSection(nullptr, "S", nullptr), -300);
  EXPECT_EQ(OLK_DelIniFileSection(kIni, nullptr), -300);
  EXPECT_EQ(OLK_DelIniFileItem(kIni, nullptr, "K"), -300);
  for (const string& message : messages())
    EXPECT_EQ(message.find("ERR [] OLK_SetIniFileValue rc[-00300]"), 0U);
}

TEST_F(IniFile, DeletingASectionRemovesNothing) {
  write_file(kIni, "[S]\nK=1\n");
  EXPECT_EQ(OLK_DelIniFileSection(kIni, "S"), 2);
  EXPECT_EQ(read_file(kIni), "[S]\nK=1\n");
  EXPECT_EQ(OLK_DelIniFileSection(kIni, "T"), 2);
  EXPECT_EQ(read_file(kIni), "[S]\nK=1\n\n[T]\n");
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(IniFile, DeletingAnItemBlanksItsLine) {
  write_file(kIni, "[SAT_EMULATOR]\nEnable=1\nPort=x\n");
  EXPECT_EQ(OLK_DelIniFileItem(kIni, "SAT_EMULATOR", "Enable"), 5);
  EXPECT_EQ(read_file(kIni), "[SAT_EMULATOR]\n        \nPort=x\n");
  EXPECT_EQ(get("SAT_EMULATOR", "Enable").code, -305);
}

TEST_F(IniFile, BlankingStopsAtEveryKindOfLineEnd) {
  EXPECT_EQ(set_in("[S]\r\nK=1\r\nL=2\r\n", "S", "K", nullptr), (Setting{5, "[S]\r\n   \r\nL=2\r\n"}));
  EXPECT_EQ(set_in("[S]\nK=1", "S", "K", ""), (Setting{5, "[S]\n   "}))
      << "the end of the text is a line end";
  EXPECT_EQ(set_in("[S]\nK", "S", "K", nullptr), (Setting{5, "[S]\n "}));
  EXPECT_EQ(set_in("[S]\naK=1\n", "S", "K", nullptr), (Setting{5, "[S]\na   \n"}))
      << "from the matched name on";
}

TEST_F(IniFile, EqualValueIsNotWritten) {
  const string content = "[S]\nWriteTotalTimeoutConstant=1000\n";
  write_file(kIni, content);
  chmod_or_fail(kIni, 0444);
  const WithoutPrivileges nobody;
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "WriteTotalTimeoutConstant", "1000"), 0);
  EXPECT_EQ(read_file(kIni), content);
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(IniFile, ShorterValueIsPaddedAndThenNeverEqual) {
  const Setting padded{5, "[S]\nWriteTotalTimeoutConstant=5   \n"};
  EXPECT_EQ(set_in("[S]\nWriteTotalTimeoutConstant=1000\n", "S", "WriteTotalTimeoutConstant", "5"), padded);
  EXPECT_EQ(set_in(padded.content, "S", "WriteTotalTimeoutConstant", "5"), padded);
}

TEST_F(IniFile, ValueOfTheSameLengthReplacesTheOld) {
  EXPECT_EQ(set_in("[S]\nK=12\nL=3\n", "S", "K", "ab"), (Setting{5, "[S]\nK=ab\nL=3\n"}));
}

TEST_F(IniFile, LongerValueIsInsertedBeforeALineFeed) {
  EXPECT_EQ(set_in("[S]\nK=1\nL=3\n", "S", "K", "abcd"), (Setting{5, "[S]\nK=abcd\nL=3\n"}));
  EXPECT_EQ(set_in("[S]\nK=1", "S", "K", "abcd"), (Setting{5, "[S]\nK=abcd"}));
  EXPECT_EQ(set_in("[S]\nK=\n", "S", "K", "abcd"), (Setting{5, "[S]\nK=abcd\n"}));
  EXPECT_EQ(set_in("[S]\nK=1\rL\n", "S", "K", "ab"), (Setting{5, "[S]\nK=ab\rL\n"}))
      << "a lone carriage return";
}

TEST_F(IniFile, TwoCharacterLineEndMovesTheRestOneByteFurther) {
  // One stale byte in front of the line end; the last byte falls off.
  EXPECT_EQ(set_in("[S]\r\nK=1\r\nL=3\r\n", "S", "K", "ab"), (Setting{5, "[S]\r\nK=ab\n\r\nL=3\r"}));
  EXPECT_EQ(set_in("[S]\r\nK=1\r\nL=3\r\n", "S", "K", "abcd"), (Setting{5, "[S]\r\nK=abcd=\r\nL=3\r"}));
  EXPECT_EQ(set_in("[S]\nK=1\n\rL=3\n", "S", "K", "ab"), (Setting{5, "[S]\nK=ab\r\n\rL=3"})) << "LF, CR";
  EXPECT_EQ(set_in("[S]\nK=1\r\n", "S", "K", "abcdefgh"), (Setting{5, "[S]\nK=abcdefgh\0\r"s}))
      << "behind the old end the stale byte is a zero";
}

TEST_F(IniFile, TextEndsAtTheFirstZeroByteWhenWritten) {
  EXPECT_EQ(set_in("[S]\nK=1\n\0[T]\n"s, "S", "K", "2"), (Setting{5, "[S]\nK=2\n"}));
  EXPECT_EQ(set_in("[S]\nK=1\r\n\0abcdef"s, "S", "K", "2345"), (Setting{5, "[S]\nK=2345a\r"}))
      << "the stale byte comes from behind the text";
}

TEST_F(IniFile, CharacterBehindTheNameIsTakenForTheEqualSign) {
  EXPECT_EQ(set_in("[S]\nKxyz\n", "S", "K", "1"), (Setting{5, "[S]\nKx1 \n"}));
  EXPECT_EQ(set_in("[S]\nK\nL=22\n", "S", "K", "1"), (Setting{5, "[S]\nK\n1   \n"}));
  EXPECT_EQ(set_in("[S]\nK =1\n", "S", "K", "7"), (Setting{5, "[S]\nK 7 \n"}));
  EXPECT_EQ(set_in("[S]\nK\n", "S", "K", "7"), (Setting{5, "[S]\nK\n7"}));
}

TEST_F(IniFile, NameAtTheVeryEndHasNoPlaceForAValue) {
  EXPECT_EQ(set_in("[S]\nK", "S", "K", "1"), (Setting{-401, "[S]\nK"}));
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE no place for the "
                      "value pIniFileName[x.ini] pSession[S] pItem[K]\n"}));
}

TEST_F(IniFile, WriterStepsOverEqualSignsAndBlanksInItsSearch) {
  EXPECT_EQ(set_in("[S]\n= K=1\n", "S", "K", "2"), (Setting{5, "[S]\n= K=2\n"}));
  EXPECT_EQ(set_in("[S]\n K=1\n", "S", " K", "2"), (Setting{7, "[S]\n K=1\n K=2\n"}))
      << "a name that starts with a blank is never found";
}

TEST_F(IniFile, EmptyItemNameIsSearchedLiterally) {
  EXPECT_EQ(set_in("[S]\nx=1\n", "S", "", "Q"), (Setting{5, "[S]\nQ  \n"}));
  EXPECT_EQ(set_in("[S] =x=1\n", "S", "", nullptr), (Setting{5, "[S] =   \n"}));
  EXPECT_EQ(set_in("[S]", "S", "", nullptr), (Setting{5, "[S]"}));
  EXPECT_EQ(set_in("[S]", "S", "", "V"), (Setting{-401, "[S]"}));
}

TEST_F(IniFile, MissingSectionIsAppended) {
  EXPECT_EQ(set_in("[A]\nx=1\n", "S", "K", "V"), (Setting{4, "[A]\nx=1\n\n[S]\nK=V\n"}));
  EXPECT_EQ(set_in("[A]\nx=1", "S", nullptr, nullptr), (Setting{2, "[A]\nx=1\n[S]\n"}));
  EXPECT_EQ(set_in("[A]\nx=1\n", "S", "", "V"), (Setting{2, "[A]\nx=1\n\n[S]\n"}));
  EXPECT_EQ(set_in("", "S", nullptr, "V"), (Setting{2, "\n[S]\n"}));
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(IniFile, NewItemWithoutValueInAMissingSectionWritesADash) {
  EXPECT_EQ(set_in("[A]\n", "S", "K", ""), (Setting{8, "[A]\n\n[S]\n-\n"}));
  EXPECT_EQ(set_in("[A]\n", "S", "K", nullptr), (Setting{8, "[A]\n\n[S]\n-\n"}));
}

TEST_F(IniFile, SectionAloneExists) {
  EXPECT_EQ(set_in("[S]\nK=1\n", "S", nullptr, "V"), (Setting{2, "[S]\nK=1\n"}));
}

TEST_F(IniFile, NewItemOfTheLastSectionIsAppended) {
  EXPECT_EQ(set_in("[S]\nK=1\n", "S", "L", "2"), (Setting{7, "[S]\nK=1\nL=2\n"}));
  EXPECT_EQ(set_in("[S]\nK=1", "S", "L", "2"), (Setting{7, "[S]\nK=1L=2\n"}))
      << "with or without a line feed";
  EXPECT_EQ(set_in("[S]\nK=1\n", "S", "L", ""), (Setting{8, "[S]\nK=1\n"}));
  EXPECT_EQ(set_in("[S]\nK=1\n", "S", "L", nullptr), (Setting{8, "[S]\nK=1\n"}));
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(IniFile, NewItemBeforeAnotherSectionShiftsAndCutsTheText) {
  EXPECT_EQ(set_in("[A]\nx=1\n\n[B]\ny=2\n", "A", "k", "v"), (Setting{7, "[A]\nx=[Ak=v\n"}));
  EXPECT_EQ(messages(), (Messages{"WRN [] OLK_SetIniFileValue rc[000007]WR:INI_FILE_ITEM_ADDED Fail "
                                  "pIniFileName[x.ini] pSession[A] pItem[k]\n"}));
}

TEST_F(IniFile, NewItemNearTheStartReplacesTheRest) {
  EXPECT_EQ(set_in("[A]\n[B]\ny=2\n", "A", "longname", "longvalue"), (Setting{7, "[A]longname=longvalue\n"}));
  EXPECT_EQ(set_in("[A][B]", "A", "k", "v"), (Setting{7, "[Ak=v\n"}));
}

TEST_F(IniFile, NewItemWithoutValueBeforeAnotherSectionWritesADash) {
  EXPECT_EQ(set_in("[A]\nx=1\n\n[B]\ny=2\n", "A", "k", nullptr), (Setting{7, "[A]\n[A]\n-\n"}));
  EXPECT_EQ(set_in("[A]\nx=1\n\n[B]\ny=2\n", "A", "k", ""), (Setting{7, "[A]\n[A]\n-\n"}));
}

TEST_F(IniFile, UnreadableFileIsNotWritten) {
  write_file(kIni, "[S]\nK=1\n");
  chmod_or_fail(kIni, 0200);
  {
    const WithoutPrivileges nobody;
    EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -401);
  }
  chmod_or_fail(kIni, 0600);
  EXPECT_EQ(read_file(kIni), "[S]\nK=1\n");
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE    fopen() Fail "
                      "pIniFileName[x.ini] pSession[S] pItem[K]\n"}));
}

TEST_F(IniFile, MissingMemoryFailsTheWriter) {
  write_file(kIni, "[S]\nK=1\n");
  calloc_fails = true;
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -401);
  calloc_fails = false;
  EXPECT_EQ(read_file(kIni), "[S]\nK=1\n");
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE    calloc() Fail "
                      "pIniFileName[x.ini] pSession[S] pItem[K]\n"}));
}

// ---- large files ----

constexpr uintmax_t kMebibyte = 1024 * 1024;
constexpr uintmax_t kGibibyte = 1024 * kMebibyte;

// Only the first bytes of these files take room on the disk.
class LargeIniFile : public IniFile, public testing::WithParamInterface<uintmax_t> {
 protected:
  void SetUp() override {
    IniFile::SetUp();
    write_file("large.ini", "[S]\nK=1\n");
    std::filesystem::resize_file("large.ini", GetParam());
    std::filesystem::create_symlink("large.ini", kIni);
  }

  static void expect_untouched() {
    EXPECT_EQ(std::filesystem::file_size("large.ini"), GetParam());
    std::ifstream file("large.ini");
    string start(8, ' ');
    file.read(start.data(), 8);
    EXPECT_EQ(start, "[S]\nK=1\n");
  }
};

// In 32 bits the sizes are positive, negative, 0 and positive again.
INSTANTIATE_TEST_SUITE_P(, LargeIniFile,
                         testing::Values(64 * kMebibyte + 1, 2 * kGibibyte - 1, 2 * kGibibyte, 3 * kGibibyte,
                                         4 * kGibibyte, 5 * kGibibyte));

TEST_P(LargeIniFile, CountsForTheReaderAsOneWithoutMemory) {
  EXPECT_EQ(get("S", "K"), (Reading{-302, ""}));
  char shown[32];
  std::snprintf(shown, sizeof shown, "%05d",
                GetParam() < 2 * kGibibyte ? static_cast<int>(GetParam()) : INT32_MAX);
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_GetIniFileValue rc[-00302]ER:INI_FILE_ERR_OPEN calloc() Fail\n\t "
                      "pIniFileName[x.ini] \n\t     pSession[S] \n\t        pItem[K] \n\t    pRetValue[] "
                      "sztFileSize[" +
                      string(shown) + "]\n"}));
}

TEST_P(LargeIniFile, CountsForTheWriterAsOneWithoutMemory) {
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -401);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "T", nullptr, nullptr), -401);
  expect_untouched();
  const string line =
      "ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE    calloc() Fail pIniFileName[x.ini] ";
  EXPECT_EQ(messages(), (Messages{line + "pSession[S] pItem[K]\n", line + "pSession[T] pItem[]\n"}));
}

TEST_F(IniFile, FileOf64MebibytesIsReadAndWritten) {
  write_file(kIni, "[S]\nK=1\n");
  std::filesystem::resize_file(kIni, 64 * kMebibyte);
  EXPECT_EQ(get("S", "K"), (Reading{0, "1"}));
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), 5);
  EXPECT_EQ(read_file(kIni), "[S]\nK=2\n");
}

TEST_F(IniFile, FileThatCannotBeReadToItsEndIsNotWritten) {
  const string content = "[S]\nK=1\n[T]\nL=2\n";
  write_file(kIni, content);
  reads_fail = true;
  EXPECT_EQ(get("S", "K"), (Reading{0, "1"})) << "what could be read is read";
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -401);
  reads_fail = false;
  EXPECT_EQ(read_file(kIni), content);
  EXPECT_EQ(messages(), (Messages{"ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE read() Fail "
                                  "pIniFileName[x.ini] pSession[S] pItem[K]\n"}));
}

// A read-only file: every way of writing to it, with its own line.
TEST_F(IniFile, ReadOnlyFileFailsEveryKindOfWrite) {
  const string content = "[A]\nx=1\n[S]\nK=1\n";
  write_file(kIni, content);
  chmod_or_fail(kIni, 0444);
  const WithoutPrivileges nobody;
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "T", "K", "2"), -401);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -301);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", nullptr), -301);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "L", "2"), -301);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "A", "y", "2"), -301);
  EXPECT_EQ(read_file(kIni), content);
  const string no_append =
      "ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE    fopen() Fail pIniFileName[x.ini]";
  const string no_write =
      "ERR [] OLK_SetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[x.ini]";
  EXPECT_EQ(messages(),
            (Messages{no_append + " pSession[T] pItem[K]\n", no_write + " pSession[S] pItem[K]\n",
                      no_write + " pSession[S] pItem[K]\n", no_write + " pSession[S] pItem[L] pNewValue[2]\n",
                      no_write + " pSession[A] pItem[y]\n"}));
}

TEST_F(IniFile, MissingItemWithoutAValueIsReportedWhenTheFileCannotBeAppendedTo) {
  const string content = "[S]\nK=1\n";
  write_file(kIni, content);
  chmod_or_fail(kIni, 0444);
  const WithoutPrivileges nobody;
  const long descriptors = open_descriptors();
  EXPECT_EQ(OLK_DelIniFileItem(kIni, "S", "Q"), -301);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "Q", ""), -301);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(read_file(kIni), content);
  const string start =
      "ERR [] OLK_SetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[x.ini] "
      "pSession[S] pItem[Q] ";
  EXPECT_EQ(messages(), (Messages{start + "pNewValue=NULL\n", start + "pNewValue[]\n"}));
}

TEST_F(IniFile, MissingItemWithoutAValueLeavesTheFileUntouched) {
  const string content = "[S]\nK=1\n";
  write_file(kIni, content);
  const auto long_ago = std::filesystem::last_write_time(kIni) - std::chrono::hours(1);
  std::filesystem::last_write_time(kIni, long_ago);
  const long descriptors = open_descriptors();
  EXPECT_EQ(OLK_DelIniFileItem(kIni, "S", "Q"), 8);
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "Q", ""), 8);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(std::filesystem::last_write_time(kIni), long_ago);
  EXPECT_EQ(read_file(kIni), content);
  EXPECT_EQ(messages(), Messages{});
}

// Every way of writing to the file, with what it leaves there.
struct WayOfWriting {
  const char* before;
  const char* section;
  const char* item;
  const char* value;
  int code;
  const char* after;
};

constexpr WayOfWriting kWaysOfWriting[] = {
    {nullptr, "S", "K", "V", 4, "[S]\nK=V\n"},
    {"[A]\n", "S", "K", "V", 4, "[A]\n\n[S]\nK=V\n"},
    {"[S]\nK=1\n", "S", "K", "two", 5, "[S]\nK=two\n"},
    {"[S]\nK=1\n", "S", "K", nullptr, 5, "[S]\n   \n"},
    {"[S]\nK=1\n", "S", "L", "2", 7, "[S]\nK=1\nL=2\n"},
    {"[A]\nx=1\n\n[B]\ny=2\n", "A", "k", "v", 7, "[A]\nx=[Ak=v\n"},
};

void prepare(const WayOfWriting& way) {
  unlink(kIni);
  if (way.before != nullptr) write_file(kIni, way.before);
}

Setting result_of(const WayOfWriting& way) {
  const int code = OLK_SetIniFileValue(kIni, way.section, way.item, way.value);
  return {code, read_file(kIni)};
}

TEST_F(IniFile, ShortAndInterruptedWritesAreContinued) {
  for (const WayOfWriting& way : kWaysOfWriting) {
    prepare(way);
    const write_calls::Reluctant writes;
    EXPECT_EQ(result_of(way), (Setting{way.code, way.after}));
  }
}

TEST_F(IniFile, FilesThatTheWriterMakesAreOpenToOthersAsFarAsTheUmaskAllows) {
  for (const WayOfWriting& way : kWaysOfWriting) {
    for (const mode_t mask : {0u, 022u}) {
      const Umask umask(mask);
      prepare(way);
      after_seek = [] { unlink(kIni); };  // gone once it is open for reading
      EXPECT_EQ(result_of(way).code, way.code);
      EXPECT_EQ(mode_of(kIni), 0666u & ~mask) << way.after;
      after_seek = nullptr;
    }
  }
}

TEST_F(IniFile, NoDescriptorStaysOpen) {
  const long descriptors = open_descriptors();
  for (const WayOfWriting& way : kWaysOfWriting) {
    prepare(way);
    EXPECT_EQ(result_of(way).code, way.code);
  }
  const string content = "[S]\nK=V\n[T]\nK=V\n";
  const string too_long(2000, 'v');
  EXPECT_EQ(set_in(content, "S", nullptr, nullptr).code, 2);
  EXPECT_EQ(set_in(content, "S", "K", "V").code, 0);
  EXPECT_EQ(set_in(content, "T", "L", nullptr).code, 8);
  for (const char* item : {"K", "L"}) {
    for (const char* section : {"S", "T", "U"})
      EXPECT_EQ(set_in(content, section, item, too_long.c_str()).code, -401) << section << item;
  }
  EXPECT_EQ(get("S", "K").code, 0);
  EXPECT_EQ(get("S", "Q").code, -305);
  EXPECT_EQ(get("Q", "K").code, -304);
  EXPECT_EQ(get_from("[S]\nK=" + too_long, "S", "K").code, -302);
  reads_fail = true;
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -401);
  EXPECT_EQ(get("S", "K"), (Reading{0, "vv"})) << "what could be read";
  reads_fail = false;
  calloc_fails = true;
  EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -401);
  EXPECT_EQ(get("S", "K").code, -302);
  calloc_fails = false;
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(IniFile, FullDiskIsAFailure) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  EXPECT_EQ(OLK_SetIniFileValue("/dev/full", "S", "K", "2"), -401);
  EXPECT_EQ(messages(),
            (Messages{"ERR [] OLK_SetIniFileValue rc[-00401]ER write() Fail pIniFileName[/dev/full] "
                      "pSession[S] pItem[K]\n"}));
}

TEST_F(IniFile, RewriteThatDoesNotFitIsAFailure) {
  // Room for the trace, but not for the text.
  constexpr std::size_t kRoom = 50000;
  const string comment(kRoom, '#');
  write_file(kIni, "[S]\nK=1\n" + comment);
  {
    const FullDisk disk(kRoom);
    EXPECT_EQ(OLK_SetIniFileValue(kIni, "S", "K", "2"), -301);
  }
  EXPECT_EQ(read_file(kIni), ("[S]\nK=2\n" + comment).substr(0, kRoom));
  EXPECT_EQ(messages(), (Messages{"ERR [] OLK_SetIniFileValue rc[-00301]ER write() Fail pIniFileName[x.ini] "
                                  "pSession[S] pItem[K]\n"}));
}

// ---- limits of the writer ----

Setting created(const string& section, const string& item, const string& value) {
  unlink(kIni);
  const int code = OLK_SetIniFileValue(kIni, section.c_str(), item.c_str(), value.c_str());
  return {code, std::filesystem::exists(kIni) ? read_file(kIni) : "absent"};
}

constexpr char kTooLong[] =
    "ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE line too long pIniFileName[x.ini]";

TEST_F(IniFile, HeaderLineHoldsUpTo255Bytes) {
  const string longest(252, 's');
  EXPECT_EQ(created(longest, "", ""), (Setting{2, "[" + longest + "]\n"}));
  EXPECT_EQ(created(longest + "s", "", ""), (Setting{-401, "absent"}));
  EXPECT_EQ(messages().back(), string(kTooLong) + " pSession[" + longest + "s] pItem[]\n");
  const string content = "[" + longest + "s]\n";
  EXPECT_EQ(set_in(content, (longest + "s").c_str(), nullptr, nullptr), (Setting{-401, content}));
}

TEST_F(IniFile, CompositionHoldsUpTo255Bytes) {
  EXPECT_EQ(created("S", "K", string(248, 'v')), (Setting{4, "[S]\nK=" + string(248, 'v') + "\n"}));
  EXPECT_EQ(created("S", "K", string(249, 'v')), (Setting{-401, "absent"}));
  EXPECT_EQ(set_in("", "S", "K", string(247, 'v').c_str()),
            (Setting{4, "\n[S]\nK=" + string(247, 'v') + "\n"}));
  EXPECT_EQ(set_in("", "S", "K", string(248, 'v').c_str()), (Setting{-401, ""}));
  EXPECT_EQ(set_in("", string(251, 's').c_str(), nullptr, nullptr),
            (Setting{2, "\n[" + string(251, 's') + "]\n"}));
  EXPECT_EQ(set_in("", string(252, 's').c_str(), nullptr, nullptr), (Setting{-401, ""}));
  EXPECT_EQ(set_in("", string(249, 's').c_str(), "K", nullptr),
            (Setting{8, "\n[" + string(249, 's') + "]\n-\n"}));
  EXPECT_EQ(set_in("", string(250, 's').c_str(), "K", nullptr), (Setting{-401, ""}));
}

TEST_F(IniFile, LineThatIsTooLongIsRefusedWhereverItIsComposed) {
  const string value(253, 'v');
  for (const char* content : {"", "[S]\n", "[S]\n[T]\n"})
    EXPECT_EQ(set_in(content, "S", "K", value.c_str()), (Setting{-401, content}));
  EXPECT_EQ(created("S", "K", value), (Setting{-401, "absent"}));
  const string refusal = string(kTooLong) + " pSession[S] pItem[K]\n";
  EXPECT_EQ(messages(),
            (Messages{refusal, refusal, refusal,
                      "WRN [] OLK_FileExist rc[-00001]WR pFileName[x.ini] NOT FOUND!!\n", refusal}));
}

TEST_F(IniFile, AppendedItemLineHoldsUpTo255Bytes) {
  EXPECT_EQ(set_in("[S]\n", "S", "K", string(252, 'v').c_str()),
            (Setting{7, "[S]\nK=" + string(252, 'v') + "\n"}));
  EXPECT_EQ(set_in("[S]\n", "S", "K", string(253, 'v').c_str()), (Setting{-401, "[S]\n"}));
}

TEST_F(IniFile, InsertedItemLineHoldsUpTo254Bytes) {
  EXPECT_EQ(set_in("[S]\n[T]\n", "S", "K", string(251, 'v').c_str()),
            (Setting{7, "[S]K=" + string(251, 'v') + "\n"}));
  EXPECT_EQ(set_in("[S]\n[T]\n", "S", "K", string(252, 'v').c_str()), (Setting{-401, "[S]\n[T]\n"}));
}

TEST_F(IniFile, ValueGrowsByUpTo1088Bytes) {
  EXPECT_EQ(set_in("[S]\nK=1\nL\n", "S", "K", string(1089, 'v').c_str()),
            (Setting{5, "[S]\nK=" + string(1089, 'v') + "\nL\n"}));
  EXPECT_EQ(set_in("[S]\nK=1\nL\n", "S", "K", string(1090, 'v').c_str()), (Setting{-401, "[S]\nK=1\nL\n"}));
  EXPECT_EQ(messages().back(),
            "ERR [] OLK_SetIniFileValue rc[-00401]ER:INI_FILE_ERR_CREATE value too long "
            "pIniFileName[x.ini] pSession[S] pItem[K]\n");
  EXPECT_EQ(set_in("[S]\nK=1\r\n", "S", "K", string(1089, 'v').c_str()),
            (Setting{5, "[S]\nK=" + string(1089, 'v') + "\0\r"s}));
}

TEST_F(IniFile, LongOldValuesCanBeReplacedAndBlanked) {
  const string content = "[S]\nK=" + string(3000, 'v') + "\nL=1\n";
  EXPECT_EQ(set_in(content, "S", "K", string(3000, 'v').c_str()), (Setting{0, content}));
  EXPECT_EQ(set_in(content, "S", "K", "1"), (Setting{5, "[S]\nK=1" + string(2999, ' ') + "\nL=1\n"}));
  EXPECT_EQ(set_in(content, "S", "K", nullptr), (Setting{5, "[S]\n" + string(3002, ' ') + "\nL=1\n"}));
}

// ---- against a model ----

string text_of(const string& file) {
  return file.substr(0, file.find('\0'));
}

// The position of the item's match, with what a section's end does to the search.
struct Search {
  std::optional<size_t> match;
  std::optional<size_t> next_section;
};

Search search_item(const string& text, size_t from, const string& item, bool skip_blanks) {
  for (size_t at = from;; ++at) {
    while (skip_blanks && at < text.size() && (text[at] == '=' || text[at] == ' ')) ++at;
    if (at > text.size()) return {};
    if (at < text.size() && text[at] == '[') return {{}, at};
    if (text.compare(at, item.size(), item) == 0) return {at, {}};
  }
}

struct ModelReading {
  int code;
  string value;
};

ModelReading model_get(const string& file, const string& section, const string& item, size_t capacity) {
  if (file.empty()) return {-301, ""};
  const string text = text_of(file);
  const string header = "[" + section + "]";
  const size_t header_at = text.find(header);
  if (header_at == string::npos) return {-304, ""};
  const Search found = search_item(text, header_at + header.size(), item, false);
  if (!found.match) return {-305, ""};
  string value;
  for (size_t at = *found.match + item.size(); at < text.size() && text[at] != '\n'; ++at) {
    const size_t ahead = at + header_at;
    if (ahead < file.size() && file[ahead] == '\r') break;
    if (text[at] != '=' && text[at] != ' ') value += text[at];
  }
  while (!value.empty() && (value.back() == '\r' || value.back() == '\n')) value.pop_back();
  if (value.size() >= capacity) return {-302, ""};
  return {0, value};
}

using Argument = std::optional<string>;

Setting model_replace(const string& file, const string& text, size_t value_at, const string& value) {
  size_t end = value_at;
  while (end < text.size() && text[end] != '\n' && text[end] != '\r') ++end;
  const size_t old_length = end - value_at;
  if (text.substr(value_at, old_length) == value) return {0, file};
  string padded = text;
  if (value.size() <= old_length) {
    padded.replace(value_at, old_length, value + string(old_length - value.size(), ' '));
    return {5, padded};
  }
  const size_t growth = value.size() - old_length;
  if (growth > 1088) return {-401, file};
  const string head = text.substr(0, value_at) + value;
  const string tail = text.substr(end);
  const string line_end = tail.substr(0, 2);
  if (line_end != "\r\n" && line_end != "\n\r") return {5, head + tail};
  const char stale = end + growth < file.size() ? file[end + growth] : '\0';
  return {5, (head + stale + tail).substr(0, text.size() + growth)};
}

Setting model_set(const Argument& file, const string& section, const Argument& item, const Argument& value) {
  const bool item_given = item && !item->empty();
  const bool value_given = value && !value->empty();
  const string header = "[" + section + "]";
  const string line = value_given ? item.value_or("") + "=" + *value + "\n" : "";
  Setting refused{-401, file.value_or("absent")};
  if (header.size() + 1 > 255) return refused;
  if (!file) {
    const string content = header + "\n" + (item_given ? line : "");
    if (content.size() > 255) return refused;
    return {item_given && value_given ? 4 : 2, content};
  }
  const string text = text_of(*file);
  const size_t header_at = text.find(header);
  if (header_at == string::npos) {
    const string added = "\n" + header + "\n" + (!item_given ? "" : value_given ? line : "-\n");
    if (added.size() > 255) return refused;
    return {!item_given ? 2 : value_given ? 4 : 8, *file + added};
  }
  if (!item) return {2, *file};
  const Search found = search_item(text, header_at + header.size(), *item, true);
  if (found.match) {
    const size_t name_end = *found.match + item->size();
    if (!value_given) {
      string blanked = text;
      for (size_t at = *found.match; at < text.size() && text[at] != '\r' && text[at] != '\n'; ++at)
        blanked[at] = ' ';
      return {5, blanked};
    }
    if (name_end == text.size()) return refused;
    return model_replace(*file, text, name_end + 1, *value);
  }
  if (!found.next_section) {
    if (!value_given) return {8, *file};
    if (line.size() > 255) return refused;
    return {7, *file + line};
  }
  const string inserted = value_given ? line : "-\n";
  if (inserted.size() > 254) return refused;
  const size_t k = inserted.size() + 2;
  const size_t insertion = *found.next_section - 1;
  if (insertion < k) return {7, text.substr(0, insertion) + inserted};
  return {7, text.substr(0, k) + text.substr(0, insertion - k) + inserted};
}

// Small files in which headers, names and line ends of every kind meet often.
class Inputs {
 public:
  explicit Inputs(unsigned seed) : random_(seed) {}

  size_t below(size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(random_); }

  string file() {
    static const std::vector<string> tokens = {
        "[A]",  "[A]\n", "[B]\n",   "[A]\r\n",    "[",  "]", "A",  "B",  "k",     "key",
        "key=", "k=1",   "\nk=1\n", "\nkey=22\n", "=",  " ", "  ", "\n", "\n",    "\n",
        "\r\n", "\r\n",  "\n\r",    "\r",         "\t", "#", "1",  "22", "value", "\0"s};
    string content = below(3) == 0 ? "" : "[A]" + line_end();
    if (below(3) == 0) content += "k=1" + line_end();
    for (size_t left = below(20); left > 0; --left)
      content += tokens[below(tokens.size() - (below(8) == 0 ? 0 : 1))];
    if (below(30) == 0) content.insert(below(content.size() + 1), string(below(1500), 'L'));
    return content;
  }

  string name(const std::vector<string>& choices) {
    if (below(25) == 0) return string(240 + below(20), 'n');
    return choices[below(choices.size())];
  }
  string section() { return name({"A", "A", "A", "A", "A", "A", "B", "", "AB", "k", "A]\n[B"}); }
  string item() {
    return name({"k", "k", "key", "key", "", "=k", " k", "y", "A", "1", "[B", "k[", "\n", "\r", "x"});
  }

  Argument value() {
    switch (below(9)) {
      case 0:
        return {};
      case 1:
        return "";
      case 2:
        return string(below(12), 'v');
      case 3:
        return string(235 + below(25), 'v');
      case 4:
        return string(1080 + below(15), 'v');
      case 5:
        return "1";
      default:
        return name({"1", "22", "=", " ", "value", "a b", "ab\ncd", "\r"});
    }
  }

 private:
  string line_end() {
    static const std::vector<string> ends = {"\n", "\r\n", "\n\r", "\r", ""};
    return ends[below(ends.size())];
  }

  std::mt19937 random_;
};

// Many thousands of files: in memory where the system has a place for that.
class FastTemporaryDirectory {
 public:
  FastTemporaryDirectory() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  }
};

class IniModel : public testing::Test {
 private:
  FastTemporaryDirectory fast_;
  ScratchDirectory scratch_;
};

TEST_F(IniModel, ReaderAgreesOnRandomFiles) {
  Inputs inputs(20200727);
  static constexpr std::array<int, 5> codes = {0, -301, -302, -304, -305};
  std::array<size_t, codes.size()> seen{};
  for (int round = 0; round < 30000; ++round) {
    const string file = inputs.file();
    const string section = inputs.section();
    const string item = inputs.item();
    const size_t capacity = 1 + inputs.below(inputs.below(2) == 0 ? 4 : 140);
    unlink(kIni);
    write_file(kIni, file);
    const ModelReading expected = model_get(file, section, item, capacity);

    std::vector<char> value(capacity, 'x');
    const int code = read_ini_value(kIni, section.c_str(), item.c_str(), value.data(), capacity);
    ASSERT_EQ((Reading{code, value.data()}), (Reading{expected.code, expected.value}))
        << "round " << round << " file " << testing::PrintToString(file) << " section " << section << " item "
        << testing::PrintToString(item) << " capacity " << capacity;
    for (size_t index = 0; index < codes.size(); ++index) seen[index] += code == codes[index] ? 1 : 0;
  }
  for (size_t index = 0; index < codes.size(); ++index) EXPECT_GT(seen[index], 100U) << codes[index];
}

TEST_F(IniModel, WriterAgreesOnRandomFiles) {
  Inputs inputs(20200728);
  static constexpr std::array<int, 7> codes = {0, 2, 4, 5, 7, 8, -401};
  std::array<size_t, codes.size()> seen{};
  for (int round = 0; round < 40000; ++round) {
    const Argument file = inputs.below(20) == 0 ? Argument{} : Argument{inputs.file()};
    const string section = inputs.section();
    const Argument item = inputs.below(10) == 0 ? Argument{} : Argument{inputs.item()};
    const Argument value = inputs.value();
    const Setting expected = model_set(file, section, item, value);

    unlink(kIni);
    if (file) write_file(kIni, *file);
    const int code = OLK_SetIniFileValue(kIni, section.c_str(), item ? item->c_str() : nullptr,
                                         value ? value->c_str() : nullptr);
    const Setting actual{code, std::filesystem::exists(kIni) ? read_file(kIni) : "absent"};
    ASSERT_EQ(actual, expected) << "round " << round << " file " << testing::PrintToString(file)
                                << " section " << section << " item " << testing::PrintToString(item)
                                << " value " << testing::PrintToString(value);
    for (size_t index = 0; index < codes.size(); ++index) seen[index] += code == codes[index] ? 1 : 0;
  }
  for (size_t index = 0; index < codes.size(); ++index) EXPECT_GT(seen[index], 100U) << codes[index];
}

}  // namespace
