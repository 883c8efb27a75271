#include "desk/faults.h"

#include <algorithm>
#include <sstream>

#include "desk/settings.h"

namespace emulator {

namespace {

const std::map<std::string, std::int64_t>& condition_limits() {
  static const std::map<std::string, std::int64_t> limits{{"nth", kMostTimes},  {"every", kMostTimes},
                                                          {"from", kMostTimes}, {"times", kMostTimes},
                                                          {"chance", 100},      {"session", 999'999}};
  return limits;
}

// "#" begins a comment where a word could begin.
std::string without_comment(const std::string& line) {
  for (std::size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1)) {
    if (at == 0 || std::string_view(kBlanks).find(line[at - 1]) != std::string_view::npos) {
      return line.substr(0, at);
    }
  }
  return line;
}

}  // namespace

std::vector<FaultRules::Rule> FaultRules::parse_lines(const std::string& text,
                                                      Rule (*parse_line)(const std::string& line)) {
  std::vector<Rule> rules;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    line = without_comment(line);
    if (line.find_first_not_of(kBlanks) == std::string::npos) continue;
    try {
      rules.push_back(parse_line(line));
    } catch (const std::invalid_argument& error) {
      throw FaultSyntaxError("line " + std::to_string(number) + ": " + error.what());
    }
  }
  return rules;
}

void FaultRules::add(const std::string& text) {
  auto rules = parse_lines(text, parse);
  std::move(rules.begin(), rules.end(), std::back_inserter(rules_));
}

void FaultRules::add_replies(const std::string& text) {
  auto rules = parse_lines(text, parse_reply);
  std::stable_partition(rules.begin(), rules.end(), [](const Rule& rule) { return rule.conditions.empty(); });
  std::move(rules.begin(), rules.end(), std::back_inserter(rules_));
}

FaultRules::Rule FaultRules::parse(const std::string& line) {
  std::istringstream words(line);
  Rule rule;
  std::string on, word, action;
  words >> on >> rule.what;
  std::vector<std::string> conditions;
  while (words >> word && word != "do") conditions.push_back(word);
  if (on != "on" || word != "do" || !(words >> action)) {
    throw FaultSyntaxError("a rule reads: on WHAT [CONDITION...] do ACTION [ARGUMENT...]");
  }
  if (rule.what != "any" && rule.what != "fiscal" && find_function(rule.what) == nullptr) {
    throw FaultSyntaxError("no function is called \"" + rule.what + "\" (nor is it any or fiscal)");
  }
  rule.line = "on " + rule.what;
  for (const std::string& condition : conditions) {
    add_condition(rule, condition);
    append_word(rule.line, ' ', condition);
  }
  std::getline(words >> std::ws, rule.arguments);
  rule.arguments.resize(rule.arguments.find_last_not_of(kBlanks) + 1);
  set_action(rule, action);
  append_word(rule.line, ' ', "do " + action);
  if (!rule.arguments.empty()) append_word(rule.line, ' ', rule.arguments);
  return rule;
}

// A reply is what begins with the word that holds the first "|".
FaultRules::Rule FaultRules::parse_reply(const std::string& line) {
  const auto bar = line.find('|');
  const auto start = bar == std::string::npos ? bar : line.find_last_of(kBlanks, bar);
  if (start == std::string::npos) throw FaultSyntaxError("a line reads: WHAT [CONDITION...] REPLY");
  return parse("on " + line.substr(0, start) + " do return " + line.substr(start + 1));
}

void FaultRules::add_condition(Rule& rule, const std::string& condition) {
  const auto equals = condition.find('=');
  const auto limit = condition_limits().find(condition.substr(0, equals));
  if (equals == std::string::npos || limit == condition_limits().end()) {
    throw FaultSyntaxError("\"" + condition +
                           "\" is no condition (nth= every= from= times= chance= session=)");
  }
  rule.conditions[limit->first] = number_within(condition.substr(equals + 1), 0, limit->second);
}

void FaultRules::set_action(Rule& rule, const std::string& name) {
  const auto& actions = fault_actions();
  const auto action =
      std::find_if(actions.begin(), actions.end(), [&](const FaultAction& row) { return name == row.name; });
  if (action == actions.end()) throw FaultSyntaxError("no action is called \"" + name + "\"");
  rule.action = &*action;
  const ActionArguments arguments(rule.arguments);
  if (arguments.count() < action->least || arguments.count() > action->most) {
    throw FaultSyntaxError("the action reads: " + name + " " + action->usage);
  }
  arguments.check_names(action->named);
  CallPlan trial;  // finds wrong numbers now instead of in the middle of a run
  action->apply(arguments, trial);
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
