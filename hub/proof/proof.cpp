#include "hub/proof/proof.h"

#include <algorithm>
#include <array>

#include "hub/encoding.h"

namespace hub {

namespace {

constexpr int kStatusFamily = 10;
constexpr int kUnknownSession = 11003;
constexpr int kNothingIssuedYet = 19003;
constexpr int kFirstUnclear = 97;  // xx097, xx098, xx099

int ending(const Reply& reply) {
  return reply.code() % 1000;
}

bool is_failure(const Reply& reply, int code, int line) {
  return reply.failure() == code && reply.failure_line() == line;
}

bool own_family(const Order& order, const Reply& reply) {
  return reply.code() / 1000 == family(order.function);
}

template <int code, int line>
bool failed_at(const Order& /*order*/, const Reply& reply, const Known& /*known*/) {
  return is_failure(reply, code, line);
}

bool new_receipt(const Reply& reply, const Known& known) {
  const auto key = reply.receipt();
  return key && !known(*key);
}

using enum Outcome;

// The first row that fits counts.
constexpr std::array kOutcomes{
    OutcomeRow{"no port found", failed_at<-2000, 2193>, nothing_sent, "device unplugged before the call"},
    OutcomeRow{"port not opened", failed_at<-2000, 2254>, nothing_sent,
               "device unplugged while it was searched"},
    OutcomeRow{"port not locked", failed_at<-2010, 2272>, nothing_sent, "flock failing with EIO"},
    OutcomeRow{"port not set up", failed_at<-2002, 2286>, nothing_sent, "a pipe in the port's place"},
    OutcomeRow{"no busy reply for this function", failed_at<-3000, 3149>, held_by_stranger,
               "another program holds the port"},
    OutcomeRow{"the library's busy reply",
               [](const Order& order, const Reply& reply, const Known&) {
                 return own_family(order, reply) && reply.is_librarys_busy_reply(order.session);
               },
               held_by_stranger, "another program holds the port"},
    OutcomeRow{"any other failure text",
               [](const Order&, const Reply& reply, const Known&) { return reply.failure().has_value(); },
               unknown, "the reply is lost on the line, the receipt is issued"},
    OutcomeRow{"another session's reply",
               [](const Order& order, const Reply& reply, const Known&) {
                 return !reply.bears_session(order.session);
               },
               unknown, "the device sends the reply of the call before"},
    OutcomeRow{"another function's code",
               [](const Order& order, const Reply& reply, const Known&) { return !own_family(order, reply); },
               unknown, "the device answers something else under this session"},
    OutcomeRow{"xx097, xx098, xx099",
               [](const Order&, const Reply& reply, const Known&) { return ending(reply) >= kFirstUnclear; },
               unknown,
               "a garbled ACK: the library sends twice, the device issues the first and refuses the second"},
    OutcomeRow{"issued, a receipt that is new",
               [](const Order&, const Reply& reply, const Known& known) {
                 return ending(reply) == 0 && new_receipt(reply, known);
               },
               issued, "every sale"},
    OutcomeRow{"issued, without a receipt that is new",
               [](const Order&, const Reply& reply, const Known&) { return ending(reply) == 0; }, unknown,
               "the device repeats an old receipt under a new session"},
    OutcomeRow{"refused", [](const Order&, const Reply&, const Known&) { return true; }, refused,
               "every sale with a mistake in it"},
};

// ---- Finding out ----

bool is_status(const Reply& reply) {
  return reply.code() == kStatusFamily * 1000;
}

// A stored reply of whatever function, or the word that there is none. Everything else is no answer to the
// question.
bool is_answer(const Reply& reply, int nothing_there) {
  if (reply.failure() || reply.code() == 0 || reply.is_in_process()) return false;
  return reply.code() / 1000 != nothing_there / 1000 || reply.code() == nothing_there;
}

bool answered(const Answers& answers) {
  return identity_in(answers.status) && is_answer(answers.session, kUnknownSession) &&
         is_answer(answers.last, kNothingIssuedYet);
}

// 19003 where there was none; otherwise the baseline itself.
bool last_is_baseline(const Order& order, const Reply& last) {
  if (!order.baseline) return last.code() == kNothingIssuedYet;
  return last.receipt() == order.baseline;
}

bool speaks_of_the_device(const Order& order, const Answers& answers) {
  const auto identity = identity_in(answers.status);
  return identity && identity->serial == order.serial;
}

constexpr std::array kFindings{
    FindingRow{"another device answers",
               [](const Order& order, const Answers& answers, const Known&) {
                 return identity_in(answers.status) && !speaks_of_the_device(order, answers);
               },
               Finding::ask_again, "the device exchanged for one with the same session counter"},
    FindingRow{"the session's stored reply",
               [](const Order& order, const Answers& answers, const Known& known) {
                 return proves_issue(order, answers.session, known);
               },
               Finding::issued_by_session, "the reply is lost on the line"},
    FindingRow{"the last fiscal reply",
               [](const Order& order, const Answers& answers, const Known& known) {
                 return proves_issue(order, answers.last, known);
               },
               Finding::issued_by_last, "the device has forgotten its sessions, not its last receipt"},
    FindingRow{"the device does not answer, or is in process",
               [](const Order&, const Answers& answers, const Known&) { return !answered(answers); },
               Finding::ask_again, "a question in the middle of the device's work"},
    FindingRow{"the last receipt is the baseline, twice",
               [](const Order& order, const Answers& answers, const Known&) {
                 return !order.stood_in && speaks_of_the_device(order, answers) &&
                        identity_in(answers.status)->last == order.baseline &&
                        last_is_baseline(order, answers.last);
               },
               Finding::not_issued, "the command is lost on the line"},
    FindingRow{"neither", [](const Order&, const Answers&, const Known&) { return true; }, Finding::undecided,
               "a stranger sold in between, and the device has forgotten the session"},
};

template <typename Rows, typename... Arguments>
const auto& first_fitting(const Rows& rows, const Arguments&... arguments) {
  return *std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.fits(arguments...); });
}

}  // namespace

std::span<const OutcomeRow> outcome_rows() {
  return kOutcomes;
}

const OutcomeRow& judge(const Order& order, const Reply& reply, const Known& known) {
  return first_fitting(kOutcomes, order, reply, known);
}

std::span<const FindingRow> finding_rows() {
  return kFindings;
}

const FindingRow& find_out(const Order& order, const Answers& answers, const Known& known) {
  return first_fitting(kFindings, order, answers, known);
}

// The session number comes first: a stranger's equal sale fails there. Where a stranger's counter is in step
// with ours, the data decide.
bool proves_issue(const Order& order, const Reply& stored, const Known& known) {
  if (!stored.bears_session(order.session) || stored.code() != family(order.function) * 1000) return false;
  const auto key = stored.receipt();
  if (!key || key->serial() != order.serial || known(*key)) return false;
  if (!comes_after(order.baseline, *key)) return false;
  const auto document = from_wrapped_base64(stored.field(field::kDocument));
  return document && made_of(facts_of(*document), order.data);
}

std::optional<Identity> identity_in(const Reply& status) {
  if (!is_status(status)) return std::nullopt;
  const auto serial = status.field(field::kSerial);
  if (serial.empty()) return std::nullopt;
  return Identity{std::string(serial), AccessKey::parse(status.field(field::kLastKey))};
}

}  // namespace hub
