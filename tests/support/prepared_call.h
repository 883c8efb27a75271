// Call records for tests that begin below the entry points.
#pragma once

#include <cstring>
#include <string>

#include "api/call.h"

inline const Settings kNoSettings = {};

// As an entry point makes it, on a port that is as it is.
inline Call prepared_call(SatFunctionIndex function, uint32_t reply_timeout_s, SerialPort port = {},
                          PacketBuffer packet = packet_buffer()) {
  return {.function = kSatFunctions[function],
          .session = 42,
          .reply_timeout_s = reply_timeout_s,
          .settings = kNoSettings,
          .packet = packet,
          .port = port};
}

// STX, the text and the placeholder of the checksum go into the packet, everything behind them is zero.
inline void put_command(PacketBuffer& packet, const std::string& text) {
  clear(packet, packet.capacity);
  const std::string command = "\x02" + text + "\x03";
  std::memcpy(packet.bytes, command.data(), command.size());
  mark_written(packet, command.size() + 1);
}
