// How a frame looks in the protocol log.
#pragma once

#include <stddef.h>

// Composes the line of one frame. A frame whose checksum is 0x00 goes on behind its first NUL, so two bytes
// behind the text must be readable. False, with a traced reason, without memory.
bool compose_protocol_line(const char* text, bool received, char* line, size_t capacity);
