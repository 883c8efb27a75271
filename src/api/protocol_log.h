// The daily protocol log: one line per frame sent or received.
#pragma once

#include "talvex/talvex.h"

// Descriptor of the open log: 0 when closed, -1 after a failed open until the next size control.
extern int gl_iFd;

// Opens the day's file if logging is on and none is open.
void CreateSAT_ProtLogFile();

// Logs one frame. A frame whose checksum is 0x00 goes on behind its first NUL, so two bytes behind the
// text must be readable.
void LogSATProtocolMsg(const char* text, bool received);

// Closes the log; the next frame opens it again under the date of that moment.
void LogSATProtocolSzCtl();

// Closes the log, unless the host has put something else in its place.
void close_protocol_log();
