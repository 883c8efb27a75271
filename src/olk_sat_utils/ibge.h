// The Brazilian states: IBGE code, name, two-letter abbreviation and region.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "talvex/talvex.h"

struct UfIbgeRow {
  int32_t code;
  const char* stateName;  // upper case, without accents; null in the last row, like the other texts
  const char* ufName;
  const char* regionName;
};

inline constexpr size_t kUfIbgeRowCount = 28;
extern const UfIbgeRow tTabelaUfIbge[kUfIbgeRowCount];
