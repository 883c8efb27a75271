// What the journal keeps of an operation, and the diagram of its states.
//
//    queued ─────> sent ─────> done            done: the device's own reply, success or refusal
//     ^ ^  │        │ │
//     │ │  │        │ └──────> unknown ──────> done
//     │ └── nothing ┘           │     └──────> undecided ──> done or not-issued, by a supervisor, with a
//     reason │    │ was sent           │ └── not issued ───────────┘              queued again only while the
//     till's patience lasts
//          │
//          └──> expired: surely not issued; the same key may start a new attempt
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "hub/moment.h"
#include "hub/proof/proof.h"

namespace hub {

using OperationId = std::int64_t;
using TillId = std::int64_t;

enum class State { queued, sent, unknown, undecided, done, expired, not_issued };

std::string_view name_of(State state);
std::optional<State> state_named(std::string_view name);

// The end of the story, unless a till begins a new attempt.
constexpr bool is_settled(State state) {
  return state == State::done || state == State::expired || state == State::not_issued;
}
// The device may or may not have carried it out: nothing else that is fiscal goes there.
constexpr bool holds_device(State state) {
  return state == State::unknown || state == State::undecided;
}

// One arrow of the diagram. From nothing: the state in which an operation may enter the journal.
struct Transition {
  std::optional<State> from;
  State to;
  const char* when;
};
std::span<const Transition> transitions();
bool is_allowed(std::optional<State> from, State to);

// What kind of operation a row is; the names are those of the standard where it has one.
namespace function_name {
inline constexpr std::string_view kSale = "EnviarDadosVenda";
inline constexpr std::string_view kCancellation = "CancelarUltimaVenda";
inline constexpr std::string_view kEpoch =
    "Epoca";  // receipts that the journal lacks, for a supervisor to read of
}  // namespace function_name

std::string_view name_of(Fiscal function);
std::optional<Fiscal> fiscal_named(std::string_view function);

struct Operation {
  OperationId id = 0;
  TillId till = 0;
  std::string function;
  std::string key;
  std::string body;     // dadosVenda or dadosCancelamento, byte for byte; empty for administration
  std::string cancels;  // access key, for a cancellation
  std::optional<int> till_session;
  int attempt = 1;
  State state = State::queued;
  // Since it was sent:
  std::string serial;
  int session = 0;
  std::string baseline;       // 44 digits, or empty for none
  bool port_changed = false;  // while the device had the order
  std::string stand_in;       // another device that was seen since then
  // Since it was settled:
  std::string reply;    // the device's, under the device's session
  std::string receipt;  // 44 digits
  std::string reason;
  Moment created = 0;  // seconds since 1970
  Moment changed = 0;

  std::optional<Fiscal> fiscal() const { return fiscal_named(function); }
  // What the rules of proof need.
  Order order() const;
  // The reply as its till gets it.
  std::string reply_for_till() const;
};

}  // namespace hub
