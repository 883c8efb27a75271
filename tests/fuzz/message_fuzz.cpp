// The parsers of application messages: first the function's name, up to a line feed, then the text. What they
// find out does not depend on what is logged.
#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "fuzz/fuzzing.h"
#include "olk_utils/trace_log.h"
#include "talvex/talvex.h"

namespace {

struct Outcome {
  unsigned command_fields;
  int result;
  uint32_t last_sale;
  uint32_t session;
  uint32_t code;
  bool operator==(const Outcome&) const = default;
};

Outcome parse(const std::string& name, uint32_t session, const std::string& text) {
  Outcome found{SAT_APP_CmdParcer(nullptr, text.c_str()), 0, 1, 2, 3};
  found.result =
      SAT_APP_RspParcer(name.c_str(), session, &found.last_sale, &found.session, &found.code, text.c_str());
  return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);
  fuzzing::Input input(data, size);
  const auto session = static_cast<uint32_t>(input.byte());
  const std::string name = input.up_to('\n');
  const std::string text = input.rest();
  const std::size_t hash = std::hash<std::string>{}(text);
  bDebugLogsEnabled = 0;
  const Outcome silent = parse(name, session, text);
  bDebugLogsEnabled = 1;
  require(parse(name, session, text) == silent);
  SAT_APP_RspParcer(name.c_str(), session, nullptr, nullptr, nullptr, text.c_str());
  require(std::hash<std::string>{}(text) == hash);
  require(silent.command_fields <= text.size() + 2);
  require(silent.last_sale == 1 || silent.last_sale == session);
  require(silent.result != -1102);
  std::string shown = text;
  const char* message = SAT_GetRetCodeMsg(silent.result, shown.data());
  require((message == nullptr) == (silent.result == 99999));
  require(message == nullptr || std::strlen(message) <= std::max<std::size_t>(100, text.size()));
  return 0;
}
