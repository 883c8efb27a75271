#include "line/conversation.h"

#include <algorithm>
#include <utility>

namespace emulator {

namespace {

// A till gives up writing after 2 s without progress; a frame that stops for longer never ends.
constexpr Milliseconds kFrameGap{2'500};
// A till answers a frame within milliseconds. One that does not has gone, and if another one comes first,
// its STX ends the wait.
constexpr Milliseconds kAnswerLimit{5'000};
// A till receives a reply at most three times.
constexpr int kTransmissions = 3;

// The cuts that fall into the bytes [from, from + size) of the frame, counted from there. `from` itself
// belongs to the block before it, but for the very first byte.
std::vector<Cut> cuts_within(const LinkFaults& faults, std::size_t from, std::size_t size) {
  std::vector<Cut> cuts;
  for (Cut cut : faults.cuts) {
    if (cut.at > from + size || cut.at < from || (cut.at == from && from > 0)) continue;
    cut.at -= from;
    cuts.push_back(cut);
  }
  if (faults.piece_size > 0) {
    for (std::size_t at = faults.piece_size; at < size; at += faults.piece_size) {
      cuts.push_back({at, faults.piece_pause, false});
    }
  }
  std::stable_sort(cuts.begin(), cuts.end(), [](const Cut& a, const Cut& b) { return a.at < b.at; });
  return cuts;
}

}  // namespace

void Conversation::run() {
  for (;;) {
    try {
      serve_next_command();
    } catch (const HungUp& hung_up) {
      service_.hung_up(hung_up.complaint);
      reader_.drop_partial_frame();
      pending_command_.clear();
    }
  }
}

void Conversation::serve_next_command() {
  const std::string command =
      pending_command_.empty() ? receive_command() : std::exchange(pending_command_, {});
  LinkFaults faults = service_.link_faults(command);
  for (; faults.naks > 0; --faults.naks) {
    answer(kNak);
    std::string again = receive_command();
    if (again != command) {
      pending_command_ = std::move(again);
      return;
    }
  }
  if (faults.ignore_command) return;
  line_.write(faults.acknowledgement);

  const std::string reply = service_.reply(command);
  if (faults.no_reply) return;
  const bool acknowledged = line_.pause(faults.delay) && deliver(reply, faults);
  // What is left of a reply that nobody waits for must not meet the next till.
  if (!acknowledged) line_.discard_unread();
  service_.delivered(acknowledged);
}

std::string Conversation::receive_command() {
  for (;;) {
    const auto limit = reader_.in_frame() ? Clock::now() + kFrameGap : Clock::time_point::max();
    const auto byte = line_.peek(limit);
    if (!byte) {
      reader_.drop_partial_frame();
      continue;
    }
    line_.take();
    switch (reader_.feed(*byte)) {
      case Arrival::block:
        answer(kAck);
        break;
      case Arrival::broken_frame:
        answer(kNak);
        break;
      case Arrival::frame:
        return reader_.take_text();
      case Arrival::nothing:
      case Arrival::ack:
      case Arrival::nak:
        break;
    }
  }
}

bool Conversation::deliver(const std::string& reply, LinkFaults& faults) {
  const std::string frame = make_frame(reply);
  for (int i = 0; i < kTransmissions; ++i) {
    const bool spoil = faults.wrong_checksums-- > 0;
    const Outcome outcome = send_frame(spoil ? spoil_checksum(frame) : frame, faults);
    if (outcome != Outcome::rejected) return outcome == Outcome::acknowledged;
    // A disturbance meets the first transmission only: what the till asks for again arrives whole.
    faults.cuts.clear();
    faults.stray_bytes.clear();
  }
  return false;
}

Conversation::Outcome Conversation::send_frame(const std::string& frame, const LinkFaults& faults) {
  if (line_.write(faults.stray_bytes) != Sent::all) return Outcome::given_up;
  for (std::size_t from = 0; from < frame.size(); from += kBlockSize) {
    const std::string_view block = std::string_view(frame).substr(from, kBlockSize);
    const bool last = from + block.size() == frame.size();
    const Sent sent = line_.write(block, cuts_within(faults, from, block.size()), faults.absence);
    if (sent == Sent::stalled) return Outcome::given_up;
    if (last && sent == Sent::all && faults.duplicate) line_.write(frame);
    const Outcome outcome = await_answer();
    if (last || outcome != Outcome::acknowledged) return outcome;
  }
  return Outcome::given_up;
}

Conversation::Outcome Conversation::await_answer() {
  const auto limit = Clock::now() + kAnswerLimit;
  while (const auto byte = line_.peek(limit)) {
    // A new command: it stays in the line for receive_command.
    if (*byte == kStx) return Outcome::given_up;
    line_.take();
    if (*byte == kAck) return Outcome::acknowledged;
    if (*byte == kNak) return Outcome::rejected;
  }
  return Outcome::given_up;
}

void Conversation::answer(unsigned char byte) {
  const char text = static_cast<char>(byte);
  line_.write(std::string_view(&text, 1));
}

}  // namespace emulator
