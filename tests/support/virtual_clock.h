// A clock that stands still until a test or a wait moves it. Linked in the place of clock_calls.cpp: what the
// library makes of the system's three calls is its own code in every test.
#pragma once

#include <cstdint>
#include <functional>

namespace virtual_clock {

// Local wall time, in the process's time zone.
void set_local_time(int year, int month, int day, int hour, int minute, int second, int milliseconds);

// Moves monotonic and wall clock.
void advance_ms(std::int64_t milliseconds);

// Milliseconds that have passed on the monotonic clock since the start of the process.
std::int64_t monotonic_ms();

// The other end's turn: called in every wait and at every reading of the monotonic clock. Returns the
// milliseconds until it wants to be called again; a wait does not pass over that moment.
void on_turn(std::function<std::int64_t()> turn);

// Lets every reading of the monotonic clock take time, so that a loop which never waits comes to its end.
void set_tick_ms(std::int64_t milliseconds);

}  // namespace virtual_clock
