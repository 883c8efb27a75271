// The one byte with which each side answers a frame or a block of one: ACK or NAK.
#pragma once

#include <stdint.h>

#include "api/call.h"

// What the device answered to a command.
enum CommandAnswer : int32_t {
  kAnswerRefused = 0,  // NAK
  kAnswerAcknowledged = 1,
  kAnswerStrayStx = 2,
  kAnswerEtxAfterStx = 3,
  kAnswerNone = -2,
  kAnswerPortLost = -3,
  kAnswerReadFailed = -4,
};

// Awaits the device's answer: 1 ACK, 0 NAK, 3 an ETX behind a stray STX; -2 time-out, -3 and -4 read errors.
int32_t cSerialReadAck(Call& call);

// Writes ACK (true) or NAK (false). 0 when the byte was written, else -1.
int32_t lSerialWriteAck(SerialPort& port, bool acknowledge);
