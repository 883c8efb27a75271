// The wall clock's time, for people: nothing is decided by it that a clock set wrong could turn into a second
// sale.
#pragma once

#include <cstdint>

namespace hub {

using Moment = std::int64_t;  // seconds since 1970

}  // namespace hub
