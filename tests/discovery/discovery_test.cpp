// Which port findSat chooses, what it says about it, and what it leaves in SAT.conf. The shell command runs
// for real; find and udevadm answer what the test decides.
#include "api/discovery.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "api/context.h"
#include "api/link_codes.h"
#include "api/protocol_log.h"
#include "olk_utils/bounded_text.h"
#include "support/api_trace.h"
#include "support/file_status.h"
#include "support/full_disk.h"
#include "support/usb_bus.h"
#include "talvex/talvex.h"

// The linker is told to wrap these three.
namespace {

bool out_of_memory;
bool popen_fails;
std::string command_of_popen;
Lines before_writes;  // what SAT.conf held before each write to it
Lines after_writes;

bool is_port_file(int descriptor) {
  struct stat file {};
  struct stat named {};
  return fstat(descriptor, &file) == 0 && stat("SAT.conf", &named) == 0 && S_ISREG(file.st_mode) &&
         file.st_dev == named.st_dev && file.st_ino == named.st_ino;
}

}  // namespace

extern "C" void* __real_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size) {
  return out_of_memory ? nullptr : __real_calloc(count, size);
}
extern "C" FILE* __real_popen(const char* command, const char* mode);
extern "C" FILE* __wrap_popen(const char* command, const char* mode) {
  command_of_popen = command;
  return popen_fails ? nullptr : __real_popen(command, mode);
}
extern "C" ssize_t __real_write(int descriptor, const void* bytes, size_t count);
extern "C" ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  if (!is_port_file(descriptor)) return __real_write(descriptor, bytes, count);
  before_writes.push_back(read_file("SAT.conf"));
  const ssize_t written = __real_write(descriptor, bytes, count);
  const int error = errno;
  after_writes.push_back(read_file("SAT.conf"));
  errno = error;
  return written;
}

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::SizeIs;

constexpr char kCommand[] =
    R"(for sysdevpath in $(find /sys/bus/usb/devices/usb*/ -name "dev"); do   syspath=${sysdevpath%/dev};   devname=$(udevadm info -q name -p $syspath);   teste=$(udevadm info -q property --export -p $syspath | grep -e TALVEX -e VDR-K20);   if test "$teste"; then     dev=$(echo $devname | grep ttyACM);     if test "$dev"; then       echo /dev/$devname;     fi   fi done; 2> /dev/null )";

std::string line(const std::string& tag, const std::string& text) {
  return api_line(tag, "findSat", text);
}
std::string sized(const std::string& text) {
  return printed("[%05d:%s]", static_cast<int>(text.size()), text.c_str());
}
// The lines in the order in which they can come.
std::string read_line(int number, const std::string& name) {
  return line("INF", printed("Lnx: rc[%06d]WR portNameFmt", number) + sized(name + "\n") + "\n");
}
std::string no_fixed_port(const std::string& found, const std::string& fixed = "") {
  return line("INF", "Lnx: rc[000000]WR\n\t portNameFmt" + sized(found) +
                         " <<     DEFAULT NO USER SET!!\n\t    FixedPort" + sized(fixed) + "<DEFAULT>\n");
}
std::string other_fixed_port(const std::string& found, const std::string& fixed) {
  return line("WRN", "Lnx: rc[000000]WR\n\t portNameFmt" + sized(found) +
                         " << MISSMATCH FOUND SAT PORT!!\n\t   FixedPort" + sized(fixed) +
                         " SAT MAY FAIL CUSTOMER PORT SET!!!\n");
}
std::string same_fixed_port(const std::string& port) {
  return line("WRN", "Lnx: rc[000000]ER\n\t portNameFmt" + sized(port) +
                         " <<     MATCH FOUND SAT PORT!!\n\t   FixedPort" + sized(port) +
                         " SAT MAY  WORK CUSTOMER PORT SET!!!\n");
}
std::string only_fixed_port(const std::string& fixed) {
  return line("WRN",
              "Lnx: rc[000000]ER\n\t portNameFmt[00000:] << MISSMATCH FAIL  NO  PORT!!\n\t   FixedPort" +
                  sized(fixed) + " SAT MAY FAIL CUSTOMER PORT SET!!!\n");
}
const std::string kNothingFound =
    line("ERR", "Lnx:WR rc[-2000]ER\n\t Port[00012:/dev/ttyNONE]NO_SAT_DEVICE_FOUND!!!!!\n");
const std::string kNoEmulatorPort = line("ERR", "Lnx:ER NO_SAT_DEVICE_FOUND and NO_EMULATOR_DEV_SET\n");
std::string emulator(const std::string& port) {
  return line("WRN", "Lnx:WR Port" + sized(port) + "IOLK:USING_SAT_EMULATOR!!!\n");
}
std::string saving(const std::string& port) {
  return line("INF", "Lnx:WR Saving on File[SAT.conf] Port" + sized(port) + "\n");
}
std::string saved(const std::string& port) {
  return line("INF", "Lnx: rc[000000]OK \n\t Port" + sized(port) + " Saved on file[SAT.conf]\n");
}
const std::string kSavedNone =
    line("ERR", "Lnx: rc[-02000]ER \n\t Port[00012:/dev/ttyNONE] Saved on file[SAT.conf]NO_SAT_FOUND!!!\n");
std::string not_saved(int rc, const std::string& port) {
  return line("ERR", printed("Lnx:  rc[%06d]ER rc[%06d]SAT_API_ERR_LNX_DEV_NOT_FOUND \n\t Port", rc, rc) +
                         sized(port) + " Not Saved on file[SAT.conf]\n");
}

std::string fixed_line(const std::string& tag, const std::string& text) {
  return config_line(tag, "GetFixedSerialPort", text);
}
const std::string kFixedMissing = fixed_line(
    "INF",
    "rc[0000]OK:\n\t     Ini[SAT.ini]\n\t Session[SERIAL_PORT_CONFIG]]\n\t    Item[FixarPorta= << NAO "
    "EXISTIR <DEFAULT>\n]\n");
const std::string kFixedEmpty = fixed_line(
    "INF",
    "rc[0001]OK:\n\t     Ini[SAT.ini]\n\t Session[SERIAL_PORT_CONFIG]\n\t    Item[FixarPorta= << SEM "
    "VALOR <NAO USAR>\n]\n");
std::string fixed_set(const std::string& port) {
  return fixed_line("WRN", printed("rc[%04d]WR:\n\t     Ini[SAT.ini]\n\t Session[SERIAL_PORT_CONFIG]\n\t    "
                                   "Item[FixarPorta=%s]<< ADICIONADO MANUALMENTE PELO CLIENTE\n\n",
                                   static_cast<int>(port.size()), port.c_str()));
}

UsbNode talvex(const std::string& name) {
  return {name, {"DEVNAME=/dev/" + name, "ID_MODEL=TALVEX_SAT"}};
}

class Discovery : public ApiTraceTest {
 protected:
  Discovery() {
    gl_tSat = {};
    write_file("SAT.ini", "#\n[SERIAL_PORT_CONFIG]\n");
    log_up_to(kInfo);
  }
  ~Discovery() override {
    out_of_memory = popen_fails = false;
    if (gl_iFd > 0) close(gl_iFd);
    gl_iFd = 0;
  }

  // Runs the search over these nodes; the rest of the fixture tells what came out.
  void find(const std::vector<UsbNode>& nodes) {
    const CannedSearch search(nodes);
    char name[kDeviceNameSize];
    std::memset(name, 0x5A, sizeof name);
    rc = findSat(settings_, name);
    chosen = name;
    calls = search.calls();
    lines = take_lines();
  }
  static void fix_port(const std::string& port) {
    write_file("SAT.ini", "#\n[SERIAL_PORT_CONFIG]\nFixarPorta=" + port + "\n");
  }
  void set_emulator(const std::string& items) {
    settings_.lSatEmulatorOn = true;
    write_file("SAT.ini", "#\n[SERIAL_PORT_CONFIG]\n[SAT_EMULATOR]\n" + items);
  }

  Settings settings_ = {};
  int rc = 1;
  std::string chosen;
  std::string calls;
  Lines lines;
};

// ---- The search -------------------------------------------------------------------------------------

TEST_F(Discovery, RunsTheDocumentedCommand) {
  find({talvex("ttyACM0")});
  EXPECT_EQ(command_of_popen, kCommand);
  EXPECT_EQ(
      calls,
      "find /sys/bus/usb/devices/usb*/ -name dev\nudevadm info -q name -p device0\nudevadm info -q property "
      "--export -p device0\n");
}

TEST_F(Discovery, OneMatchingDevice) {
  find({talvex("ttyACM1")});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "/dev/ttyACM1");
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM1");
  EXPECT_THAT(lines, ElementsAre(read_line(0, "/dev/ttyACM1"), kFixedMissing, no_fixed_port("/dev/ttyACM1"),
                                 saving("/dev/ttyACM1"), saved("/dev/ttyACM1")));
}

TEST_F(Discovery, OfTwoMatchingDevicesTheOnePrintedLast) {
  find({talvex("ttyACM0"), talvex("ttyACM1")});
  EXPECT_EQ(chosen, "/dev/ttyACM1");
  EXPECT_THAT(lines,
              ElementsAre(read_line(0, "/dev/ttyACM0"), read_line(1, "/dev/ttyACM1"), kFixedMissing,
                          no_fixed_port("/dev/ttyACM1"), saving("/dev/ttyACM1"), saved("/dev/ttyACM1")));
  find({talvex("ttyACM1"), talvex("ttyACM0")});
  EXPECT_EQ(chosen, "/dev/ttyACM0");
}

TEST_F(Discovery, ByEitherNameInAnyProperty) {
  find({{"ttyACM3", {"ID_VENDOR_FROM_DATABASE=TALVEX Industria"}}});
  EXPECT_EQ(chosen, "/dev/ttyACM3");
  find({{"ttyACM4", {"ID_SERIAL=x_VDR-K20_y"}}});
  EXPECT_EQ(chosen, "/dev/ttyACM4");
}

TEST_F(Discovery, NotByOtherPropertiesOrNodes) {
  find({{"ttyACM0", {"ID_MODEL=Talvex", "ID_MODEL=VDR_K20"}},
        talvex("ttyUSB0"),
        talvex("bus/usb/001/002"),
        {"ttyACM1", {}}});
  EXPECT_EQ(chosen, "/dev/ttyNONE");
  EXPECT_EQ(rc, -2000);
}

TEST_F(Discovery, TrimsWhatFollowsTheLastDigit) {
  find({talvex("ttyACM0 ")});
  EXPECT_EQ(chosen, "/dev/ttyACM0");
  find({talvex("ttyACM12-x")});
  EXPECT_EQ(chosen, "/dev/ttyACM12");
}

TEST_F(Discovery, AFoundNameWithoutADigitIsNone) {
  find({talvex("ttyACM")});
  EXPECT_EQ(chosen, "/dev/ttyNONE");
}

TEST_F(Discovery, ReadsOverlongOutputInPiecesOf255Characters) {
  const std::string tail = "ttyACM7";
  find({talvex(std::string(300 - 5 - tail.size(), 'x') + tail)});
  EXPECT_THAT(with_text(lines, "portNameFmt[00255:/dev/xxx"), SizeIs(1));
  EXPECT_THAT(with_text(lines, "rc[000001]WR portNameFmt[00046:xxx"), SizeIs(1));
  EXPECT_EQ(chosen, "/dev/ttyNONE");
}

TEST_F(Discovery, NoDeviceAndEmulatorOff) {
  find({});
  EXPECT_EQ(rc, -2000);
  EXPECT_EQ(chosen, "/dev/ttyNONE");
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyNONE");
  EXPECT_THAT(lines, ElementsAre(kFixedMissing, no_fixed_port(""), kNothingFound, saving("/dev/ttyNONE"),
                                 kSavedNone));
}

TEST_F(Discovery, ANullNameIsNotFilled) {
  const CannedSearch search({talvex("ttyACM1")});
  EXPECT_EQ(findSat(settings_, nullptr), 0);
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM1");
}

TEST_F(Discovery, RunsAgainOnEveryCallAndRewritesThePortFile) {
  write_file("SAT.conf", std::string(1000, 'x'));
  find({talvex("ttyACM10")});
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM10");
  find({talvex("ttyACM2")});
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM2");
}

// Whoever looks at the port file, or finds it behind a host that was killed, must not read a port that was
// never chosen.
TEST_F(Discovery, ThePortFileHoldsOneNameOrNothingAtEveryMoment) {
  for (const auto& [former, next] :
       {std::pair{"ttyACM10", "ttyACM2"}, {"ttyACM2", "ttyACM10"}, {"ttyACM1", "ttyACM2"}}) {
    find({talvex(former)});
    before_writes.clear();
    after_writes.clear();
    find({talvex(next)});
    const std::string former_port = std::string("/dev/") + former;
    const std::string next_port = std::string("/dev/") + next;
    EXPECT_THAT(before_writes, ElementsAre(AnyOf("", former_port))) << former_port << " to " << next_port;
    EXPECT_THAT(after_writes, ElementsAre(next_port)) << former_port << " to " << next_port;
  }
}

// Emptied first, it would be written to the disk on every call.
TEST_F(Discovery, ThePortFileIsWrittenOverInPlaceWithTheNameThatItHolds) {
  find({talvex("ttyACM1")});
  before_writes.clear();
  find({talvex("ttyACM1")});
  EXPECT_THAT(before_writes, ElementsAre("/dev/ttyACM1"));
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyACM1");
}

// Whether the search has run again or its answer was recalled: a call cannot tell.
TEST_F(Discovery, SaysTheSameOnEveryCallWhileNothingChanges) {
  const CannedSearch search({talvex("ttyACM0"), talvex("ttyACM1")});
  findSat(settings_, nullptr);
  const Lines first = take_lines();
  EXPECT_THAT(first, SizeIs(6));
  for (int call = 0; call < 3; ++call) {
    char name[kDeviceNameSize];
    EXPECT_EQ(findSat(settings_, name), 0);
    EXPECT_STREQ(name, "/dev/ttyACM1");
    EXPECT_EQ(take_lines(), first);
  }
}

// ---- The fixed port ---------------------------------------------------------------------------------

TEST_F(Discovery, AFixedPortWinsOverAnotherDevice) {
  fix_port("/dev/ttyUSB0");
  find({talvex("ttyACM0")});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "/dev/ttyUSB0");
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyUSB0");
  EXPECT_THAT(lines, ElementsAre(read_line(0, "/dev/ttyACM0"), fixed_set("/dev/ttyUSB0"),
                                 other_fixed_port("/dev/ttyACM0", "/dev/ttyUSB0"), saving("/dev/ttyUSB0"),
                                 saved("/dev/ttyUSB0")));
}

TEST_F(Discovery, AFixedPortThatIsTheDevice) {
  fix_port("/dev/ttyACM0");
  find({talvex("ttyACM0")});
  EXPECT_EQ(chosen, "/dev/ttyACM0");
  EXPECT_THAT(lines,
              ElementsAre(read_line(0, "/dev/ttyACM0"), fixed_set("/dev/ttyACM0"),
                          same_fixed_port("/dev/ttyACM0"), saving("/dev/ttyACM0"), saved("/dev/ttyACM0")));
}

TEST_F(Discovery, AFixedPortWithoutADevice) {
  fix_port("/dev/ttyS1");
  find({});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "/dev/ttyS1");
  EXPECT_THAT(lines, ElementsAre(fixed_set("/dev/ttyS1"), only_fixed_port("/dev/ttyS1"), saving("/dev/ttyS1"),
                                 saved("/dev/ttyS1")));
}

TEST_F(Discovery, AFixedPortLosesItsTrailingBlank) {
  fix_port("/dev/ttyS1 ");
  find({});
  EXPECT_EQ(chosen, "/dev/ttyS1");
  fix_port("/dev/ttyS1\t;x");
  find({});
  EXPECT_EQ(chosen, "/dev/ttyS1");
}

TEST_F(Discovery, AFixedPortOfFewerThanThreeCharactersIsNone) {
  fix_port("/1");
  find({talvex("ttyACM0")});
  EXPECT_EQ(chosen, "/dev/ttyACM0");
  EXPECT_THAT(lines,
              ElementsAre(read_line(0, "/dev/ttyACM0"), fixed_set("/1"), no_fixed_port("/dev/ttyACM0", "/1"),
                          saving("/dev/ttyACM0"), saved("/dev/ttyACM0")));
  fix_port("/1x");
  find({});
  EXPECT_EQ(chosen, "/dev/ttyNONE");
}

TEST_F(Discovery, AFixedPortOfThreeCharactersIsOne) {
  fix_port("/d1");
  find({talvex("ttyACM0")});
  EXPECT_EQ(rc, -2000);
  EXPECT_EQ(chosen, "/dev/ttyNONE");
  EXPECT_THAT(lines, ElementsAre(read_line(0, "/dev/ttyACM0"), fixed_set("/d1"),
                                 other_fixed_port("/dev/ttyACM0", "/d1"), kNothingFound,
                                 saving("/dev/ttyNONE"), kSavedNone));
}

TEST_F(Discovery, AFixedPortWithoutADigitIsAnEmptyOne) {
  fix_port("/dev/tty");
  find({talvex("ttyACM0")});
  EXPECT_EQ(chosen, "/dev/ttyACM0");
  EXPECT_THAT(lines, ElementsAre(read_line(0, "/dev/ttyACM0"), kFixedEmpty, no_fixed_port("/dev/ttyACM0"),
                                 saving("/dev/ttyACM0"), saved("/dev/ttyACM0")));
}

TEST_F(Discovery, AFixedPortWithoutDevDiscardsEvenAFoundDevice) {
  fix_port("COM3");
  find({talvex("ttyACM0")});
  EXPECT_EQ(rc, -2000);
  EXPECT_EQ(chosen, "/dev/ttyNONE");
  EXPECT_THAT(lines, ElementsAre(read_line(0, "/dev/ttyACM0"), fixed_set("COM3"),
                                 other_fixed_port("/dev/ttyACM0", "COM3"), kNothingFound,
                                 saving("/dev/ttyNONE"), kSavedNone));
}

TEST_F(Discovery, AFixedPortMayHaveDevAnywhere) {
  fix_port("/mnt/dev/tty7");
  find({});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "/mnt/dev/tty7");
}

TEST_F(Discovery, AFixedPortIsUsedUpTo255Characters) {
  const std::string longest = "/dev/" + std::string(250, '7');
  fix_port(longest);
  find({});
  EXPECT_EQ(chosen, longest);
  EXPECT_EQ(read_file("SAT.conf"), longest);
  fix_port(longest + "7");
  find({});
  EXPECT_EQ(chosen, "/dev/ttyNONE");
}

TEST_F(Discovery, TheFixedPortIsReadFromTheFileOnEveryCall) {
  fix_port("/dev/ttyS1");
  find({});
  fix_port("/dev/ttyS2");
  find({});
  EXPECT_EQ(chosen, "/dev/ttyS2");
  std::filesystem::remove("SAT.ini");
  find({talvex("ttyACM0")});
  EXPECT_EQ(chosen, "/dev/ttyACM0");
}

// ---- The emulator -----------------------------------------------------------------------------------

TEST_F(Discovery, TheEmulatorsPortWithoutADevice) {
  set_emulator("SerialPortLinux=/dev/pts/3\nEnable=1\n");
  find({});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "/dev/pts/3");
  EXPECT_EQ(read_file("SAT.conf"), "/dev/pts/3");
  EXPECT_THAT(lines, ElementsAre(kFixedMissing, no_fixed_port(""), emulator("/dev/pts/3"),
                                 saving("/dev/pts/3"), saved("/dev/pts/3")));
}

TEST_F(Discovery, TheEmulatorsPortNeedsNoDevAndIsNotTrimmed) {
  set_emulator("SerialPortLinux=tty-emulator.\n");
  find({});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "tty-emulator.");
  EXPECT_EQ(read_file("SAT.conf"), "tty-emulator.");
}

TEST_F(Discovery, TheEmulatorStandsBackBehindADeviceAndAFixedPort) {
  set_emulator("SerialPortLinux=/dev/pts/3\n");
  find({talvex("ttyACM0")});
  EXPECT_EQ(chosen, "/dev/ttyACM0");
  write_file("SAT.ini",
             "#\n[SERIAL_PORT_CONFIG]\nFixarPorta=/dev/ttyS1\n[SAT_EMULATOR]\nSerialPortLinux=/dev/pts/3\n");
  find({});
  EXPECT_EQ(chosen, "/dev/ttyS1");
}

TEST_F(Discovery, TheEmulatorReplacesAFixedPortWithoutDev) {
  set_emulator("SerialPortLinux=/dev/pts/3\n");
  write_file("SAT.ini",
             "#\n[SERIAL_PORT_CONFIG]\nFixarPorta=COM3\n[SAT_EMULATOR]\nSerialPortLinux=/dev/pts/3\n");
  find({talvex("ttyACM0")});
  EXPECT_EQ(chosen, "/dev/pts/3");
}

TEST_F(Discovery, TheEmulatorWithoutAPortCountsAsFoundWithAnEmptyName) {
  for (const char* items : {"", "SerialPortLinux=\n"}) {
    set_emulator(items);
    find({});
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(chosen, "");
    EXPECT_EQ(read_file("SAT.conf"), "");
    EXPECT_THAT(lines, ElementsAre(kFixedMissing, no_fixed_port(""), kNoEmulatorPort, saving(""), saved("")));
  }
}

TEST_F(Discovery, TheEmulatorWithoutAPortLeavesANameWithoutDevAsItWas) {
  set_emulator("");
  fix_port("COM3");
  find({});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "COM3");
}

TEST_F(Discovery, TheEmulatorOnTheNameForNoDeviceIsNotFound) {
  set_emulator("SerialPortLinux=/dev/ttyNONE\n");
  find({});
  EXPECT_EQ(rc, -2000);
  EXPECT_EQ(chosen, "/dev/ttyNONE");
  EXPECT_THAT(lines, ElementsAre(kFixedMissing, no_fixed_port(""), emulator("/dev/ttyNONE"),
                                 saving("/dev/ttyNONE"), kSavedNone));
}

TEST_F(Discovery, TheEmulatorsPortIsUsedUpTo31Characters) {
  const std::string longest = "/dev/" + std::string(26, '7');
  set_emulator("SerialPortLinux=" + longest + "\n");
  find({});
  EXPECT_EQ(chosen, longest);
  set_emulator("SerialPortLinux=" + longest + "7\n");
  find({});
  EXPECT_EQ(chosen, "");
  EXPECT_EQ(lines.at(2), kNoEmulatorPort);
}

TEST_F(Discovery, TheEmulatorsSwitchComesFromMemoryAndItsPortFromTheFile) {
  set_emulator("SerialPortLinux=/dev/pts/3\nEnable=0\n");
  find({});
  EXPECT_EQ(chosen, "/dev/pts/3");
  settings_.lSatEmulatorOn = false;
  write_file("SAT.ini", "#\n[SERIAL_PORT_CONFIG]\n[SAT_EMULATOR]\nSerialPortLinux=/dev/pts/3\nEnable=1\n");
  find({});
  EXPECT_EQ(chosen, "/dev/ttyNONE");
}

// ---- Failures ---------------------------------------------------------------------------------------

TEST_F(Discovery, APortFileThatCannotBeWrittenKeepsTheCodeOfTheStepBefore) {
  std::filesystem::create_directory("SAT.conf");
  find({talvex("ttyACM0")});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "/dev/ttyACM0");
  EXPECT_EQ(lines.back(), not_saved(0, "/dev/ttyACM0"));
  EXPECT_THAT(lines, SizeIs(4));

  find({});
  EXPECT_EQ(rc, -2000);
  EXPECT_EQ(chosen, "/dev/ttyNONE");
  EXPECT_EQ(lines.back(), not_saved(-2000, "/dev/ttyNONE"));

  fix_port("/dev/ttyS1");
  find({});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(lines.back(), not_saved(0, "/dev/ttyS1"));

  set_emulator("SerialPortLinux=/dev/pts/3\n");
  find({});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(lines.back(), not_saved(0, "/dev/pts/3"));

  set_emulator("");
  find({});
  EXPECT_EQ(rc, -2000);
  EXPECT_EQ(chosen, "");
  EXPECT_EQ(lines.back(), not_saved(-2000, ""));
}

TEST_F(Discovery, AFullDiskDoesNotChangeTheOutcome) {
  ASSERT_EQ(symlink("/dev/full", "SAT.conf"), 0);
  find({talvex("ttyACM0")});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(lines.back(), saved("/dev/ttyACM0"));
}

TEST_F(Discovery, ANameThatTheDiskDoesNotTakeLeavesAnEmptyPortFile) {
  const CannedSearch search({talvex("ttyACM0")});
  for (const char* former : {"/dev/ttyACM0", "/dev/ttyUSB7", "/dev/ttyACM11", "/dev/ttyS1"}) {
    for (const rlim_t room : {rlim_t{0}, rlim_t{5}}) {
      write_file("SAT.conf", former);
      char name[kDeviceNameSize];
      {
        const FullDisk disk(room);
        EXPECT_EQ(findSat(settings_, name), 0);
      }
      EXPECT_STREQ(name, "/dev/ttyACM0");
      EXPECT_TRUE(std::filesystem::exists("SAT.conf"));
      EXPECT_EQ(read_file("SAT.conf"), "") << former << ", room for " << room;
    }
  }
}

std::string popen_failed() {
  return line("ERR",
              std::string("Lnx: rc[-02000]:ER\n\t > popen[") + kCommand + "] fpComPorts[00000000h]FAIL\n");
}

TEST_F(Discovery, WithoutASearchTheEmptyNameCountsAsFoundAndNothingElseIsTried) {
  popen_fails = true;
  set_emulator("SerialPortLinux=/dev/pts/3\n");
  fix_port("/dev/ttyS1");
  find({talvex("ttyACM0")});
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(chosen, "");
  EXPECT_EQ(read_file("SAT.conf"), "");
  EXPECT_THAT(lines, ElementsAre(popen_failed(), saving(""), saved("")));
}

TEST_F(Discovery, WithoutASearchAndAPortFileNothingIsFound) {
  popen_fails = true;
  std::filesystem::create_directory("SAT.conf");
  find({talvex("ttyACM0")});
  EXPECT_EQ(rc, -2000);
  EXPECT_THAT(lines, ElementsAre(popen_failed(), not_saved(-2000, "")));
}

TEST_F(Discovery, WithoutMemoryItGivesUpAtOnce) {
  const CannedSearch search({talvex("ttyACM0")});
  char name[kDeviceNameSize] = "untouched";
  out_of_memory = true;
  EXPECT_EQ(findSat(settings_, name), -2000);
  out_of_memory = false;
  EXPECT_STREQ(name, "untouched");
  EXPECT_FALSE(std::filesystem::exists("SAT.conf"));
  EXPECT_EQ(search.calls(), "");
  EXPECT_THAT(take_lines(), ElementsAre(line("ERR", std::string("Lnx: rc[-02000]:ER:calloc()\n\t >> popen[") +
                                                        kCommand + "] portNameFmt[00000000h]=NULL\n")));
}

TEST_F(Discovery, LeavesNoDescriptorAndNoChildBehind) {
  find({});  // from now on the kernel's count of events stays open
  const long before = open_descriptors();
  find({talvex("ttyACM0")});
  popen_fails = true;
  find({});
  EXPECT_EQ(open_descriptors(), before);
}

// ---- GetFixedSerialPort -----------------------------------------------------------------------------

class FixedPort : public Discovery {
 protected:
  int get() {
    std::memset(value, 0x5A, sizeof value);
    const int result = GetFixedSerialPort(value);
    lines = take_lines();
    return result;
  }
  char value[kDeviceNameSize];
};

TEST_F(FixedPort, OfNullBufferIsRefused) {
  EXPECT_EQ(GetFixedSerialPort(nullptr), -5002);
  EXPECT_THAT(take_lines(),
              ElementsAre(fixed_line("ERR",
                                     "rc[-5002]ER: Ini[SAT.ini]  Session[SERIAL_PORT_CONFIG\n]  "
                                     "pFixedSerialPort=NULL\n")));
}

TEST_F(FixedPort, MissingGivesNothing) {
  for (const char* file : {"#\n[SERIAL_PORT_CONFIG]\n", "# no section\n", ""}) {
    write_file("SAT.ini", file);
    EXPECT_EQ(get(), 0);
    EXPECT_STREQ(value, "");
    EXPECT_THAT(lines, ElementsAre(kFixedMissing));
  }
  std::filesystem::remove("SAT.ini");
  EXPECT_EQ(get(), 0);
  EXPECT_THAT(lines, ElementsAre(kFixedMissing));
}

TEST_F(FixedPort, MissingItemIsNoErrorForTheEngine) {
  get();
  EXPECT_THAT(take_all_lines("olk_utils.log"), testing::IsEmpty());
  std::filesystem::remove("SAT.ini");
  get();
  EXPECT_THAT(with_text(take_all_lines("olk_utils.log"), "rc[-00301]"), SizeIs(1));
}

TEST_F(FixedPort, EmptyGivesNothing) {
  fix_port("");
  EXPECT_EQ(get(), 1);
  EXPECT_STREQ(value, "");
  EXPECT_THAT(lines, ElementsAre(kFixedEmpty));
}

TEST_F(FixedPort, WithoutADigitIsAnEmptyValue) {
  fix_port("/dev/tty");
  EXPECT_EQ(get(), 1);
  EXPECT_STREQ(value, "");
  EXPECT_THAT(lines, ElementsAre(kFixedEmpty));
}

TEST_F(FixedPort, PresentIsTrimmedAndCounted) {
  fix_port("/dev/ttyS12;");
  EXPECT_EQ(get(), 11);
  EXPECT_STREQ(value, "/dev/ttyS12");
  EXPECT_THAT(lines, ElementsAre(fixed_set("/dev/ttyS12")));
}

TEST_F(FixedPort, OfFewerThanThreeCharactersIsTakenAllTheSame) {
  fix_port("/1");
  EXPECT_EQ(get(), 2);
  EXPECT_THAT(lines, ElementsAre(fixed_set("/1")));
}

// ---- A whole call -----------------------------------------------------------------------------------

TEST_F(Discovery, DoesNotTouchTheFilesTimeSoTheFileIsNotReadAgain) {
  write_file("SAT.ini", "[SERIAL_PORT_CONFIG]\nSerialPortConfig=9600\n[LOG]\nLogFilePath=Log\nLogMode=3\n");
  const CannedSearch search;
  std::vector<std::size_t> passes;
  for (int call = 0; call < 4; ++call) {
    EXPECT_STREQ(ConsultarSAT(42),
                 "SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]");
    passes.push_back(with_text(take_lines(), "STEP30").size());
  }
  EXPECT_THAT(passes, ElementsAre(2, 1, 0, 0));
}

TEST_F(Discovery, ACallThatFindsNoDeviceHasOpenedTheProtocolLogAndSavedThePort) {
  write_file("SAT.ini", "[LOG]\nLogFilePath=Log\nLogMode=1\n");
  const CannedSearch search;
  ConsultarSAT(42);
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyNONE");
  EXPECT_TRUE(std::filesystem::exists(gl_tSat.strSatProtLogFileName));
  EXPECT_TRUE(std::string(gl_tSat.strSatProtLogFileName).ends_with("_SAT_ProtocolLog.txt"));
  EXPECT_EQ(read_file(gl_tSat.strSatProtLogFileName), "");
}

TEST_F(Discovery, AnEmptyNameIsOpenedAndFailsThere) {
  write_file("SAT.ini", "[SAT_EMULATOR]\nSerialPortLinux=\nEnable=1\n[LOG]\nLogMode=0\n");
  const CannedSearch search;
  EXPECT_STREQ(ConsultarSAT(42), "SAT Erro[-02000]Lnx SAT nao encontrado Dev[] L[2254] F[Communicate]");
}

}  // namespace
