// "SAT.ini": its default text, its 31 items, and what each of them does when missing, empty or present.
#include "api/configuration.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <functional>
#include <ostream>

#include "api/context.h"
#include "api/default_configuration.h"
#include "olk_sat_utils/return_codes.h"
#include "support/api_trace.h"
#include "support/file_status.h"
#include "support/write_calls.h"

// Every calloc of the library passes here: the linker is told to wrap it.
namespace {
std::function<bool()> allocation_succeeds;
}
extern "C" void* __real_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size) {
  if (allocation_succeeds && !allocation_succeeds()) return nullptr;
  return __real_calloc(count, size);
}

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kDefaultFile[] = R"(#
# IMPORTANTE: Para fixar a porta adicione >> FixarPorta=<NomeDaPorta>
#
[SERIAL_PORT_CONFIG]
SerialPortConfig=115200,8,N,1
ReadIntervalTimeout=10
ReadTotalTimeoutMultiplier=1
ReadTotalTimeoutConstant=1
WriteTotalTimeoutMultiplier=1
WriteTotalTimeoutConstant=1000

#
# Define o timeout em Segundos de resposta para as funcaes do SAT
#
[SAT_TIMEOUT]
AtivarSAT                     =1800
ComunicarCertificadoICPBRASIL = 300
EnviarDadosVenda              =  30
CancelarUltimaVenda           =  30
ConsultarSAT                  =  10
TesteFimAFim                  =  20
ConsultarStatusOperacional    =  10
ConsultarNumeroSessao         =  20
ConfigurarInterfaceDeRede     =  20
AssociarAssinatura            =1800
AtualizarSoftwareSAT          =1800
ExtrairLogs                   =  30
BloquearSAT                   = 300
DesbloquearSAT                =  20
TrocarCodigoDeAtivacao        =  30
ConsultarUltimaSessaoFiscal   =  20

#
# SAT_EMULATOR <default>0=Disable
#
[SAT_EMULATOR]
SerialPortWindows=CNCA0
SerialPortLinux=/dev/ttyVSP0
Enable=0

#
# Arvolen <default>0=Disable
#
[ARVOLEN]
PathWindows=C:\ProgramData\Arvolen\Cupons\New
PathLinux=/etc/Arvolen/Cupons/New
Enable=0

#
# LogMode 0=Disable, 1=Error, 2=Warning, 3=Info, 4=Trace, 5=Debug
#
[LOG]
LogFilePath=Log
LogFileName=
LogFileMaxSize=1300000
LogMode=1

)";

constexpr uint32_t kDefaultTimeouts[kSatFunctionCount] = {1800, 300,  30,   30, 10,  20, 10, 20,
                                                          20,   1800, 1800, 30, 300, 20, 30, 20};

// The lines that an item can have besides the common three.
enum class Wording { kCommon, kLogPath, kFixedPort, kEmulator };

struct Item {
  int step;
  const char* section;
  const char* name;
  const char* value;  // a value unlike the default
  int rc;             // shown with that value
  Wording wording = Wording::kCommon;
};

constexpr Item kItems[] = {
    {1, "LOG", "LogFilePath", "Log", 0, Wording::kLogPath},
    {2, "LOG", "LogFileName", "watched.log", 0},
    {3, "LOG", "LogFileMaxSize", "5000", 0},
    {4, "LOG", "LogMode", "4", 0},
    {4, "SERIAL_PORT_CONFIG", "FixarPorta", "/dev/ttyS0", 0, Wording::kFixedPort},
    {5, "SERIAL_PORT_CONFIG", "SerialPortConfig", "9600,7,e,2", 0},
    {6, "SERIAL_PORT_CONFIG", "ReadIntervalTimeout", "MAXDWORD", 0},
    {7, "SERIAL_PORT_CONFIG", "ReadTotalTimeoutMultiplier", "MAXDWORD", 0},
    {8, "SERIAL_PORT_CONFIG", "ReadTotalTimeoutConstant", "MAXDWORD-10", 0},
    {9, "SERIAL_PORT_CONFIG", "WriteTotalTimeoutMultiplier", "7", 0},
    {10, "SERIAL_PORT_CONFIG", "WriteTotalTimeoutConstant", "-3", 0},
    {11, "SAT_TIMEOUT", "AtivarSAT", "101", 101},
    {12, "SAT_TIMEOUT", "ComunicarCertificadoICPBRASIL", "102", 102},
    {13, "SAT_TIMEOUT", "EnviarDadosVenda", "103", 103},
    {14, "SAT_TIMEOUT", "CancelarUltimaVenda", "104", 104},
    {15, "SAT_TIMEOUT", "ConsultarSAT", "105", 105},
    {16, "SAT_TIMEOUT", "TesteFimAFim", "106", 106},
    {17, "SAT_TIMEOUT", "ConsultarStatusOperacional", "107", 107},
    {18, "SAT_TIMEOUT", "ConsultarNumeroSessao", "108", 0},
    {19, "SAT_TIMEOUT", "ConfigurarInterfaceDeRede", "109", 0},
    {20, "SAT_TIMEOUT", "AssociarAssinatura", "110", 0},
    {21, "SAT_TIMEOUT", "AtualizarSoftwareSAT", "111", 0},
    {22, "SAT_TIMEOUT", "ExtrairLogs", "112", 0},
    {23, "SAT_TIMEOUT", "BloquearSAT", "113", 0},
    {24, "SAT_TIMEOUT", "DesbloquearSAT", "114", 0},
    {25, "SAT_TIMEOUT", "TrocarCodigoDeAtivacao", "115", 0},
    {26, "SAT_TIMEOUT", "ConsultarUltimaSessaoFiscal", "116", 0},
    {27, "ARVOLEN", "PathWindows", "D:\\cupons", 0},
    {28, "ARVOLEN", "PathLinux", "/srv/cupons", 0},
    {29, "ARVOLEN", "Enable", "1", 0},
    {30, "SAT_EMULATOR", "Enable", "1", 0, Wording::kEmulator},
};
constexpr int kFirstTimeout = 11;
constexpr int kAppliedTimeouts = 7;
constexpr int kLastStep = 30;

std::string update_line(const std::string& tag, const std::string& text) {
  return config_line(tag, "UpdateTalvexConfiguration", text);
}

std::string item_text(const Item& item, int rc, const char* status, char letter, const std::string& value,
                      const char* tail = "") {
  return printed("rc[%04d]%s  STEP%02d%c  TalvexIniFileName[SAT.ini]  strSessionName[%s]  item[%s=%s]%s\n",
                 rc, status, item.step, letter, item.section, item.name, value.c_str(), tail);
}

Lines missing_line(const Item& item, int rc = -305) {
  switch (item.wording) {
    case Wording::kFixedPort:
      return {update_line("INF", item_text(item, 0, "OK:PASS", 'c', "", "NORMAL_NAO_EXISTIR!!!"))};
    case Wording::kEmulator:
      return {update_line("ERR", item_text(item, rc, "ER:FAIL", 'c', "", "SAT_EMU=OFF"))};
    default:
      return {update_line("ERR", item_text(item, rc, "ER:FAIL", 'c', ""))};
  }
}

Lines empty_line(const Item& item) {
  switch (item.wording) {
    case Wording::kFixedPort:
      return {update_line("INF", item_text(item, 1, "OK:PASS", 'b', "", "NORMAL_NAO_EXISTIR!!!"))};
    case Wording::kEmulator:
      return {update_line("WRN", item_text(item, 0, "WR:WARN", 'b', "", "SAT_EMU=OFF"))};
    default:
      return {update_line("WRN", item_text(item, 0, "WR:WARN", 'b', ""))};
  }
}

Lines present_line(const Item& item) {
  switch (item.wording) {
    case Wording::kLogPath:
      return {};
    case Wording::kFixedPort:
      return {update_line("WRN", item_text(item, 0, "WR:WARN", 'a', item.value,
                                           "PARAMETRO ADICIONADO MANUALMENTE PELO CLIENTE!!!"))};
    case Wording::kEmulator:
      return {update_line("INF", item_text(item, 0, "OK:PASS", 'a', item.value, "SAT_EMU=ON"))};
    default:
      return {update_line("INF", item_text(item, item.rc, "OK:PASS", 'a', item.value))};
  }
}

using LinesOfItem = std::function<Lines(const Item&)>;
Lines lines_of_all_items(const LinesOfItem& lines_of_item) {
  Lines all;
  for (const Item& item : kItems) {
    for (std::string& line : lines_of_item(item)) all.push_back(std::move(line));
  }
  return all;
}

// A file with all sections and the items that have a text here: "name=value", or nothing.
using TextOfItem = std::function<std::string(const Item&)>;
std::string file_of(const TextOfItem& text_of_item) {
  std::string file;
  const char* section = "";
  for (const Item& item : kItems) {
    if (std::string(section) != item.section) file += printed("[%s]\n", section = item.section);
    if (const std::string text = text_of_item(item); !text.empty()) file += text + "\n";
  }
  return file;
}
std::string missing(const Item&) {
  return "";
}
std::string empty(const Item& item) {
  return printed("%s=", item.name);
}
std::string present(const Item& item) {
  return printed("%s=%s", item.name, item.value);
}

class Configuration : public ApiTraceTest {
 protected:
  Configuration() {
    gl_tSat = {};
    tLog.ucModeMask = 0;
    log_up_to(kInfo);
  }
  ~Configuration() override { allocation_succeeds = nullptr; }

  int update() { return UpdateTalvexConfiguration(settings_, reading_again_); }
  int update_from(const std::string& file) {
    write_file("SAT.ini", file);
    return update();
  }
  int update_from_default_with(const std::string& line, const std::string& replacement) {
    std::string file = kDefaultFile;
    const std::size_t at = file.find(line + "\n");
    EXPECT_NE(at, std::string::npos) << line;
    return update_from(file.replace(at, line.size(), replacement));
  }
  uint32_t timeout_of(uint32_t row) const {
    return reply_timeout_s(settings_, static_cast<SatFunctionIndex>(row));
  }

  Settings settings_ = {};
  bool reading_again_ = false;
};
class DefaultFile : public Configuration {};
class ConfigurationLines : public Configuration {};
class FixedPortItem : public Configuration {};
class Timeouts : public Configuration {
 protected:
  void expect_timeouts(const uint32_t* expected_first_seven) const {
    for (uint32_t row = 0; row < kSatFunctionCount; ++row) {
      const uint32_t expected = row < kAppliedTimeouts ? expected_first_seven[row] : kDefaultTimeouts[row];
      EXPECT_EQ(timeout_of(row), expected) << row;
    }
  }
};
struct SwitchValue {
  const char* name;
  const char* text;
  bool on;
};
void PrintTo(const SwitchValue& tested, std::ostream* out) {
  *out << tested.name;
}
class SwitchItems : public Configuration, public testing::WithParamInterface<SwitchValue> {};
class LogPathItem : public Configuration {
 protected:
  // What the utilities say about the directory.
  Lines utilities_lines_of(const std::string& path) {
    write_file("SAT.ini", file_of([&](const Item& item) {
                 return item.step == 1 ? "LogFilePath=" + path : present(item);
               }));
    update();
    return trace_messages("olk_utils.log");
  }
};
class ConfigurationBounds : public Configuration {};

// ---- The default file -------------------------------------------------------------------------------

std::string created_line(const std::string& tag, const std::string& text) {
  return api_line(tag, "CreateFile_TalvexIni", text);
}

TEST_F(DefaultFile, HasExactlyIts57Lines) {
  const int result = CreateFile_TalvexIni();
  const std::string written = read_file("SAT.ini");
  EXPECT_EQ(written, kDefaultFile);
  EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 57);
  EXPECT_EQ(result, static_cast<int>(written.size()));
  EXPECT_THAT(
      take_lines(),
      ElementsAre(created_line("WRN", printed(" rc[%06d]OK file[SAT.ini]Successfull Created!!!\n", result))));
}

TEST_F(DefaultFile, IsWrittenWithOneCallForEachSection) {
  log_up_to(0);
  const write_calls::Recorder writes;
  ASSERT_GT(CreateFile_TalvexIni(), 0);
  Lines sections;
  const std::string all = kDefaultFile;
  for (std::size_t at = 0; at < all.size(); at += sections.back().size()) {
    sections.push_back(all.substr(at, all.find("\n\n", at) + 2 - at));
  }
  EXPECT_THAT(sections, SizeIs(5));
  EXPECT_THAT(writes.calls(), ElementsAreArray(sections));
}

TEST_F(DefaultFile, IsWholeWhenWritesAreShortOrInterrupted) {
  const write_calls::Reluctant writes;
  CreateFile_TalvexIni();
  EXPECT_EQ(read_file("SAT.ini"), kDefaultFile);
}

TEST_F(DefaultFile, IsOpenToOthersAsFarAsTheUmaskAllows) {
  for (const mode_t mask : {0u, 022u}) {
    const Umask umask(mask);
    std::filesystem::remove("SAT.ini");
    ASSERT_GT(CreateFile_TalvexIni(), 0);
    EXPECT_EQ(mode_of("SAT.ini"), 0666u & ~mask);
  }
}

TEST_F(DefaultFile, LeavesNoDescriptorOpen) {
  const long descriptors = open_descriptors();
  allocation_succeeds = [] { return false; };
  EXPECT_EQ(CreateFile_TalvexIni(), -1);
  EXPECT_EQ(open_descriptors(), descriptors) << "without memory";
  allocation_succeeds = nullptr;
  EXPECT_GT(CreateFile_TalvexIni(), 0);
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(DefaultFile, IsNotWrittenOverContent) {
  write_file("SAT.ini", "#\n");
  EXPECT_EQ(CreateFile_TalvexIni(), 2);
  EXPECT_EQ(read_file("SAT.ini"), "#\n");
  EXPECT_THAT(take_lines(), ElementsAre(created_line("INF", " rc[000002]OK file[SAT.ini]Already Exist!\n")));
}

TEST_F(DefaultFile, IsNotWrittenOverContentThatHasNo32BitSize) {
  for (const uintmax_t gibibytes : {uintmax_t{2}, uintmax_t{4}}) {
    for (const char* name : {"SAT.ini", "large.ini"}) {
      write_file(name, "#\n");
      std::filesystem::resize_file(name, gibibytes << 30);
      if (!std::filesystem::exists("SAT.ini")) std::filesystem::create_symlink(name, "SAT.ini");
      EXPECT_EQ(CreateFile_TalvexIni(), INT32_MAX);
      EXPECT_EQ(std::filesystem::file_size(name), gibibytes << 30);
      EXPECT_THAT(take_lines(),
                  ElementsAre(created_line("INF", " rc[2147483647]OK file[SAT.ini]Already Exist!\n")));
      std::filesystem::remove("SAT.ini");
    }
  }
}

TEST_F(DefaultFile, IsMadeWhereALinkNamesIt) {
  std::filesystem::create_symlink("elsewhere.ini", "SAT.ini");
  EXPECT_GT(CreateFile_TalvexIni(), 0);
  EXPECT_EQ(read_file("elsewhere.ini"), kDefaultFile);
}

TEST_F(DefaultFile, ReplacesAnEmptyFile) {
  write_file("SAT.ini", "");
  EXPECT_GT(CreateFile_TalvexIni(), 0);
  EXPECT_EQ(read_file("SAT.ini"), kDefaultFile);
}

TEST_F(DefaultFile, ThatCannotBeOpenedGivesTheNegativeExistenceResult) {
  ASSERT_EQ(symlink("no/such/directory/SAT.ini", "SAT.ini"), 0);
  EXPECT_EQ(CreateFile_TalvexIni(), -1);
  EXPECT_THAT(take_lines(),
              ElementsAre(created_line("ERR", " rc[-00001]ER file[SAT.ini]Could not be Created!!!\n")));
}

TEST_F(DefaultFile, InThePlaceOfAFifoGivesTheExistenceResultZeroAndDoesNotWait) {
  ASSERT_EQ(mkfifo("SAT.ini", 0600), 0);
  EXPECT_EQ(CreateFile_TalvexIni(), 0);
  EXPECT_THAT(take_lines(),
              ElementsAre(created_line("ERR", " rc[000000]ER file[SAT.ini]Could not be Created!!!\n")));
}

TEST_F(DefaultFile, WithoutMemoryIsLeftEmptyAndThenMissingAgain) {
  allocation_succeeds = [] { return false; };
  EXPECT_EQ(CreateFile_TalvexIni(), -1);
  EXPECT_EQ(read_file("SAT.ini"), "");
  EXPECT_EQ(CreateFile_TalvexIni(), 0);
  EXPECT_THAT(take_lines(), ElementsAre(created_line("ERR", " rc[-00001]ER file[SAT.ini] calloc fail!!!\n"),
                                        created_line("ERR", " rc[000000]ER file[SAT.ini] calloc fail!!!\n")));
  allocation_succeeds = nullptr;
  EXPECT_GT(CreateFile_TalvexIni(), 0);
  EXPECT_EQ(read_file("SAT.ini"), kDefaultFile);
}

TEST_F(DefaultFile, ThatIsGoneOnceWrittenIsReported) {
  allocation_succeeds = [] { return std::filesystem::remove("SAT.ini"); };
  EXPECT_EQ(CreateFile_TalvexIni(), -1);
  EXPECT_THAT(take_lines(),
              ElementsAre(created_line("ERR", " rc[-00001]ER file[SAT.ini]Could not be Created!!!\n")));
}

TEST_F(DefaultFile, OnAFullDiskEndsWithItsSizeZero) {
  ASSERT_EQ(symlink("/dev/full", "SAT.ini"), 0);
  EXPECT_EQ(CreateFile_TalvexIni(), 0);
  EXPECT_THAT(take_lines(),
              ElementsAre(created_line("WRN", " rc[000000]OK file[SAT.ini]Successfull Created!!!\n")));
}

TEST_F(DefaultFile, YieldsTheseSettings) {
  ASSERT_GT(CreateFile_TalvexIni(), 0);
  EXPECT_EQ(update(), kLastStep);
  for (uint32_t row = 0; row < kSatFunctionCount; ++row)
    EXPECT_EQ(timeout_of(row), kDefaultTimeouts[row]) << row;
  EXPECT_STREQ(settings_.strResultPathLinux, "/etc/Arvolen/Cupons/New");
  EXPECT_FALSE(settings_.lResultFilesOn);
  EXPECT_FALSE(settings_.lSatEmulatorOn);
}

TEST_F(DefaultFile, AnswersTheReaderToo) {
  ASSERT_GT(CreateFile_TalvexIni(), 0);
  const auto value = [](const char* section, const char* item) {
    char found[TALVEX_INI_VALUE_SIZE] = "untouched";
    EXPECT_EQ(OLK_GetIniFileValue("SAT.ini", section, item, found), TALVEX_INI_FOUND) << item;
    return std::string(found);
  };
  EXPECT_EQ(value("SAT_EMULATOR", "Enable"), "0");
  EXPECT_EQ(value("LOG", "LogFile"), "PathLog") << "an item matches the beginning of a longer one";
  EXPECT_EQ(value("SAT_TIMEOUT", "AtivarSAT"), "1800");
}

TEST_F(DefaultFile, IsMadeByAnUpdateThatFindsNone) {
  EXPECT_EQ(update(), kLastStep);
  EXPECT_EQ(read_file("SAT.ini"), kDefaultFile);
}

// ---- The items and their lines ----------------------------------------------------------------------

TEST_F(ConfigurationLines, OfMissingItems) {
  EXPECT_EQ(update_from(file_of(missing)), kLastStep);
  EXPECT_THAT(take_lines(),
              ElementsAreArray(lines_of_all_items([](const Item& item) { return missing_line(item); })));
}

TEST_F(ConfigurationLines, OfEmptyItems) {
  EXPECT_EQ(update_from(file_of(empty)), kLastStep);
  EXPECT_THAT(take_lines(), ElementsAreArray(lines_of_all_items(empty_line)));
}

TEST_F(ConfigurationLines, OfPresentItems) {
  EXPECT_EQ(update_from(file_of(present)), kLastStep);
  EXPECT_THAT(take_lines(), ElementsAreArray(lines_of_all_items(present_line)));
}

TEST_F(ConfigurationLines, OfMissingSections) {
  EXPECT_EQ(update_from("# nothing here\n"), kLastStep);
  EXPECT_THAT(
      take_lines(),
      ElementsAreArray(lines_of_all_items([](const Item& item) { return missing_line(item, -304); })));
}

TEST_F(ConfigurationLines, OfAnEmptyFileWhichIsNotRewritten) {
  EXPECT_EQ(update_from(""), kLastStep);
  EXPECT_EQ(read_file("SAT.ini"), "");
  EXPECT_THAT(
      take_lines(),
      ElementsAreArray(lines_of_all_items([](const Item& item) { return missing_line(item, -301); })));
  EXPECT_STREQ(settings_.strResultPathLinux, "/etc/Arvolen/Cupons/New");
}

TEST_F(ConfigurationLines, OfADirectoryInThePlaceOfTheFile) {
  std::filesystem::create_directory("SAT.ini");
  EXPECT_EQ(update(), kLastStep);
  EXPECT_THAT(
      take_lines(),
      ElementsAreArray(lines_of_all_items([](const Item& item) { return missing_line(item, -304); })));
}

TEST_F(ConfigurationLines, OfOneItemDoNotDependOnTheOthers) {
  for (const Item& odd : kItems) {
    update_from(file_of([&](const Item& item) { return &item == &odd ? missing(item) : present(item); }));
    EXPECT_THAT(take_lines(), ElementsAreArray(lines_of_all_items([&](const Item& item) {
                  return &item == &odd ? missing_line(item) : present_line(item);
                })));
    update_from(file_of([&](const Item& item) { return &item == &odd ? empty(item) : present(item); }));
    EXPECT_THAT(take_lines(), ElementsAreArray(lines_of_all_items([&](const Item& item) {
                  return &item == &odd ? empty_line(item) : present_line(item);
                })));
  }
}

TEST_F(ConfigurationLines, FilteredByLevel) {
  log_up_to(kError);
  update_from(file_of(empty));
  update_from(file_of(present));
  EXPECT_THAT(take_lines(), IsEmpty());
  log_up_to(kWarning);
  update_from(file_of(present));
  EXPECT_THAT(take_lines(), ElementsAreArray(present_line(kItems[4])));
}

TEST_F(ConfigurationLines, BeginWithAPassLineOnceTheLibraryIsSetUp) {
  reading_again_ = true;
  update_from(file_of(present));
  const Lines lines = take_lines();
  ASSERT_FALSE(lines.empty());
  const int size = static_cast<int>(std::filesystem::file_size("SAT.ini"));
  EXPECT_EQ(lines[0],
            update_line("INF", printed("rc[%04d]OK:PASS  STEP00a  TalvexIniFileName[SAT.ini]OK\n", size)));
  EXPECT_THAT(lines, SizeIs(1 + lines_of_all_items(present_line).size()));
}

TEST_F(ConfigurationLines, OfAFileThatCannotBeCreated) {
  ASSERT_EQ(symlink("no/such/directory/SAT.ini", "SAT.ini"), 0);
  std::memset(&settings_, 0x33, sizeof settings_);
  const Settings before = settings_;
  EXPECT_EQ(update(), -1);
  EXPECT_THAT(
      take_lines(),
      ElementsAre(
          created_line("ERR", " rc[-00001]ER file[SAT.ini]Could not be Created!!!\n"),
          update_line("ERR",
                      "rc[-001]ER:FAIL  STEP00b  TalvexIniFileName[SAT.ini]Could  Not  Be  Created!!\n")));
  EXPECT_EQ(std::memcmp(&settings_, &before, sizeof before), 0);
}

TEST_F(ConfigurationLines, OfTheEngineLeaveOutOnlyTheMissingFixedPort) {
  update_from(file_of(missing));
  const Lines lines = take_all_lines("olk_utils.log");
  EXPECT_THAT(lines, SizeIs(std::size(kItems) - 1));
  EXPECT_THAT(with_text(lines, "FixarPorta"), IsEmpty());
  EXPECT_THAT(with_text(lines, "[LogMode]"),
              ElementsAre("ERR [] OLK_GetIniFileValue rc[-00305]ER:INI_FILE_ERR_ITEM_NOT_FOUND "
                          "OLK_GetIniFileValue Fail\n\t pIniFileName[SAT.ini] \n\t pSession[LOG] \n\t        "
                          "pItem[LogMode]ITEM NOT FOUND!!\n"));
}

TEST_F(ConfigurationLines, OfTheEngineNameTheFixedPortWhenItsSectionOrTheFileIsMissing) {
  update_from("# nothing here\n");
  Lines lines = take_all_lines("olk_utils.log");
  EXPECT_THAT(lines, SizeIs(std::size(kItems)));
  EXPECT_THAT(with_text(lines, "FixarPorta"),
              ElementsAre("ERR [] OLK_GetIniFileValue rc[-00304]ER:INI_FILE_ERR_SESSION_NOT_FOUND Fail\n\t "
                          "pIniFileName[SAT.ini] \n\t     pSession[SERIAL_PORT_CONFIG] \n\t        "
                          "pItem[FixarPorta] \n\t    pRetValue[]\n"));
  update_from("");
  lines = take_all_lines("olk_utils.log");
  EXPECT_THAT(with_text(lines, "FixarPorta"),
              ElementsAre("ERR [] OLK_GetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND \n\t "
                          "pIniFileName[SAT.ini] \n\t     pSession[SERIAL_PORT_CONFIG] \n\t        "
                          "pItem[FixarPorta] \n\t    pRetValue[]\n\t sztFileSize[0]=0\n"));
}

TEST_F(ConfigurationLines, OfTheEngineNameTheFixedPortWhenMemoryIsShort) {
  write_file("SAT.ini", file_of(present));
  allocation_succeeds = [] { return false; };
  update();
  EXPECT_THAT(
      take_lines(),
      ElementsAreArray(lines_of_all_items([](const Item& item) { return missing_line(item, -302); })));
  EXPECT_THAT(with_text(take_all_lines("olk_utils.log"), "FixarPorta"), SizeIs(1));
}

// ---- What the items set -----------------------------------------------------------------------------

struct Applied {
  std::string result_folder;
  bool result_files, emulator;
  bool operator==(const Applied&) const = default;
};

Applied applied(const Settings& settings) {
  return {settings.strResultPathLinux, settings.lResultFilesOn, settings.lSatEmulatorOn};
}

const Applied kPresentSettings = {"/srv/cupons", true, true};
const Applied kFallbackSettings = {"/etc/Arvolen/Cupons/New", false, false};

TEST_F(Configuration, PresentItemsAreApplied) {
  update_from(file_of(present));
  EXPECT_EQ(applied(settings_), kPresentSettings);
}

TEST_F(Configuration, MissingItemsGetTheirFallback) {
  update_from(file_of(present));
  update_from(file_of(missing));
  EXPECT_EQ(applied(settings_), kFallbackSettings);
}

TEST_F(Configuration, EmptyItemsGetTheirFallback) {
  update_from(file_of(present));
  update_from(file_of(empty));
  EXPECT_EQ(applied(settings_), kFallbackSettings);
}

TEST_F(Configuration, ItemsAreMatchedCaseSensitively) {
  update_from_default_with("PathLinux=/etc/Arvolen/Cupons/New", "pathlinux=/srv");
  EXPECT_STREQ(settings_.strResultPathLinux, "/etc/Arvolen/Cupons/New");
  update_from_default_with("[SAT_EMULATOR]", "[sat_emulator]\nEnable=1");
  EXPECT_FALSE(settings_.lSatEmulatorOn);
}

// ---- The fixed port ---------------------------------------------------------------------------------

TEST_F(FixedPortItem, AddedByHandIsSetWithAWarning) {
  update_from_default_with("[SERIAL_PORT_CONFIG]", "[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS0");
  EXPECT_THAT(with_text(take_lines(), "FixarPorta"),
              ElementsAre(update_line("WRN",
                                      "rc[0000]WR:WARN  STEP04a  TalvexIniFileName[SAT.ini]  "
                                      "strSessionName[SERIAL_PORT_CONFIG]  item[FixarPorta=/dev/ttyS0]"
                                      "PARAMETRO ADICIONADO MANUALMENTE PELO CLIENTE!!!\n")));
}

TEST_F(FixedPortItem, InTheDefaultFilesCommentIsNone) {
  update_from(kDefaultFile);
  EXPECT_THAT(with_text(take_lines(), "FixarPorta"),
              ElementsAre(update_line(
                  "INF",
                  "rc[0000]OK:PASS  STEP04c  TalvexIniFileName[SAT.ini]  "
                  "strSessionName[SERIAL_PORT_CONFIG]  item[FixarPorta=]NORMAL_NAO_EXISTIR!!!\n")));
  EXPECT_THAT(take_all_lines("olk_utils.log"), IsEmpty());
}

// So the call after the first one reads the file once more.
TEST_F(FixedPortItem, MissingForgetsTheFilesTime) {
  settings_.tIniFileTime = 77;
  update_from("[SERIAL_PORT_CONFIG]\nSerialPortConfig=9600\n");
  EXPECT_EQ(settings_.tIniFileTime, 0);
}

TEST_F(FixedPortItem, EmptyOrPresentLeavesTheFilesTimeAlone) {
  settings_.tIniFileTime = 77;
  update_from("[SERIAL_PORT_CONFIG]\nFixarPorta=\n");
  update_from("[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS1\n");
  EXPECT_EQ(settings_.tIniFileTime, 77);
}

// ---- Time-outs --------------------------------------------------------------------------------------

std::string timeouts_file(const std::string& value) {
  return file_of([&](const Item& item) {
    return item.section == std::string("SAT_TIMEOUT") ? printed("%s=%s", item.name, value.c_str()) : "";
  });
}

TEST_F(Timeouts, OfSevenFunctionsAreAppliedAndOfNineNever) {
  update_from(file_of(present));
  constexpr uint32_t kApplied[kAppliedTimeouts] = {101, 102, 103, 104, 105, 106, 107};
  expect_timeouts(kApplied);
}

TEST_F(Timeouts, OneOfEachGroup) {
  update_from_default_with("EnviarDadosVenda              =  30", "EnviarDadosVenda=45");
  EXPECT_EQ(timeout_of(kEnviarDadosVenda), 45u);
  update_from_default_with("ConsultarNumeroSessao         =  20", "ConsultarNumeroSessao=45");
  EXPECT_EQ(timeout_of(kConsultarNumeroSessao), 20u);
}

// The seven show the converted number, the nine the lookup's 0.
TEST_F(Timeouts, OfZeroBelowOrNoNumberAreLoggedAndNotApplied) {
  struct {
    const char* text;
    int number;
  } const cases[] = {{"0", 0}, {"-5", -5}, {"abc", 0}, {"-99999999999", -2147483647 - 1}};
  for (const auto& c : cases) {
    update_from(timeouts_file(c.text));
    expect_timeouts(kDefaultTimeouts);
    const Lines lines = with_text(take_lines(), "strSessionName[SAT_TIMEOUT]");
    ASSERT_THAT(lines, SizeIs(kSatFunctionCount));
    for (int row = 0; row < static_cast<int>(kSatFunctionCount); ++row) {
      Item item = kItems[kFirstTimeout + row];
      EXPECT_EQ(
          lines[static_cast<std::size_t>(row)],
          update_line("INF", item_text(item, row < kAppliedTimeouts ? c.number : 0, "OK:PASS", 'a', c.text)));
    }
  }
}

TEST_F(Timeouts, OfOneSecondAreApplied) {
  update_from(timeouts_file("1"));
  constexpr uint32_t kApplied[kAppliedTimeouts] = {1, 1, 1, 1, 1, 1, 1};
  expect_timeouts(kApplied);
}

TEST_F(Timeouts, ConvertLeadingDigitsAndSaturate) {
  update_from(timeouts_file("12s"));
  EXPECT_EQ(timeout_of(kAtivarSAT), 12u);
  update_from(timeouts_file("99999999999"));
  EXPECT_EQ(timeout_of(kAtivarSAT), 2147483647u);
}

TEST_F(Timeouts, OnceAppliedOutliveTheirRemoval) {
  update_from(timeouts_file("45"));
  update_from(file_of(missing));
  update_from(file_of(empty));
  constexpr uint32_t kApplied[kAppliedTimeouts] = {45, 45, 45, 45, 45, 45, 45};
  expect_timeouts(kApplied);
}

// ---- Switches ---------------------------------------------------------------------------------------

TEST_P(SwitchItems, AreOnByTheirFirstCharacter) {
  const auto& [name, value, expected] = GetParam();
  settings_.lResultFilesOn = settings_.lSatEmulatorOn = !expected;
  update_from(std::string("[ARVOLEN]\nEnable=") + value + "\n[SAT_EMULATOR]\nEnable=" + value + "\n");
  EXPECT_EQ(settings_.lResultFilesOn, expected);
  EXPECT_EQ(settings_.lSatEmulatorOn, expected);
  std::string shown = value;
  std::erase(shown, ' ');
  std::erase(shown, '=');
  const Item& emulator = kItems[std::size(kItems) - 1];
  const char* note = expected ? "SAT_EMU=ON" : "SAT_EMU=OFF";
  const Lines line = shown.empty()
                         ? empty_line(emulator)
                         : Lines{update_line("INF", item_text(emulator, 0, "OK:PASS", 'a', shown, note))};
  EXPECT_THAT(with_text(take_lines(), "SAT_EMU"), ElementsAreArray(line));
}
INSTANTIATE_TEST_SUITE_P(
    Values, SwitchItems,
    testing::Values(SwitchValue{"One", "1", true}, SwitchValue{"Ten", "10", true},
                    SwitchValue{"BlankAndOne", " 1", true}, SwitchValue{"EqualsAndOne", "=1", true},
                    SwitchValue{"OneAndText", "1yes", true}, SwitchValue{"Zero", "0", false},
                    SwitchValue{"ZeroAndOne", "01", false}, SwitchValue{"Text", "yes", false},
                    SwitchValue{"Nothing", "", false}, SwitchValue{"TabAndOne", "\t1", false},
                    SwitchValue{"Two", "2", false}),
    [](const auto& tested) { return std::string(tested.param.name); });

// ---- The log's directory ----------------------------------------------------------------------------

const std::string kBanner = api_line("WRN", "UpdateTalvexConfiguration",
                                     "\n\t   Version[TALVEX DLL Ver. 02.00 - 23-JUL-2020]\n\t "
                                     "BuildDate[Jul 27 2020-10:41:14]\n\t   This Is[64 Bits] Platform\n");

TEST_F(LogPathItem, WithLoggingOnIsMadeAndTheBannerLogged) {
  tLog.ucModeMask = 1;
  update_from(file_of(present));
  EXPECT_TRUE(std::filesystem::is_directory("Log"));
  const Lines lines = take_lines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], kBanner);
  EXPECT_THAT(with_text(lines, "Version["), SizeIs(1));
  EXPECT_THAT(with_text(lines, "STEP01"), IsEmpty());
}

TEST_F(LogPathItem, ThatExistsGetsTheBannerToo) {
  tLog.ucModeMask = 1;
  std::filesystem::create_directory("Log");
  update_from(file_of(present));
  EXPECT_EQ(take_lines().at(0), kBanner);
}

TEST_F(LogPathItem, WithLoggingOffIsNeitherMadeNorAnnounced) {
  tLog.ucModeMask = 0;
  update_from(file_of(present));
  EXPECT_FALSE(std::filesystem::exists("Log"));
  EXPECT_THAT(with_text(take_lines(), "Version["), IsEmpty());
}

TEST_F(LogPathItem, ThatCannotBeMadeStillGetsTheBanner) {
  tLog.ucModeMask = 1;
  write_file("Log", "in the way");
  EXPECT_EQ(update_from(file_of(present)), kLastStep);
  EXPECT_EQ(take_lines().at(0), kBanner);
}

TEST_F(LogPathItem, ThatIsNothingYetIsLookedAtAndMade) {
  tLog.ucModeMask = 1;
  EXPECT_THAT(
      utilities_lines_of("Traces"),
      ElementsAre("WRN [] OLK_Exist  rc[000000]WR:  pDirFileName[Traces] Not Found!!! force return 0\n"));
  EXPECT_TRUE(std::filesystem::is_directory("Traces"));
}

TEST_F(LogPathItem, ThatIsADirectoryIsOnlyLookedAt) {
  tLog.ucModeMask = 1;
  std::filesystem::create_directory("Traces");
  ASSERT_EQ(chmod("Traces", 0755), 0);
  EXPECT_THAT(utilities_lines_of("Traces"),
              ElementsAre("INF [] OLK_Exist  rc[016384]OK:S_IFDIR is directory         st_mode[00004000h] & "
                          "S_IFMT[000041EDh] return 1\n"));
}

TEST_F(LogPathItem, ThatIsAFileIsLookedAtAndCannotBeMade) {
  tLog.ucModeMask = 1;
  write_file("Traces", "in the way");
  ASSERT_EQ(chmod("Traces", 0644), 0);
  EXPECT_THAT(utilities_lines_of("Traces"),
              ElementsAre("ERR [] OLK_Exist  rc[032768]ER:S_IFREG is regular file     st_mode[00004000h] & "
                          "S_IFMT[000081A4h] return 2\n",
                          "ERR [] OLK_CreateDir rc[-00004] pDirName[Traces] Not Created s.st_mode[000081A4h] "
                          "And S_IFDIR[00004000h] == 1\n"));
  EXPECT_EQ(read_file("Traces"), "in the way");
}

TEST_F(LogPathItem, EmptyOrMissingHasItsOrdinaryLineAndNoBanner) {
  tLog.ucModeMask = 1;
  update_from(file_of(empty));
  Lines lines = take_lines();
  EXPECT_EQ(lines.at(0), empty_line(kItems[0]).at(0));
  EXPECT_THAT(with_text(lines, "Version["), IsEmpty());
  update_from(file_of(missing));
  lines = take_lines();
  EXPECT_EQ(lines.at(0), missing_line(kItems[0]).at(0));
  EXPECT_THAT(with_text(lines, "Version["), IsEmpty());
}

// ---- Bounds -----------------------------------------------------------------------------------------

TEST_F(ConfigurationBounds, AValueOfMoreThan127CharactersIsAFailedRead) {
  update_from("[ARVOLEN]\nPathLinux=" + std::string(127, '7') + "\n");
  EXPECT_EQ(settings_.strResultPathLinux, std::string(127, '7'));
  take_lines();
  take_all_lines("olk_utils.log");
  update_from("[ARVOLEN]\nPathLinux=" + std::string(128, '7') + "\n");
  EXPECT_STREQ(settings_.strResultPathLinux, "/etc/Arvolen/Cupons/New");
  EXPECT_THAT(with_text(take_lines(), "item[PathLinux"),
              ElementsAre(update_line("ERR",
                                      "rc[-302]ER:FAIL  STEP28c  TalvexIniFileName[SAT.ini]  "
                                      "strSessionName[ARVOLEN]  item[PathLinux=]\n")));
  EXPECT_THAT(with_text(take_all_lines("olk_utils.log"), "[PathLinux]"), SizeIs(1));
}

}  // namespace
