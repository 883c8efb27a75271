// The language of faults: one rule to a line.
//
//   on WHAT [CONDITION...] do ACTION [ARGUMENT...]
//   on EnviarDadosVenda nth=2 do nak 3
//   on any chance=5 do wrong-checksum 1
//
// With the same seed the same calls meet the same faults.
#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/device.h"
#include "line/conversation.h"

namespace emulator {

class FaultSyntaxError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// All that goes wrong in one call.
struct CallPlan {
  LinkFaults link;
  FiscalFaults fiscal;
  bool previous_reply = false;
  std::size_t reply_size = 0;  // the reply is filled up to this many bytes; 0: as it is
  int hold_for = 1;            // the rule stays in force for this many calls
  std::string names;           // of the actions, for the log
};

// What stands behind an action's name: plain words and NAME=VALUE.
class ActionArguments {
 public:
  explicit ActionArguments(const std::vector<std::string>& words);

  std::size_t count() const { return plain_.size(); }
  const std::string& word(std::size_t index) const { return plain_.at(index); }
  // The rest of the line from this word on.
  std::string words_from(std::size_t index) const;
  std::int64_t number(std::size_t index, std::int64_t otherwise, std::int64_t most) const;
  std::int64_t number(const std::string& name, std::int64_t otherwise, std::int64_t most) const;
  std::string text(const std::string& name) const;
  void check_names(const std::vector<std::string>& known) const;

 private:
  std::vector<std::string> plain_;
  std::map<std::string, std::string> named_;
};

// back=MS and as=NAME. A name is a name: it cannot lead out of the link's folder.
Absence absence_of(const ActionArguments& arguments);

struct FaultAction {
  const char* name;
  const char* usage;
  std::size_t least, most;         // plain arguments
  std::vector<std::string> named;  // names that it knows
  const char* effect;
  void (*apply)(const ActionArguments& arguments, CallPlan& plan);
};

const std::vector<FaultAction>& fault_actions();

class FaultRules {
 public:
  explicit FaultRules(std::uint64_t seed) : random_(seed) {}

  // Lines with rules, empty lines and comments behind "#". Throws FaultSyntaxError, naming the line; then
  // no rule was added.
  void add(const std::string& text);
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
    std::vector<std::string> arguments;
    std::int64_t seen = 0;
    std::int64_t fired = 0;
    std::int64_t held = 0;  // calls for which it stays in force
  };

  static Rule parse(const std::string& line);
  bool fires(Rule& rule, const Command& command);
  static bool matches(const Rule& rule, const Command& command);

  std::vector<Rule> rules_;
  std::mt19937_64 random_;
};

}  // namespace emulator
