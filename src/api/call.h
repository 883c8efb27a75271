// One call of a SAT function, handed down from the entry point to the line.
#pragma once

#include <stdint.h>

#include "api/packet_buffer.h"
#include "api/serial_port.h"
#include "api/settings.h"
#include "olk_sat_utils/sat_functions.h"

struct Call {
  const SatFunction& function;
  int32_t session;  // as it is sent
  uint32_t reply_timeout_s;
  const Settings& settings;
  PacketBuffer packet;
  SerialPort port = {};
};
