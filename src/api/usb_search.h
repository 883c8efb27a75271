// The search for the device on the USB bus.
#pragma once

#include <stddef.h>

#include "api/discovery.h"

using UsbSearchLine = char[kDeviceNameSize];

// Takes one line of the search's output, line feed included; number counts the lines before it.
using TakeUsbLine = void (*)(const UsbSearchLine& line, int number, UsbSearchLine& found);

// The shell command that is the search.
extern const char kUsbSearchCommand[];

// Hands every line of the command's output to take. The command is run only when something it looks at has
// changed since its last run; else the lines are those of that run. False when it could not be started.
bool search_usb(TakeUsbLine take, UsbSearchLine& found);
