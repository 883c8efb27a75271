// The language of faults: one rule to a line.
//
//   on WHAT [CONDITION...] do ACTION [ARGUMENT...]
//   on EnviarDadosVenda nth=2 do nak 3
//   on any chance=5 do wrong-checksum 1
//
// and of replies that are given as they stand, which are rules in other words:
//
//   WHAT [CONDITION...] REPLY
//   ConsultarSAT nth=2 {session}|08000|SAT em operacao||
//
// With the same seed the same calls meet the same faults.
#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "desk/fault_actions.h"

namespace emulator {

class FaultRules {
 public:
  explicit FaultRules(std::uint64_t seed) : random_(seed) {}

  // Lines with rules, empty lines and comments behind "#". Throws FaultSyntaxError, naming the line; then
  // no rule was added.
  void add(const std::string& text);
  // The same for lines with replies. Those for certain calls win over those for all calls of a function.
  void add_replies(const std::string& text);
  void clear() { rules_.clear(); }
  std::vector<std::string> lines() const;

  // Counts the call and says what goes wrong in it.
  CallPlan plan(const Command& command);

 private:
  struct Rule {
    std::string line;
    std::string what;  // a function's name, "fiscal" or "any"
    std::map<std::string, std::int64_t> conditions;
    const FaultAction* action = nullptr;
    std::string arguments;
    std::int64_t seen = 0;
    std::int64_t fired = 0;
    std::int64_t held = 0;  // calls for which it stays in force
  };

  static std::vector<Rule> parse_lines(const std::string& text, Rule (*parse_line)(const std::string& line));
  static Rule parse(const std::string& line);
  static Rule parse_reply(const std::string& line);
  static void add_condition(Rule& rule, const std::string& condition);
  static void set_action(Rule& rule, const std::string& name);
  bool fires(Rule& rule, const Command& command);
  static bool matches(const Rule& rule, const Command& command);

  std::vector<Rule> rules_;
  std::mt19937_64 random_;
};

}  // namespace emulator
