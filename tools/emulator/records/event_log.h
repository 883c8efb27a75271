// What happened, one line per event, on the standard error stream: for people, or as JSON for programs.
// Nothing that a till sent appears in it but the name of a function that there is, the session number and,
// where documents are held against their layout, names of fields. A device does not stand still because
// nobody reads its log: what does not fit is dropped, and counted.
#pragma once

#include <chrono>
#include <cstddef>
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
  std::string formatted(const std::string& text, nlohmann::json event) const;

  Form form_;
  mutable std::size_t dropped_ = 0;  // lines, since the last that fitted
};

}  // namespace emulator
