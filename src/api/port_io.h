// Using the open port: single reads and writes that never block, and the waits between them.
#pragma once

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "api/serial_port.h"

// read and write once, but never interrupted by a signal.
ssize_t read_port(SerialPort& port, void* buffer, size_t size);
ssize_t write_port(SerialPort& port, const void* bytes, size_t count);

// Whether the call that returned result failed for another reason than that the port is not ready.
inline bool is_failure(ssize_t result) {
  return result == -1 && errno != 0 && errno != EAGAIN;
}

// After a read that found nothing: waits until there may be something, at most timeout_ms. A port that reads
// nothing although it is hung up or failed is looked at a thousand times a second, no faster.
void wait_for_bytes(SerialPort& port, int64_t timeout_ms);

// After a write that was refused: waits until the port may take bytes again, at most a millisecond. A port
// that refuses all the same is tried a thousand times a second, no faster.
void wait_for_room(SerialPort& port);

// Between two looks at such a port.
void pace();
