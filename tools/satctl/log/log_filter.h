// What of the logs the user wants to see.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "log/log_calls.h"

namespace satctl {

// The options of satctl log as given.
struct GivenView {
  std::vector<std::string> files;
  std::string date, since, until, function, level;
  int session = -1;
  int days = 1;
  int last = -1;
  bool all = false, calls = false, frames = false, follow = false, no_mask = false;
};

class LogFilter {
 public:
  // Throws UsageError.
  explicit LogFilter(const GivenView& given);

  bool passes(const Record& record, const LoggedCall* call) const;
  bool passes(const LoggedCall& call) const;

 private:
  // A moment of the user: on any day, or with a date in front.
  struct Bound {
    LocalTime time;
    bool any_day;
  };
  static std::optional<Bound> parse_bound(const std::string& option, const std::string& text);

  bool in_time(LocalTime time) const;
  bool in_level(const Record& record) const;
  bool of_function(const Record& record, const LoggedCall* call) const;
  bool of_session(const Record& record, const LoggedCall* call) const;

  std::optional<Bound> since_, until_;
  std::optional<Level> level_;
  const Function* function_;
  std::string name_;
  int session_;
  bool frames_only_;
};

}  // namespace satctl
