#include "desk/fault_actions.h"

#include <algorithm>
#include <utility>

#include "desk/settings.h"
#include "device/reply_template.h"
#include "documents/identifiers.h"

namespace emulator {

namespace {

constexpr std::int64_t kMostBytes = std::int64_t{64} * 1'024 * 1'024;

std::size_t size_of(const ActionArguments& arguments, std::size_t index, std::int64_t otherwise) {
  return static_cast<std::size_t>(arguments.number(index, otherwise, kMostBytes));
}

int times_of(const ActionArguments& arguments, std::size_t index, std::int64_t otherwise) {
  return static_cast<int>(arguments.number(index, otherwise, kMostTimes));
}

Milliseconds time_of(const ActionArguments& arguments, std::size_t index, std::int64_t otherwise) {
  return Milliseconds(arguments.number(index, otherwise, kLongestDelay));
}

void hang_up(const ActionArguments& arguments, CallPlan& plan) {
  plan.link.cuts.push_back({size_of(arguments, 0, 0), Milliseconds(0), true});
  plan.link.absence = absence_of(arguments);
}

// The line spoils the ACK of a device that has noticed nothing and is at work. A till that repeats the
// command meanwhile does not get the reply to the first transmission.
void garble_ack(std::string instead, CallPlan& plan) {
  constexpr Milliseconds kWork{2'000};
  plan.link.acknowledgement = std::move(instead);
  plan.link.delay += kWork;
}

// EEEEE [CCCC] [MESSAGE], or a whole reply.
ImposedReturn imposed_return(const ActionArguments& arguments) {
  ImposedReturn imposed;
  if (arguments.word(0).find('|') != std::string::npos) {
    imposed.whole = arguments.word(0);
    check_reply_template(imposed.whole);
    return imposed;
  }
  imposed.code = static_cast<int>(arguments.number(0, 0, 99'999));
  const bool has_cccc =
      arguments.count() > 1 && arguments.word(1).size() <= 4 && all_digits(arguments.word(1));
  if (has_cccc) imposed.cccc = static_cast<int>(arguments.number(1, 0, 9'999));
  imposed.message = arguments.words_from(has_cccc ? 2 : 1);
  if (imposed.message.find_first_of("\x02\x03") != std::string::npos) {
    throw FaultSyntaxError("a message holds no STX or ETX");
  }
  return imposed;
}

void carry_out_and_return(const ActionArguments& arguments, CallPlan& plan) {
  const std::string stored = arguments.named("stored");
  if (!stored.empty() && stored != "yes" && stored != "no") throw FaultSyntaxError("stored= is yes or no");
  plan.fiscal.imposed = imposed_return(arguments);
  plan.fiscal.imposed->carried_out = true;
  plan.fiscal.imposed->stored = stored == "yes";
}

void block(const ActionArguments& arguments, CallPlan& plan) {
  plan.fiscal.block = block_called(arguments.count() > 0 ? arguments.word(0) : "contributor");
}

}  // namespace

const std::vector<FaultAction>& fault_actions() {
  static const std::vector<FaultAction> table{
      {"nak",
       "N",
       1,
       1,
       {},
       "answers NAK to N transmissions of the command",
       [](const ActionArguments& a, CallPlan& p) { p.link.naks = times_of(a, 0, 1); }},
      {"silence",
       "",
       0,
       0,
       {},
       "neither answers nor carries out the command",
       [](const ActionArguments&, CallPlan& p) { p.link.ignore_command = true; }},
      {"drop-ack",
       "",
       0,
       0,
       {},
       "carries the command out and replies, but its ACK is lost",
       [](const ActionArguments&, CallPlan& p) { p.link.acknowledgement.clear(); }},
      {"carry-out-nak",
       "",
       0,
       0,
       {},
       "carries the command out, but its ACK arrives as a NAK",
       [](const ActionArguments&, CallPlan& p) { garble_ack({char{kNak}}, p); }},
      {"stray-stx",
       "",
       0,
       0,
       {},
       "carries the command out, but a stray STX arrives in front of its ACK",
       [](const ActionArguments&, CallPlan& p) {
         garble_ack({char{kStx}, char{kAck}}, p);
       }},
      {"no-reply",
       "",
       0,
       0,
       {},
       "acknowledges the command and carries it out, but never replies",
       [](const ActionArguments&, CallPlan& p) { p.link.no_reply = true; }},
      {"wrong-checksum",
       "N",
       1,
       1,
       {},
       "sends the reply N times with a wrong checksum",
       [](const ActionArguments& a, CallPlan& p) { p.link.wrong_checksums = times_of(a, 0, 1); }},
      {"stray",
       "N",
       1,
       1,
       {},
       "sends N stray bytes (0x55) in front of the reply's STX",
       [](const ActionArguments& a, CallPlan& p) {
         p.link.stray_bytes = std::string(size_of(a, 0, 1), 'U');
       }},
      {"stop",
       "N MS",
       2,
       2,
       {},
       "stops for MS milliseconds after N bytes of the reply",
       [](const ActionArguments& a, CallPlan& p) {
         p.link.cuts.push_back({size_of(a, 0, 0), time_of(a, 1, 0), false});
       }},
      {"split",
       "N [MS]",
       1,
       2,
       {},
       "sends the reply in pieces of N bytes, MS milliseconds (5) apart",
       [](const ActionArguments& a, CallPlan& p) {
         p.link.piece_size = std::max<std::size_t>(1, size_of(a, 0, 1));
         p.link.piece_pause = time_of(a, 1, 5);
       }},
      {"hangup",
       "N [back=MS] [as=NAME]",
       1,
       1,
       {"back", "as"},
       "unplugs the device after N bytes of the reply; it is back, perhaps under another name, after MS (300)",
       hang_up},
      {"late",
       "MS",
       1,
       1,
       {},
       "replies MS milliseconds late",
       [](const ActionArguments& a, CallPlan& p) { p.link.delay += time_of(a, 0, 0); }},
      {"previous",
       "",
       0,
       0,
       {},
       "carries the command out, but sends the reply of the call before",
       [](const ActionArguments&, CallPlan& p) { p.previous_reply = true; }},
      {"duplicate",
       "",
       0,
       0,
       {},
       "sends the reply twice in a row",
       [](const ActionArguments&, CallPlan& p) { p.link.duplicate = true; }},
      {"oversize",
       "[N]",
       0,
       1,
       {},
       "fills the reply up to N bytes (11000000)",
       [](const ActionArguments& a, CallPlan& p) { p.reply_size = size_of(a, 0, 11'000'000); }},
      {"return",
       "EEEEE [CCCC] [MESSAGE] | REPLY",
       1,
       99,
       {},
       "replies with this code or this whole reply; the command is not carried out",
       [](const ActionArguments& a, CallPlan& p) { p.fiscal.imposed = imposed_return(a); }},
      {"carry-out-return",
       "[stored=yes] EEEEE [CCCC] [MESSAGE] | REPLY",
       1,
       99,
       {"stored"},
       "carries the command out, but replies so; stored=yes: ConsultarNumeroSessao finds that too",
       carry_out_and_return},
      {"processing",
       "N",
       1,
       1,
       {},
       "replies \"in process\" (xx098) to this call and the N - 1 next ones that match",
       [](const ActionArguments& a, CallPlan& p) {
         p.fiscal.processing = true;
         p.hold_for = times_of(a, 0, 1);
       }},
      {"blocked",
       "[contributor|sefaz|autonomous|deactivation]",
       0,
       1,
       {},
       "is blocked, for this call",
       block},
      {"certificate-expired",
       "",
       0,
       0,
       {},
       "has an expired certificate, for this call",
       [](const ActionArguments&, CallPlan& p) { p.fiscal.certificate_expired = true; }},
  };
  return table;
}

Absence absence_of(const ActionArguments& arguments) {
  const std::string name = arguments.named("as");
  if (name.find('/') != std::string::npos || name == "." || name == "..") {
    throw FaultSyntaxError("as= is a name beside the link, not a path");
  }
  return {Milliseconds(arguments.number("back", 300, kLongestDelay)), name};
}

}  // namespace emulator
