// The device's serial port. One port at a time, on one library-wide handle; the order is open, lock,
// settings ... close. Reads and writes on it never block.
#pragma once

// Descriptor of the open port, -1 when closed; 0 only before the first open of the process.
extern int hComm;

int lSerialOpenW(const char* path);

// Exclusive lock against other processes. When it fails errno is as flock left it: EAGAIN means that
// another process holds the device.
int lSerialLock();

int lSerialSettingsL();
int lSerialFlushRx();
int lSerialUnlock();
int lSerialCloseL();
