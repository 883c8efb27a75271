// The link over system calls that fail, stop short or are interrupted.
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <cstdio>

#include "api/communicate.h"
#include "link/virtual_link_fixture.h"
#include "olk_sat_utils/return_codes.h"
#include "olk_utils/bounded_text.h"
#include "support/fault_calls.h"
#include "talvex/talvex.h"

namespace {

using namespace scripted;
using fault_calls::Call;
using fault_calls::count_of;
using fault_calls::inject;
using fault_calls::kForever;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

fault_calls::Fault failure(Call call, int error, int times = 1, int skip = 0) {
  return {call, skip, times, -1, error};
}
fault_calls::Fault nothing(Call call, int times = 1, int skip = 0) {
  return {call, skip, times, 0, 0};
}

class FaultTest : public VirtualLinkTest {
 protected:
  FaultTest() { log_everything(); }
  ~FaultTest() override { inject({}); }

  static Lines sending_lines() { return traced("lSerialWriteBufL"); }
  static Lines waiting_lines() { return traced("cSerialReadAck"); }
  static Lines reading_lines() { return traced("cSerialReadBufW"); }
  static Lines answer_lines() { return traced("lSerialWriteAck"); }
  static int ms() { return static_cast<int>(virtual_clock::monotonic_ms()); }
};

constexpr char kCommand[] = "ConsultarSAT|000042";  // its frame has 22 bytes

class OpenPortFaultTest : public FaultTest {
 protected:
  void SetUp() override { open_port(); }
};

using PortFaultTest = FaultTest;
using AnswerFaultTest = OpenPortFaultTest;
using ReceivingFaultTest = OpenPortFaultTest;
using AcknowledgingFaultTest = OpenPortFaultTest;

class SendingFaultTest : public OpenPortFaultTest {
 protected:
  // The elapsed time that the last refused write shows; 0 if none was refused.
  static int last_measured_time() {
    const Lines lines = with_text(sending_lines(), "EAGAIN:EWOULDBLOCK");
    int measured = 0;
    if (!lines.empty())
      std::sscanf(lines.back().c_str(), "%*[^]]] errno[00000011]EAGAIN:EWOULDBLOCK diff[%d]", &measured);
    return measured;
  }

  // From the moment on when the device has the first block, writing fails.
  int write_error_in_the_second_block(const Step& answer) {
    device().play({expect_block(kBlock), answer});
    virtual_clock::on_turn([this] {
      const int64_t next_turn = device().take_turn();
      if (device().received().size() == 1) inject({failure(Call::kWrite, EIO)});
      return next_turn;
    });
    const int rc = transmit(std::string(kBlock, 'x'));
    EXPECT_EQ(sending_lines().back(),
              printed("ERR Lnx errno[00005:Input/output error]ER iBytesWritten[-001] uiOffset[16384] "
                      "uiTxBufSz[16387] diff[%04d]\n",
                      last_measured_time()));
    expect_script_played();
    return rc;
  }
};

// ---- The port ---------------------------------------------------------------------------------------

TEST_F(PortFaultTest, OpenRaisesDtrThenRts) {
  inject({});
  ASSERT_EQ(lSerialOpenW(port(), device().path().c_str()), 0)
      << "a pseudo-terminal has no modem lines: not examined";
  EXPECT_THAT(fault_calls::raised_modem_lines(), ElementsAre(TIOCM_DTR, TIOCM_RTS));
}

TEST_F(PortFaultTest, InterruptedOpenIsRepeated) {
  inject({failure(Call::kOpen, EINTR, 3)});
  EXPECT_EQ(lSerialOpenW(port(), device().path().c_str()), 0);
  EXPECT_EQ(count_of(Call::kOpen), 4);
}

TEST_F(PortFaultTest, SettingsThatCannotBeReadFail) {
  ASSERT_EQ(lSerialOpenW(port(), device().path().c_str()), 0);
  inject({failure(Call::kTcgetattr, EIO)});
  EXPECT_EQ(lSerialSettingsL(port()), -2002);
  EXPECT_THAT(traced("lSerialSettingsL"),
              ElementsAre("ERR Lnx rc[-02002]ER hComm[" + handle() +
                          "] ER:errno[:5:Input/output error]Fail to tcgetattr\n"));
  EXPECT_EQ(count_of(Call::kTcsetattr), 0);
}

TEST_F(PortFaultTest, SettingsThatCannotBeWrittenFailAndNothingIsDrained) {
  ASSERT_EQ(lSerialOpenW(port(), device().path().c_str()), 0);
  inject({failure(Call::kTcsetattr, EINVAL)});
  EXPECT_EQ(lSerialSettingsL(port()), -2002);
  EXPECT_THAT(traced("lSerialSettingsL"), ElementsAre("ERR Lnx rc[-02002]ER hComm[" + handle() +
                                                      "] ER:errno[:22:Invalid argument]Fail to tcsetattr\n"));
  EXPECT_EQ(count_of(Call::kRead), 0);
}

TEST_F(PortFaultTest, SettingsAreWrittenOnceAndFlushReadsTenBytesAtATime) {
  ASSERT_EQ(lSerialOpenW(port(), device().path().c_str()), 0);
  ASSERT_EQ(lSerialSettingsL(port()), 0);
  device().play({send(std::string(25, 'x'))});
  device().take_turn();
  inject({});
  ASSERT_EQ(lSerialSettingsL(port()), 0);
  EXPECT_EQ(count_of(Call::kTcsetattr), 1);
  EXPECT_EQ(count_of(Call::kRead), 4) << "10, 10, 5, nothing";
}

TEST_F(PortFaultTest, FlushStopsAtTheFirstError) {
  open_port();
  inject({failure(Call::kRead, EIO)});
  EXPECT_EQ(lSerialFlushRx(port()), 0);
  EXPECT_EQ(count_of(Call::kRead), 1);
}

TEST_F(PortFaultTest, InterruptedFlushGoesOn) {
  open_port();
  device().play({send(std::string(25, 'x'))});
  device().take_turn();
  inject({failure(Call::kRead, EINTR, 2, 1)});
  EXPECT_EQ(lSerialFlushRx(port()), 0);
  EXPECT_EQ(count_of(Call::kRead), 6);
}

TEST_F(PortFaultTest, FailedUnlockStillCloses) {
  open_port();
  const std::string shown = handle();
  inject({failure(Call::kFlock, ENOLCK)});
  EXPECT_EQ(lSerialCloseL(port()), 0);
  EXPECT_EQ(port().descriptor, -1);
  EXPECT_EQ(count_of(Call::kClose), 1);
  EXPECT_THAT(traced("lSerialUnlock"),
              ElementsAre("ERR Lnx rc[-02011]ER: Unlock fail: hComm[" + shown + "]\n"));
  EXPECT_THAT(traced("lSerialCloseL"), ElementsAre("ERR Lnx rc[-02011]ER: hComm[" + shown + "]\n"));
}

TEST_F(PortFaultTest, FailedCloseIsReported) {
  open_port();
  const std::string shown = handle();
  inject({failure(Call::kClose, EIO)});
  EXPECT_EQ(lSerialCloseL(port()), -2001);
  EXPECT_EQ(port().descriptor, -1);
  EXPECT_THAT(traced("lSerialCloseL"), ElementsAre("ERR Lnx rc[-02001]ER: hComm[" + shown + "]\n"));
}

TEST_F(PortFaultTest, InterruptionsChangeNoOutcome) {
  open_port();
  inject({failure(Call::kFlock, EINTR, 2), failure(Call::kTcgetattr, EINTR, 2),
          failure(Call::kTcsetattr, EINTR, 2), failure(Call::kClose, EINTR)});
  EXPECT_EQ(lSerialLock(port()).rc, 0);
  EXPECT_EQ(lSerialSettingsL(port()), 0);
  EXPECT_EQ(lSerialCloseL(port()), 0);
  EXPECT_THAT(trace_messages("SAT_api.log"), IsEmpty());
}

// ---- Sending ----------------------------------------------------------------------------------------

TEST_F(SendingFaultTest, WriteErrorInTheFirstBlockFails) {
  inject({failure(Call::kWrite, EIO)});
  EXPECT_EQ(transmit(kCommand), -2006);
  EXPECT_THAT(sending_lines(),
              ElementsAre("ERR Lnx errno[00005:Input/output error]ER iBytesWritten[-001] uiOffset[0000] "
                          "uiTxBufSz[0022] diff[0000]\n"));
}

TEST_F(SendingFaultTest, BadDescriptorIsAWriteErrorLikeAnyOther) {
  inject({failure(Call::kWrite, EBADF)});
  EXPECT_EQ(transmit(kCommand), -2006);
  EXPECT_THAT(sending_lines(),
              ElementsAre("ERR Lnx errno[00009:Bad file descriptor]ER iBytesWritten[-001] uiOffset[0000] "
                          "uiTxBufSz[0022] diff[0000]\n"));
}

TEST_F(SendingFaultTest, WriteErrorShowsHowFarItCameAndTheLastMeasuredTime) {
  inject({{Call::kWrite, 0, 1, 0, 0, "", 5}, failure(Call::kWrite, EAGAIN, 10), failure(Call::kWrite, EIO)});
  EXPECT_EQ(transmit(kCommand), -2006);
  const Lines lines = sending_lines();
  ASSERT_THAT(lines, SizeIs(11));
  EXPECT_GT(last_measured_time(), 0);
  EXPECT_EQ(lines[10], printed("ERR Lnx errno[00005:Input/output error]ER iBytesWritten[-001] uiOffset[0005] "
                               "uiTxBufSz[0022] diff[%04d]\n",
                               last_measured_time()));
}

// The result of the last acknowledgement stands, and counts as success.
TEST_F(SendingFaultTest, WriteErrorAfterAnAckReturnsOne) {
  EXPECT_EQ(write_error_in_the_second_block(ack()), 1);
}

TEST_F(SendingFaultTest, WriteErrorAfterAStrayStxAndNakReturnsOne) {
  EXPECT_EQ(write_error_in_the_second_block(send("\x02\x15")), 1);
}

TEST_F(SendingFaultTest, WriteErrorAfterAStrayStxAndEtxReturnsThree) {
  EXPECT_EQ(write_error_in_the_second_block(send("\x02\x03")), 3);
}

TEST_F(SendingFaultTest, WriteErrorShowsTheTimeLastMeasuredInAnEarlierBlock) {
  inject({failure(Call::kWrite, EAGAIN, 9)});
  EXPECT_EQ(write_error_in_the_second_block(ack()), 1);
  EXPECT_GT(last_measured_time(), 0);
}

TEST_F(SendingFaultTest, WriteErrorAfterANakShowsTheTimeLastMeasuredInFrontOfIt) {
  device().play({expect_frame(), nak()});
  inject({failure(Call::kWrite, EAGAIN, 9), failure(Call::kWrite, EIO, 1, 1)});
  EXPECT_EQ(transmit(kCommand), 0);
  EXPECT_GT(last_measured_time(), 0);
  EXPECT_EQ(sending_lines().back(),
            printed("ERR Lnx errno[00005:Input/output error]ER iBytesWritten[-001] uiOffset[0000] "
                    "uiTxBufSz[0022] diff[%04d]\n",
                    last_measured_time()));
}

TEST_F(SendingFaultTest, WriteErrorAfterANakReturnsZero) {
  device().play({expect_frame(), nak()});
  inject({failure(Call::kWrite, EIO, 1, 1)});
  EXPECT_EQ(transmit(kCommand), 0);
  EXPECT_EQ(sending_lines().back(),
            "ERR Lnx errno[00005:Input/output error]ER iBytesWritten[-001] uiOffset[0000] "
            "uiTxBufSz[0022] diff[0000]\n");
}

TEST_F(SendingFaultTest, ShortWritesMakeTheSameFrame) {
  device().play({expect_frame(), ack()});
  inject({{Call::kWrite, 0, kForever, 0, 0, "", 1}});
  EXPECT_EQ(transmit(kCommand), 22);
  EXPECT_EQ(count_of(Call::kWrite), 22);
  expect_script_played();
}

TEST_F(SendingFaultTest, ShortWritesStopAtTheBlockEnd) {
  const std::string text(40000 - 3, 'x');
  device().play(
      {expect_block(kBlock), ack(), expect_block(kBlock), ack(), expect_block(40000 - 2 * kBlock), ack()});
  inject({{Call::kWrite, 0, kForever, 0, 0, "", 1000}});
  EXPECT_EQ(transmit(text), 40000);
  expect_script_played();
  EXPECT_TRUE(device().received()[0] + device().received()[1] + device().received()[2] == frame(text));
}

TEST_F(SendingFaultTest, RefusedWritesAreTracedEachAndRepeated) {
  device().play({expect_frame(), ack()});
  inject({failure(Call::kWrite, EAGAIN, 100)});
  EXPECT_EQ(transmit(kCommand), 22);
  const Lines lines = with_text(sending_lines(), "Win: uiPktSz");
  EXPECT_THAT(lines, SizeIs(100));
  EXPECT_THAT(lines, Each(testing::MatchesRegex(
                         "ERR Win: uiPktSz\\[00000022\\] errno\\[00000011\\]EAGAIN:EWOULDBLOCK "
                         "diff\\[[0-9]+\\] iTimeout\\[2000\\]\n")));
  EXPECT_GE(ms(), 98) << "about one look a millisecond, although the port claims to have room";
}

TEST_F(SendingFaultTest, WriteThatFailsWithoutErrnoIsTracedAsOther) {
  device().play({expect_frame(), ack()});
  inject({failure(Call::kWrite, 0)});
  EXPECT_EQ(transmit(kCommand), 22);
  EXPECT_THAT(
      with_text(sending_lines(), "Win: uiPktSz"),
      ElementsAre("ERR Win: uiPktSz[00000022] errno[00000000]OTHER              diff[0] iTimeout[2000]\n"));
}

TEST_F(SendingFaultTest, WriteOfNothingIsRepeatedWithoutALine) {
  device().play({expect_frame(), ack()});
  inject({nothing(Call::kWrite, 5)});
  EXPECT_EQ(transmit(kCommand), 22);
  EXPECT_THAT(with_text(sending_lines(), "ERR"), IsEmpty());
}

TEST_F(SendingFaultTest, EndlessWritesOfNothingFailAfterTwoSeconds) {
  inject({nothing(Call::kWrite, kForever)});
  EXPECT_EQ(transmit(kCommand), -2007);
  EXPECT_EQ(ms(), 2001);
  EXPECT_THAT(
      without_errno(sending_lines()),
      ElementsAre(
          "ERR Lnx errno[]ER iBytesWritten[0000] uiOffset[0000] uiTxBufSz[0022] diff[2001] Timeout...\n"));
}

TEST_F(SendingFaultTest, FailedAnswerIsTracedWithTheErrnoOfItsRead) {
  device().play(2 * Script{expect_frame()});
  inject({failure(Call::kRead, EIO)});
  EXPECT_EQ(transmit(kCommand), -4);
  EXPECT_EQ(sending_lines().back(), "ERR Lnx errno[00005:Input/output error]:ER Waiting ACK/NAK from SAT\n");
  inject({failure(Call::kPoll, EBADF, kForever), failure(Call::kRead, EBADF, kForever)});
  EXPECT_EQ(transmit(kCommand), -3);
  EXPECT_EQ(sending_lines().back(), "ERR Lnx errno[00009:Bad file descriptor]:ER Waiting ACK/NAK from SAT\n");
}

TEST_F(SendingFaultTest, InterruptedWritesChangeNothing) {
  device().play({expect_frame(), ack()});
  inject({failure(Call::kWrite, EINTR, 1000), failure(Call::kRead, EINTR, 1000),
          failure(Call::kPoll, EINTR, 1000)});
  EXPECT_EQ(transmit(kCommand), 22);
  expect_script_played();
  EXPECT_EQ(ms(), 0);
  EXPECT_THAT(with_text(sending_lines(), "ERR"), IsEmpty());
}

// ---- The device's answer ----------------------------------------------------------------------------

TEST_F(AnswerFaultTest, ReadErrorFailsAtOnceWithItsLineTwice) {
  device().play({ack()});
  inject({failure(Call::kRead, EIO)});
  EXPECT_EQ(await_answer(), -4);
  const std::string line =
      "ERR   rc[-0004]ER:Lnx hComm[" + handle() + "] Timeout[Input/output error] t[0]ms\n";
  EXPECT_THAT(waiting_lines(), ElementsAre(line, line));
}

TEST_F(AnswerFaultTest, BadDescriptorFailsAfterASecondWithItsLineTwice) {
  port().descriptor = 987;
  EXPECT_EQ(await_answer(), -3);
  EXPECT_EQ(ms(), 1001);
  const std::string line = "ERR   rc[-0003]ER:Lnx hComm[000003DBh] Timeout[Bad file descriptor] t[1001]ms\n";
  EXPECT_THAT(waiting_lines(), ElementsAre(line, line));
}

TEST_F(AnswerFaultTest, BadDescriptorIsForgivenForASecond) {
  device().play({ack()});
  inject({failure(Call::kRead, EBADF, 900)});
  EXPECT_EQ(await_answer(), 1);
}

TEST_F(AnswerFaultTest, ReadThatFailsWithoutErrnoIsTracedAsOther) {
  device().play({ack()});
  inject({failure(Call::kRead, 0)});
  EXPECT_EQ(await_answer(), 1);
  EXPECT_EQ(waiting_lines()[0],
            "ERR Win: BytesRead[-0000001] errno[00000000]OTHER              diff[0] iTimeout[2000]\n");
}

TEST_F(AnswerFaultTest, FailedWaitGoesOnToTheRead) {
  device().play({ack()});
  device().take_turn();
  inject({failure(Call::kPoll, EINVAL)});
  EXPECT_EQ(await_answer(), 1);
  EXPECT_EQ(count_of(Call::kPoll), 1);
}

TEST_F(AnswerFaultTest, WaitsWhoseCounterRanOutEndAfterAMinute) {
  // A stray byte just when the fourth wait has timed out: from then on each wait would only wait again.
  device().play({});
  inject({{Call::kRead, 0, 1, 0, 0, "Z"}});
  EXPECT_EQ(await_answer(20), -2);
  EXPECT_EQ(ms(), 63000);
  EXPECT_EQ(count_of(Call::kRead), 1);
}

TEST_F(AnswerFaultTest, EmptyReadBehindAStrayStxIsRepeated) {
  device().play({send("\x02\x15")});
  inject({nothing(Call::kRead, 3, 1)});
  EXPECT_EQ(await_answer(), 1);
  EXPECT_EQ(ms(), 3) << "one look a millisecond";
}

TEST_F(AnswerFaultTest, ReadErrorBehindAStrayStxEndsTheWait) {
  device().play({send("\x02\x15")});
  inject({failure(Call::kRead, EIO, 1, 1)});
  EXPECT_EQ(await_answer(), -2);
  EXPECT_THAT(waiting_lines().back(),
              testing::MatchesRegex("WRN  rc\\[-00002\\]ER SAT->PC Rcvd\\[..h\\]Exiting\n"));
}

TEST_F(AnswerFaultTest, InterruptedReadBehindAStrayStxIsRepeated) {
  device().play({send("\x02\x15")});
  inject({failure(Call::kRead, EINTR, 100, 1)});
  EXPECT_EQ(await_answer(), 1);
}

// ---- Receiving --------------------------------------------------------------------------------------

TEST_F(ReceivingFaultTest, ReadErrorInFrontOfTheStxIsReadOver) {
  device().play({send_frame("AB"), expect_ack()});
  inject({failure(Call::kRead, EIO, 50)});
  EXPECT_EQ(receive(), 2);
  EXPECT_THAT(with_text(reading_lines(), "errno"), IsEmpty());
}

TEST_F(ReceivingFaultTest, LastingReadErrorInFrontOfTheStxEndsWithTheLimit) {
  device().play({send_frame("AB")});
  inject({failure(Call::kRead, EIO, kForever)});
  EXPECT_EQ(receive(), -2004);
  EXPECT_EQ(ms(), 10001);
  EXPECT_LE(count_of(Call::kRead), 10002) << "a thousand looks a second";
}

TEST_F(ReceivingFaultTest, EmptyReadsAreTracedByErrnoWheneverItChanges) {
  device().play({send_frame("AB"), expect_ack()});
  inject({failure(Call::kRead, EBADF, 3), failure(Call::kRead, EAGAIN, 3), failure(Call::kRead, 0, 3),
          failure(Call::kRead, EBADF)});
  EXPECT_EQ(receive(), 2);
  const Lines lines = with_text(reading_lines(), "errno");
  ASSERT_THAT(lines, SizeIs(4));
  static const std::regex time(R"(liDiffTime\[\d+\])");
  Lines shown;
  for (const std::string& line : lines) shown.push_back(std::regex_replace(line, time, "liDiffTime[]"));
  EXPECT_THAT(
      shown,
      ElementsAre(
          "INF Win: iBytesRead[-0000001] errno[00000009]EBADF              liDiffTime[] iTimeout[2000]\n",
          "INF Win: iBytesRead[-0000001] errno[00000011]EAGAIN:EWOULDBLOCK liDiffTime[] iTimeout[2000]\n",
          "INF Win: ulTxPktSz[-0000001] errno[00000000]OTHER              liDiffTime[] iTimeout[2000]\n",
          "INF Win: iBytesRead[-0000001] errno[00000009]EBADF              liDiffTime[] iTimeout[2000]\n"));
}

TEST_F(ReceivingFaultTest, ReadErrorInsideTheFrameEndsTheCallWithoutANak) {
  device().play({send_frame("AB")});
  inject({failure(Call::kRead, EIO, 1, 1)});
  EXPECT_EQ(receive(), -2007);
  expect_script_played();
  EXPECT_THAT(reading_lines(), ElementsAre("ERR Lnx rc[-02007]ER Read Error Input/output error\n"));
}

TEST_F(ReceivingFaultTest, BadDescriptorInsideTheFrameIsWaitedOut) {
  device().play({send_frame("AB"), expect_ack()});
  inject({failure(Call::kRead, EBADF, 5, 1)});
  EXPECT_EQ(receive(), 2);
  EXPECT_THAT(
      with_text(reading_lines(), "errno"),
      ElementsAre(
          "INF Win: iBytesRead[-0000001] errno[00000009]EBADF              liDiffTime[0] iTimeout[100]\n"));
}

TEST_F(ReceivingFaultTest, GapThatTheHostSleptThroughIsItsLastElapsedTime) {
  device().play({send("\x02"), expect_nak(), send("Z" + frame("AB")), expect_ack()});
  fault_calls::on_event([] { virtual_clock::advance_ms(150); });
  inject({{.call = Call::kRead, .skip = 1, .event = true}});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_EQ(ms(), 150) << "a gap already at the first look";
  EXPECT_THAT(with_text(reading_lines(), "Expected STX"),
              ElementsAre("WRN Lnx << SAT->PC Rcvd[5Ah]Expected STX  iCurPos[0] liDiffTime[150\n"));
}

TEST_F(ReceivingFaultTest, EmptyReadsInsideTheFrameAreAGapAfterATenthOfASecond) {
  device().play({send("\x02"
                      "AB"),
                 expect_nak(), send_frame("CD"), expect_ack()});
  inject({nothing(Call::kRead, 200, 1)});
  EXPECT_EQ(receive(), 2) << "the rest of the broken frame is dropped in front of the next";
  expect_script_played();
  EXPECT_THAT(with_text(reading_lines(), "Send NAK"),
              Contains(StartsWith("ERR Lnx: rc[-02006]ER Send NAK  (3)[1]{16384}Timeout")));
}

TEST_F(ReceivingFaultTest, FailedWaitGoesOnToTheRead) {
  device().play({send_frame("AB"), expect_ack()});
  device().take_turn();
  inject({failure(Call::kPoll, EINVAL)});
  EXPECT_EQ(receive(), 2);
}

TEST_F(ReceivingFaultTest, InterruptionsChangeNothing) {
  device().play({send_frame("AB"), expect_ack()});
  inject({failure(Call::kPoll, EINTR, 500), failure(Call::kRead, EINTR, 500),
          failure(Call::kWrite, EINTR, 500)});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
  EXPECT_THAT(reading_lines(), SizeIs(2));
  EXPECT_THAT(answer_lines(), SizeIs(1));
}

// ---- ACK and NAK ------------------------------------------------------------------------------------

TEST_F(AcknowledgingFaultTest, WriteErrorEndsAtOnce) {
  inject({failure(Call::kWrite, EIO)});
  EXPECT_EQ(lSerialWriteAck(port(), true), -1);
  EXPECT_THAT(answer_lines(), ElementsAre("ERR Lnx Error writing ACK [Input/output error]\n"));
}

TEST_F(AcknowledgingFaultTest, WrittenByteIsTheAnswer) {
  device().play({expect_ack(), expect_nak()});
  EXPECT_EQ(lSerialWriteAck(port(), true), 0);
  EXPECT_EQ(lSerialWriteAck(port(), false), 0);
  expect_script_played();
}

TEST_F(AcknowledgingFaultTest, RefusedByteIsTriedForATenthOfASecond) {
  inject({failure(Call::kWrite, EAGAIN, kForever)});
  EXPECT_EQ(lSerialWriteAck(port(), true), -1);
  EXPECT_EQ(ms(), 101);
  const Lines lines = answer_lines();
  EXPECT_EQ(lines.front(),
            "ERR Win: lBytesWritten[-0000001] errno[00000011]EAGAIN:EWOULDBLOCK diff[0] iTimeout[2000]\n");
  EXPECT_EQ(lines[lines.size() - 2],
            "ERR Win: lBytesWritten[-0000001] errno[00000011]EAGAIN:EWOULDBLOCK diff[101] iTimeout[2000]\n");
  EXPECT_EQ(lines.back(), "ERR Lnx Error writing ACK TO \n");
}

TEST_F(AcknowledgingFaultTest, BadDescriptorIsTriedForATenthOfASecondToo) {
  inject({failure(Call::kWrite, EBADF, kForever)});
  EXPECT_EQ(lSerialWriteAck(port(), false), -1);
  EXPECT_EQ(ms(), 101);
  EXPECT_EQ(answer_lines().front(),
            "ERR Win: lBytesWritten[-0000001] errno[00000009]EBADF              diff[0] iTimeout[2000]\n");
  EXPECT_EQ(answer_lines().back(), "ERR Lnx Error writing ACK TO \n");
}

TEST_F(AcknowledgingFaultTest, WriteThatFailsWithoutErrnoIsTracedAsOther) {
  device().play({expect_ack()});
  inject({failure(Call::kWrite, 0)});
  EXPECT_EQ(lSerialWriteAck(port(), true), 0);
  EXPECT_EQ(answer_lines().front(),
            "ERR Win: lBytesWritten[-0000001] errno[00000000]OTHER              diff[0] iTimeout[2000]\n");
}

TEST_F(AcknowledgingFaultTest, WriteOfNothingIsTriedWithoutALine) {
  inject({nothing(Call::kWrite, kForever)});
  EXPECT_EQ(lSerialWriteAck(port(), true), -1);
  EXPECT_THAT(answer_lines(), ElementsAre("ERR Lnx Error writing ACK TO \n"));
}

TEST_F(AcknowledgingFaultTest, ByteThatGoesOutLateIsTheAnswer) {
  device().play({expect_ack()});
  inject({failure(Call::kWrite, EAGAIN, 20)});
  EXPECT_EQ(lSerialWriteAck(port(), true), 0);
  expect_script_played();
}

TEST_F(AcknowledgingFaultTest, LostAckDoesNotSpoilTheReply) {
  device().play({send_frame("AB")});
  inject({failure(Call::kWrite, EAGAIN, kForever)});
  EXPECT_EQ(receive(), 2);
  EXPECT_STREQ(gl_sSatPkt, "AB");
}

TEST_F(AcknowledgingFaultTest, LostNakDoesNotEndTheAttempts) {
  device().play({send_bad_frame("AB"), await_reader(), send_frame("CD"), expect_ack()});
  inject({failure(Call::kWrite, EIO)});
  EXPECT_EQ(receive(), 2);
  expect_script_played();
}

// ---- Whole transactions -----------------------------------------------------------------------------

class TransactionFaultTest : public FaultTest {
 protected:
  void SetUp() override {
    bDebugLogsEnabled = 0;
    write_file("SAT.ini", configuration(device().path()));
  }
};

TEST_F(TransactionFaultTest, LockThatFailsOtherwiseHasItsOwnText) {
  inject({failure(Call::kFlock, ENOLCK)});
  const std::string text =
      "SAT Erro[-02010]Lnx SAT  Dev[" + device().path() + "] ocupado L[2272] F[Communicate]";
  EXPECT_EQ(ConsultarStatusOperacional(42, times(30, "s3gr3d0-").c_str()), text);
  EXPECT_TRUE(is_zero_behind_text(gl_sSatPkt, kPacketBufferSize));
  EXPECT_EQ(
      traced("Communicate").back(),
      printed(
          "ERR Lnx:ER:STEP-05c rc[-02010]ER: errno[00037:No locks available]ER:Fail to Lock\\n\t <<  SO->PC "
          "pBuffer[%05zu:%s]n",
          text.size(), text.c_str()));
  EXPECT_TRUE(port_is_closed());
  EXPECT_EQ(count_of(Call::kTcgetattr), 0);
  EXPECT_EQ(device().verdict(), "");
}

TEST_F(TransactionFaultTest, LateWriteErrorCountsAsSuccessAndTheReplyIsReadFromThePortAsItIs) {
  device().play({expect_frame(), nak(), send_frame("AB"), expect_ack()});
  inject({failure(Call::kWrite, EIO, 1, 1)});
  EXPECT_STREQ(ConsultarSAT(42), "AB");
  expect_script_played();
  EXPECT_THAT(traced("Communicate"), Contains(HasSubstr("STEP-07a rc[000000]")));
}

TEST_F(TransactionFaultTest, FirstWriteErrorFailsTheTransaction) {
  inject({failure(Call::kWrite, EIO)});
  EXPECT_EQ(ConsultarSAT(42), "SAT Erro[-02006]Lnx Dev[" + device().path() +
                                  "] L[2305] F[Communicate] >> CMD or << ACK LibVer[23-JUL-2020]");
  EXPECT_TRUE(port_is_closed());
}

TEST_F(TransactionFaultTest, ReadErrorInsideTheReplyFailsTheTransaction) {
  device().play({expect_frame(), ack(), await_reader(), send("\x02")});
  inject({failure(Call::kRead, EIO, 1, 3)});  // behind the drained queue, the ACK and the STX
  EXPECT_EQ(ConsultarSAT(42),
            "SAT Erro[-02007]Lnx SAT  Dev[" + device().path() +
                "] falhou na recepcao da resposta L[2324] F[Communicate] LibVer[23-JUL-2020]");
  expect_script_played();
  EXPECT_TRUE(port_is_closed());
}

TEST_F(TransactionFaultTest, SettingsThatFailGiveThePortBack) {
  inject({failure(Call::kTcsetattr, EIO)});
  EXPECT_EQ(ConsultarSAT(42), "SAT Erro[-02002]Lnx SAT  Dev[" + device().path() +
                                  "] falhou ao configurar L[2286] F[Communicate]");
  EXPECT_EQ(count_of(Call::kClose), 1);
  EXPECT_TRUE(port_is_closed());
}

TEST_F(TransactionFaultTest, FailedCloseIsNotExamined) {
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  inject({failure(Call::kClose, EIO)});
  EXPECT_STREQ(ConsultarSAT(42), "AB");
  EXPECT_TRUE(port_is_closed());
}

TEST_F(TransactionFaultTest, InterruptionsEverywhereChangeNothing) {
  device().play({expect_frame(), ack(), send_frame("AB"), expect_ack()});
  std::vector<fault_calls::Fault> storm;
  for (const Call call : {Call::kOpen, Call::kRead, Call::kWrite, Call::kPoll, Call::kFlock, Call::kTcgetattr,
                          Call::kTcsetattr})
    storm.push_back(failure(call, EINTR, 7));
  inject(storm);
  EXPECT_STREQ(ConsultarSAT(42), "AB");
  expect_script_played();
  EXPECT_THAT(with_text(traced("Communicate"), "ERR"), IsEmpty());
}

}  // namespace
