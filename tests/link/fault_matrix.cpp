#include "link/fault_matrix.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "api/packet_buffer.h"

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
// Of those that ask for a single byte.
constexpr int kSingleReadsBeforeReply = 3;
constexpr std::size_t kDrainedAtOnce = 10;

// The line takes a block in as many writes as it likes; short ones of this size it takes whole.
constexpr std::size_t kWrite = 1024;
constexpr int kWritesOfFirstBlock = kBlock / kWrite;
constexpr int kWritesOfCommand = (kCommandLength + kWrite - 1) / kWrite;

Fault fails(Call call, int error, int times = 1, int skip = 0) {
  return {call, skip, times, -1, error, {}, 0};
}
// Befalls the read that asks for a whole block, the first behind a block's ACK: a port hands a block over in
// as many pieces as it likes.
Fault fails_behind_block(Call call, int error, int times = 1) {
  return {call, 0, times, -1, error, {}, 0, kBlock};
}
Fault fails_single_reads(int error, int skip) {
  return {Call::kRead, skip, kForever, -1, error, {}, 0, 1};
}
Fault gives_nothing(Call call, int times, int skip = 0) {
  return {call, skip, times, 0, 0, {}, 0};
}
Fault shortens(Call call, std::size_t limit, int times = kForever, int skip = 0) {
  return {call, skip, times, 0, 0, {}, limit};
}

Fault event(Call call, int skip = 0, std::size_t asked = 0) {
  return {call, skip, 1, 0, 0, {}, 0, asked, true};
}

// The writes in front of the fault, then the fault.
std::vector<Fault> behind(int writes, Fault fault) {
  if (writes == 0) return {std::move(fault)};
  return {shortens(Call::kWrite, kWrite, writes), std::move(fault)};
}

// An event at this stage's own system call.
std::vector<Fault> event_at(Stage stage) {
  switch (stage) {
    case Stage::kFound:
      return {event(Call::kOpenSettings)};
    case Stage::kOpened:
      return {event(Call::kOpen)};
    case Stage::kLocked:
      return {event(Call::kFlock)};
    case Stage::kConfigured:
      return {event(Call::kTcgetattr)};
    case Stage::kFirstBlockSent:
      return {event(Call::kWrite)};
    case Stage::kNextBlockSent:
      return behind(kWritesOfFirstBlock, event(Call::kWrite));
    case Stage::kFirstAckAwaited:
      return {event(Call::kRead, kReadsBeforeFirstAck)};
    case Stage::kNextAckAwaited:
      return {event(Call::kRead, kReadsBeforeNextAck)};
    case Stage::kStxAwaited:
    case Stage::kWholeCall:
      return {event(Call::kRead, kReadsBeforeStx)};
    case Stage::kFirstBlockReceived:
      return {event(Call::kRead, kReadsBeforeFirstBlock)};
    case Stage::kNextBlockReceived:
      return {event(Call::kRead, 0, kBlock)};
    case Stage::kFinalAck:
      return behind(kWritesOfCommand + 1, event(Call::kWrite));
    case Stage::kClosed:
      return {event(Call::kFlock, 1)};
  }
  return {};
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
    answer_blocks();
    acknowledge();
    close();
    surround();
  }
  std::vector<Cell> take() { return std::move(cells_); }

 private:
  // Whatever hangs up in mid-call may be back under its name at once: the call in progress does not get it.
  void add(Cell cell) {
    cells_.push_back(cell);
    if (cell.fault != "hang-up" || cell.stage == Stage::kOpened) return;
    cell.fault = "device removed and back";
    cell.surroundings = Surroundings::kPortBack;
    cells_.push_back(std::move(cell));
  }

  void survives(const char* fault, Stage stage, Script script, std::vector<Fault> calls = {},
                std::int64_t ms = 0, std::string detail = "") {
    add({fault, stage, std::move(detail), std::move(script), std::move(calls), Outcome::kReply, 0, ms});
  }
  void fails_with(const char* fault, Stage stage, Outcome outcome, int code, std::int64_t ms, Script script,
                  std::vector<Fault> calls = {}, std::string detail = "") {
    add({fault, stage, std::move(detail), std::move(script), std::move(calls), outcome, code, ms});
  }
  void around(const char* fault, Stage stage, Surroundings surroundings, Outcome outcome = Outcome::kReply,
              int code = 0, std::vector<Fault> calls = {}, std::string detail = "", std::int64_t ms = 0) {
    const bool talks = outcome == Outcome::kReply;
    add({fault, stage, std::move(detail), talks ? whole_exchange() : Script{}, std::move(calls), outcome,
         code, ms, surroundings});
  }
  void hangs_up(Stage stage, Outcome outcome, int code, std::int64_t ms, Script before,
                std::vector<Fault> calls, std::string detail = "") {
    fails_with("hang-up", stage, outcome, code, ms, std::move(before) + Script{await_release(), hang_up()},
               std::move(calls), std::move(detail));
  }

  // Three times the 30 s of a sale's time-out. The clock moves with every look at it, so the end is not
  // sharp.
  void floods(const char* fault, Stage stage, Script before, Outcome outcome, int code) {
    add({fault,
         stage,
         "3 x 30 s",
         std::move(before) + Script{flood("Z")},
         {},
         outcome,
         code,
         90000,
         Surroundings::kEndlessGarbage});
  }

  void find() {
    constexpr Stage kStage = Stage::kFound;
    around("no device", kStage, Surroundings::kNoPortConfigured, Outcome::kNotFound, -2000);
    around("device removed and back", kStage, Surroundings::kSearchedGone, Outcome::kNotFound, -2000, {},
           "away while it is searched for");
    around("EINTR storm", kStage, Surroundings::kSearched, Outcome::kReply, 0, {},
           "signals while the search is read");
    // The fixed port is not looked at either.
    for (const auto& [name, error] : {std::pair{"EAGAIN", EAGAIN}, {"EMFILE", EMFILE}})
      around(name, kStage, Surroundings::kSearchFails, Outcome::kNotOpened, -2000,
             {fails(Call::kStartSearch, error)}, "no search: an empty name, kept");
    for (const auto& [name, error] : {std::pair{"EIO", EIO}, {"EBADF", EBADF}})
      around(name, kStage, Surroundings::kNormal, Outcome::kNotFound, -2000,
             {fails(Call::kReadSettings, error, kForever)}, "reading SAT.ini");
    around("SAT.ini unreadable", kStage, Surroundings::kNormal, Outcome::kNotFound, -2000,
           {fails(Call::kOpenSettings, EACCES, kForever)});
  }

  void open() {
    around("no device", Stage::kOpened, Surroundings::kNoPort, Outcome::kNotOpened, -2000);
    around("device removed and back", Stage::kOpened, Surroundings::kPortGone, Outcome::kNotOpened, -2000, {},
           "away while it is opened");
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
    hangs_up(Stage::kLocked, Outcome::kNotConfigured, -2002, 0, {}, event_at(Stage::kLocked),
             "the lock still succeeds");
  }

  void configure() {
    constexpr Stage kStage = Stage::kConfigured;
    survives("EINTR storm", kStage, whole_exchange(),
             {fails(Call::kTcgetattr, EINTR, 1000), fails(Call::kTcsetattr, EINTR, 1000),
              fails(Call::kRead, EINTR, 1000)});
    const std::pair<const char*, int> errors[] = {{"EIO", EIO}, {"EBADF", EBADF}, {"EAGAIN", EAGAIN}};
    for (const auto& [detail, call] :
         {std::pair{"settings read", Call::kTcgetattr}, {"settings written", Call::kTcsetattr}}) {
      for (const auto& [name, error] : errors)
        fails_with(name, kStage, Outcome::kNotConfigured, -2002, 0, {}, {fails(call, error)}, detail);
    }
    for (const auto& [name, error] : errors)
      survives(name, kStage, whole_exchange(), {fails(Call::kRead, error)}, 0, "input drained");
    hangs_up(kStage, Outcome::kNotConfigured, -2002, 0, {}, {event(Call::kTcgetattr)}, "settings read");
    hangs_up(kStage, Outcome::kNotConfigured, -2002, 0, {}, {event(Call::kTcsetattr)}, "settings written");
    hangs_up(kStage, Outcome::kNotSent, -2006, 0, {}, {event(Call::kRead)}, "input drained");
    survives("late previous reply", kStage, Script{send_frame(late_reply())} + whole_exchange(), {}, 0,
             "dropped");
    survives("garbage before", kStage, Script{send(std::string(3000, 'Z'))} + whole_exchange(), {}, 0,
             "dropped");
    survives("garbage before", kStage, whole_exchange(),
             {{Call::kRead, 0, 60000, 0, 0, std::string(10, 'Z'), 0}}, 0, "600,000 bytes, dropped");
    around("garbage without end", kStage, Surroundings::kEndlessGarbage, Outcome::kReply, 0,
           {{Call::kRead, 0, kForever, 0, 0, std::string(kDrainedAtOnce, 'Z'), 0, kDrainedAtOnce}},
           "60 s, then the command goes out", 60000);
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
    add({"silence",
         Stage::kFirstBlockSent,
         "the line is full",
         {},
         event_at(Stage::kFirstBlockSent),
         Outcome::kNotSent,
         -2007,
         2001,
         Surroundings::kLineFull});
    add({"silence", Stage::kNextBlockSent, "the line is full", take_first_block() + Script{ack()},
         event_at(Stage::kNextBlockSent), Outcome::kNotSent, -2007, 2001, Surroundings::kLineFull});
    hangs_up(Stage::kFirstBlockSent, Outcome::kNotSent, -2006, 0, {}, event_at(Stage::kFirstBlockSent));
    hangs_up(Stage::kNextBlockSent, Outcome::kNotReceived, -2004, 30001, take_first_block() + Script{ack()},
             event_at(Stage::kNextBlockSent), "counts as sent: kept");
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
    fails_with("three bad checksums", kFirst, Outcome::kNotReceived, -2005, 0,
               before + 3 * Script{send(half + "\x03"), expect_nak()}, {}, "an ETX inside each");
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
    fails_with("silence for good", kNext, Outcome::kNotReceived, -2003, 9101,
               first_received + Script{send(next_half), expect_nak()});
    survives("pause of 100 ms", kNext,
             first_received + Script{send(next_half), await_reader(), pause_ms(100),
                                     send(next_block().substr(1000)), expect_ack()},
             {}, 100);
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
    const Script oversize = {send("\x02" + std::string(kPacketBufferSize - 1, 'x')),
                             expect(std::string(kPacketBufferSize / kBlock, kAck)), expect_nak()};
    survives("oversize reply", kNext, before + oversize + send_reply(), {}, 0, "broken off at 10 MiB");
    fails_with("oversize reply", kNext, Outcome::kNotReceived, -2006, 0, before + 3 * oversize, {},
               "three times");
    survives("EINTR storm", kNext, before + send_reply(), {fails_behind_block(Call::kRead, EINTR, 1000)});
    survives("EAGAIN run", kNext, before + send_reply(), {fails_behind_block(Call::kRead, EAGAIN, 100)}, 99);
    fails_with("EIO", kNext, Outcome::kNotReceived, -2007, 0, first_received + Script{send(next_half)},
               {fails_behind_block(Call::kRead, EIO)});
    survives("EBADF for a moment", kNext, before + send_reply(),
             {fails_behind_block(Call::kRead, EBADF, 100)}, 99);
    fails_with("EBADF", kNext, Outcome::kNotReceived, -2004, 402,
               first_received + Script{send(next_half), expect_nak()},
               {fails_behind_block(Call::kRead, EBADF, kForever),
                fails_single_reads(EBADF, kSingleReadsBeforeReply)});
  }

  // The ACK of the reply's first block, and the NAK of a reply that is damaged behind it. Whether such a byte
  // could be written is not looked at: a device that does not get it stays silent.
  void answer_blocks() {
    const std::string damaged = bad_frame(reply());
    struct Answer {
      const char* detail;
      Stage stage;
      int writes_before;
      Script before;           // up to the moment when the answer is written
      Script after;            // when the device gets it
      std::int64_t gap;        // until the library sees that nothing follows
      std::int64_t stx_limit;  // of the next attempt
      Script after_gap;        // when a NAK gets through at that moment
    };
    const Script command = acknowledged_command();
    const Answer answers[] = {
        {"ACK of the block", Stage::kFirstBlockReceived, kWritesOfCommand,
         command + Script{send(first_block())}, Script{expect_ack(), send(next_block()), expect_ack()}, 101,
         301, Script{expect_nak()} + send_reply()},
        {"NAK",
         Stage::kNextBlockReceived,
         kWritesOfCommand + 1,
         command + Script{send(damaged.substr(0, kBlock)), expect_ack(), send(damaged.substr(kBlock))},
         Script{expect_nak()} + send_reply(),
         0,
         101,
         {}},
    };
    constexpr std::int64_t kWriteLimit = 101;
    constexpr std::int64_t kThreeWaits = 9000;
    for (const Answer& answer : answers) {
      const auto faults = [&](Fault fault) { return behind(answer.writes_before, std::move(fault)); };
      const Script all = answer.before + answer.after;
      const bool is_ack = answer.gap != 0;
      survives("EINTR storm", answer.stage, all, faults(fails(Call::kWrite, EINTR, 1000)), 0, answer.detail);
      survives("EAGAIN run", answer.stage, all, faults(fails(Call::kWrite, EAGAIN, 50)), 50, answer.detail);
      survives("writes of nothing", answer.stage, all, faults(gives_nothing(Call::kWrite, 50)), 50,
               answer.detail);
      survives("EBADF for a moment", answer.stage, all, faults(fails(Call::kWrite, EBADF, 50)), 50,
               answer.detail);
      // Behind a lost ACK comes a NAK, which is lost as well.
      const std::int64_t lost = is_ack ? 2 * kWriteLimit + answer.gap : kWriteLimit;
      for (const auto& [name, error] : {std::pair{"EAGAIN without end", EAGAIN}, {"EBADF", EBADF}})
        fails_with(name, answer.stage, Outcome::kNotReceived, -2003, lost + kThreeWaits, answer.before,
                   faults(fails(Call::kWrite, error, kForever)), answer.detail);
      if (is_ack) {
        survives("EIO", answer.stage, answer.before + answer.after_gap, faults(fails(Call::kWrite, EIO)),
                 answer.gap, answer.detail);
      } else {
        fails_with("EIO", answer.stage, Outcome::kNotReceived, -2003, kThreeWaits, answer.before,
                   faults(fails(Call::kWrite, EIO)), answer.detail);
      }
      hangs_up(answer.stage, Outcome::kNotReceived, -2004, answer.gap + answer.stx_limit, answer.before,
               faults(event(Call::kWrite)), answer.detail);
    }
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
    survives("writes of nothing", kStage, whole_exchange(),
             behind(kWritesBefore, gives_nothing(Call::kWrite, 50)), 50);
    add({"silence", kStage, "the line is full", without_ack, event_at(kStage), Outcome::kReply, 0, 101,
         Surroundings::kLineFull});
    survives("EIO", kStage, without_ack, behind(kWritesBefore, fails(Call::kWrite, EIO)));
    survives("EBADF", kStage, without_ack, behind(kWritesBefore, fails(Call::kWrite, EBADF, kForever)), 101);
    survives("hang-up", kStage, without_ack + Script{await_reader(), hang_up()});
    survives("duplicate reply", kStage, whole_exchange() + Script{send_frame("000042|06000")}, {}, 0,
             "dropped by the next call");
  }

  void close() {
    constexpr Stage kStage = Stage::kClosed;
    survives("EINTR storm", kStage, whole_exchange(),
             {fails(Call::kFlock, EINTR, 1000, 1), fails(Call::kClose, EINTR)});
    for (const auto& [name, error] : {std::pair{"EIO", EIO}, {"EBADF", EBADF}, {"EAGAIN", EAGAIN}})
      survives(name, kStage, whole_exchange(),
               {fails(Call::kFlock, error, 1, 1), fails(Call::kClose, error)});
    hangs_up(kStage, Outcome::kReply, 0, 0, whole_exchange(), event_at(kStage));
  }

  void surround() {
    constexpr Stage kStage = Stage::kWholeCall;
    around("full disk", kStage, Surroundings::kFullDisk);
    around("read-only folder", kStage, Surroundings::kReadOnlyFolder);
    around("midnight between two calls", kStage, Surroundings::kMidnight);
    for (int stage = 0; stage <= static_cast<int>(kStage); ++stage) {
      const auto at = static_cast<Stage>(stage);
      around("log directory removed in flight", at, Surroundings::kLogFolderRemoved, Outcome::kReply, 0,
             event_at(at));
      around("clock stepping backwards", at, Surroundings::kClockBackwards, Outcome::kReply, 0, event_at(at));
      around("time zone change", at, Surroundings::kTimeZoneChange, Outcome::kReply, 0, event_at(at));
    }
  }

  std::vector<Cell> cells_;
};

}  // namespace

const std::vector<Family>& families() {
  static const std::vector<Family> all = {
      {"hang-up", {"hang-up"}},
      {"device removed and back", {"device removed and back"}},
      {"silence", {"silence", "silence, then a reply", "silence for good", "pause of 100 ms"}},
      {"NAK run", {"one NAK", "three NAKs", "four NAKs"}},
      {"bad checksum run", {"one bad checksum", "two bad checksums", "three bad checksums"}},
      {"one byte at a time", {"one byte at a time"}},
      {"garbage before", {"garbage before", "garbage, then silence", "garbage without end", "lone STX"}},
      {"garbage inside", {"garbage inside"}},
      {"late previous reply", {"late previous reply"}},
      {"duplicate reply", {"duplicate reply"}},
      {"oversize reply", {"oversize reply"}},
      {"EINTR storm", {"EINTR storm"}},
      {"short writes", {"short writes", "writes of nothing"}},
      {"EAGAIN run", {"EAGAIN run", "EAGAIN without end", "EAGAIN"}},
      {"EIO", {"EIO", "EIO for a moment"}},
      {"EBADF", {"EBADF", "EBADF for a moment"}},
      {"full disk", {"full disk"}},
      {"read-only folder", {"read-only folder"}},
      {"log directory removed in flight", {"log directory removed in flight"}},
      {"clock stepping backwards", {"clock stepping backwards"}},
      {"time zone change", {"time zone change"}},
      {"midnight between two calls", {"midnight between two calls"}},
  };
  return all;
}

const Family* family_of(const std::string& label) {
  for (const Family& family : families()) {
    if (std::find(family.labels.begin(), family.labels.end(), label) != family.labels.end()) return &family;
  }
  return nullptr;
}

const std::vector<Reason>& reasons() {
  constexpr Stage kFound = Stage::kFound, kOpened = Stage::kOpened, kLocked = Stage::kLocked,
                  kConfigured = Stage::kConfigured, kBlock1 = Stage::kFirstBlockSent,
                  kBlock2 = Stage::kNextBlockSent, kAck1 = Stage::kFirstAckAwaited,
                  kAck2 = Stage::kNextAckAwaited, kStx = Stage::kStxAwaited,
                  kReply1 = Stage::kFirstBlockReceived, kReply2 = Stage::kNextBlockReceived,
                  kFinal = Stage::kFinalAck, kClosed = Stage::kClosed;
  static const std::vector<Reason> all = {
      {"nothing is open yet; who goes now is missed when the port is opened", {"hang-up"}, {kFound}},
      {"nothing is read from the device or written to it yet",
       {"silence", "NAK run", "bad checksum run", "one byte at a time", "garbage before", "garbage inside",
        "late previous reply", "duplicate reply", "oversize reply", "short writes"},
       {kFound, kOpened, kLocked}},
      {"a silent device is what is wanted here", {"silence"}, {kConfigured}},
      {"nobody listens to the device any more", {"silence"}, {kClosed}},
      {"whatever waits is dropped: see garbage before and late previous reply",
       {"NAK run", "bad checksum run", "one byte at a time", "garbage inside", "duplicate reply",
        "oversize reply"},
       {kConfigured}},
      {"nothing is written", {"short writes"}, {kConfigured, kAck1, kAck2, kStx, kClosed}},
      {"nothing is read meanwhile; what comes early is read where the ACK is awaited",
       {"NAK run", "garbage before", "late previous reply"},
       {kBlock1, kBlock2}},
      {"the reply is not being read",
       {"bad checksum run", "garbage inside", "oversize reply"},
       {kBlock1, kBlock2, kAck1, kAck2, kStx, kFinal, kClosed}},
      {"the device sends nothing; for the host's own bytes see short writes",
       {"one byte at a time"},
       {kBlock1, kBlock2}},
      {"what is awaited or written is a single byte", {"one byte at a time"}, {kAck1, kAck2, kStx, kFinal}},
      {"no reply has come yet; a former call's is a late previous reply",
       {"duplicate reply"},
       {kBlock1, kBlock2, kAck1, kAck2, kStx, kReply1}},
      {"a NAK is garbage before the STX", {"NAK run"}, {kStx}},
      {"a byte of the reply like any other: see garbage inside",
       {"NAK run", "garbage before", "late previous reply"},
       {kReply1, kReply2}},
      {"shows behind the first block only", {"oversize reply"}, {kReply1}},
      {"nothing is read any more; the next call drops it, as the duplicate reply behind the final ACK",
       {"NAK run", "garbage before", "late previous reply"},
       {kFinal, kClosed}},
      {"nothing is read any more; see final ACK", {"one byte at a time", "duplicate reply"}, {kClosed}},
      {"lasts for the whole call: see there",
       {"full disk", "read-only folder"},
       {kFound, kOpened, kLocked, kConfigured, kBlock1, kBlock2, kAck1, kAck2, kStx, kReply1, kReply2, kFinal,
        kClosed}},
      {"between two calls: see whole call",
       {"midnight between two calls"},
       {kFound, kOpened, kLocked, kConfigured, kBlock1, kBlock2, kAck1, kAck2, kStx, kReply1, kReply2, kFinal,
        kClosed}},
  };
  return all;
}

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
