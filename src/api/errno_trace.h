// A read or write that brought nothing is traced in three wordings, by the errno it left.
#pragma once

#include <errno.h>

#include "api/api_trace.h"

// The three texts take the same values; which one is written depends on error.
#define TRACE_BY_ERRNO(function, level, error, bad_descriptor_text, would_block_text, other_text, ...) \
  do {                                                                                                 \
    if ((error) == EBADF) {                                                                            \
      API_TRACE_IN(function, level, bad_descriptor_text, __VA_ARGS__);                                 \
    } else if ((error) == EAGAIN) {                                                                    \
      API_TRACE_IN(function, level, would_block_text, __VA_ARGS__);                                    \
    } else {                                                                                           \
      API_TRACE_IN(function, level, other_text, __VA_ARGS__);                                          \
    }                                                                                                  \
  } while (false)
