// What happened, one line per event, on the standard error stream: for people, or as JSON for programs.
// Nothing that a till sent appears in it but the function's name and the session number.
#pragma once

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace emulator {

class EventLog {
 public:
  enum class Form { silent, text, json_lines };

  explicit EventLog(Form form) : form_(form) {}

  void note(const std::string& text) const;

  struct Call {
    std::string function;
    std::string session;
    std::string code;  // empty: not answered
    std::string faults;
    std::chrono::milliseconds duration{0};
  };
  void call(const Call& call) const;

 private:
  void write(const std::string& text, nlohmann::json event) const;

  Form form_;
};

}  // namespace emulator
