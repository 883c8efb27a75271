// One transaction with the device.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Carries the command text in buffer (the packet buffer) to the device and leaves the reply there, or a
// failure text or busy reply. functionIndex is the row of tRetCode98, whose time-out bounds the wait for the
// reply; timeout is accepted and not used. Returns the reply's length or a negative LinkCode.
int Communicate(char* buffer, uint32_t timeout, uint32_t session, uint32_t functionIndex,
                uint32_t replyLayout);

// Replaces the packet buffer's content by a text; nothing of a command stays readable behind it.
void write_failure_text(char* buffer, const char* format, ...) __attribute__((format(printf, 2, 3)));
