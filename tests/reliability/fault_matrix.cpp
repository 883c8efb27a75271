#include "reliability/fault_matrix.h"

#include <cerrno>
#include <utility>

#include "api/context.h"

namespace fault_matrix {

namespace {

using namespace scripted;
using fault_calls::Call;
using fault_calls::Fault;
using fault_calls::kForever;

// ---- The exchange, stage by stage -------------------------------------------------------------------

constexpr std::size_t kReplyLength = 20000;
constexpr std::size_t kCommandLength = sizeof "EnviarDadosVenda|000042|12345678|" - 1 + kSaleLength + 3;

const std::string& reply_frame() {
  static const std::string bytes = frame(reply());
  return bytes;
}
std::string first_block() {
  return reply_frame().substr(0, kBlock);
}
std::string next_block() {
  return reply_frame().substr(kBlock);
}

Script take_first_block() {
  return {expect_block(kBlock)};
}
Script take_next_block() {
  return {expect_block(kCommandLength - kBlock)};
}
Script take_command() {
  return take_first_block() + Script{ack()} + take_next_block();
}
Script acknowledged_command() {
  return take_command() + Script{ack()};
}
Script send_reply() {
  return {send(first_block()), expect_ack(), send(next_block()), expect_ack()};
}
Script send_damaged_reply() {
  const std::string bytes = bad_frame(reply());
  return {send(bytes.substr(0, kBlock)), expect_ack(), send(bytes.substr(kBlock)), expect_nak()};
}
Script rest_after_first_block() {
  return Script{ack()} + take_next_block() + Script{ack()} + send_reply();
}
Script whole_exchange() {
  return acknowledged_command() + send_reply();
}

// ---- Faults of system calls -------------------------------------------------------------------------

// Reads of a right transaction: one finds the port's queue empty, then come one per answer, the STX, and the
// reply, which the line hands over in pieces.
constexpr int kReadsBeforeFirstAck = 1;
constexpr int kReadsBeforeNextAck = 2;
constexpr int kReadsBeforeStx = 3;
constexpr int kReadsBeforeFirstBlock = 4;

// The line takes a block in as many writes as it likes; short ones of this size it takes whole.
constexpr std::size_t kWrite = 1024;
constexpr int kWritesOfFirstBlock = kBlock / kWrite;
constexpr int kWritesOfCommand = (kCommandLength + kWrite - 1) / kWrite;

Fault fails(Call call, int error, int times = 1, int skip = 0) {
  return {call, skip, times, -1, error, {}, 0};
}
// Befalls the read that asks for a whole block, the first behind a block's ACK: a port hands a block over in
// as many pieces as it likes.
Fault fails_behind_block(Call call, int error) {
  return {call, 0, 1, -1, error, {}, 0, kBlock};
}
Fault gives_nothing(Call call, int times, int skip = 0) {
  return {call, skip, times, 0, 0, {}, 0};
}
Fault shortens(Call call, std::size_t limit, int times = kForever, int skip = 0) {
  return {call, skip, times, 0, 0, {}, limit};
}

// The writes in front of the fault, then the fault.
std::vector<Fault> behind(int writes, Fault fault) {
  if (writes == 0) return {std::move(fault)};
  return {shortens(Call::kWrite, kWrite, writes), std::move(fault)};
}

// ---- The cells --------------------------------------------------------------------------------------

class Matrix {
 public:
  Matrix() {
    find();
    open();
    lock();
    configure();
    send_blocks();
    await_acks();
    await_stx();
    receive_blocks();
    acknowledge();
    close();
    surround();
  }
  std::vector<Cell> take() { return std::move(cells_); }

 private:
  void add(Cell cell) { cells_.push_back(std::move(cell)); }

  void survives(const char* fault, Stage stage, Script script, std::vector<Fault> calls = {},
                std::int64_t ms = 0, std::string detail = "") {
    add({fault, stage, std::move(detail), std::move(script), std::move(calls), Outcome::kReply, 0, ms});
  }
  void fails_with(const char* fault, Stage stage, Outcome outcome, int code, std::int64_t ms, Script script,
                  std::vector<Fault> calls = {}, std::string detail = "") {
    add({fault, stage, std::move(detail), std::move(script), std::move(calls), outcome, code, ms});
  }
  void around(const char* fault, Stage stage, Surroundings surroundings, Outcome outcome = Outcome::kReply,
              int code = 0) {
    const bool talks = outcome == Outcome::kReply;
    add({fault, stage, "", talks ? whole_exchange() : Script{}, {}, outcome, code, 0, surroundings});
  }

  // Three times the 30 s of a sale's time-out. The clock moves with every look at it, so the end is not
  // sharp.
  void floods(const char* fault, Stage stage, Script before, Outcome outcome, int code) {
    constexpr std::int64_t kEnd = 90001;
    add({fault,
         stage,
         "3 x 30 s",
         std::move(before) + Script{flood("Z")},
         {},
         outcome,
         code,
         kEnd,
         Surroundings::kEndlessGarbage});
  }

  void find() {
    around("no device", Stage::kFound, Surroundings::kNoPortConfigured, Outcome::kNotFound, -2000);
  }

  void open() {
    around("no device", Stage::kOpened, Surroundings::kNoPort, Outcome::kNotOpened, -2000);
    around("device removed and back", Stage::kOpened, Surroundings::kPortGone, Outcome::kNotOpened, -2000);
    fails_with("hang-up", Stage::kOpened, Outcome::kNotOpened, -2000, 0, {hang_up()});
    survives("EINTR storm", Stage::kOpened, whole_exchange(), {fails(Call::kOpen, EINTR, 1000)});
    for (const auto& [name, error] : {std::pair{"EIO", EIO}, {"EAGAIN", EAGAIN}, {"EBADF", EBADF}})
      fails_with(name, Stage::kOpened, Outcome::kNotOpened, -2000, 0, {}, {fails(Call::kOpen, error)});
  }

  void lock() {
    around("port held by another process", Stage::kLocked, Surroundings::kPortHeld, Outcome::kBusy);
    survives("EINTR storm", Stage::kLocked, whole_exchange(), {fails(Call::kFlock, EINTR, 1000)});
    fails_with("EAGAIN", Stage::kLocked, Outcome::kBusy, 0, 0, {}, {fails(Call::kFlock, EAGAIN)},
               "as held by another");
    for (const auto& [name, error] : {std::pair{"EIO", EIO}, {"EBADF", EBADF}})
      fails_with(name, Stage::kLocked, Outcome::kNotLocked, -2010, 0, {}, {fails(Call::kFlock, error)});
  }

  void configure() {
    constexpr Stage kStage = Stage::kConfigured;
    survives("EINTR storm", kStage, whole_exchange(),
             {fails(Call::kTcgetattr, EINTR, 1000), fails(Call::kTcsetattr, EINTR, 1000),
              fails(Call::kRead, EINTR, 1000)});
    for (const auto& [name, error] : {std::pair{"EIO", EIO}, {"EBADF", EBADF}, {"EAGAIN", EAGAIN}})
      fails_with(name, kStage, Outcome::kNotConfigured, -2002, 0, {}, {fails(Call::kTcsetattr, error)});
    fails_with("hang-up", kStage, Outcome::kNotConfigured, -2002, 0, {}, {fails(Call::kTcgetattr, EIO)});
    survives("late previous reply", kStage, Script{send_frame(late_reply())} + whole_exchange(), {}, 0,
             "dropped");
    survives("garbage before", kStage, Script{send(std::string(3000, 'Z'))} + whole_exchange(), {}, 0,
             "dropped");
    survives("garbage before", kStage, whole_exchange(),
             {{Call::kRead, 0, 60000, 0, 0, std::string(10, 'Z'), 0}}, 0, "600,000 bytes, dropped");
  }

  void send_blocks() {
    struct Block {
      Stage stage;
      int writes_before;
      Script before;
      Script after;
    };
    const Block blocks[] = {
        {Stage::kFirstBlockSent, 0, {}, whole_exchange()},
        {Stage::kNextBlockSent, kWritesOfFirstBlock, take_first_block() + Script{ack()},
         take_next_block() + Script{ack()} + send_reply()},
    };
    for (const Block& block : blocks) {
      const int before = block.writes_before;
      const Script all = block.before + block.after;
      survives("EINTR storm", block.stage, all, behind(before, fails(Call::kWrite, EINTR, 1000)));
      survives("short writes", block.stage, all, behind(before, shortens(Call::kWrite, 1, 1000)), 0,
               "1,000 single bytes");
      survives("EAGAIN run", block.stage, all, behind(before, fails(Call::kWrite, EAGAIN, 100)), 99);
      survives("writes of nothing", block.stage, all, behind(before, gives_nothing(Call::kWrite, 100)), 99);
      const Script start = before == 0 ? Script{} : take_first_block() + Script{ack()};
      fails_with("EAGAIN without end", block.stage, Outcome::kNotSent, -2007, 2001, start,
                 behind(before, fails(Call::kWrite, EAGAIN, kForever)));
    }
    for (const auto& [name, error] : {std::pair{"EIO", EIO}, {"EBADF", EBADF}}) {
      fails_with(name, Stage::kFirstBlockSent, Outcome::kNotSent, -2006, 0, {}, {fails(Call::kWrite, error)});
      // The last acknowledgement's result stands and counts as success.
      fails_with(name, Stage::kNextBlockSent, Outcome::kNotReceived, -2003, 9000,
                 take_first_block() + Script{ack()}, behind(kWritesOfFirstBlock, fails(Call::kWrite, error)),
                 "counts as sent: kept");
    }
    fails_with("silence", Stage::kFirstBlockSent, Outcome::kNotSent, -2007, 2001, {},
               {fails(Call::kWrite, EAGAIN, kForever)}, "takes no byte");
  }

  void await_acks() {
    struct Answer {
      Stage stage;
      int reads_before;
      Script before;  // up to the answer
      Script after;   // from the answer on
    };
    const Answer answers[] = {
        {Stage::kFirstAckAwaited, kReadsBeforeFirstAck, take_first_block(), rest_after_first_block()},
        {Stage::kNextAckAwaited, kReadsBeforeNextAck, take_command(), Script{ack()} + send_reply()},
    };
    for (const Answer& answer : answers) {
      const Stage stage = answer.stage;
      const Script all = answer.before + answer.after;
      const int skip = answer.reads_before;
      fails_with("hang-up", stage, Outcome::kNotSent, -2, 2001, answer.before + Script{hang_up()});
      fails_with("silence", stage, Outcome::kNotSent, -2, 12000, answer.before);
      survives("one NAK", stage, answer.before + Script{nak()} + all);
      survives("three NAKs", stage, 3 * (answer.before + Script{nak()}) + all);
      fails_with("four NAKs", stage, Outcome::kNotSent, -2009, 0, 4 * (answer.before + Script{nak()}));
      survives("garbage before", stage, answer.before + Script{send("ZZZ\x03")} + answer.after);
      fails_with("garbage, then silence", stage, Outcome::kNotSent, -2, 12000,
                 answer.before + Script{send("Z")});
      floods("garbage without end", stage, answer.before, Outcome::kNotSent, -2);
      survives("late previous reply", stage, answer.before + Script{send_frame(late_reply())} + answer.after,
               {}, 0, "its STX and ETX pass for an ACK: kept");
      fails_with("lone STX", stage, Outcome::kNotSent, -2, 0, answer.before + Script{send("\x02")});
      survives("EINTR storm", stage, all,
               {fails(Call::kPoll, EINTR, 1000), fails(Call::kRead, EINTR, 1000, skip)});
      survives("EAGAIN run", stage, all, {fails(Call::kRead, EAGAIN, 100, skip)}, 100);
      fails_with("EIO", stage, Outcome::kNotSent, -4, 0, answer.before + Script{send("Z")},
                 {fails(Call::kRead, EIO, 1, skip)});
      survives("EBADF for a moment", stage, all, {fails(Call::kRead, EBADF, 100, skip)}, 100);
      fails_with("EBADF", stage, Outcome::kNotSent, -3, 1001, answer.before + Script{send("Z")},
                 {fails(Call::kRead, EBADF, kForever, skip)});
    }
  }

  void await_stx() {
    constexpr Stage kStage = Stage::kStxAwaited;
    const Script before = acknowledged_command();
    const Script all = before + send_reply();
    const int skip = kReadsBeforeStx;
    fails_with("hang-up", kStage, Outcome::kNotReceived, -2004, 30001,
               before + Script{await_reader(), hang_up()});
    fails_with("silence", kStage, Outcome::kNotReceived, -2003, 9000, before);
    survives("silence, then a reply", kStage, before + Script{pause_ms(8999)} + send_reply(), {}, 8999);
    survives("garbage before", kStage, before + Script{send("0042|ZZZ\x06\x15\x03")} + send_reply());
    fails_with("garbage, then silence", kStage, Outcome::kNotReceived, -2004, 30001,
               before + Script{send("Z")});
    floods("garbage without end", kStage, before, Outcome::kNotReceived, -2004);
    fails_with("late previous reply", kStage, Outcome::kLateReply, 0, 0,
               before + Script{send_frame(late_reply()), expect_ack()}, {},
               "taken: the host compares session numbers");
    survives("EINTR storm", kStage, all,
             {fails(Call::kPoll, EINTR, 1000, 2), fails(Call::kRead, EINTR, 1000, skip)});
    survives("EAGAIN run", kStage, all, {fails(Call::kRead, EAGAIN, 100, skip)}, 99);
    survives("EIO for a moment", kStage, all, {fails(Call::kRead, EIO, 100, skip)}, 100);
    fails_with("EIO", kStage, Outcome::kNotReceived, -2004, 30001, before + Script{send("Z")},
               {fails(Call::kRead, EIO, kForever, skip)});
    survives("EBADF for a moment", kStage, all, {fails(Call::kRead, EBADF, 100, skip)}, 99);
    fails_with("EBADF", kStage, Outcome::kNotReceived, -2004, 30001, before + Script{send("Z")},
               {fails(Call::kRead, EBADF, kForever, skip)});
  }

  void receive_blocks() {
    const Script before = acknowledged_command();
    const std::string half = first_block().substr(0, 2000);

    constexpr Stage kFirst = Stage::kFirstBlockReceived;
    // The attempt behind the gap waits 300 ms for another STX.
    fails_with("hang-up", kFirst, Outcome::kNotReceived, -2004, 402,
               before + Script{send(half), await_reader(), hang_up()});
    survives("silence", kFirst, before + Script{send(half), expect_nak()} + send_reply(), {}, 101,
             "once: NAK");
    fails_with("silence", kFirst, Outcome::kNotReceived, -2006, 303,
               before + 3 * Script{send(half), expect_nak()}, {}, "three times");
    fails_with("silence for good", kFirst, Outcome::kNotReceived, -2003, 9101,
               before + Script{send(half), expect_nak()});
    survives("pause of 100 ms", kFirst,
             before + Script{send(half), await_reader(), pause_ms(100), send(first_block().substr(2000)),
                             expect_ack(), send(next_block()), expect_ack()},
             {}, 100);
    survives("one byte at a time", kFirst,
             before + send_in_pieces(first_block().substr(0, 500), 1) +
                 Script{send(first_block().substr(500)), expect_ack(), send(next_block()), expect_ack()},
             {}, 0, "500 of them");
    survives("garbage inside", kFirst,
             before + Script{send(half + "\x03" + first_block().substr(2000)), expect_nak()} + send_reply(),
             {}, 0, "an ETX: NAK");
    survives("EINTR storm", kFirst, before + send_reply(),
             {fails(Call::kRead, EINTR, 1000, kReadsBeforeFirstBlock)});
    survives("EAGAIN run", kFirst, before + send_reply(),
             {fails(Call::kRead, EAGAIN, 100, kReadsBeforeFirstBlock)}, 99);
    fails_with("EIO", kFirst, Outcome::kNotReceived, -2007, 0, before + Script{send(half)},
               {fails(Call::kRead, EIO, 1, kReadsBeforeFirstBlock)});
    survives("EBADF for a moment", kFirst, before + send_reply(),
             {fails(Call::kRead, EBADF, 100, kReadsBeforeFirstBlock)}, 99);
    fails_with("EBADF", kFirst, Outcome::kNotReceived, -2004, 402, before + Script{send(half), expect_nak()},
               {fails(Call::kRead, EBADF, kForever, kReadsBeforeFirstBlock)});

    constexpr Stage kNext = Stage::kNextBlockReceived;
    const Script first_received = before + Script{send(first_block()), expect_ack()};
    const std::string next_half = next_block().substr(0, 1000);
    fails_with("hang-up", kNext, Outcome::kNotReceived, -2004, 402,
               first_received + Script{send(next_half), await_reader(), hang_up()});
    survives("silence", kNext, first_received + Script{expect_nak()} + send_reply(), {}, 101, "once: NAK");
    fails_with("silence", kNext, Outcome::kNotReceived, -2006, 303,
               before + 3 * Script{send(first_block()), expect_ack(), expect_nak()}, {}, "three times");
    survives("one bad checksum", kNext, before + send_damaged_reply() + send_reply());
    survives("two bad checksums", kNext, before + 2 * send_damaged_reply() + send_reply());
    fails_with("three bad checksums", kNext, Outcome::kNotReceived, -2005, 0,
               before + 3 * send_damaged_reply());
    survives("one byte at a time", kNext,
             first_received + send_in_pieces(next_block(), 1) + Script{expect_ack()});
    survives("garbage inside", kNext,
             first_received + Script{send(next_half + "\x02ZZZ" + next_block().substr(1000)), expect_nak()} +
                 send_reply(),
             {}, 0, "bad checksum: NAK");
    survives("duplicate reply", kNext,
             first_received +
                 Script{send(next_block() + frame("000042|06000")), expect_ack(), send_frame("000042|06000")},
             {}, 0, "dropped, at the latest by the next call");
    survives("oversize reply", kNext,
             before +
                 Script{send("\x02" + std::string(kPacketBufferSize - 1, 'x')),
                        expect(std::string(kPacketBufferSize / kBlock, kAck)), expect_nak()} +
                 send_reply(),
             {}, 0, "broken off at 10 MiB");
    survives("EINTR storm", kNext, before + send_reply(),
             {fails(Call::kRead, EINTR, 1000, kReadsBeforeFirstBlock + 2)});
    fails_with("EIO", kNext, Outcome::kNotReceived, -2007, 0, first_received + Script{send(next_half)},
               {fails_behind_block(Call::kRead, EIO)});
  }

  void acknowledge() {
    constexpr Stage kStage = Stage::kFinalAck;
    // The reply has been read when its ACK goes out; what becomes of that changes nothing.
    const Script without_ack =
        acknowledged_command() + Script{send(first_block()), expect_ack(), send(next_block())};
    constexpr int kWritesBefore = kWritesOfCommand + 1;
    survives("EINTR storm", kStage, whole_exchange(),
             behind(kWritesBefore, fails(Call::kWrite, EINTR, 1000)));
    survives("EAGAIN run", kStage, whole_exchange(), behind(kWritesBefore, fails(Call::kWrite, EAGAIN, 50)),
             50);
    survives("EAGAIN without end", kStage, without_ack,
             behind(kWritesBefore, fails(Call::kWrite, EAGAIN, kForever)), 101);
    survives("EIO", kStage, without_ack, behind(kWritesBefore, fails(Call::kWrite, EIO)));
    survives("EBADF", kStage, without_ack, behind(kWritesBefore, fails(Call::kWrite, EBADF, kForever)), 101);
    survives("hang-up", kStage, without_ack + Script{await_reader(), hang_up()});
  }

  void close() {
    constexpr Stage kStage = Stage::kClosed;
    survives("EINTR storm", kStage, whole_exchange(),
             {fails(Call::kFlock, EINTR, 1000, 1), fails(Call::kClose, EINTR)});
    for (const auto& [name, error] : {std::pair{"EIO", EIO}, {"EBADF", EBADF}, {"EAGAIN", EAGAIN}})
      survives(name, kStage, whole_exchange(),
               {fails(Call::kFlock, error, 1, 1), fails(Call::kClose, error)});
  }

  void surround() {
    constexpr Stage kStage = Stage::kWholeCall;
    around("full disk", kStage, Surroundings::kFullDisk);
    around("read-only folder", kStage, Surroundings::kReadOnlyFolder);
    around("log directory removed in flight", kStage, Surroundings::kLogFolderRemoved);
    around("clock stepping backwards", kStage, Surroundings::kClockBackwards);
    around("time zone change", kStage, Surroundings::kTimeZoneChange);
    around("midnight between two calls", kStage, Surroundings::kMidnight);
  }

  std::vector<Cell> cells_;
};

}  // namespace

const std::string& sale() {
  static const std::string text(kSaleLength, 'v');
  return text;
}

const std::string& reply() {
  static const std::string text = text_for_frame_of(kReplyLength);
  return text;
}

const std::string& late_reply() {
  static const std::string text = "000041|06000|0000|Emitido com sucesso||";
  return text;
}

Script right_exchange() {
  return whole_exchange();
}

const std::vector<Cell>& cells() {
  static const std::vector<Cell> all = Matrix().take();
  return all;
}

}  // namespace fault_matrix
