// The parsers of application messages: first the function's name, up to a line feed, then the text.
#include <algorithm>
#include <cstring>

#include "fuzz/fuzzing.h"
#include "olk_utils/trace_log.h"
#include "talvex/talvex.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);
  bDebugLogsEnabled = 1;

  fuzzing::Input input(data, size);
  const auto session = static_cast<uint32_t>(input.byte());
  const std::string name = input.up_to('\n');
  const std::string text = input.rest();
  const std::string unchanged = text;
  require(SAT_APP_CmdParcer(nullptr, text.c_str()) <= text.size() + 2);
  uint32_t last_sale = 1;
  uint32_t reply_session = 2;
  uint32_t code = 3;
  const int result =
      SAT_APP_RspParcer(name.c_str(), session, &last_sale, &reply_session, &code, text.c_str());
  SAT_APP_RspParcer(name.c_str(), session, nullptr, nullptr, nullptr, text.c_str());
  require(text == unchanged);
  require(last_sale == 1 || last_sale == session);
  require(result != -1102);
  std::string shown = text;
  const char* message = SAT_GetRetCodeMsg(result, shown.data());
  require((message == nullptr) == (result == 99999));
  require(message == nullptr || std::strlen(message) <= std::max<std::size_t>(100, text.size()));
  return 0;
}
