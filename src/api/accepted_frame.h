// What happens to a response frame whose checksum is right.
#pragma once

#include <stdint.h>

#include "api/call.h"

// The packet holds the text, its checksum and, at index etx, ETX. Traces and logs the frame, leaves the bare
// text and acknowledges. Returns the text's length.
int32_t accept_frame(Call& call, uint32_t etx);
