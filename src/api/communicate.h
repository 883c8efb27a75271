// One transaction with the device.
#pragma once

#include "api/call.h"

// Carries the command in the call's packet to the device and leaves the reply there, or a failure text or
// busy reply. The port is open, and locked against other processes, only in between. Returns the reply's
// length or a negative LinkCode.
int Communicate(Call& call);
