// What sending and receiving share: single non-blocking reads and writes, and the waits between them.
#pragma once

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

// No wait for the device goes on for ever: one that garbage or repeated silence would prolong without end
// is over once it has lasted longer than this and longer than three times the function's time-out.
inline constexpr int64_t kEndlessWaitMs = 60000;

// Frames longer than this are traced by excerpts.
inline constexpr uint32_t kLargeTraceSize = 1000;

// The time-out in seconds of the function in progress.
void set_function_timeout(uint32_t seconds);
bool is_endless_wait(int64_t elapsed);

// read and write once, but never interrupted by a signal.
ssize_t read_port(int descriptor, void* buffer, size_t size);
ssize_t write_port(int descriptor, const void* bytes, size_t count);

// Whether the call that returned result failed for another reason than that the port is not ready.
inline bool is_failure(ssize_t result) {
  return result == -1 && errno != 0 && errno != EAGAIN;
}

// After a read that found nothing: waits until there may be something, at most timeout_ms. A port that
// reads nothing although it is hung up or failed is looked at a thousand times a second, no faster.
void wait_for_bytes(int descriptor, int64_t timeout_ms);

// After a write that was refused: waits until the port may take bytes again, at most a millisecond. A port
// that refuses all the same is tried a thousand times a second, no faster.
void wait_for_room(int descriptor);

// Between two looks at such a port.
void pace();
