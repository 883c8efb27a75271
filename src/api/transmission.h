// Sending a command frame and awaiting the device's acknowledgement.
#pragma once

#include <stdint.h>

// Turns the command text (STX, text, one placeholder byte; uiTxBufSz bytes) into the frame in place, with
// room for one byte more, and sends it. Returns the frame's length, or a negative LinkCode or result of
// cSerialReadAck; a write that fails after an acknowledgement returns that acknowledgement's result.
int32_t lSerialWriteBufL(char* pusTxPkt, uint32_t uiTxBufSz);

// Awaits the one-byte answer: 1 ACK, 0 NAK, 3 an ETX behind a stray STX; -2 time-out, -3 and -4 read errors.
int32_t cSerialReadAck();
