// What a caller sees of the reply to the caller's own call.
#pragma once

#include <string>
#include <string_view>

#include "masking/learned_codes.h"

namespace masking {

// The reply as it is without the call's own codes. A field that is by its form what its place wants (a code,
// a time, a total, a key, a document in base64) stays as it is, although a code may stand in it by chance: a
// till needs it whole.
std::string reply_without_codes(std::string_view reply, const LearnedCodes& codes);

}  // namespace masking
