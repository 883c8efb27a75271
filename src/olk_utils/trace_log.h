// The trace log: one variadic call for the whole library, filtered by level before anything is
// formatted or opened. Files are dated, opened for every line and kept in bounds by TraleFileLogSzCtl.
#pragma once

#include <stdint.h>

#include "talvex/talvex.h"

enum TraceLevel : uint32_t {
  kError = 1,
  kWarning = 2,
  kInfo = 4,
  kTrace = 8,
  kJni = 16,
  kDebug = 32,
};

// Size limit of the logs, in bytes, unless the configuration sets another.
inline constexpr int kDefaultLogMaxSize = 800000;

// Whether a message of this level reaches the log with the flags as they stand.
bool trace_passes(uint32_t level);

// Writes one message; errno is left as it was found. Always 0.
int64_t TraceFileLog(const char* log_file_name, uint32_t level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Sets up the log from section "LOG" of an INI file. Returns the mode mask, or the negative result of
// the lookup of "LogMode". log_file_name, unless null, becomes the utilities' log name too.
int OLK_SetIniFileLogMode(const char* log_file_name, const char* ini_file_name);

// Renames the watched file of the day to the next free backup name once it has outgrown its limit.
// Returns the last size looked at.
int TraleFileLogSzCtl();

// What the trace macros of each module are made of: they put the source position in front of the text.
// Arguments are evaluated only when the level is logged, so they must not have side effects.
#define TALVEX_TRACE(log_file_name, level, ...)                               \
  do {                                                                        \
    if (trace_passes(level)) TraceFileLog(log_file_name, level, __VA_ARGS__); \
  } while (false)

// "%08Xh" fields show the low 32 bits of an address or descriptor.
inline unsigned hex32(const void* address) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(address));
}
inline unsigned hex32(int value) {
  return static_cast<unsigned>(value);
}

// "%04d" to "%08d" length fields take an int.
constexpr int length_field(uint64_t length) {
  return length > INT32_MAX ? INT32_MAX : static_cast<int>(length);
}
