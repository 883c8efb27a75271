// Sending a command frame, block by block.
#pragma once

#include <stdint.h>

#include "api/call.h"

// Turns the command text in the call's packet (STX, text, one placeholder byte) into the frame in place and
// sends it. Returns the frame's length, or a negative LinkCode or result of cSerialReadAck; a write that
// fails after an acknowledgement returns that acknowledgement's result.
int32_t lSerialWriteBufL(Call& call);
