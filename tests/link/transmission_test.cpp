#include "api/transmission.h"

#include "api/protocol_log.h"
#include "api/time_limits.h"
#include "link/virtual_link_fixture.h"
#include "olk_utils/bounded_text.h"

namespace {

using namespace scripted;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

class TransmissionTest : public VirtualLinkTest {
 protected:
  TransmissionTest() { log_everything(); }
  void SetUp() override { open_port(); }

  // Sends STX, the text and a placeholder, as the SAT functions format a command.
  int transmit(const std::string& text, uint32_t seconds = 10) {
    sent_length_ = text.size() + 3;
    return VirtualLinkTest::transmit(text, seconds);
  }

  std::string sent_text() const { return {gl_sSatPkt, sent_length_}; }

  // A text of a command whose frame has this length.
  static std::string command_for_frame_of(std::size_t length) {
    std::string text = "EnviarDadosVenda|000042|";
    while (text.size() + 3 < length) text += static_cast<char>('A' + text.size() % 23);
    return text;
  }

  static std::string zero_sum_command_for_frame_of(std::size_t length) {
    const std::string text = command_for_frame_of(length - 1);
    return text + static_cast<char>(256 - checksum(text));
  }

  void expect_received(const std::vector<std::string>& parts) {
    EXPECT_TRUE(device().received() == parts) << device().received().size() << " parts";
  }

  static Lines answer_lines() { return traced("cSerialReadAck"); }

  // A line of the dissector's.
  static std::string dissected(const std::string& text, const std::string& indent = "") {
    return "INF [] [../src/olk_sat_utils/olk_sat_utils] [SAT_API_CmdPktParcer]--- >> " + indent + text;
  }

 private:
  std::size_t sent_length_ = 0;
};

constexpr char kReadAckLine[] = "INF   rc[00001]WR:Lnx\n\t << SAT->PC Rcvd[06h]ACK\n";
constexpr char kReadNakLine[] = "INF   rc[00000]WR:Lnx\n\t << SAT->PC Rcvd[15h]NAK\n";
constexpr char kStrayStxLine[] = "WRN   rc[00002]WR:Lnx\n\t << SAT->PC Rcvd[02h]STX Expected ACK or NAK\n";

constexpr char kNoAnswerLine[] =
    "ERR Lnx errno[00011:Resource temporarily unavailable]:ER Waiting ACK/NAK from SAT\n";

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// ---- The frame --------------------------------------------------------------------------------------

TEST_F(TransmissionTest, PlaceholderBecomesTheChecksumAndEtxFollows) {
  device().play({expect("\x02"
                        "AB\x83\x03"),
                 ack()});
  EXPECT_EQ(transmit("AB"), 5);
  EXPECT_EQ(sent_text(), std::string("\x02"
                                     "AB\x83\x03"));
  expect_script_played();
}

TEST_F(TransmissionTest, SmallFrameAndItsAcknowledgementAreTraced) {
  device().play({expect_frame(), ack()});
  ASSERT_EQ(transmit("AB"), 5);
  EXPECT_THAT(traced("lSerialWriteBufL"), ElementsAre("INF Lnx\n\t >> Sent[0005] hC[" + handle() +
                                                      "]\n\t >> PC->SAT Sent[00005:\x02"
                                                      "AB\x83\x03]\n"));
  EXPECT_THAT(answer_lines(), ElementsAre(kReadAckLine));
}

TEST_F(TransmissionTest, SmallFrameWithChecksumZeroIsTracedUpToItAndWithItsWholeLength) {
  device().play({expect_block(6), ack()});
  ASSERT_EQ(transmit("A|C"), 6);
  EXPECT_THAT(traced("lSerialWriteBufL"), ElementsAre("INF Lnx\n\t >> Sent[0006] hC[" + handle() +
                                                      "]\n\t >> PC->SAT Sent[00004:\x02"
                                                      "A|C]\n"));
}

struct ChecksumCase {
  const char* name;
  std::string text;
  unsigned char checksum;
};

void PrintTo(const ChecksumCase& test, std::ostream* out) {
  *out << test.name;
}

class ChecksumTest : public TransmissionTest, public testing::WithParamInterface<ChecksumCase> {};

TEST_P(ChecksumTest, FrameCarriesIt) {
  const auto& [name, text, check] = GetParam();
  const std::string expected = "\x02" + text + static_cast<char>(check) + "\x03";
  device().play({expect(expected), ack()});
  EXPECT_EQ(transmit(text), static_cast<int>(expected.size()));
  EXPECT_EQ(sent_text(), expected);
  expect_script_played();
}

INSTANTIATE_TEST_SUITE_P(Values, ChecksumTest,
                         testing::Values(ChecksumCase{"Zero", "A|\x43", 0x00},
                                         ChecksumCase{"Pipe", "z\x02", 0x7C},
                                         ChecksumCase{"ClosingBrace", "\x7D", 0x7D},
                                         ChecksumCase{"Three", "\x83\x80", 0x04},
                                         ChecksumCase{"Four", "\x84\x80", 0x04},
                                         ChecksumCase{"UnsignedBytes", "\xC3\xA7\xC3\xA3o", 0x3F},
                                         ChecksumCase{"EmptyText", "", 0x00}),
                         [](const auto& test) { return test.param.name; });

TEST_F(TransmissionTest, FrameWithChecksumZeroGoesByLengthNotByStringLength) {
  const std::string text = zero_sum_command_for_frame_of(kBlock);
  device().play({expect_block(kBlock), ack()});
  EXPECT_EQ(transmit(text), static_cast<int>(kBlock));
  expect_received({frame(text)});
}

TEST_F(TransmissionTest, DissectorIsToldHowMuchHasBeenSent) {
  const std::string text = zero_sum_command_for_frame_of(kBlock + 2);
  device().play({expect_block(kBlock), ack(), expect_block(2), ack()});
  ASSERT_EQ(transmit(text), static_cast<int>(kBlock + 2));
  expect_script_played();
  // Only behind the last block does the length show that a checksum of zero ended the string early.
  const Lines messages = trace_messages("SAT_api.log");
  EXPECT_THAT(with_text(messages, "P01="), SizeIs(2));
  EXPECT_THAT(with_text(messages, "CKS[00h]=pSatCmdPkt[strlen(pSatCmdPkt)+0]"), SizeIs(1));
}

TEST_F(TransmissionTest, ProtocolLogOfAFrameWithChecksumZeroLosesItsEndsAndTurnsAround) {
  std::filesystem::create_directory("Log");
  tLog.ucModeMask = 1;
  virtual_clock::set_local_time(2026, 3, 9, 8, 7, 6, 5);
  device().play({expect_block(6), ack()});
  ASSERT_EQ(transmit("A|C"), 6);
  EXPECT_EQ(read_file("Log/20260309_SAT_ProtocolLog.txt"),
            "20260309080706 SAT->PC << [A|<00><03>]WR:CKSUM=0x00--\n");
}

// ---- Blocks -----------------------------------------------------------------------------------------

TEST_F(TransmissionTest, FrameOfOneBlockAwaitsOneAcknowledgement) {
  const std::string text = command_for_frame_of(kBlock);
  device().play({expect_block(kBlock), ack()});
  EXPECT_EQ(transmit(text), static_cast<int>(kBlock));
  expect_script_played();
  expect_received({frame(text)});
  EXPECT_THAT(answer_lines(), ElementsAre(kReadAckLine));
}

TEST_F(TransmissionTest, FrameOfOneByteMoreIsTwoBlocksWithAnAcknowledgementAfterEach) {
  const std::string text = command_for_frame_of(kBlock + 1);
  device().play({expect_block(kBlock), ack(), expect_block(1), ack()});
  EXPECT_EQ(transmit(text), static_cast<int>(kBlock + 1));
  expect_script_played();
  expect_received({frame(text).substr(0, kBlock), "\x03"});
  EXPECT_THAT(answer_lines(), ElementsAre(kReadAckLine, kReadAckLine));
}

TEST_F(TransmissionTest, LongFrameIsSentBlockByBlock) {
  const std::string text = command_for_frame_of(40000);
  device().play(
      {expect_block(kBlock), ack(), expect_block(kBlock), ack(), expect_block(40000 - 2 * kBlock), ack()});
  EXPECT_EQ(transmit(text), 40000);
  expect_script_played();
  EXPECT_EQ(times(1, device().received()[0]) + device().received()[1] + device().received()[2], frame(text));
}

TEST_F(TransmissionTest, EveryBlockOfEveryTransmissionGoesToDissectorAndProtocolLog) {
  std::filesystem::create_directory("Log");
  tLog.ucModeMask = 31;
  const std::string text = command_for_frame_of(kBlock + 2);
  const Script both_blocks = {expect_block(kBlock), ack(), expect_block(2)};
  device().play(both_blocks + Script{nak()} + both_blocks + Script{ack()});
  ASSERT_EQ(transmit(text), static_cast<int>(kBlock + 2));
  expect_script_played();

  // The whole frame each time, not the block.
  const Lines messages = trace_messages("SAT_api.log");
  EXPECT_THAT(with_text(messages, "--- >> P01=[00000016:EnviarDadosVenda]Sat:NomeDoComando"), SizeIs(4));
  EXPECT_THAT(with_text(messages, "LastParam"), SizeIs(4));
  std::string protocol;
  for (const auto& entry : std::filesystem::directory_iterator("Log")) protocol += read_file(entry.path());
  const std::string rendered =
      "PC->SAT >> [<02>" + text + "<" + printed("%02X", checksum(text)) + "><03>]OK:a\n";
  std::size_t lines = 0;
  for (std::size_t at = protocol.find(rendered); at != std::string::npos;
       at = protocol.find(rendered, at + 1))
    ++lines;
  EXPECT_EQ(lines, 4u);
}

// The protocol log is closed, so that it shows when its turn comes.
TEST_F(TransmissionTest, BlockIsTracedThenDissectedThenLoggedAndItsAnswerComesLast) {
  std::filesystem::create_directory("Log");
  tLog.ucModeMask = 31;
  virtual_clock::set_local_time(2026, 3, 9, 8, 7, 6, 5);
  device().play({expect_frame(), nak(), expect_frame(), ack()});
  ASSERT_EQ(transmit("A|1"), 6);
  expect_script_played();

  const Lines block = {
      "INF [] [../src/api/TALVEX] [lSerialWriteBufL]Lnx\n\t >> Sent[0006] hC[" + handle() +
          "]\n\t >> PC->SAT Sent[00006:" + frame("A|1") + "]\n",
      dissected("STX[02h]\n", " "),
      dissected("P01=[00000001:A]Sat:NomeDoComando\n"),
      dissected("P02=[00000001:1]LastParam\n"),
      dissected("CKS[EEh]\n", " "),
      dissected("ETX[03h]\n\n", " "),
      ("WRN [] [../src/api/TALVEX] [LogSATProtocolMsg]All WR\n\t iSatPkgLen[00000006]\n\t "
       "pSatPkt[iSatPkgLen-1]=[03h]Rcvd ETX\n"),
  };
  const Lines opening = {
      "WRN [] [../src/api/TALVEX] [LogSATProtocolMsg]All ER:gl_iFd[00000000h]=NULL\n\t Msg[000048:"
      "20260309080706 PC->SAT >> [<02>A|1<EE><03>]OK:a\n] Trying to Open NOw\n",
      "WRN [] [../src/api/TALVEX] [CreateSAT_ProtLogFile]---  gl_tSat.strSatProtLogFilePath[Log]UPDATED\n",
      printed("INF [] [../src/api/TALVEX] [CreateSAT_ProtLogFile]---  rc[-01101]OK:logFd[%08Xh] "
              "pcLogName[Log/20260309_SAT_ProtocolLog.txt]Created!!!\n",
              static_cast<unsigned>(gl_iFd)),
  };
  const auto answer = [](const char* line) {
    return std::string(line).insert(4, "[] [../src/api/TALVEX] [cSerialReadAck]");
  };
  const Lines refused = {answer(kReadNakLine),
                         "INF [] [../src/api/TALVEX] [lSerialWriteBufL]Lnx errno[]:WR Read NAK\n"};
  EXPECT_EQ(without_errno(trace_messages("SAT_api.log")),
            block + opening + refused + block + Lines{answer(kReadAckLine)});
}

// ---- NAK --------------------------------------------------------------------------------------------

TEST_F(TransmissionTest, ThreeNaksAndAnAckSendTheFrameFourTimes) {
  device().play(3 * Script{expect_frame(), nak()} + Script{expect_frame(), ack()});
  EXPECT_EQ(transmit("ConsultarSAT|000042"), 22);
  expect_script_played();
  EXPECT_THAT(device().received(), AllOf(SizeIs(4), Each(frame("ConsultarSAT|000042"))));
  EXPECT_THAT(answer_lines(), ElementsAre(kReadNakLine, kReadNakLine, kReadNakLine, kReadAckLine));
  EXPECT_THAT(with_text(without_errno(traced("lSerialWriteBufL")), "Read NAK"),
              AllOf(SizeIs(3), Each("INF Lnx errno[]:WR Read NAK\n")));
}

TEST_F(TransmissionTest, FourthNakFails) {
  device().play(4 * Script{expect_frame(), nak()});
  EXPECT_EQ(transmit("ConsultarSAT|000042"), -2009);
  expect_script_played();
  const Lines lines = without_errno(traced("lSerialWriteBufL"));
  EXPECT_THAT(with_text(lines, "WR Read NAK"), SizeIs(3));
  EXPECT_EQ(lines.back(), "ERR Lnx errno[]:ER Read NAK\n");
}

TEST_F(TransmissionTest, NakAfterTheSecondBlockSendsTheWholeFrameAgain) {
  const std::string text = command_for_frame_of(3 * kBlock);
  const std::string bytes = frame(text);
  device().play({expect_block(kBlock), ack(), expect_block(kBlock), nak(), expect_block(kBlock), ack(),
                 expect_block(kBlock), ack(), expect_block(kBlock), ack()});
  EXPECT_EQ(transmit(text), static_cast<int>(3 * kBlock));
  expect_script_played();
  const std::string first = bytes.substr(0, kBlock);
  const std::string second = bytes.substr(kBlock, kBlock);
  expect_received({first, second, first, second, bytes.substr(2 * kBlock)});
}

TEST_F(TransmissionTest, NakBudgetBelongsToTheCallNotToABlock) {
  const std::string text = command_for_frame_of(kBlock + 1);
  const Script refused_late = {expect_block(kBlock), ack(), expect_block(1), nak()};
  device().play(3 * refused_late + Script{expect_block(kBlock), nak()});
  EXPECT_EQ(transmit(text), -2009);
  expect_script_played();
}

// ---- Stray STX --------------------------------------------------------------------------------------

TEST_F(TransmissionTest, StxThenAckRetransmits) {
  device().play({expect_frame(), send("\x02\x06"), expect_frame(), ack()});
  EXPECT_EQ(transmit("AB"), 5);
  expect_script_played();
  EXPECT_THAT(answer_lines(),
              ElementsAre(kStrayStxLine, "WRN  SAT->PC Rcvd[06h]ACK Expected ETX\n", kReadAckLine));
}

TEST_F(TransmissionTest, StxThenNakProceedsAsIfAcknowledged) {
  const std::string text = command_for_frame_of(kBlock + 1);
  device().play({expect_block(kBlock), send("\x02\x15"), expect_block(1), send("\x02\x15")});
  EXPECT_EQ(transmit(text), static_cast<int>(kBlock + 1));
  expect_script_played();
  EXPECT_THAT(answer_lines(), ElementsAre(kStrayStxLine, "WRN  SAT->PC Rcvd[15h]NAK Expected ETX\n",
                                          kStrayStxLine, "WRN  SAT->PC Rcvd[15h]NAK Expected ETX\n"));
}

TEST_F(TransmissionTest, StxThenEtxProceeds) {
  const std::string text = command_for_frame_of(kBlock + 1);
  device().play({expect_block(kBlock), send("\x02\x03"), expect_block(1), send("\x02\x03")});
  EXPECT_EQ(transmit(text), static_cast<int>(kBlock + 1));
  expect_script_played();
  EXPECT_THAT(answer_lines(), ElementsAre(kStrayStxLine, "WRN  SAT->PC Rcvd[03h]ETX\n", kStrayStxLine,
                                          "WRN  SAT->PC Rcvd[03h]ETX\n"));
}

TEST_F(TransmissionTest, GarbageBehindAStrayStxIsTracedUntilAnAnswer) {
  device().play({expect_frame(), send("\x02Z\x02\x03")});
  EXPECT_EQ(transmit("AB"), 5);
  expect_script_played();
  EXPECT_THAT(answer_lines(), ElementsAre(kStrayStxLine, "WRN  SAT->PC Rcvd[5Ah]---\n",
                                          "WRN  SAT->PC Rcvd[02h]---\n", "WRN  SAT->PC Rcvd[03h]ETX\n"));
}

TEST_F(TransmissionTest, ByteBehindAStrayStxMustAlreadyBeThere) {
  device().play({expect_frame(), send("\x02"), await_reader(), pause_ms(1), ack()});
  EXPECT_EQ(transmit("AB"), -2);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 0);
  Lines lines = answer_lines();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], kStrayStxLine);
  EXPECT_THAT(lines[1], testing::MatchesRegex("WRN  rc\\[-00002\\]ER SAT->PC Rcvd\\[..h\\]Exiting\n"));
  EXPECT_EQ(traced("lSerialWriteBufL").back(), kNoAnswerLine);
}

TEST_F(TransmissionTest, HangUpBehindAStrayStxEndsTheWait) {
  device().play({expect_frame(), send("\x02"), await_reader(), hang_up()});
  EXPECT_EQ(transmit("AB"), -2);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 0);
}

TEST_F(TransmissionTest, StrayStxAndAckSpendTheNakBudget) {
  device().play(2 * Script{expect_frame(), send("\x02\x06")} + 2 * Script{expect_frame(), nak()});
  EXPECT_EQ(transmit("AB"), -2009);
  expect_script_played();
}

// ---- Garbage and silence ----------------------------------------------------------------------------

TEST_F(TransmissionTest, GarbageInsteadOfAnAnswerIsTracedAndTheWaitContinues) {
  device().play({expect_frame(), send("Z\xFF"), pause_ms(2900), ack()});
  EXPECT_EQ(transmit("AB"), 5);
  expect_script_played();
  EXPECT_THAT(
      answer_lines(),
      ElementsAre("ERR   rc[-0001]ER:Lnx\n\t << SAT->PC Rcvd[5Ah]--- Expected ACK or NAK\n",
                  "ERR   rc[-0001]ER:Lnx\n\t << SAT->PC Rcvd[FFh]--- Expected ACK or NAK\n", kReadAckLine));
}

TEST_F(TransmissionTest, EtxAloneIsGarbage) {
  device().play({expect_frame(), send("\x03\x06")});
  EXPECT_EQ(transmit("AB"), 5);
  EXPECT_THAT(
      answer_lines(),
      ElementsAre("ERR   rc[-0001]ER:Lnx\n\t << SAT->PC Rcvd[03h]--- Expected ACK or NAK\n", kReadAckLine));
}

TEST_F(TransmissionTest, SilentDeviceFailsAfterFourWaitsOfThreeSeconds) {
  device().play({expect_frame()});
  EXPECT_EQ(transmit("AB"), -2);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 12000);
  EXPECT_EQ(kSilentDeviceMs, 12000);
  EXPECT_THAT(answer_lines(), ElementsAre("WRN  rc[-0001]WR: Lnx:FAIL select Trying Read\n\t       hComm[" +
                                              handle() + "] \n\t selectRetry[-1]\n",
                                          "ERR   rc[-0002]ER:Lnx hComm[" + handle() +
                                              "] Timeout[Resource temporarily unavailable] t[12000]ms\n"));
  EXPECT_EQ(traced("lSerialWriteBufL").back(), kNoAnswerLine);
}

TEST_F(TransmissionTest, AnswerInTheFourthWaitIsTaken) {
  device().play({expect_frame(), pause_ms(11999), ack()});
  EXPECT_EQ(transmit("AB"), 5);
}

TEST_F(TransmissionTest, WaitsAreCountedPerAnswerNotPerCall) {
  device().play(4 * Script{expect_frame(), pause_ms(11999), nak()});
  EXPECT_EQ(transmit("AB"), -2009);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 4 * 11999);
}

TEST_F(TransmissionTest, WaitCounterIsNotRenewedByGarbage) {
  device().play({expect_frame(), pause_ms(10000), send("Z")});
  EXPECT_EQ(transmit("AB"), -2);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 13000) << "three waits before the garbage, the fourth behind it";
  EXPECT_EQ(answer_lines().back(), "ERR   rc[-0002]ER:Lnx hComm[" + handle() +
                                       "] Timeout[Resource temporarily unavailable] t[13000]ms\n");
}

TEST_F(TransmissionTest, EndlessGarbageEndsAfterAMinute) {
  log_errors_only();
  device().play({expect_frame(), flood("ZZZZZZZZZZ")});
  virtual_clock::set_tick_ms(50);
  EXPECT_EQ(transmit("AB", 20), -2);
  EXPECT_GT(virtual_clock::monotonic_ms(), 60000);
  EXPECT_LT(virtual_clock::monotonic_ms(), 61000);
  EXPECT_THAT(answer_lines().back(), StartsWith("ERR   rc[-0002]ER:Lnx hComm["));
}

TEST_F(TransmissionTest, EndlessGarbageToALongFunctionEndsAfterThreeTimeouts) {
  log_errors_only();
  device().play({expect_frame(), flood("ZZZZZZZZZZ")});
  virtual_clock::set_tick_ms(500);
  EXPECT_EQ(transmit("AB", 30), -2);
  EXPECT_GT(virtual_clock::monotonic_ms(), 90000);
  EXPECT_LT(virtual_clock::monotonic_ms(), 95000);
}

struct EndlessWaitCase {
  uint32_t seconds;
  int64_t longest_ms;
};

TEST(EndlessWaitTest, LastsAMinuteOrThreeTimeoutsWhicheverIsLonger) {
  constexpr EndlessWaitCase kCases[] = {
      {0, 60000}, {20, 60000}, {21, 63000}, {1800, 5400000}, {UINT32_MAX, 12884901885000}};
  for (const auto& [seconds, ms] : kCases) EXPECT_EQ(longest_wait_ms(seconds), ms) << seconds;
}

TEST_F(TransmissionTest, EndlessGarbageBehindAStrayStxEnds) {
  log_errors_only();
  device().play({expect_frame(), send("\x02"), flood("ZZZZZZZZZZ")});
  virtual_clock::set_tick_ms(50);
  EXPECT_EQ(transmit("AB", 10), -2);
  EXPECT_LT(virtual_clock::monotonic_ms(), 61000);
}

TEST_F(TransmissionTest, HungUpPortEndsTheWaitAfterTwoSeconds) {
  device().play({expect_frame(), hang_up()});
  EXPECT_EQ(transmit("AB"), -2);
  EXPECT_GT(virtual_clock::monotonic_ms(), 2000);
  EXPECT_LT(virtual_clock::monotonic_ms(), 2010) << "read again at a slow pace, but not waited for";
  EXPECT_THAT(answer_lines(),
              ElementsAre(AllOf(StartsWith("ERR   rc[-0002]ER:Lnx hComm[" + handle() + "] Timeout["),
                                EndsWith("] t[2001]ms\n"))));
}

// ---- Writing ----------------------------------------------------------------------------------------

TEST_F(TransmissionTest, PortThatTakesNoBytesFailsAfterTwoSeconds) {
  device().play({await_release()});
  fill_line();
  EXPECT_EQ(transmit("ConsultarSAT|000042"), -2007);
  EXPECT_EQ(virtual_clock::monotonic_ms(), 2001);

  const Lines lines = traced("lSerialWriteBufL");
  ASSERT_THAT(lines, SizeIs(2003)) << "one look a millisecond, and the end";
  for (int i = 0; i <= 2001; ++i) {
    ASSERT_EQ(
        lines[static_cast<std::size_t>(i)],
        printed("ERR Win: uiPktSz[00000022] errno[00000011]EAGAIN:EWOULDBLOCK diff[%d] iTimeout[2000]\n", i));
  }
  EXPECT_EQ(lines.back(),
            "ERR Lnx errno[00011:Resource temporarily unavailable]ER iBytesWritten[-001] uiOffset[0000] "
            "uiTxBufSz[0022] diff[2001] Timeout...\n");
}

TEST_F(TransmissionTest, EveryWrittenByteRenewsTheTwoSeconds) {
  log_errors_only();
  const std::size_t waiting = fill_line();
  const std::string text = command_for_frame_of(kBlock);
  device().play(
      {pause_ms(1990), take(8192), pause_ms(1990), take(8192), pause_ms(1990), take(waiting), ack()});
  EXPECT_EQ(transmit(text), static_cast<int>(kBlock));
  expect_script_played();
  EXPECT_GE(virtual_clock::monotonic_ms(), 3 * 1990);
}

TEST_F(TransmissionTest, TenMebibytesPass) {
  log_errors_only();
  constexpr std::size_t kBlocks = 640;
  const std::string text = command_for_frame_of(kBlocks * kBlock);
  device().play(static_cast<int>(kBlocks) * Script{expect_block(kBlock), ack()});
  EXPECT_EQ(transmit(text), static_cast<int>(kBlocks * kBlock));
  expect_script_played();
  std::string all;
  for (const std::string& block : device().received()) all += block;
  EXPECT_TRUE(all == frame(text));
}

TEST_F(TransmissionTest, NothingToSendIsRefused) {
  Call call = prepared_call(kConsultarSAT, 10, port());
  for (const char* text : {"", "\x02"}) {
    copy_text(call.packet.bytes, call.packet.capacity, text);
    EXPECT_EQ(lSerialWriteBufL(call), -2006);
  }
}

// ---- Large blocks in the trace ----------------------------------------------------------------------

class LargeTraceTest : public TransmissionTest {
 protected:
  std::string large_line(std::size_t block_end, const std::string& frame_bytes) {
    const std::string excerpt =
        frame_bytes.substr(0, 900) + "...**BIGPKG SLL-SAT**...." + frame_bytes.substr(block_end - 900);
    return printed("WRN Win: OK:hC[%08Xh]Sent ulTxPktSz[%05zu]BIG \n\t PC->SAT >>   pusTxPkt[%03zu:",
                   static_cast<unsigned>(port().descriptor), block_end, excerpt.size()) +
           excerpt + "]\n";
  }
};

TEST_F(LargeTraceTest, BlockOfThousandBytesIsTracedInFull) {
  const std::string text = command_for_frame_of(1000);
  device().play({expect_frame(), ack()});
  ASSERT_EQ(transmit(text), 1000);
  EXPECT_THAT(traced("lSerialWriteBufL"), ElementsAre("INF Lnx\n\t >> Sent[1000] hC[" + handle() +
                                                      "]\n\t >> PC->SAT Sent[01000:" + frame(text) + "]\n"));
}

TEST_F(LargeTraceTest, BlockOfOneByteMoreIsTracedAsHeadAndTail) {
  const std::string text = command_for_frame_of(1001);
  device().play({expect_frame(), ack()});
  ASSERT_EQ(transmit(text), 1001);
  EXPECT_THAT(traced("lSerialWriteBufL"), ElementsAre(large_line(1001, frame(text))));
}

TEST_F(LargeTraceTest, ExcerptRunsFromBeforeTheBlocksEndToTheFramesEnd) {
  const std::string text = command_for_frame_of(kBlock + 500);
  device().play({expect_block(kBlock), ack(), expect_block(500), ack()});
  ASSERT_EQ(transmit(text), static_cast<int>(kBlock + 500));
  // Besides the lines of writes that the line refused, if it was full for a moment.
  EXPECT_THAT(with_text(traced("lSerialWriteBufL"), "BIG"),
              ElementsAre(large_line(kBlock, frame(text)), large_line(kBlock + 500, frame(text))));
}

TEST_F(LargeTraceTest, LargeBlockIsAWarningSmallOneIsNot) {
  bDebugLogsEnabled = 0;
  bWarningLogsEnabled = 1;
  device().play(2 * Script{expect_frame(), ack()});
  ASSERT_EQ(transmit(command_for_frame_of(1001)), 1001);
  ASSERT_EQ(transmit(command_for_frame_of(1000)), 1000);
  EXPECT_THAT(traced("lSerialWriteBufL"), ElementsAre(HasSubstr("BIG")));
}

}  // namespace
