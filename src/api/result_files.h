// One file per sale or cancellation, in a folder that the desktop fiscal application watches.
#pragma once

#include <stdint.h>

// Writes length bytes of the reply, if result files are switched on and their folder exists. The
// cancellation data and their length are accepted and not stored.
void write_operation_result(const char* buffer, uint32_t session, uint32_t length, const char* prefix,
                            const char* cancellation_data, int32_t cancellation_length);
