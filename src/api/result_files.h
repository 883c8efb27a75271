// One file per sale or cancellation, in a folder that the desktop fiscal application watches.
#pragma once

#include "api/call.h"

// Writes the text that the call returns, if result files are switched on and their folder exists.
void write_operation_result(const Call& call);
