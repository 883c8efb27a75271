// What a till and a device agree on in long runs: the activation code of a command says how the device is to
// misbehave and how long its reply is to be. Both sides work the reply out for themselves, so that every byte
// of every reply can be compared. Framing code of its own, nothing of the library's.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace planned {

inline constexpr char kStx = '\x02';
inline constexpr char kEtx = '\x03';
inline constexpr char kAck = '\x06';
inline constexpr char kNak = '\x15';
inline constexpr std::size_t kBlock = 16384;

enum class Fault {
  kNone,
  kOneNak,
  kThreeNaks,
  kFourNaks,
  kGarbageBeforeAck,
  kStxNak,
  kStxEtx,
  kStxAck,
  kLoneStx,
  kSeparateReply,
  kGarbageBeforeReply,
  kOneBadReply,
  kTwoBadReplies,
  kThreeBadReplies,
  kSingleBytes,
  kPieces,
  kDuplicateReply,
  kGap,
};

struct Kind {
  Fault fault;
  char letter;          // in the activation code
  int weight;           // share of a random run
  const char* name;     // in reports
  const char* failure;  // code of the failure text; null: the call succeeds
  bool failure_of_sending = false;
};

// Most are over at once; a gap costs a tenth of a second of real time, so it is rare.
inline constexpr std::array<Kind, 18> kKinds = {{
    {Fault::kNone, 'A', 30000, "none", nullptr},
    {Fault::kOneNak, 'B', 1500, "one NAK", nullptr},
    {Fault::kThreeNaks, 'C', 800, "three NAKs", nullptr},
    {Fault::kFourNaks, 'D', 500, "four NAKs", "-02009", true},
    {Fault::kGarbageBeforeAck, 'E', 1500, "garbage before the ACK", nullptr},
    {Fault::kStxNak, 'F', 800, "STX and NAK for an ACK", nullptr},
    {Fault::kStxEtx, 'G', 800, "STX and ETX for an ACK", nullptr},
    {Fault::kStxAck, 'H', 800, "STX and ACK: sent again", nullptr},
    {Fault::kLoneStx, 'I', 500, "lone STX for an ACK", "-00002", true},
    {Fault::kSeparateReply, 'J', 3000, "reply apart from its ACK", nullptr},
    {Fault::kGarbageBeforeReply, 'K', 1500, "garbage before the reply", nullptr},
    {Fault::kOneBadReply, 'L', 1500, "one damaged reply", nullptr},
    {Fault::kTwoBadReplies, 'M', 800, "two damaged replies", nullptr},
    {Fault::kThreeBadReplies, 'N', 500, "three damaged replies", "-02005"},
    {Fault::kSingleBytes, 'O', 1000, "reply in single bytes", nullptr},
    {Fault::kPieces, 'P', 3000, "reply in pieces", nullptr},
    {Fault::kDuplicateReply, 'Q', 1500, "reply twice", nullptr},
    {Fault::kGap, 'R', 10, "gap of 150 ms inside the reply", nullptr},
}};

inline unsigned char checksum(std::string_view text) {
  unsigned sum = 0;
  for (const char byte : text) sum += static_cast<unsigned char>(byte);
  return sum % 256 == 3 ? 4 : static_cast<unsigned char>(sum % 256);
}

inline std::string frame(std::string_view text) {
  std::string bytes(1, kStx);
  bytes += text;
  bytes += static_cast<char>(checksum(text));
  bytes += kEtx;
  return bytes;
}

// Activation code: letter of the fault, then the length that the reply's text is to have.
struct Plan {
  Fault fault = Fault::kNone;
  std::size_t reply_length = 0;
};

inline std::string activation_code(const Plan& plan) {
  return kKinds.at(static_cast<std::size_t>(plan.fault)).letter + std::to_string(plan.reply_length);
}

inline Plan plan_of(std::string_view code) {
  Plan plan;
  if (code.empty()) return plan;
  for (const Kind& kind : kKinds) {
    if (kind.letter == code[0]) plan.fault = kind.fault;
  }
  for (const char digit : code.substr(1)) {
    if (digit < '0' || digit > '9') break;
    plan.reply_length = plan.reply_length * 10 + static_cast<std::size_t>(digit - '0');
  }
  return plan;
}

// The session number as sent, a code, and letters that depend on the session and on their place.
inline std::string reply_text(std::string_view session, std::size_t length) {
  std::string text(session);
  text += "|10000|Resposta com sucesso|||";
  std::size_t seed = 0;
  for (const char digit : session) seed = seed * 10 + static_cast<std::size_t>(digit - '0');
  while (text.size() < length) text += static_cast<char>('a' + (seed * 7 + text.size() * 5) % 23);
  return text;
}

}  // namespace planned
