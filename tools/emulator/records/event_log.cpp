#include "records/event_log.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "masking/field_rules.h"

namespace emulator {

namespace {

std::string timestamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  std::array<char, 40> text{};
  const auto size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &local);
  std::snprintf(text.data() + size, text.size() - size, ".%03ld", now.tv_nsec / 1'000'000);
  return text.data();
}

// A pipe is ready while it has room for a page; a file always.
bool takes_a_line(int fd) {
  pollfd ready{fd, POLLOUT, 0};
  return poll(&ready, 1, 0) == 1;
}

}  // namespace

void EventLog::note(const std::string& text) const {
  write(text, {{"event", "note"}, {"text", text}});
}

// A till that puts its fields in the wrong places sends an activation code as a function's name.
void EventLog::call(const Call& call) const {
  const std::string function = masking::shown(masking::Rule::function, call.function);
  const std::string session = masking::shown(masking::Rule::session, call.session);
  std::string text = function + " " + session;
  text += call.code.empty() ? " not answered" : " -> " + call.code;
  text += " (" + std::to_string(call.duration.count()) + " ms)";
  if (!call.faults.empty()) text += " fault: " + call.faults;
  write(text, {{"event", "call"},
               {"function", function},
               {"session", session},
               {"code", call.code},
               {"faults", call.faults},
               {"ms", call.duration.count()}});
}

void EventLog::write(const std::string& text, nlohmann::json event) const {
  if (form_ == Form::silent) return;
  if (!takes_a_line(STDERR_FILENO)) {
    ++dropped_;
    return;
  }
  std::string lines;
  if (dropped_ > 0) {
    const std::string lost = std::to_string(std::exchange(dropped_, 0)) + " lines of this log were dropped";
    lines = formatted(lost, {{"event", "note"}, {"text", lost}});
  }
  lines += formatted(text, std::move(event));
  std::fputs(lines.c_str(), stderr);
}

std::string EventLog::formatted(const std::string& text, nlohmann::json event) const {
  if (form_ == Form::text) return timestamp().substr(11) + " " + text + "\n";
  event["time"] = timestamp();
  return event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace emulator
