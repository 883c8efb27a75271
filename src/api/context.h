// The library's state between two calls: static and process-wide.
#pragma once

#include <stdint.h>

#include "api/settings.h"

inline constexpr char kIniFileName[] = "SAT.ini";

struct SatContext {
  bool is_set_up;
  Settings settings;
  char strSatProtLogFilePath[200];
  char strSatProtLogFileName[200];
  char CurSatCmdInProc[64];  // the SAT function in progress, for a size-control loop on another thread
};
extern SatContext gl_tSat;

// Returns 1 when the library was already set up, 0 when it has just been.
int init_global_sat_struct();
