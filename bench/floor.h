// The least that a client of the device does for one transaction, as a measure for the library: opens, locks
// and sets the port raw, writes the frame, awaits its ACK, reads the reply, acknowledges it and closes. It
// knows no time-out, no retry, no configuration and no log, and is given its frame ready-made.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

// Returns the number of reply bytes in buffer, from STX to ETX. Throws when the port fails or the device
// answers anything else.
std::size_t floor_call(const char* port, const std::string& frame, char* buffer, std::size_t capacity);

}  // namespace bench
