// Frame functions and dissectors over any bytes.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzzing.h"
#include "olk_utils/trace_log.h"
#include "talvex/talvex.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);
  bDebugLogsEnabled = 1;

  // A text with its NUL and the two bytes behind a zero checksum, in a buffer of its own: reading past it
  // shows.
  std::vector<char> frame(data, data + size);
  frame.insert(frame.end(), 3, '\0');
  const std::vector<char> before = frame;
  const int length = static_cast<int>(size);
  const unsigned fields = static_cast<unsigned>(size) + 2;
  require(SAT_API_CmdPktParcer(frame.data(), length) <= fields);
  require(SAT_API_RspPktParcer(frame.data(), length) <= fields);
  require(frame == before);

  const auto* bytes = reinterpret_cast<const unsigned char*>(frame.data());
  require(std::strlen(ShowHex(bytes, length)) == 2 * std::min<std::size_t>(size, 2044));
  require(SAT_API_DecodeSatCmd(bytes, length) == -1);
  SAT_API_CalcCkeckSum(bytes, length);

  const int text_length = static_cast<int>(std::strlen(frame.data()));
  std::vector<unsigned char> packet(static_cast<std::size_t>(text_length) + 4, 0xEE);
  int packet_length = -7;
  const bool has_stx = frame[0] == '\x02';
  const int message_length = has_stx ? text_length : text_length + 2;
  const int made = SAT_API_CreatePacket(bytes, message_length, packet.data(), &packet_length);
  if (made > 0) {
    require(made == packet_length && made == message_length + (has_stx ? 2 : 1));
    require(packet[0] == 2 && packet[static_cast<std::size_t>(made) - 1] == 3);
    require(packet[static_cast<std::size_t>(made)] == 0xEE);
  }
  return 0;
}
