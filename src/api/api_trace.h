// Trace lines of the SAT interface module. Call sites give level, text and values.
#pragma once

#include <stdint.h>

#include "olk_utils/trace_log.h"

inline constexpr char pApiLogFileName[] = "SAT_api.log";
inline constexpr char kApiSourcePath[] = "../src/api/TALVEX";

// Frames longer than this are traced by excerpts.
inline constexpr uint32_t kLargeTraceSize = 1000;

// "[line] [path] [function]". The _IN form is for helpers that speak in the
// name of the function that a support technician knows.
#define API_TRACE_IN(function, level, text, ...)                                          \
  TALVEX_TRACE(pApiLogFileName, level, "[%04d] [%s] [%s]" text, __LINE__, kApiSourcePath, \
               function __VA_OPT__(, ) __VA_ARGS__)
#define API_TRACE(level, text, ...) API_TRACE_IN(__func__, level, text __VA_OPT__(, ) __VA_ARGS__)

// "[line] path function", as the size-control loop writes it.
#define API_PLAIN_TRACE(level, text, ...)                                             \
  TALVEX_TRACE(pApiLogFileName, level, "[%04d] %s %s" text, __LINE__, kApiSourcePath, \
               __func__ __VA_OPT__(, ) __VA_ARGS__)

// The configuration reader's form: "[line]  path  function  ".
#define CONFIG_TRACE_IN(function, level, text, ...)                                       \
  TALVEX_TRACE(pApiLogFileName, level, "[%04d]  %s  %s  " text, __LINE__, kApiSourcePath, \
               function __VA_OPT__(, ) __VA_ARGS__)
#define CONFIG_TRACE(level, text, ...) CONFIG_TRACE_IN(__func__, level, text __VA_OPT__(, ) __VA_ARGS__)
