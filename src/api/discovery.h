// Finding the device's port: USB search, fixed port, emulator.
#pragma once

#include "api/settings.h"

inline constexpr char kNoDevice[] = "/dev/ttyNONE";

// What findSat and GetFixedSerialPort write has room for this many bytes.
inline constexpr int kDeviceNameSize = 256;

// Fills deviceName (unless null) and records it in "SAT.conf". 0, or a negative LinkCode when none was found.
int findSat(const Settings& settings, char* deviceName);

// The "FixarPorta" item, trimmed to its last digit: its length, 1 when empty, 0 when there is none,
// kFixedPortNoBuffer for a null buffer.
int GetFixedSerialPort(char* value);
