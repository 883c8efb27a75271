// What the library takes from SAT.ini. The log keeps its own settings, in tLog.
#pragma once

#include <stdint.h>
#include <time.h>

#include "olk_sat_utils/sat_functions.h"

inline constexpr char kIniFileName[] = "SAT.ini";

struct Settings {
  bool lSatEmulatorOn;
  bool lResultFilesOn;
  char strResultPathLinux[128];
  // 0 where the file has set none. Kept: one that was set once stays when its item is gone.
  uint32_t timeout_s[kSatFunctionCount];
  time_t tIniFileTime;  // the file as it was read last; 0: to be read again
};

inline uint32_t reply_timeout_s(const Settings& settings, SatFunctionIndex function) {
  const uint32_t configured = settings.timeout_s[function];
  return configured != 0 ? configured : kSatFunctions[function].default_timeout_s;
}
