// The device's serial port: opened, locked, set, used and closed, in that order, by one call. Reads and
// writes on it never block.
#pragma once

inline constexpr int kClosedPort = -1;

struct SerialPort {
  int descriptor = kClosedPort;
  // The last wait ended early, and nothing has been read or written since.
  bool woke_for_nothing = false;
  bool woke_without_room = false;
};

// What became of a step, and why.
struct PortResult {
  int rc = 0;     // 0, or a negative LinkCode
  int error = 0;  // errno behind it
};

int lSerialOpenW(SerialPort& port, const char* path);

// Exclusive lock against other processes. EAGAIN: another one holds the device.
PortResult lSerialLock(const SerialPort& port);

int lSerialSettingsL(SerialPort& port);
int lSerialFlushRx(SerialPort& port);
int lSerialUnlock(const SerialPort& port);
int lSerialCloseL(SerialPort& port);
