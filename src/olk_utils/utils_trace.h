// Trace lines of the general utilities. Call sites give level, text and values.
#pragma once

#include "olk_utils/trace_log.h"

extern const char* pOlkUtilsLogFile;

inline constexpr char kUtilsSourcePath[] = "../src/olk_utils/olk_utils";

// "[line] function" in most files ... The _IN form is for helpers that speak in the name of the function that
// a support technician knows.
#define UTILS_TRACE_IN(function, level, text, ...) \
  TALVEX_TRACE(pOlkUtilsLogFile, level, "[%04d] %s" text, __LINE__, function __VA_OPT__(, ) __VA_ARGS__)
#define UTILS_TRACE(level, text, ...) UTILS_TRACE_IN(__func__, level, text __VA_OPT__(, ) __VA_ARGS__)

// ... "[line] path function" in the log set-up, and "[line] [path] [function]" in a few.
#define UTILS_PATH_TRACE_IN(function, level, text, ...)                                  \
  TALVEX_TRACE(pOlkUtilsLogFile, level, "[%04d] %s %s" text, __LINE__, kUtilsSourcePath, \
               function __VA_OPT__(, ) __VA_ARGS__)
#define UTILS_BRACKET_TRACE_IN(function, level, text, ...)                                   \
  TALVEX_TRACE(pOlkUtilsLogFile, level, "[%04d] [%s] [%s]" text, __LINE__, kUtilsSourcePath, \
               function __VA_OPT__(, ) __VA_ARGS__)
#define UTILS_BRACKET_TRACE(level, text, ...) \
  UTILS_BRACKET_TRACE_IN(__func__, level, text __VA_OPT__(, ) __VA_ARGS__)
