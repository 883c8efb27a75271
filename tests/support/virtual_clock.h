// A clock that stands still until a test or a wait moves it. Linked in the place of system_clock.cpp.
#pragma once

#include <cstdint>

namespace virtual_clock {

// Local wall time, in the process's time zone.
void set_local_time(int year, int month, int day, int hour, int minute, int second, int milliseconds);

// Moves monotonic and wall clock.
void advance_ms(std::int64_t milliseconds);

// Milliseconds that have passed on the monotonic clock since the start of the process.
std::int64_t monotonic_ms();

}  // namespace virtual_clock
