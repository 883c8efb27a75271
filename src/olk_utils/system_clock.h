// Time as the library uses it: calendar, milliseconds, and waits that signals do not shorten.
#pragma once

#include <stdint.h>
#include <time.h>

// Broken-down local time and the milliseconds of its second.
struct LocalTime {
  tm calendar;
  int milliseconds;
};

LocalTime local_time_now();

// As local_time_now, after taking in a time zone that the host has changed since.
LocalTime local_time_in_current_zone();

// Wall clock (CLOCK_REALTIME), milliseconds since the epoch.
uint64_t GetCurrentMilliTime();

timespec monotonic_now();

// Milliseconds between two readings: seconds and nanoseconds are taken apart, each truncated toward zero.
constexpr int64_t elapsed_ms(const timespec& since, const timespec& now) {
  return (now.tv_sec - since.tv_sec) * 1000 + (now.tv_nsec - since.tv_nsec) / 1000000;
}

enum WaitResult { kWaitFailed = -1, kTimedOut = 0, kReadable = 1, kHungUp = 2, kWritable = 3 };

// Waits until the descriptor is readable or hung up, at most timeout_ms. For kHungUp and kWaitFailed a read
// tells more and returns at once. Signals do not shorten the wait.
WaitResult wait_readable(int descriptor, int64_t timeout_ms);

// The same for a descriptor that is to take bytes again: kWritable.
WaitResult wait_writable(int descriptor, int64_t timeout_ms);

void pause_microseconds(unsigned microseconds);
