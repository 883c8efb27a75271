#include "desk/faults.h"

#include <algorithm>
#include <sstream>

#include "desk/settings.h"

namespace emulator {

namespace {

constexpr std::int64_t kMostBytes = std::int64_t{64} * 1'024 * 1'024;
constexpr std::int64_t kMostTimes = 1'000'000;

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

void return_code(const ActionArguments& arguments, CallPlan& plan) {
  ImposedReturn imposed;
  imposed.code = static_cast<int>(arguments.number(0, 0, 99'999));
  imposed.cccc = static_cast<int>(arguments.number(1, 0, 9'999));
  imposed.message = arguments.words_from(2);
  if (imposed.message.find_first_of("|\x02\x03") != std::string::npos) {
    throw FaultSyntaxError("a message holds no \"|\"");
  }
  plan.fiscal.imposed = std::move(imposed);
}

void carry_out_and_return(const ActionArguments& arguments, CallPlan& plan) {
  const std::string stored = arguments.text("stored");
  if (!stored.empty() && stored != "yes" && stored != "no") throw FaultSyntaxError("stored= is yes or no");
  return_code(arguments, plan);
  plan.fiscal.imposed->carried_out = true;
  plan.fiscal.imposed->stored = stored == "yes";
}

void block(const ActionArguments& arguments, CallPlan& plan) {
  plan.fiscal.block = block_called(arguments.count() > 0 ? arguments.word(0) : "contributor");
}

void append_word(std::string& text, char separator, std::string_view word) {
  if (!text.empty()) text += separator;
  text += word;
}

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

const std::map<std::string, std::int64_t>& condition_limits() {
  static const std::map<std::string, std::int64_t> limits{{"nth", kMostTimes},  {"every", kMostTimes},
                                                          {"from", kMostTimes}, {"times", kMostTimes},
                                                          {"chance", 100},      {"session", 999'999}};
  return limits;
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
       "EEEEE [CCCC [MESSAGE]]",
       1,
       99,
       {},
       "replies with this code; the command is not carried out",
       return_code},
      {"carry-out-return",
       "EEEEE [CCCC [MESSAGE]] [stored=yes]",
       1,
       99,
       {"stored"},
       "carries the command out, but replies with this code; stored=yes: ConsultarNumeroSessao finds it too",
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

ActionArguments::ActionArguments(const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    const auto equals = word.find('=');
    if (equals == std::string::npos)
      plain_.push_back(word);
    else
      named_[word.substr(0, equals)] = word.substr(equals + 1);
  }
}

std::string ActionArguments::words_from(std::size_t index) const {
  std::string text;
  for (std::size_t i = index; i < plain_.size(); ++i) append_word(text, ' ', plain_[i]);
  return text;
}

std::int64_t ActionArguments::number(std::size_t index, std::int64_t otherwise, std::int64_t most) const {
  return index < plain_.size() ? number_within(plain_[index], 0, most) : otherwise;
}

std::int64_t ActionArguments::number(const std::string& name, std::int64_t otherwise,
                                     std::int64_t most) const {
  const auto found = named_.find(name);
  return found == named_.end() ? otherwise : number_within(found->second, 0, most);
}

std::string ActionArguments::text(const std::string& name) const {
  const auto found = named_.find(name);
  return found == named_.end() ? "" : found->second;
}

void ActionArguments::check_names(const std::vector<std::string>& known) const {
  for (const auto& [name, value] : named_) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw FaultSyntaxError("unknown argument " + name + "=");
    }
  }
}

Absence absence_of(const ActionArguments& arguments) {
  const std::string name = arguments.text("as");
  if (name.find('/') != std::string::npos || name == "." || name == "..") {
    throw FaultSyntaxError("as= is a name beside the link, not a path");
  }
  return {Milliseconds(arguments.number("back", 300, kLongestDelay)), name};
}

void FaultRules::add(const std::string& text) {
  std::vector<Rule> added;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    line.resize(std::min(line.size(), line.find('#')));
    if (words_of(line).empty()) continue;
    try {
      added.push_back(parse(line));
    } catch (const std::invalid_argument& error) {
      throw FaultSyntaxError("line " + std::to_string(number) + ": " + error.what());
    }
  }
  std::move(added.begin(), added.end(), std::back_inserter(rules_));
}

FaultRules::Rule FaultRules::parse(const std::string& line) {
  const auto words = words_of(line);
  const auto separator = std::find(words.begin(), words.end(), "do");
  if (words.size() < 2 || words[0] != "on" || separator == words.end() || separator + 1 == words.end()) {
    throw FaultSyntaxError("a rule reads: on WHAT [CONDITION...] do ACTION [ARGUMENT...]");
  }
  Rule rule;
  for (const std::string& word : words) append_word(rule.line, ' ', word);
  rule.what = words[1];
  if (rule.what != "any" && rule.what != "fiscal" && find_function(rule.what) == nullptr) {
    throw FaultSyntaxError("no function is called \"" + rule.what + "\" (nor is it any or fiscal)");
  }
  for (auto word = words.begin() + 2; word < separator; ++word) {
    const auto equals = word->find('=');
    const auto limit = condition_limits().find(word->substr(0, equals));
    if (equals == std::string::npos || limit == condition_limits().end()) {
      throw FaultSyntaxError("\"" + *word + "\" is no condition (nth= every= from= times= chance= session=)");
    }
    rule.conditions[limit->first] = number_within(word->substr(equals + 1), 0, limit->second);
  }

  const std::string& name = *(separator + 1);
  const auto& actions = fault_actions();
  const auto action =
      std::find_if(actions.begin(), actions.end(), [&](const FaultAction& row) { return name == row.name; });
  if (action == actions.end()) throw FaultSyntaxError("no action is called \"" + name + "\"");
  rule.action = &*action;
  rule.arguments.assign(separator + 2, words.end());

  const ActionArguments arguments(rule.arguments);
  if (arguments.count() < action->least || arguments.count() > action->most) {
    throw FaultSyntaxError("the action reads: " + name + " " + action->usage);
  }
  arguments.check_names(action->named);
  CallPlan trial;  // finds wrong numbers now instead of in the middle of a run
  action->apply(arguments, trial);
  return rule;
}

std::vector<std::string> FaultRules::lines() const {
  std::vector<std::string> lines;
  for (const Rule& rule : rules_) lines.push_back(rule.line);
  return lines;
}

bool FaultRules::matches(const Rule& rule, const Command& command) {
  if (command.function == nullptr) return false;
  return rule.what == "any" || rule.what == command.name ||
         (rule.what == "fiscal" && command.function->fiscal);
}

bool FaultRules::fires(Rule& rule, const Command& command) {
  if (!matches(rule, command)) return false;
  ++rule.seen;
  if (rule.held > 0) {
    --rule.held;
    return true;
  }
  const auto holds = [&](const char* name, auto condition) {
    const auto found = rule.conditions.find(name);
    return found == rule.conditions.end() || condition(found->second);
  };
  return holds("nth", [&](std::int64_t n) { return rule.seen == n; }) &&
         holds("every", [&](std::int64_t n) { return n > 0 && rule.seen % n == 0; }) &&
         holds("from", [&](std::int64_t n) { return rule.seen >= n; }) &&
         holds("times", [&](std::int64_t n) { return rule.fired < n; }) &&
         holds("session", [&](std::int64_t n) { return session_number(command.session) == n; }) &&
         // Drawn last, so that a call that meets no other condition does not move the sequence.
         holds("chance", [&](std::int64_t n) { return static_cast<std::int64_t>(random_() % 100) < n; });
}

CallPlan FaultRules::plan(const Command& command) {
  CallPlan plan;
  for (Rule& rule : rules_) {
    const bool holding = rule.held > 0;
    if (!fires(rule, command)) continue;
    rule.action->apply(ActionArguments(rule.arguments), plan);
    if (!holding) {
      ++rule.fired;
      rule.held = plan.hold_for - 1;
    }
    plan.hold_for = 1;
    append_word(plan.names, ',', rule.action->name);
  }
  std::stable_sort(plan.link.cuts.begin(), plan.link.cuts.end(),
                   [](const Cut& a, const Cut& b) { return a.at < b.at; });
  return plan;
}

}  // namespace emulator
