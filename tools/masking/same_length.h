// Frames with everything that may not be shown filled to the same length: what records the line's traffic can
// still be replayed.
#pragma once

#include <string>
#include <string_view>

#include "masking/frame_fields.h"
#include "masking/learned_codes.h"

namespace masking {

// The text between STX and checksum.
std::string filled_frame(std::string_view text, Side side, const LearnedCodes& codes);

}  // namespace masking
