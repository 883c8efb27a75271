// What travels on the serial line.
//
//   offset  length  content
//   0       1       STX
//   1       n       message text, fields separated by "|"
//   n + 1   1       CKS: the text's bytes added modulo 256; 0x04 in the place of 0x03
//   n + 2   1       ETX
//
// No length field and no escaping: the first ETX behind the STX ends the frame, which is why the checksum
// never is 0x03. It can be 0x00, so frames go by length, never by string length. A frame moves in blocks
// of 16,384 bytes counted from the STX, each acknowledged by the receiver.
#pragma once

#include <stdint.h>

#include "talvex/talvex.h"

inline constexpr char kStx = 0x02;
inline constexpr char kEtx = 0x03;
inline constexpr char kAck = 0x06;
inline constexpr char kNak = 0x15;
inline constexpr char kFieldSeparator = '|';

inline constexpr uint32_t kBlockSize = 16384;

// The rule that keeps the checksum from being read as ETX.
constexpr uint8_t checksum_of_sum(uint8_t sum) {
  return sum == 0x03 ? 0x04 : sum;
}
