// The search for the device with no settings from SAT.ini.
#pragma once

#include "api/discovery.h"

inline int findSat(char* name) {
  return findSat(Settings{}, name);
}
