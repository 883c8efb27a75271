#include "records/event_log.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

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

}  // namespace

void EventLog::note(const std::string& text) const {
  write(text, {{"event", "note"}, {"text", text}});
}

void EventLog::call(const Call& call) const {
  std::string text = call.function + " " + call.session;
  text += call.code.empty() ? " not answered" : " -> " + call.code;
  text += " (" + std::to_string(call.duration.count()) + " ms)";
  if (!call.faults.empty()) text += " fault: " + call.faults;
  write(text, {{"event", "call"},
               {"function", call.function},
               {"session", call.session},
               {"code", call.code},
               {"faults", call.faults},
               {"ms", call.duration.count()}});
}

void EventLog::write(const std::string& text, nlohmann::json event) const {
  if (form_ == Form::silent) return;
  std::string line;
  if (form_ == Form::json_lines) {
    event["time"] = timestamp();
    line = event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  } else {
    line = timestamp().substr(11) + " " + text;
  }
  std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace emulator
