// The actions of fault rules: a row each, and what they do to a call.
#pragma once

#include <string>
#include <vector>

#include "desk/action_arguments.h"
#include "device/device.h"
#include "line/conversation.h"

namespace emulator {

inline constexpr std::int64_t kMostTimes = 1'000'000;

// All that goes wrong in one call.
struct CallPlan {
  LinkFaults link;
  FiscalFaults fiscal;
  bool previous_reply = false;
  std::size_t reply_size = 0;  // the reply is filled up to this many bytes; 0: as it is
  int hold_for = 1;            // the rule stays in force for this many calls
  std::string names;           // of the actions, for the log
};

struct FaultAction {
  const char* name;
  const char* usage;
  std::size_t least, most;         // plain arguments
  std::vector<std::string> named;  // names that it knows
  const char* effect;
  void (*apply)(const ActionArguments& arguments, CallPlan& plan);
};

const std::vector<FaultAction>& fault_actions();

// back=MS and as=NAME. A name is a name: it cannot lead out of the link's folder.
Absence absence_of(const ActionArguments& arguments);

}  // namespace emulator
