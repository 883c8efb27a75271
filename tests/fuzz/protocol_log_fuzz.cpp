// The renderer of the protocol log over any bytes, in both directions.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <vector>

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
  if (gl_iFd == 0) gl_iFd = open_log_file("line", 0600);
  static const int written = open("line", O_RDONLY | O_CLOEXEC);

  // Frames lie in larger buffers: two bytes behind the text's NUL can be read.
  std::vector<char> frame(data, data + size);
  frame.insert(frame.end(), 3, '\0');
  for (const bool received : {false, true}) {
    require(ftruncate(gl_iFd, 0) == 0);
    LogSATProtocolMsg(frame.data(), received);
    std::vector<char> line(size + 100);
    const auto length = pread(written, line.data(), line.size(), 0);
    require(length >= 20 && line[static_cast<std::size_t>(length) - 1] == '\n');
    require(static_cast<std::size_t>(length) <= std::strlen(frame.data()) + 80);
  }
  return 0;
}
