// Calls, put together from the records of both logs.
#pragma once

#include <string>
#include <vector>

#include "calls/reply.h"
#include "log/log_files.h"

namespace satctl {

struct Step {
  LocalTime time;
  bool milliseconds_known;
  std::string what;
  bool is_error;
  bool is_message = false;  // of the trace log, as it stands there
};

struct LoggedCall {
  const Function* function = nullptr;  // unknown when neither a command nor a failure names it
  int session = -1;
  LocalTime start = 0, end = 0;
  bool milliseconds_known = true;
  std::string return_code;  // EEEEE, "?" for anything else, or the code of the library's failure
  std::vector<Step> steps;
};

constexpr int kNoCall = -1;

// Both logs as one.
struct JoinedLogs {
  std::vector<Record> records;  // in the order of time
  std::vector<int> call_of;     // for each record the index of its call, or kNoCall
  std::vector<LoggedCall> calls;

  const LoggedCall* call_at(std::size_t record) const {
    return call_of[record] == kNoCall ? nullptr : &calls[static_cast<std::size_t>(call_of[record])];
  }
};

// Each given in its own order. Which message belongs to which frame is decided by function, session and
// outcome; time only excludes: frames know whole seconds, and a call that follows a lost one begins in the
// second in which the lost one fails. Where the trace log tells of a frame, the frame takes over its time.
JoinedLogs join_logs(std::vector<Record> messages, std::vector<Record> frames);

int session_of(const Record& frame);
// The names of a frame's fields; for a reply the call's function helps where the code is missing.
std::vector<std::string> names_of(const Record& frame, const Function* function,
                                  const std::vector<std::string>& values);

}  // namespace satctl
