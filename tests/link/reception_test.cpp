#include "api/reception.h"

#include <array>

#include "api/protocol_log.h"
#include "api/time_limits.h"
#include "link/virtual_link_fixture.h"
#include "olk_utils/bounded_text.h"

namespace {

using namespace scripted;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class ReceptionTest : public VirtualLinkTest {
 protected:
  ReceptionTest() { log_everything(); }
  void SetUp() override { open_port(); }

  static std::string reply() { return gl_sSatPkt; }
  static Lines reading_lines() { return traced("cSerialReadBufW"); }
  static Lines answer_lines() { return traced("lSerialWriteAck"); }

  static int ms() { return static_cast<int>(virtual_clock::monotonic_ms()); }
};

constexpr char kSentAck[] = "INF Lnx \n\t >> PC->SAT Sent[06h]ACK\n";
constexpr char kSentNak[] = "INF Lnx \n\t >> PC->SAT Sent[15h]ACK\n";  // the word is ACK for both
constexpr char kThreeUsed[] = " iRetryes[0]\n";

// ---- The accepted frame -----------------------------------------------------------------------------

TEST_F(ReceptionTest, ReplyIsTheTextWithoutFraming) {
  device().play({send("\x02"
                      "AB\x83\x03"),
                 expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(reply(), "AB");
  EXPECT_THAT(reading_lines(), ElementsAre("INF Lnx Rcvd\n\t << SAT->SO  Recv[0004:<STX>AB\x83\x03]\n",
                                           "INF Lnx Rcvd\n\t <<  SO->PC   Rsp[00002:AB]\n"));
  EXPECT_THAT(answer_lines(), ElementsAre(kSentAck));
}

TEST_F(ReceptionTest, NothingButTheChecksumIsChangedBehindTheText) {
  device().play({send("\x02"
                      "AB\x83\x03"),
                 expect_ack()});
  ASSERT_EQ(receive(), 2);
  EXPECT_EQ(std::string(gl_sSatPkt, 5), std::string("AB\0\x03\0", 5));
}

// The buffer is cleared once in a call, and its line shows all of it up to the first NUL.
TEST_F(ReceptionTest, LineOfTheFrameGoesOnWithWhatARefusedReceptionLeftBehindIt) {
  device().play({send("\x02"
                      "ABCDEFGH\x7F\x03"),
                 expect_nak(),
                 send("\x02"
                      "AB\x83\x03"),
                 expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(reply(), "AB");
  EXPECT_THAT(with_text(reading_lines(), "Rcvd"),
              ElementsAre("INF Lnx Rcvd\n\t << SAT->SO  Recv[0010:<STX>AB\x83\x03"
                          "EFGH\x7F\x03]\n",
                          "INF Lnx Rcvd\n\t <<  SO->PC   Rsp[00002:AB]\n"));
}

TEST_F(ReceptionTest, BytesOfTheTextPassUntouched) {
  const std::string text = "42|08000|não \xFF\x80\x02\x06\x15\x7F|\t\r\n";
  device().play({send_frame(text), expect_ack()});
  EXPECT_EQ(receive(), static_cast<int>(text.size()));
  EXPECT_EQ(reply(), text);
}

TEST_F(ReceptionTest, EmptyTextIsASuccess) {
  device().play({send(std::string("\x02\0\x03", 3)), expect_ack()});
  EXPECT_EQ(receive(), 0);
  expect_script_played();
  EXPECT_EQ(reply(), "");
}

TEST_F(ReceptionTest, FrameWithoutRoomForAChecksumIsAChecksumError) {
  device().play({send("\x02\x03"), expect_nak(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_THAT(reading_lines(), Contains(StartsWith("WRN Lnx rc[-02005]ER ERRO CHECKSUM ")));
}

struct ReplyChecksumCase {
  const char* name;
  std::string text;
  unsigned char checksum;
};
void PrintTo(const ReplyChecksumCase& test, std::ostream* out) {
  *out << test.name;
}

class ReplyChecksumTest : public ReceptionTest, public testing::WithParamInterface<ReplyChecksumCase> {};

TEST_P(ReplyChecksumTest, FrameIsAccepted) {
  const auto& [name, text, check] = GetParam();
  device().play({send("\x02" + text + static_cast<char>(check) + "\x03"), expect_ack()});
  EXPECT_EQ(receive(), static_cast<int>(text.size()));
  expect_script_played();
  EXPECT_EQ(reply(), text);
}

INSTANTIATE_TEST_SUITE_P(Values, ReplyChecksumTest,
                         testing::Values(ReplyChecksumCase{"Zero", "1|\xBF\x94", 0x00},
                                         ReplyChecksumCase{"Pipe", "z\x01\x01", 0x7C},
                                         ReplyChecksumCase{"ClosingBrace", "}", 0x7D},
                                         ReplyChecksumCase{"Three", "\x82\x81", 0x04},
                                         ReplyChecksumCase{"Four", "\x82\x82", 0x04}),
                         [](const auto& test) { return test.param.name; });

TEST_F(ReceptionTest, SumOfThreeIsNotAcceptedAsZeroChecksum) {
  device().play({send(std::string("\x02\x82\x81\0\x03", 5)), expect_nak(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
}

TEST_F(ReceptionTest, DissectorSeesTheFrameWithItsChecksum) {
  device().play({send_frame("7|080"), expect_ack()});
  ASSERT_EQ(receive(), 5);
  const Lines messages = trace_messages("SAT_api.log");
  const std::string dissector = "INF [] [../src/olk_sat_utils/olk_sat_utils] [SAT_API_RspPktParcer]";
  EXPECT_THAT(with_text(messages, "SAT_API_RspPktParcer"),
              ElementsAre(dissector + "--- << R01=[00000001:7]\n", dissector + "--- << R02=[00000003:080]\n",
                          dissector + printed("--- <<  CKS[%02Xh]\n", checksum("7|080")),
                          dissector + "--- <<  ETX[03h]\n"));
}

TEST_F(ReceptionTest, ProtocolLogShowsTheTextAlone) {
  std::filesystem::create_directory("Log");
  tLog.ucModeMask = 31;
  virtual_clock::set_local_time(2026, 3, 9, 8, 7, 6, 5);
  device().play({send_frame("7|080"), expect_ack()});
  ASSERT_EQ(receive(), 5);
  EXPECT_EQ(read_file("Log/20260309_SAT_ProtocolLog.txt"),
            "20260309080706 SAT->PC << [<02>7|080<--><03>]WR:d\n");
}

// The protocol log is closed, so that it shows when its turn comes.
TEST_F(ReceptionTest, ReplyIsTracedDissectedLoggedTracedAgainAndThenAcknowledged) {
  std::filesystem::create_directory("Log");
  tLog.ucModeMask = 31;
  virtual_clock::set_local_time(2026, 3, 9, 8, 7, 6, 5);
  device().play({send_frame("7|080"), expect_ack()});
  ASSERT_EQ(receive(), 5);
  const std::string api = " [] [../src/api/TALVEX] ";
  const std::string dissector = "INF [] [../src/olk_sat_utils/olk_sat_utils] [SAT_API_RspPktParcer]--- << ";
  const std::string check = {static_cast<char>(checksum("7|080"))};
  EXPECT_THAT(
      trace_messages("SAT_api.log"),
      ElementsAre(
          "INF" + api + "[cSerialReadBufW]Lnx Rcvd\n\t << SAT->SO  Recv[0007:<STX>7|080" + check + "\x03]\n",
          dissector + "R01=[00000001:7]\n", dissector + "R02=[00000003:080]\n",
          dissector + printed(" CKS[%02Xh]\n", checksum("7|080")), dissector + " ETX[03h]\n",
          "WRN" + api +
              "[LogSATProtocolMsg]All ER:gl_iFd[00000000h]=NULL\n\t Msg[000050:20260309080706 SAT->PC << "
              "[<02>7|080<--><03>]WR:d\n] Trying to Open NOw\n",
          "WRN" + api + "[CreateSAT_ProtLogFile]---  gl_tSat.strSatProtLogFilePath[Log]UPDATED\n",
          printed("INF [] [../src/api/TALVEX] [CreateSAT_ProtLogFile]---  rc[-01101]OK:logFd[%08Xh] "
                  "pcLogName[Log/20260309_SAT_ProtocolLog.txt]Created!!!\n",
                  static_cast<unsigned>(gl_iFd)),
          "INF" + api + "[cSerialReadBufW]Lnx Rcvd\n\t <<  SO->PC   Rsp[00005:7|080]\n",
          "INF" + api + "[lSerialWriteAck]Lnx \n\t >> PC->SAT Sent[06h]ACK\n"));
}

// ---- Garbage in front of the STX --------------------------------------------------------------------

TEST_F(ReceptionTest, BytesBeforeTheStxAreTracedAndDropped) {
  device().play({send("Z\xFE\x03" + frame("AB")), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(reply(), "AB");
  const Lines lines = reading_lines();
  ASSERT_THAT(lines, SizeIs(5));
  EXPECT_EQ(lines[0], "WRN Lnx << SAT->PC Rcvd[5Ah]Expected STX  iCurPos[0] liDiffTime[0\n");
  EXPECT_EQ(lines[1], "WRN Lnx << SAT->PC Rcvd[FEh]Expected STX  iCurPos[0] liDiffTime[0\n");
  EXPECT_EQ(lines[2], "WRN Lnx << SAT->PC Rcvd[03h]Expected STX  iCurPos[0] liDiffTime[0\n");
}

TEST_F(ReceptionTest, GarbageDoesNotRenewTheTimeLimit) {
  device().play({send("Z"), pause_ms(9000), send("Z"), pause_ms(1100), send_frame("AB")});
  EXPECT_EQ(receive(10), -2004);
  EXPECT_EQ(ms(), 10001);
  EXPECT_EQ(reading_lines().back(), "ERR Lnx rc[-02004]ER Read Error iCurPos[0] liDiffTime[10001]\n");
}

TEST_F(ReceptionTest, GarbageShowsTheLastElapsedTime) {
  device().play({send("Z"), pause_ms(700), send("Y"), pause_ms(50), send_frame("AB"), expect_ack()});
  ASSERT_EQ(receive(), 2);
  EXPECT_THAT(with_text(reading_lines(), "Rcvd[59h]"),
              ElementsAre("WRN Lnx << SAT->PC Rcvd[59h]Expected STX  iCurPos[0] liDiffTime[700\n"));
}

TEST_F(ReceptionTest, GarbageBehindAGapShowsTheGapsElapsedTime) {
  device().play({send("\x02"
                      "ABC"),
                 expect_nak(), send("Z" + frame("AB")), expect_ack()});
  ASSERT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_THAT(with_text(reading_lines(), "Rcvd[5Ah]"),
              ElementsAre("WRN Lnx << SAT->PC Rcvd[5Ah]Expected STX  iCurPos[0] liDiffTime[101\n"));
}

TEST_F(ReceptionTest, GarbageBehindAWrongChecksumShowsTheElapsedTimeOfTheAttemptBefore) {
  device().play(
      {send("Y"), pause_ms(700), send_bad_frame("AB"), expect_nak(), send("Z" + frame("AB")), expect_ack()});
  ASSERT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_THAT(with_text(reading_lines(), "Expected STX"),
              ElementsAre("WRN Lnx << SAT->PC Rcvd[59h]Expected STX  iCurPos[0] liDiffTime[0\n",
                          "WRN Lnx << SAT->PC Rcvd[5Ah]Expected STX  iCurPos[0] liDiffTime[700\n"));
}

TEST_F(ReceptionTest, EmptyReadIsTracedOnceUntilItsErrnoChanges) {
  device().play({send("Z"), pause_ms(700), send("Y"), pause_ms(50), send_frame("AB"), expect_ack()});
  ASSERT_EQ(receive(), 2);
  EXPECT_THAT(with_text(reading_lines(), "errno"),
              ElementsAre("INF Win: iBytesRead[-0000001] errno[00000011]EAGAIN:EWOULDBLOCK liDiffTime[0] "
                          "iTimeout[2000]\n"));
}

TEST_F(ReceptionTest, EndlessGarbageEndsAfterAMinute) {
  log_errors_only();
  device().play({flood("ZZZZZZZZZZ")});
  virtual_clock::set_tick_ms(50);
  EXPECT_EQ(receive(10), -2004);
  EXPECT_GT(ms(), 60000);
  EXPECT_LT(ms(), 61000);
  EXPECT_THAT(reading_lines(),
              ElementsAre(StartsWith("ERR Lnx rc[-02004]ER Read Error iCurPos[0] liDiffTime[60")));
}

TEST_F(ReceptionTest, EndlessGarbageToALongFunctionEndsAfterThreeTimeouts) {
  log_errors_only();
  device().play({flood("ZZZZZZZZZZ")});
  virtual_clock::set_tick_ms(500);
  EXPECT_EQ(receive(300, kBloquearSAT), -2004);
  EXPECT_GT(ms(), 900000);
  EXPECT_LT(ms(), 910000);
}

// ---- Silence ----------------------------------------------------------------------------------------

TEST_F(ReceptionTest, OrdinaryFunctionWithoutAReplyFailsAfterThreeWaits) {
  device().play({});
  EXPECT_EQ(receive(10), -2003);
  EXPECT_EQ(ms(), 9000);
  EXPECT_EQ(kNoReplyMs, 9000);
  EXPECT_THAT(reading_lines(),
              ElementsAre("INF Lnx iSelectRetries[01] Waiting Data from SAT!!!\n",
                          "INF Lnx iSelectRetries[00] Waiting Data from SAT!!!\n",
                          "ERR Lnx rc[-02003]ER iSelectRetries[-1] SatCmd[ConsultarSAT]Fail!!!\n"));
  EXPECT_THAT(answer_lines(), IsEmpty());
}

struct LongFunctionCase {
  SatFunctionIndex function;
  uint32_t seconds;
};

void PrintTo(const LongFunctionCase& test, std::ostream* out) {
  *out << test.function;
}

class LongFunctionTest : public ReceptionTest, public testing::WithParamInterface<LongFunctionCase> {};

TEST_P(LongFunctionTest, WithoutAReplyWaitsForItsLimitFromTheThirdWaitOn) {
  const auto& [function, seconds] = GetParam();
  device().play({});
  EXPECT_EQ(receive(seconds, function), -2004);
  const int limit = static_cast<int>(seconds) * 1000 + 1;
  EXPECT_EQ(ms(), 240000 + limit) << "the start is taken in front of the third wait";
  EXPECT_THAT(
      reading_lines(),
      ElementsAre(
          "INF Lnx iSelectRetries[01] Waiting Data from SAT!!!\n",
          "INF Lnx iSelectRetries[00] Waiting Data from SAT!!!\n",
          printed("WRN Lnx rc[-02001]WR iSelectRetries[-1 SarCmd[%s]Skipped...!!!\n",
                  kSatFunctions[function].name),
          "INF Win: iBytesRead[-0000001] errno[00000011]EAGAIN:EWOULDBLOCK liDiffTime[120000] iTimeout[2000]\n",
          printed("ERR Lnx rc[-02004]ER Read Error iCurPos[0] liDiffTime[%d]\n", limit)));
}

INSTANTIATE_TEST_SUITE_P(Functions, LongFunctionTest,
                         testing::Values(LongFunctionCase{kAtivarSAT, 1800},
                                         LongFunctionCase{kAtualizarSoftwareSAT, 1800},
                                         LongFunctionCase{kBloquearSAT, 300}),
                         [](const auto& test) { return kSatFunctions[test.param.function].name; });

class OrdinaryFunctionTest : public ReceptionTest, public testing::WithParamInterface<SatFunctionIndex> {};

TEST_P(OrdinaryFunctionTest, WithoutAReplyFailsAfterNineSecondsWhateverItsLimit) {
  device().play({});
  EXPECT_EQ(receive(1800, GetParam()), -2003);
  EXPECT_EQ(ms(), 9000);
}

INSTANTIATE_TEST_SUITE_P(Functions, OrdinaryFunctionTest,
                         testing::Values(kComunicarCertificadoICPBRASIL, kEnviarDadosVenda,
                                         kCancelarUltimaVenda, kConsultarSAT, kTesteFimAFim,
                                         kConsultarStatusOperacional, kConsultarNumeroSessao,
                                         kConfigurarInterfaceDeRede, kAssociarAssinatura, kExtrairLogs,
                                         kDesbloquearSAT, kTrocarCodigoDeAtivacao,
                                         kConsultarUltimaSessaoFiscal),
                         [](const auto& test) { return kSatFunctions[test.param].name; });

TEST_F(ReceptionTest, ReplyWithinTheWaitsIsTakenHoweverShortTheLimit) {
  device().play({pause_ms(8900), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(1), 2);
  expect_script_played();
}

TEST_F(ReceptionTest, LimitBeyondAllMillisecondsIsClamped) {
  device().play({send("Z")});
  EXPECT_EQ(receive(4294967295u), -2004);
  EXPECT_EQ(ms() / 1000, 2147483);
}

TEST_F(ReceptionTest, RepeatedWaitsOfALongFunctionEnd) {
  // The waits run out, then a bad frame makes the reception wait again, for ever if nobody stopped it.
  device().play({pause_ms(400000), send_bad_frame("AB"), expect_nak()});
  EXPECT_EQ(receive(1800, kAtivarSAT), -2003);
  expect_script_played();
  EXPECT_EQ(ms(), 400000 + 46 * 120000) << "the first wait that ends later than 5400 s";
  EXPECT_THAT(reading_lines().back(),
              testing::MatchesRegex("ERR Lnx rc\\[-02003\\]ER iSelectRetries\\[-[0-9]+\\] "
                                    "SatCmd\\[AtivarSAT\\]Fail!!!\n"));
}

TEST_F(ReceptionTest, WaitCounterOfALongFunctionRunsBelowZeroOnce) {
  device().play({pause_ms(400000), send_bad_frame("AB"), expect_nak(), pause_ms(500000), send_frame("AB"),
                 expect_ack()});
  EXPECT_EQ(receive(1800, kAtivarSAT), 2);
  expect_script_played();
  EXPECT_THAT(with_text(reading_lines(), "iSelectRetries"),
              ElementsAre(HasSubstr("[01] Waiting"), HasSubstr("[00] Waiting"), HasSubstr("[-1 SarCmd"),
                          HasSubstr("[-2] Waiting"), HasSubstr("[-3] Waiting"), HasSubstr("[-4] Waiting"),
                          HasSubstr("[-5] Waiting")));
}

// ---- Wrong checksums --------------------------------------------------------------------------------

TEST_F(ReceptionTest, ThreeWrongChecksumsGetThreeNaks) {
  device().play(3 * Script{send("\x02"
                                "AB\x84\x03"),
                           expect_nak()});
  EXPECT_EQ(receive(), -2005);
  expect_script_played();
  const std::string error = "WRN Lnx rc[-02005]ER ERRO CHECKSUM 83!=84 [5|3]!!!!!!!! Send NAK\n";
  EXPECT_THAT(reading_lines(),
              ElementsAre(error, error, error, std::string("ERR Lnx rc[-02005]") + kThreeUsed));
  EXPECT_THAT(answer_lines(), ElementsAre(kSentNak, kSentNak, kSentNak));
}

TEST_F(ReceptionTest, ChecksumErrorIsTracedBeforeTheNak) {
  device().play({send_bad_frame("AB"), expect_nak(), send_frame("AB"), expect_ack()});
  ASSERT_EQ(receive(), 2);
  const Lines messages = trace_messages("SAT_api.log");
  EXPECT_THAT(messages[0], HasSubstr("ERRO CHECKSUM"));
  EXPECT_THAT(messages[1], HasSubstr("Sent[15h]"));
}

TEST_F(ReceptionTest, FrameSentAgainIsAcceptedHoweverLongTheSecondWaitTook) {
  device().play({send_bad_frame("AB"), expect_nak(), pause_ms(8000), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(reply(), "AB");
  EXPECT_THAT(with_text(reading_lines(), "Waiting Data"), SizeIs(2));
}

TEST_F(ReceptionTest, WaitCounterBelongsToTheCallAndATimeoutUsesNoAttempt) {
  device().play(Script{pause_ms(5000)} + 2 * Script{send_bad_frame("AB"), expect_nak()} +
                Script{pause_ms(5000), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2) << "one time-out in front of the first attempt, one in front of the third";
  expect_script_played();
}

TEST_F(ReceptionTest, SilenceAfterANakFailsByTheWaitCounter) {
  device().play({pause_ms(3500), send_bad_frame("AB"), expect_nak()});
  EXPECT_EQ(receive(), -2003);
  EXPECT_EQ(ms(), 3500 + 2 * 3000);
}

TEST_F(ReceptionTest, StrayByteAfterAChecksumErrorLeavesATenthOfASecond) {
  device().play({send_bad_frame("AB"), expect_nak(), send("Z")});
  EXPECT_EQ(receive(), -2004);
  expect_script_played();
  EXPECT_EQ(ms(), 101);
  EXPECT_THAT(with_text(reading_lines(), "Rcvd[5Ah]Expected STX"), SizeIs(1));
  EXPECT_EQ(reading_lines().back(), "ERR Lnx rc[-02004]ER Read Error iCurPos[0] liDiffTime[101]\n");
}

TEST_F(ReceptionTest, GoodFrameQueuedBehindABadOneIsAccepted) {
  device().play({send_bad_frame("AB"), await_reader(), send_frame("CD"), expect_nak(), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(reply(), "CD");
}

TEST_F(ReceptionTest, GoodFrameQueuedBehindABadBlockIsAccepted) {
  const std::string bad = bad_frame(text_for_frame_of(kBlock));
  device().play({send(bad + frame("CD")), expect_nak(), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(reply().substr(0, 2), "CD");
}

TEST_F(ReceptionTest, BytesBehindTheEtxOfOneReadAreNotLookedAt) {
  device().play({send(frame("AB") + "more|" + frame("CD")), expect_ack()});
  EXPECT_EQ(receive(), 2);
  EXPECT_EQ(reply(), "AB");
}

TEST_F(ReceptionTest, LastAttemptsCodeWins) {
  device().play(2 * Script{send_bad_frame("AB"), expect_nak()} + Script{send("\x02"
                                                                             "A"),
                                                                        expect_nak()});
  EXPECT_EQ(receive(), -2006);
  expect_script_played();
  EXPECT_EQ(reading_lines().back(), std::string("ERR Lnx rc[-02006]") + kThreeUsed);
}

// ---- Gaps -------------------------------------------------------------------------------------------

TEST_F(ReceptionTest, FrameThatStopsGetsANakAndTheNextAttempt) {
  device().play({send("\x02"
                      "ABC"),
                 expect_nak(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(ms(), 101);
  EXPECT_EQ(reply(), "AB");
  EXPECT_THAT(with_text(reading_lines(), "Timeout"),
              Contains("ERR Lnx: rc[-02006]ER Send NAK  (3)[4]{16384}Timeout\n"));
  EXPECT_THAT(answer_lines(), ElementsAre(kSentNak, kSentAck));
}

TEST_F(ReceptionTest, GapGetsItsNakBeforeTheTrace) {
  device().play({send("\x02"
                      "ABC"),
                 expect_nak(), send_frame("AB"), expect_ack()});
  ASSERT_EQ(receive(), 2);
  const Lines messages = trace_messages("SAT_api.log");
  ASSERT_THAT(messages, SizeIs(testing::Gt(3u)));
  EXPECT_THAT(messages[0], HasSubstr("errno[00000011]EAGAIN:EWOULDBLOCK liDiffTime[0] iTimeout[100]\n"));
  EXPECT_THAT(messages[1], HasSubstr("Sent[15h]"));
  EXPECT_THAT(messages[2], HasSubstr("Send NAK  (3)[4]{16384}Timeout"));
}

TEST_F(ReceptionTest, ThreeGapsFail) {
  device().play(3 * Script{send("\x02"
                                "ABC"),
                           expect_nak()});
  EXPECT_EQ(receive(), -2006);
  expect_script_played();
  EXPECT_EQ(ms(), 303);
  EXPECT_THAT(with_text(reading_lines(), "Send NAK"),
              ElementsAre("ERR Lnx: rc[-02006]ER Send NAK  (3)[4]{16384}Timeout\n",
                          "ERR Lnx: rc[-02006]ER Send NAK  (2)[4]{16384}Timeout\n",
                          "ERR Lnx: rc[-02006]ER Send NAK  (1)[4]{16384}Timeout\n"));
  EXPECT_EQ(reading_lines().back(), std::string("ERR Lnx rc[-02006]") + kThreeUsed);
}

TEST_F(ReceptionTest, GapOfATenthOfASecondIsStillAccepted) {
  device().play({send("\x02"
                      "A"),
                 pause_ms(100), send("B"), pause_ms(100), send("\x83\x03"), expect_ack()});
  EXPECT_EQ(receive(), 2) << "the limit counts from the last bytes";
  expect_script_played();
  EXPECT_EQ(ms(), 200) << "bytes that were waited for are taken at once";
}

TEST_F(ReceptionTest, GapCountsFromTheStxNotFromTheWaitForIt) {
  device().play(
      {pause_ms(500), send("\x02"), await_reader(), pause_ms(50), send("AB\x83\x03"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
}

TEST_F(ReceptionTest, StrayByteAfterAGapLeavesThreeTenthsOfASecond) {
  device().play({send("\x02"
                      "ABC"),
                 expect_nak(), send("Z")});
  EXPECT_EQ(receive(), -2004);
  EXPECT_EQ(ms(), 101 + 301);
}

TEST_F(ReceptionTest, LimitIsATenthOfASecondAgainOnceAnStxIsIn) {
  device().play({send("\x02"
                      "ABC"),
                 expect_nak(),
                 send("\x02"
                      "ABC"),
                 expect_nak(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(ms(), 2 * 101);
}

TEST_F(ReceptionTest, LongRestOfABrokenFrameDoesNotSpoilTheNext) {
  device().play({send("\x02" + std::string(500, 'x')), expect_nak(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  EXPECT_EQ(reply(), "AB");
}

TEST_F(ReceptionTest, SingleBytesMakeAFrame) {
  const std::string bytes = frame("000042|08000|SAT em operacao||");
  device().play(send_in_pieces(bytes, 1) + Script{expect_ack()});
  EXPECT_EQ(receive(), static_cast<int>(bytes.size()) - 3);
  expect_script_played();
  EXPECT_EQ(ms(), 0) << "each is taken when it comes";
}

// ---- Blocks -----------------------------------------------------------------------------------------

TEST_F(ReceptionTest, LongFrameGetsAnAckPerFullBlock) {
  const std::string bytes = frame(text_for_frame_of(40000));
  device().play({send(bytes.substr(0, kBlock)), expect_ack(), send(bytes.substr(kBlock, kBlock)),
                 expect_ack(), send(bytes.substr(2 * kBlock)), expect_ack()});
  EXPECT_EQ(receive(), 40000 - 3);
  expect_script_played();
  EXPECT_TRUE(reply() == text_for_frame_of(40000));
  EXPECT_THAT(answer_lines(), ElementsAre(kSentAck, kSentAck, kSentAck));
}

TEST_F(ReceptionTest, DeviceThatDoesNotWaitForItsBlockAcksGetsThem) {
  device().play({send_frame(text_for_frame_of(40000)), expect(std::string(3, kAck))});
  EXPECT_EQ(receive(), 40000 - 3);
  expect_script_played();
  EXPECT_TRUE(reply() == text_for_frame_of(40000));
}

TEST_F(ReceptionTest, PiecesAcrossBlockEndsAreAcknowledgedAtTheEnds) {
  const std::string bytes = frame(text_for_frame_of(40000));
  device().play(send_in_pieces(bytes, 999) + Script{expect(std::string(3, kAck))});
  EXPECT_EQ(receive(), 40000 - 3);
  expect_script_played();
}

TEST_F(ReceptionTest, EtxOnTheBlockBoundaryGetsOnlyTheFinalAck) {
  device().play({send_frame(text_for_frame_of(kBlock)), expect_ack()});
  EXPECT_EQ(receive(), static_cast<int>(kBlock) - 3);
  expect_script_played();
  EXPECT_THAT(answer_lines(), ElementsAre(kSentAck));
}

TEST_F(ReceptionTest, EtxBehindTheBlockBoundaryGetsBothAcks) {
  const std::string bytes = frame(text_for_frame_of(kBlock + 1));
  device().play({send(bytes.substr(0, kBlock)), expect_ack(), send(bytes.substr(kBlock)), expect_ack()});
  EXPECT_EQ(receive(), static_cast<int>(kBlock + 1) - 3);
  expect_script_played();
}

TEST_F(ReceptionTest, GapAtABlockEndCountsFromTheBlock) {
  const std::string bytes = frame(text_for_frame_of(kBlock + 1));
  device().play({send(bytes.substr(0, kBlock)), expect_ack(), expect_nak(), send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_THAT(reading_lines(), Contains("ERR Lnx: rc[-02006]ER Send NAK  (3)[16384]{32768}Timeout\n"));
}

TEST_F(ReceptionTest, BlockEndIsThatOfTheAttempt) {
  const std::string bytes = frame(text_for_frame_of(40000));
  device().play({send(bytes.substr(0, kBlock)), expect_ack(), expect_nak(), send(bytes.substr(0, kBlock)),
                 expect_ack(), send(bytes.substr(kBlock, kBlock)), expect_ack(),
                 send(bytes.substr(2 * kBlock)), expect_ack()});
  EXPECT_EQ(receive(), 40000 - 3);
  expect_script_played();
}

TEST_F(ReceptionTest, ReplyLongerThanTheClearedPartPasses) {
  log_errors_only();
  constexpr std::size_t kSixMebibytes = std::size_t{6} * 1024 * 1024;
  device().play(
      {send_frame(text_for_frame_of(kSixMebibytes)), expect(std::string(kSixMebibytes / kBlock, kAck))});
  EXPECT_EQ(receive(), static_cast<int>(kSixMebibytes) - 3);
  expect_script_played();
  EXPECT_TRUE(reply() == text_for_frame_of(kSixMebibytes));
}

TEST_F(ReceptionTest, ReplyThatWouldPassThePacketBuffersEndIsBrokenOffLikeAGap) {
  log_errors_only();
  const std::string endless = "\x02" + std::string(kPacketBufferSize - 1, 'x');
  device().play({send(endless), expect(std::string(kPacketBufferSize / kBlock, kAck)), expect_nak(),
                 send_frame("AB"), expect_ack()});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_THAT(reading_lines(),
              ElementsAre("ERR Lnx: rc[-02006]ER Send NAK  (3)[10485760]{10502144}Timeout\n"));
  EXPECT_EQ(reply().substr(0, 2), "AB");
  EXPECT_EQ(reply().size(), 2u);
}

TEST_F(ReceptionTest, LongestReplyFillsThePacketBuffer) {
  log_errors_only();
  const std::string text = text_for_frame_of(kPacketBufferSize);
  device().play({send_frame(text), expect(std::string(kPacketBufferSize / kBlock, kAck))});
  EXPECT_EQ(receive(), static_cast<int>(text.size()));
  expect_script_played();
  EXPECT_TRUE(reply() == text);
}

TEST_F(ReceptionTest, BufferOfTheCallersIsNeverPassed) {
  std::array<char, 16> buffer;
  buffer.fill('#');
  device().play(3 * Script{send_frame("0123456789"), expect_nak()});
  Call call = prepared_call(kConsultarSAT, 10, port(), {buffer.data(), 8, 8});
  EXPECT_EQ(cSerialReadBufW(call), -2006);
  expect_script_played();
  EXPECT_EQ(std::string(buffer.data() + 8, 8), "########");
}

// ---- Large replies in the trace ---------------------------------------------------------------------

class LargeReplyTest : public ReceptionTest {
 protected:
  static std::string excerpt(const std::string& text) {
    const std::string held = text + static_cast<char>(checksum(text)) + kEtx;  // ETX at index held.size() - 1
    return held.substr(0, 900) + "....***BIG_RSP_PKT***...." + held.substr(held.size() - 1 - 100);
  }
  Lines receive_text(const std::string& text) {
    device().play({send_frame(text), expect(std::string(1 + text.size() / kBlock, kAck))});
    EXPECT_EQ(receive(), static_cast<int>(text.size()));
    expect_script_played();
    EXPECT_TRUE(reply() == text);
    return with_text(reading_lines(), "Rcvd");
  }
};

TEST_F(LargeReplyTest, EtxAtIndexThousandIsTracedInFull) {
  const std::string text = text_for_frame_of(1002);
  const std::string shown = text + static_cast<char>(checksum(text)) + kEtx;
  EXPECT_THAT(receive_text(text), ElementsAre("INF Lnx Rcvd\n\t << SAT->SO  Recv[1001:<STX>" + shown + "]\n",
                                              "INF Lnx Rcvd\n\t <<  SO->PC   Rsp[00999:" + text + "]\n"));
}

TEST_F(LargeReplyTest, OneByteMoreIsTracedAsHeadMarkerAndTail) {
  const std::string text = text_for_frame_of(1003);
  const std::string shown = excerpt(text);
  ASSERT_EQ(shown.size(), 900u + 25u + 101u);
  EXPECT_THAT(receive_text(text),
              ElementsAre("INF Lnx Rcvd BIG_RSP_PKT[1001]\n\t << SAT->SO  Recv[1026:<STX>" + shown + "]\n",
                          "INF Lnx Rcvd BIG_RSP_PKT[01001]\n\t <<  SO->PC   Rsp[01026:" + shown + "]\n"));
}

TEST_F(LargeReplyTest, CallerGetsTheWholeTextOfALongReply) {
  const std::string text = text_for_frame_of(20001);
  const std::string shown = excerpt(text);
  EXPECT_THAT(receive_text(text),
              ElementsAre("INF Lnx Rcvd BIG_RSP_PKT[19999]\n\t << SAT->SO  Recv[1026:<STX>" + shown + "]\n",
                          "INF Lnx Rcvd BIG_RSP_PKT[19999]\n\t <<  SO->PC   Rsp[01026:" + shown + "]\n"));
}

TEST_F(LargeReplyTest, ExcerptGoesOnWithWhatARefusedReceptionLeftBehindIt) {
  const std::string refused = text_for_frame_of(2000);
  const std::string text = text_for_frame_of(1500);
  device().play({send_bad_frame(refused), expect_nak(), send_frame(text), expect_ack()});
  EXPECT_EQ(receive(), static_cast<int>(text.size()));
  expect_script_played();
  const Lines lines = with_text(reading_lines(), "Rcvd BIG");
  ASSERT_EQ(lines.size(), 2u);
  const std::string behind = refused.substr(text.size() + 2);
  EXPECT_THAT(lines, testing::Each(testing::HasSubstr(kEtx + behind)));
}

// ---- Bad arguments and hang-ups ---------------------------------------------------------------------

TEST_F(ReceptionTest, NoBufferIsRefused) {
  Call call = prepared_call(kConsultarSAT, 10, port(), {nullptr, 10, 0});
  EXPECT_EQ(cSerialReadBufW(call), -2001);
  EXPECT_THAT(reading_lines(), ElementsAre("INF Lnx rc[-2001]ER pSatRspBuf=NULL\n"));
}

TEST_F(ReceptionTest, ClosedPortIsRefusedWithTheBufferLeftAlone) {
  char buffer[] = "as it was";
  Call call = prepared_call(kConsultarSAT, 10, SerialPort{}, {buffer, sizeof buffer, sizeof buffer});
  EXPECT_EQ(cSerialReadBufW(call), -2001);
  EXPECT_STREQ(buffer, "as it was");
  EXPECT_THAT(reading_lines(), ElementsAre("INF Lnx rc[-2001]ER *phComm[FFFFFFFFh]Port Closed!\n"));
}

TEST_F(ReceptionTest, BufferIsClearedToItsSize) {
  std::array<char, 64> buffer;
  buffer.fill('#');
  device().play({send_frame("AB"), expect_ack()});
  Call call = prepared_call(kConsultarSAT, 10, port(), {buffer.data(), 32, 32});
  ASSERT_EQ(cSerialReadBufW(call), 2);
  EXPECT_EQ(std::string(buffer.data() + 4, 28), std::string(28, '\0'));
  EXPECT_EQ(buffer[32], '#');
}

TEST_F(ReceptionTest, HangUpBeforeTheReplyLastsAsLongAsTheLimit) {
  device().play({hang_up()});
  EXPECT_EQ(receive(10), -2004);
  EXPECT_EQ(ms(), 10001);
}

TEST_F(ReceptionTest, HangUpInsideTheFrameEndsBothAttemptAndCall) {
  device().play({send("\x02"
                      "ABC"),
                 await_reader(), hang_up()});
  EXPECT_EQ(receive(10), -2004);
  EXPECT_LE(ms(), 101 + 301);
  EXPECT_THAT(answer_lines(), ElementsAre("ERR Lnx Error writing ACK [Input/output error]\n"));
  EXPECT_THAT(reading_lines(), Contains("ERR Lnx: rc[-02006]ER Send NAK  (3)[4]{16384}Timeout\n"));
}

TEST_F(ReceptionTest, FailedAckIsIgnored) {
  device().play({send_frame("AB"), await_reader(), hang_up()});
  EXPECT_EQ(receive(10), 2);
  EXPECT_THAT(answer_lines(), ElementsAre("ERR Lnx Error writing ACK [Input/output error]\n"));
}

}  // namespace
