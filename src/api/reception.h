// Receiving a response frame: wait, read, verify, acknowledge.
#pragma once

#include <stdint.h>

#include "api/call.h"

// Leaves the response text, NUL-terminated, in the call's packet, whose beginning is cleared first. The
// call's time-out bounds the wait for the first STX. Returns the text's length or a negative LinkCode.
int32_t cSerialReadBufW(Call& call);
