// The only place where the library asks the system for the time or waits: three calls and nothing around
// them. What is made of them is in system_clock.cpp; tests link a virtual clock in the place of these three.
#pragma once

#include <poll.h>
#include <time.h>

timespec read_clock(clockid_t clock);

// As poll for one descriptor: 1 with revents set, 0 when the time is over, -1 with errno.
int poll_descriptor(pollfd* descriptor, int timeout_ms);

// As nanosleep: -1 with errno EINTR when a signal came, and *time is then what is left of it.
int sleep_for(timespec* time);
