// The search for the device on the USB bus.
#pragma once

#include <stddef.h>

#include "api/discovery.h"

using UsbSearchLine = char[kDeviceNameSize];

// Takes one line of the search's output, line feed included; number counts the lines before it.
using TakeUsbLine = void (*)(const UsbSearchLine& line, int number, UsbSearchLine& found);

// The shell command that is the search.
extern const char kUsbSearchCommand[];

// Hands every line of the command's output to take. While nothing that the command looks at has changed since
// its last run, and that run's lines were kept, they are handed over again. False when the command could not
// be started.
bool search_usb(TakeUsbLine take, UsbSearchLine& found);

// The kernel's count of device events, which stays open between two calls.
void close_event_count();
