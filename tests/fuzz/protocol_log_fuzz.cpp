// The renderer of the protocol log over any bytes, in both directions.
#include <cstring>
#include <vector>

#include "api/context.h"
#include "api/protocol_log.h"
#include "fuzz/fuzzing.h"
#include "olk_utils/open_file.h"
#include "olk_utils/trace_log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);
  bWarningLogsEnabled = 1;
  tLog.ucModeMask = 31;
  if (gl_iFd == 0) gl_iFd = open_log_file("/dev/null", 0600);

  // Frames lie in larger buffers: two bytes behind the text's NUL can be read.
  std::vector<char> frame(data, data + size);
  frame.insert(frame.end(), 3, '\0');
  for (const bool received : {false, true}) {
    LogSATProtocolMsg(frame.data(), received);
    const std::size_t length = std::strlen(gl_TmpBuf);
    require(length >= 20 && gl_TmpBuf[length - 1] == '\n');
    require(length <= std::strlen(frame.data()) + 80);
  }
  return 0;
}
