// Calls, put together from the records of both logs.
#pragma once

#include <string>
#include <vector>

#include "log_files.h"
#include "reply.h"

namespace satctl {

struct Step {
  LocalTime time;
  bool milliseconds_known;
  std::string what;
  bool is_error;
};

struct LoggedCall {
  const Function* function = nullptr;  // unknown until the command is seen
  int session = -1;
  LocalTime start = 0, end = 0;
  bool milliseconds_known = true;
  std::string return_code;  // EEEEE, or the code of the library's failure
  std::vector<Step> steps;
  bool opened = false, sent = false, answered = false, finished = false;
};

constexpr int kNoCall = -1;

// Takes records in the order of time and says to which call each belongs.
class CallGrouper {
 public:
  int add(const Record& record);  // index into calls(), or kNoCall
  const std::vector<LoggedCall>& calls() const { return calls_; }

 private:
  int add_message(const Record& record);
  int add_frame(const Record& record);
  LoggedCall* current();
  LoggedCall& begin(const Record& record);
  int join(LoggedCall& call, const Record& record);

  std::vector<LoggedCall> calls_;
};

// Both in one, in the order of time. Frames know whole seconds only: where the trace log tells of the same
// frame, its place and time are taken.
std::vector<Record> merge(std::vector<Record> messages, std::vector<Record> frames);

int session_of(const Record& frame);
// The fields of a frame with their names; for a reply the call's function helps where the code is missing.
std::vector<NamedField> fields_of(const Record& frame, const Function* function);

}  // namespace satctl
