#include "api/communicate.h"

#include <termios.h>

#include <cerrno>

#include "api/protocol_log.h"
#include "link/virtual_link_fixture.h"
#include "olk_sat_utils/return_codes.h"
#include "olk_utils/bounded_text.h"
#include "support/other_process.h"

namespace {

using namespace scripted;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// Longer than every text that takes its place in the buffer.
const std::string kActivationCode = times(30, "s3gr3d0-");

class CommunicateTest : public VirtualLinkTest {
 protected:
  void SetUp() override { write_file("SAT.ini", configuration(device().path())); }

  static void configure(const std::string& ini) { write_file("SAT.ini", ini); }

  // One transaction of this function as its entry point hands it over.
  int communicate(SatFunctionIndex function = kConsultarSAT, const std::string& arguments = "") {
    init_global_sat_struct();
    return hand_over(function, arguments);
  }

  // The same behind the call's initialisation.
  int hand_over(SatFunctionIndex function, const std::string& arguments) {
    Call call = {.function = kSatFunctions[function],
                 .session = 42,
                 .reply_timeout_s = reply_timeout_s(gl_tSat.settings, function),
                 .settings = gl_tSat.settings,
                 .packet = packet_buffer()};
    put_command(call.packet, call.function.name + ("|000042" + arguments));
    const int rc = Communicate(call);
    port() = call.port;
    return rc;
  }

  static std::string text() { return gl_sSatPkt; }

  // The driver's lines; the number of the descriptor is the system's choice.
  static Lines step_lines() {
    static const std::regex open_handle(R"(hComm\[0000[0-9A-F]{4}h\])");
    Lines lines = traced("Communicate");
    for (std::string& line : lines) line = std::regex_replace(line, open_handle, "hComm[open]");
    return lines;
  }

  void expect_port_given_back() {
    EXPECT_EQ(port().descriptor, kClosedPort);
    EXPECT_TRUE(port_is_free(TALVEX_PORT_HOLDER, device().path()));
  }
  static void expect_nothing_left_behind_text() {
    EXPECT_TRUE(is_zero_behind_text(gl_sSatPkt, kPacketBufferSize));
  }

  std::string opened_line() {
    return "INF Lnx:OK:STEP-04a rc[000000]\n\t   Dev[" + device().path() +
           "]\n\t hComm[open]Successfull Openned!\n";
  }
  static std::string locked_line() { return "INF Lnx:ER:STEP-05a rc[000000]OK: Locked\n"; }
  std::string configured_line() {
    return "INF Lnx:OK:STEP-06a rc[000000]OK lSerialSettingsL\n\t   Dev[" + device().path() + "]\n";
  }
  std::string sent_line(int length) {
    return printed("INF Lnx:OK:STEP-07a rc[%06d]\n\t   Dev[%s]\n", length, device().path().c_str());
  }
};

// ---- Success ----------------------------------------------------------------------------------------

TEST_F(CommunicateTest, TransactionGoesThroughAllItsSteps) {
  device().play({expect_frame(), ack(), send_frame("000042|08000|SAT em operacao||"), expect_ack()});
  EXPECT_EQ(communicate(), 30);
  expect_script_played();
  EXPECT_EQ(text(), "000042|08000|SAT em operacao||");
  EXPECT_THAT(step_lines(), ElementsAre(opened_line(), locked_line(), configured_line(), sent_line(22),
                                        "INF Lnx:OK:STEP-08a rc[000030]OK\n"));
  expect_port_given_back();
}

TEST_F(CommunicateTest, AckAndReplyMayArriveInOnePiece) {
  device().play({expect_frame(), send(kAck + frame("AB")), expect_ack()});
  EXPECT_EQ(communicate(), 2);
  expect_script_played();
}

TEST_F(CommunicateTest, PortIsHeldWhileTheTransactionLasts) {
  bool was_free = true;
  device().play({expect_frame(), pause_ms(5), ack(), send_frame("AB"), expect_ack()});
  virtual_clock::on_turn([&] {
    if (device().received().size() == 1) was_free = port_is_free(TALVEX_PORT_HOLDER, device().path());
    return device().take_turn();
  });
  EXPECT_EQ(communicate(), 2);
  EXPECT_FALSE(was_free);
  expect_port_given_back();
}

TEST_F(CommunicateTest, BytesOfAFormerExchangeAreDiscarded) {
  termios raw{};
  ASSERT_EQ(tcgetattr(device().port(), &raw), 0);
  cfmakeraw(&raw);
  ASSERT_EQ(tcsetattr(device().port(), TCSANOW, &raw), 0);
  device().play({send(kNak + frame("late reply")), expect_frame(), ack(), send_frame("AB"), expect_ack()});
  device().take_turn();
  EXPECT_EQ(communicate(), 2);
  expect_script_played();
  EXPECT_EQ(text(), "AB");
}

TEST_F(CommunicateTest, BothFramesGoToTheProtocolLog) {
  virtual_clock::set_local_time(2026, 12, 31, 23, 59, 58, 999);
  device().play({expect_frame(), ack(), send_frame("000042|08000|x||"), expect_ack()});
  EXPECT_EQ(communicate(), 16);
  EXPECT_EQ(read_file("Log/20261231_SAT_ProtocolLog.txt"),
            printed("20261231235958 PC->SAT >> [<02>ConsultarSAT|000042<%02X><03>]OK:a\n",
                    checksum("ConsultarSAT|000042")) +
                "20261231235958 SAT->PC << [<02>000042|08000|x||<--><03>]WR:d\n");
}

// The reply has the first 5 MiB, whatever was in them; what lies behind is left alone.
TEST_F(CommunicateTest, First5MiBOfTheBufferAreClearedForTheReply) {
  constexpr std::size_t kCleared = 5242880;
  constexpr char kCommand[] =
      "\x02"
      "ConsultarSAT|000042\x03\0";  // and a second NUL: the frame's ETX takes the first one's place
  init_global_sat_struct();
  Call call = prepared_call(kConsultarSAT, 10);
  std::memset(gl_sSatPkt, '#', kPacketBufferSize);
  std::memcpy(gl_sSatPkt, kCommand, sizeof kCommand);
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(Communicate(call), 2);
  expect_script_played();
  EXPECT_EQ(std::string(gl_sSatPkt, 4), std::string("AB\0\x03", 4));
  EXPECT_EQ(std::string_view(gl_sSatPkt, kCleared).find_first_not_of('\0', 4), std::string_view::npos);
  EXPECT_EQ(std::string_view(gl_sSatPkt, kPacketBufferSize).find_first_not_of('#', kCleared),
            std::string_view::npos);
}

TEST_F(CommunicateTest, PortStaysOpenBetweenNoTwoCalls) {
  for (int call = 0; call < 3; ++call) {
    device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
    EXPECT_EQ(communicate(), 2);
    expect_script_played();
    EXPECT_EQ(port().descriptor, -1);
  }
}

TEST_F(CommunicateTest, HostMayHaveClosedItsStandardStreams) {
  close(STDIN_FILENO);
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(communicate(), 2);
  expect_script_played();
  expect_port_given_back();
}

// ---- Which port -------------------------------------------------------------------------------------

TEST_F(CommunicateTest, DeviceNameIsOpenedUpToItsLastDigit) {
  configure("[SAT_EMULATOR]\nSerialPortLinux=" + device().path() + "x\nEnable=1\n[LOG]\nLogMode=5\n");
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(communicate(), 2);
  expect_script_played();
  EXPECT_EQ(read_file("SAT.conf"), device().path() + "x") << "recorded as chosen";
  EXPECT_THAT(step_lines(), Contains(opened_line()));
}

TEST_F(CommunicateTest, EmulatorsPortNeedNotLieInDev) {
  std::filesystem::create_symlink(device().path(), "line0");
  configure("[SAT_EMULATOR]\nSerialPortLinux=./line0\nEnable=1\n[LOG]\nLogMode=5\n");
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(communicate(), 2);
  EXPECT_EQ(read_file("SAT.conf"), "./line0");
}

// ---- No port ----------------------------------------------------------------------------------------

TEST_F(CommunicateTest, NoDeviceIsFound) {
  configure("[LOG]\nLogFilePath=Log\nLogMode=5\n");
  EXPECT_EQ(communicate(kConsultarSAT, "|" + kActivationCode), -2000);
  EXPECT_EQ(text(), "SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]");
  EXPECT_EQ(read_file("SAT.conf"), "/dev/ttyNONE");
  EXPECT_THAT(step_lines(),
              ElementsAre("ERR Lnx:ER:STEP-02e rc[-02000]SAT Not Found!\n\t LibVer[23-JUL-2020] "
                          "BuldDate[Jul 27 2020-10:41:14]\n"));
  EXPECT_EQ(port().descriptor, kClosedPort) << "the port is not touched";
  expect_nothing_left_behind_text();
}

TEST_F(CommunicateTest, ProtocolLogIsOpenedEvenWhenNoDeviceIsFound) {
  configure("[LOG]\nLogFilePath=Log\nLogMode=5\n");
  virtual_clock::set_local_time(2026, 3, 9, 12, 0, 0, 0);
  EXPECT_EQ(communicate(), -2000);
  EXPECT_TRUE(std::filesystem::exists("Log/20260309_SAT_ProtocolLog.txt"));
}

TEST_F(CommunicateTest, ProtocolLogIsOpenedBeforeTheDeviceIsSought) {
  configure(configuration("/dev/ttyTALVEX7", "", "3"));
  EXPECT_EQ(communicate(), -2000);
  Lines order;
  for (const std::string& message : trace_messages("SAT_api.log")) {
    for (const char* function : {"CreateSAT_ProtLogFile", "findSat"}) {
      if (message.find(printed("[%s]", function)) == std::string::npos) continue;
      if (order.empty() || order.back() != function) order.push_back(function);
    }
  }
  EXPECT_THAT(order, ElementsAre("CreateSAT_ProtLogFile", "findSat"));
}

TEST_F(CommunicateTest, NameThatStandsForNoDeviceIsNotFoundAsTheEmulatorsPort) {
  configure("[SAT_EMULATOR]\nSerialPortLinux=/dev/ttyNONE\nEnable=1\n[LOG]\nLogMode=5\n");
  EXPECT_EQ(communicate(), -2000);
  EXPECT_THAT(text(), HasSubstr("L[2193]"));
}

TEST_F(CommunicateTest, PortThatDoesNotOpen) {
  configure(configuration("/dev/ttyTALVEX7"));
  EXPECT_EQ(communicate(kConsultarSAT, "|" + kActivationCode), -2000);
  EXPECT_EQ(text(), "SAT Erro[-02000]Lnx SAT nao encontrado Dev[/dev/ttyTALVEX7] L[2254] F[Communicate]");
  EXPECT_THAT(step_lines(), ElementsAre("ERR Lnx:ER:STEP-04c rc[-02000]\n\t   Dev[/dev/ttyTALVEX7]FAIL\n\t "
                                        "hComm[FFFFFFFFh]Not Openned\n"));
  EXPECT_THAT(traced("lSerialCloseL"), IsEmpty()) << "nothing to close";
  expect_nothing_left_behind_text();
}

TEST_F(CommunicateTest, EmptyNameCountsAsFoundAndDoesNotOpen) {
  configure("[SAT_EMULATOR]\nEnable=1\n[LOG]\nLogFilePath=Log\nLogMode=5\n");
  EXPECT_EQ(communicate(), -2000);
  EXPECT_EQ(text(), "SAT Erro[-02000]Lnx SAT nao encontrado Dev[] L[2254] F[Communicate]");
}

TEST_F(CommunicateTest, NameWithoutADigitBecomesEmpty) {
  configure("[SAT_EMULATOR]\nSerialPortLinux=/dev/null\nEnable=1\n[LOG]\nLogFilePath=Log\nLogMode=5\n");
  EXPECT_EQ(communicate(), -2000);
  EXPECT_EQ(text(), "SAT Erro[-02000]Lnx SAT nao encontrado Dev[] L[2254] F[Communicate]");
  EXPECT_EQ(read_file("SAT.conf"), "/dev/null");
}

TEST_F(CommunicateTest, DirectoryInThePlaceOfThePort) {
  std::filesystem::create_directories("dev/tty1");
  configure(configuration(std::filesystem::current_path().string() + "/dev/tty1"));
  EXPECT_EQ(communicate(), -2000);
  EXPECT_THAT(text(), HasSubstr("L[2254]"));
}

TEST_F(CommunicateTest, PortThatIsNoTerminal) {
  std::filesystem::create_directory("dev");
  write_file("dev/tty1", "a file, not a port");
  const std::string port = std::filesystem::current_path().string() + "/dev/tty1";
  configure(configuration(port));
  EXPECT_EQ(communicate(kConsultarSAT, "|" + kActivationCode), -2002);
  EXPECT_EQ(text(), "SAT Erro[-02002]Lnx SAT  Dev[" + port + "] falhou ao configurar L[2286] F[Communicate]");
  EXPECT_EQ(step_lines().back(), "ERR Lnx:ER:STEP-06b rc[-02002] lSerialSettingsL\n\t   Dev[" + port + "]\n");
  EXPECT_EQ(read_file("dev/tty1"), "a file, not a port");
  EXPECT_EQ(this->port().descriptor, kClosedPort);
  EXPECT_TRUE(port_is_free(TALVEX_PORT_HOLDER, port));
  expect_nothing_left_behind_text();
}

// ---- Busy -------------------------------------------------------------------------------------------

TEST_F(CommunicateTest, PortHeldByAnotherProcessGivesTheBusyReply) {
  const OtherProcess other(TALVEX_PORT_HOLDER, device().path());
  ASSERT_TRUE(other.holds_port());
  EXPECT_EQ(communicate(kEnviarDadosVenda, "|" + kActivationCode), -2010);
  EXPECT_EQ(text(), "42|06098|0000|SAT em processamento, tente novamente.||");
  EXPECT_EQ(
      step_lines().back(),
      "ERR Lnx:ER:STEP-05b rc[-02010] errno[00011:Resource temporarily unavailable]ER:EWOULDBLOCK\\n\t <<  "
      "SO->PC pBuffer[00054:42|06098|0000|SAT em processamento, tente novamente.||]n");
  EXPECT_EQ(device().verdict(), "") << "the device is not touched";
  EXPECT_EQ(port().descriptor, -1);
  expect_nothing_left_behind_text();
}

TEST_F(CommunicateTest, BusyPortKeepsItsSettingsAndItsQueuedInput) {
  termios raw{};
  ASSERT_EQ(tcgetattr(device().port(), &raw), 0);
  cfmakeraw(&raw);
  raw.c_cflag |= CSTOPB;
  ASSERT_EQ(tcsetattr(device().port(), TCSANOW, &raw), 0);
  device().play({send("reply of the other's")});
  device().take_turn();

  const OtherProcess other(TALVEX_PORT_HOLDER, device().path());
  ASSERT_TRUE(other.holds_port());
  EXPECT_EQ(communicate(), -2010);
  termios now{};
  ASSERT_EQ(tcgetattr(device().port(), &now), 0);
  EXPECT_EQ(now.c_cflag, raw.c_cflag);
  char waiting[64] = {};
  EXPECT_EQ(read(device().port(), waiting, sizeof waiting), 20);
  EXPECT_STREQ(waiting, "reply of the other's");
}

TEST_F(CommunicateTest, BusyPortIsAvailableAgainOnceTheOtherProcessIsDone) {
  {
    const OtherProcess other(TALVEX_PORT_HOLDER, device().path());
    ASSERT_TRUE(other.holds_port());
    EXPECT_EQ(communicate(), -2010);
    EXPECT_EQ(text(), "42|08098|SAT em processamento, tente novamente.||");
  }
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(communicate(), 2);
}

// ---- Failures of the link ---------------------------------------------------------------------------

struct LinkFailure {
  const char* name;
  Script script;
  int rc;
  bool sending;
};
void PrintTo(const LinkFailure& failure, std::ostream* out) {
  *out << failure.name;
}
std::string name_of(const testing::TestParamInfo<LinkFailure>& test) {
  return test.param.name;
}

const LinkFailure kFailuresOfALivingLine[] = {
    {"SilentDevice", {expect_frame()}, -2, true},
    {"FourNaks", 4 * Script{expect_frame(), nak()}, -2009, true},
    {"StrayStx", {expect_frame(), send("\x02")}, -2, true},
    {"NoReply", {expect_frame(), ack()}, -2003, false},
    {"NoStx", {expect_frame(), ack(), send("Z")}, -2004, false},
    {"WrongChecksums", Script{expect_frame(), ack()} + 3 * Script{send_bad_frame("AB"), expect_nak()}, -2005,
     false},
    {"BrokenFrames",
     Script{expect_frame(), ack()} + 3 * Script{send("\x02"
                                                     "A"),
                                                expect_nak()},
     -2006, false},
    // The device sends the command back: more than the failure text covers.
    {"WrongLongChecksums",
     Script{expect_frame(), ack()} + 3 * Script{send_bad_frame(times(5, kActivationCode)), expect_nak()},
     -2005, false},
    {"LongBrokenFrames",
     Script{expect_frame(), ack()} + 3 * Script{send("\x02" + times(5, kActivationCode)), expect_nak()},
     -2006, false},
};
const LinkFailure kHangUps[] = {
    {"InFrontOfTheAck", {expect_frame(), hang_up()}, -2, true},
    {"InFrontOfTheReply", {expect_frame(), ack(), await_reader(), hang_up()}, -2004, false},
    {"InsideTheReply",
     {expect_frame(), ack(),
      send("\x02"
           "A"),
      await_reader(), hang_up()},
     -2004,
     false},
};

class LinkFailureTest : public CommunicateTest, public testing::WithParamInterface<LinkFailure> {};

TEST_P(LinkFailureTest, LeavesItsTextAndGivesThePortBack) {
  const LinkFailure& failure = GetParam();
  device().play(failure.script);
  EXPECT_EQ(communicate(kConsultarSAT, "|" + kActivationCode), failure.rc);

  const char* port = device().path().c_str();
  if (failure.sending) {
    EXPECT_EQ(text(),
              printed("SAT Erro[%06d]Lnx Dev[%s] L[2305] F[Communicate] >> CMD or << ACK LibVer[23-JUL-2020]",
                      failure.rc, port));
    EXPECT_EQ(step_lines().back(),
              printed("ERR Lnx:ER:STEP-07b rc[%06d] SendCmd or RcvAck Fail\n\t   Dev[%s] Closing "
                      "now!!! libVer[23-JUL-2020] BuildDate[Jul 27 2020-10:41:14]\n",
                      failure.rc, port));
  } else {
    EXPECT_EQ(text(),
              printed("SAT Erro[%06d]Lnx SAT  Dev[%s] falhou na recepcao da resposta L[2324] F[Communicate] "
                      "LibVer[23-JUL-2020]",
                      failure.rc, port));
    const Lines lines = step_lines();
    ASSERT_THAT(lines, SizeIs(6));
    EXPECT_EQ(lines[4],
              printed("ERR Lnx:ER:STEP-08b rc[%06d]ER:\n\t   Dev[%s] LibVer[23-JUL-2020] BuildDate[Jul 27 "
                      "2020-10:41:14]\n",
                      failure.rc, port));
    EXPECT_EQ(lines[5], printed("INF Lnx:OK:STEP-08a rc[%06d]OK\n", failure.rc)) << "it says OK all the same";
  }
  EXPECT_EQ(this->port().descriptor, kClosedPort);
  expect_nothing_left_behind_text();
}

INSTANTIATE_TEST_SUITE_P(LivingLine, LinkFailureTest, testing::ValuesIn(kFailuresOfALivingLine), name_of);
INSTANTIATE_TEST_SUITE_P(HangUp, LinkFailureTest, testing::ValuesIn(kHangUps), name_of);

class CallAfterFailureTest : public LinkFailureTest {};

TEST_P(CallAfterFailureTest, Works) {
  device().play(GetParam().script);
  EXPECT_EQ(communicate(), GetParam().rc);
  EXPECT_TRUE(port_is_free(TALVEX_PORT_HOLDER, device().path()));
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(communicate(), 2);
  expect_script_played();
}

INSTANTIATE_TEST_SUITE_P(LivingLine, CallAfterFailureTest, testing::ValuesIn(kFailuresOfALivingLine),
                         name_of);

TEST_F(CommunicateTest, HangUpBeforeTheCallIsACleanFailure) {
  device().play({hang_up()});
  device().take_turn();
  EXPECT_EQ(communicate(), -2000) << "a port without its other end does not open";
  EXPECT_THAT(text(), HasSubstr("L[2254]"));
}

// ---- Limits -----------------------------------------------------------------------------------------

TEST_F(CommunicateTest, RowOfTheTableBoundsTheWaitNotTheArgument) {
  configure(configuration(device().path(), "[SAT_TIMEOUT]\nConsultarSAT=3\n"));
  device().play({expect_frame(), ack(), send("Z")});
  EXPECT_EQ(communicate(), -2004);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 3001);
}

TEST_F(CommunicateTest, EndlessGarbageHasTheLimitOfItsFunction) {
  configure(configuration(device().path(), "[SAT_TIMEOUT]\nTesteFimAFim=40\n", "1"));
  device().play({expect_frame(), ack(), flood("ZZZZZZZZZZ")});
  virtual_clock::set_tick_ms(500);
  EXPECT_EQ(communicate(kTesteFimAFim), -2004);
  EXPECT_GT(virtual_clock::monotonic_ms(), 120000);
  EXPECT_LT(virtual_clock::monotonic_ms(), 130000);
}

TEST_F(CommunicateTest, LongCommandLeavesNothingBehindAShortFailureText) {
  configure(configuration(device().path(), "", "1"));
  const std::string sale = "|" + times(200, kActivationCode);
  device().play({expect_block(kBlock), nak(), expect_block(kBlock), nak(), expect_block(kBlock), nak(),
                 expect_block(kBlock), nak()});
  EXPECT_EQ(communicate(kEnviarDadosVenda, sale), -2009);
  expect_nothing_left_behind_text();
}

// ---- What is logged decides nothing else -------------------------------------------------------------

// What a log flag lets through, by the bits of the levels.
struct LogFlag {
  const char* name;
  int64_t* flag;
  unsigned levels;
};

const LogFlag kLogFlags[] = {
    {"errors", &bErrorLogsEnabled, 1},     {"warnings", &bWarningLogsEnabled, 3},
    {"messages", &bMessageLogsEnabled, 7}, {"info", &bInfoLogsEnabled, 7},
    {"trace", &bTraceLogsEnabled, 15},     {"jni", &bJniTraceLogsEnabled, 16},
};

Lines passing(const Lines& lines, unsigned levels) {
  static constexpr std::pair<const char*, unsigned> kTags[] = {
      {"ERR", 1}, {"WRN", 2}, {"INF", 4}, {"TRC", 8}, {"JNI", 16}};
  Lines passed;
  for (const std::string& line : lines) {
    for (const auto& [tag, level] : kTags) {
      if (line.compare(0, 3, tag) == 0 && (levels & level) != 0) passed.push_back(line);
    }
  }
  return passed;
}

std::string with_zero_checksum(const std::string& text) {
  return text + static_cast<char>(256 - checksum(text));
}

struct Exchange {
  const char* name;
  Script script;
  int rc;
  std::string arguments{};
  SatFunctionIndex function = kConsultarSAT;
};
void PrintTo(const Exchange& exchange, std::ostream* out) {
  *out << exchange.name;
}

const Script kAccepted = {expect_frame(), ack()};
const Script kReplied = {send_frame("000042|08000|x||"), expect_ack()};
const Script kBrokenOff = {send("\x02"
                                "AB"),
                           expect_nak()};
const std::string kLargeReply = frame(text_for_frame_of(2 * kBlock + 500));
const Exchange kExchanges[] = {
    {"Plain", kAccepted + kReplied, 16},
    {"OneNak", Script{expect_frame(), nak()} + kAccepted + kReplied, 16},
    {"FourNaks", 4 * Script{expect_frame(), nak()}, -2009},
    {"StrayStxAndAck", Script{expect_frame(), send("\x02\x06")} + kAccepted + kReplied, 16},
    {"StrayStxAndNak", Script{expect_frame(), send("\x02\x15")} + kReplied, 16},
    {"StrayStxGarbageAndEtx", Script{expect_frame(), send("\x02Z\x03")} + kReplied, 16},
    {"StrayStxAlone", {expect_frame(), send("\x02")}, -2},
    {"GarbageAroundTheAck", Script{expect_frame(), send("ZZ\x06YY")} + kReplied, 16},
    {"GarbageAfterThreeWaits", {expect_frame(), pause_ms(10000), send("Z")}, -2},
    {"NoAnswer", {expect_frame()}, -2},
    {"ZeroChecksums", kAccepted + Script{send_frame(with_zero_checksum("000042|08000|")), expect_ack()}, 14,
     with_zero_checksum("ConsultarSAT|000042|").substr(19)},
    // A command of two blocks and a reply of three.
    {"LargeFrames",
     {expect_block(kBlock), ack(), expect_block(500), nak(), expect_block(kBlock), ack(), expect_block(500),
      ack(), send(kLargeReply.substr(0, kBlock)), expect_ack(), send(kLargeReply.substr(kBlock, kBlock)),
      expect_ack(), send(kLargeReply.substr(2 * kBlock)), expect_ack()},
     2 * kBlock + 497,
     "|" + std::string(kBlock + 500 - 23, 'x')},
    {"TextThatBeginsWithAnStx", kAccepted + Script{send_frame("\x02|08000"), expect_ack()}, 7},
    {"EmptyText", kAccepted + Script{send(std::string("\x02\0\x03", 3)), expect_ack()}, 0},
    {"GarbageInFrontOfTheReply", kAccepted + Script{send("ZZ"), pause_ms(700), send("Y")} + kReplied, 16},
    {"WrongChecksum", kAccepted + Script{send_bad_frame("AB"), expect_nak()} + kReplied, 16},
    {"WrongChecksums", kAccepted + 3 * Script{send_bad_frame("AB"), expect_nak()}, -2005},
    {"WrongChecksumAndAStrayByte", kAccepted + Script{send_bad_frame("AB"), expect_nak(), send("Z")}, -2004},
    {"Gap", kAccepted + kBrokenOff + kReplied, 16},
    {"Gaps", kAccepted + 3 * kBrokenOff, -2006},
    {"GapAndAStrayByte", kAccepted + kBrokenOff + Script{send("Z")}, -2004},
    {"LateReply", kAccepted + Script{pause_ms(8000)} + kReplied, 16},
    {"NoReply", kAccepted, -2003},
    {"NoReplyToALongFunction", kAccepted, -2004, "", kAtivarSAT},
    {"LateRepliesToALongFunction",
     kAccepted + Script{pause_ms(400000), send_bad_frame("AB"), expect_nak(), pause_ms(500000)} + kReplied,
     16, "", kAtivarSAT},
};

class LogLevelTest : public CommunicateTest, public testing::WithParamInterface<Exchange> {
 protected:
  struct Outcome {
    int rc;
    std::string text;
    int64_t milliseconds;
    std::vector<std::string> sent;
    std::string protocol;
    Lines trace;
  };

  // One transaction with the flags as they stand; it finds all as the one before it did.
  Outcome outcome_of(const Exchange& exchange) {
    std::filesystem::create_directory("Log");
    copy_text(tLog.strLogFilePath, "Log");
    tLog.ucModeMask = 31;
    virtual_clock::set_local_time(2026, 12, 1, 10, 0, 0, 0);
    device().play(exchange.script);
    const int64_t start = virtual_clock::monotonic_ms();
    Outcome outcome{};
    outcome.rc = hand_over(exchange.function, exchange.arguments);
    outcome.milliseconds = virtual_clock::monotonic_ms() - start;
    outcome.text = text();
    outcome.sent = device().received();
    outcome.protocol = read_file("Log/20261201_SAT_ProtocolLog.txt");
    outcome.trace = trace_messages("SAT_api.log");
    expect_script_played();
    close_protocol_log();
    std::filesystem::remove_all("Log");
    return outcome;
  }

  static void log_only(const LogFlag& only) {
    for (const LogFlag& other : kLogFlags) *other.flag = &other == &only;
    bDebugLogsEnabled = 0;
  }
  static void log_nothing() {
    for (const LogFlag& flag : kLogFlags) *flag.flag = 0;
    bDebugLogsEnabled = 0;
  }

  void expect_same(const Outcome& outcome, const Outcome& full, unsigned levels) {
    EXPECT_EQ(outcome.rc, full.rc);
    EXPECT_EQ(outcome.milliseconds, full.milliseconds);
    EXPECT_TRUE(outcome.text == full.text);
    EXPECT_TRUE(outcome.sent == full.sent);
    EXPECT_TRUE(outcome.protocol == full.protocol) << outcome.protocol << full.protocol;
    EXPECT_TRUE(outcome.trace == passing(full.trace, levels)) << testing::PrintToString(outcome.trace);
  }
};

TEST_P(LogLevelTest, DecidesNothingButWhatIsTraced) {
  const Exchange& exchange = GetParam();
  log_nothing();
  outcome_of(exchange);  // the first one of all sets the protocol log's path
  bDebugLogsEnabled = 1;
  const Outcome full = outcome_of(exchange);
  EXPECT_EQ(full.rc, exchange.rc);

  for (const LogFlag& flag : kLogFlags) {
    SCOPED_TRACE(flag.name);
    log_only(flag);
    expect_same(outcome_of(exchange), full, flag.levels);
  }
  {
    SCOPED_TRACE("none");
    log_nothing();
    expect_same(outcome_of(exchange), full, 0);
  }
  SCOPED_TRACE("all");
  for (const LogFlag& flag : kLogFlags) *flag.flag = 1;
  expect_same(outcome_of(exchange), full, 31);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, LogLevelTest, testing::ValuesIn(kExchanges),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
