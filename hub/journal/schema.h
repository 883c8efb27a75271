// The journal's tables, version by version.
#pragma once

#include <span>

namespace hub {

// Each brings the journal from the version of its index to the next one.
std::span<const char* const> migrations();

}  // namespace hub
