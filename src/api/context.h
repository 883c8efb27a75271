// The library's state between two calls: static and process-wide.
#pragma once

#include <stdint.h>

#include "api/settings.h"
#include "talvex/talvex.h"

struct SatContext {
  bool is_set_up;
  Settings settings;
  char strSatProtLogFilePath[sizeof TalvexLogConfiguration::strLogFilePath];
  char strSatProtLogFileName[sizeof strSatProtLogFilePath + 64];
  char CurSatCmdInProc[64];  // the SAT function in progress, for a size-control loop on another thread
};
extern SatContext gl_tSat;

// Returns 1 when the library was already set up, 0 when it has just been.
int init_global_sat_struct();
