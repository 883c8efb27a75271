// A hostile SAT.ini: set-up of the log and of the whole context from any file.
#include <fcntl.h>

#include <cstring>

#include "api/configuration.h"
#include "api/discovery.h"
#include "fuzz/fuzzing.h"
#include "olk_sat_utils/sat_functions.h"
#include "olk_utils/trace_log.h"

namespace {

template <std::size_t N>
bool is_terminated(const char (&text)[N]) {
  return std::memchr(text, '\0', N) != nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);

  const int file = open("SAT.ini", O_WRONLY | O_CREAT | O_TRUNC, 0600);
  require(file != -1 && write(file, data, size) == static_cast<ssize_t>(size));
  close(file);

  const int mode = OLK_SetIniFileLogMode("SAT_api.log", "SAT.ini");
  require(mode < 0 || mode == 0 || mode == 1 || mode == 3 || mode == 7 || mode == 15 || mode == 31);
  static Settings settings = {};
  UpdateTalvexConfiguration(settings, false);
  require(is_terminated(tLog.strLogFilePath) && is_terminated(tLog.strLogFileName));
  require(tLog.iLogFileMaxSize > 0);
  require(is_terminated(settings.strResultPathLinux));
  for (uint32_t row = 0; row < kSatFunctionCount; ++row) {
    const auto function = static_cast<SatFunctionIndex>(row);
    require(reply_timeout_s(settings, function) > 0);
    require(settings.timeout_s[row] == 0 || kSatFunctions[row].takes_timeout);
  }

  char port[256];
  const int length = GetFixedSerialPort(port);
  require(is_terminated(port));
  require(length <= 1 || static_cast<std::size_t>(length) == std::strlen(port));
  return 0;
}
