// Trace lines of the SAT utilities: "[line] [path] [function]". Call sites give level, text and values; the
// _IN form is for helpers that speak in the name of the function that a support technician knows.
#pragma once

#include "olk_utils/trace_log.h"

inline constexpr char pLogOlkSatUtils[] = "SAT_api.log";
inline constexpr char kSatUtilsSourcePath[] = "../src/olk_sat_utils/olk_sat_utils";

#define SAT_UTILS_TRACE_IN(function, level, text, ...)                                         \
  TALVEX_TRACE(pLogOlkSatUtils, level, "[%04d] [%s] [%s]" text, __LINE__, kSatUtilsSourcePath, \
               function __VA_OPT__(, ) __VA_ARGS__)
#define SAT_UTILS_TRACE(level, text, ...) SAT_UTILS_TRACE_IN(__func__, level, text __VA_OPT__(, ) __VA_ARGS__)
