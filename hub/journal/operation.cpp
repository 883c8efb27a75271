#include "hub/journal/operation.h"

#include <algorithm>
#include <array>

namespace hub {

namespace {

using enum State;

constexpr std::array<std::string_view, 7> kStateNames{"queued", "sent",    "unknown",   "undecided",
                                                      "done",   "expired", "not-issued"};

constexpr std::array kTransitions{
    Transition{{}, queued, "a till asks"},
    Transition{{}, done, "a sale under a session that is closed is refused, unsent"},
    Transition{{}, undecided, "the journal may have lost this very operation"},
    Transition{{}, not_issued, "a key is closed before it was used"},
    Transition{queued, sent, "before the device gets the order"},
    Transition{queued, expired, "the till's patience is over"},
    Transition{queued, not_issued, "the till closes the key"},
    Transition{sent, done, "the device's reply"},
    Transition{sent, queued, "nothing was sent"},
    Transition{sent, unknown, "the reply proves nothing"},
    Transition{unknown, done, "proven to be issued"},
    Transition{unknown, queued, "proven not to be issued"},
    Transition{unknown, undecided, "no proof is possible"},
    Transition{undecided, done, "a supervisor names the receipt"},
    Transition{undecided, not_issued, "a supervisor says so"},
    Transition{expired, queued, "a new attempt"},
    Transition{expired, not_issued, "the till closes the key"},
};

}  // namespace

std::string_view name_of(State state) {
  return kStateNames[static_cast<std::size_t>(state)];
}

std::optional<State> state_named(std::string_view name) {
  const auto found = std::find(kStateNames.begin(), kStateNames.end(), name);
  if (found == kStateNames.end()) return std::nullopt;
  return static_cast<State>(found - kStateNames.begin());
}

std::span<const Transition> transitions() {
  return kTransitions;
}

bool is_allowed(std::optional<State> from, State to) {
  return std::any_of(kTransitions.begin(), kTransitions.end(),
                     [&](const Transition& arrow) { return arrow.from == from && arrow.to == to; });
}

std::string_view name_of(Fiscal function) {
  return function == Fiscal::sale ? function_name::kSale : function_name::kCancellation;
}

std::optional<Fiscal> fiscal_named(std::string_view function) {
  if (function == function_name::kSale) return Fiscal::sale;
  if (function == function_name::kCancellation) return Fiscal::cancellation;
  return std::nullopt;
}

Order Operation::order() const {
  Order order;
  order.function = fiscal().value_or(Fiscal::sale);
  order.session = session;
  order.serial = serial;
  order.baseline = AccessKey::parse(baseline);
  order.data = facts_of(body);
  order.stood_in = !stand_in.empty();
  return order;
}

std::string Operation::reply_for_till() const {
  return till_session ? under_session(reply, *till_session) : reply;
}

}  // namespace hub
