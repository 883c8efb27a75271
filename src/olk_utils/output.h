// What the library writes: to files, and on standard output. A write that reaches a file-size limit, or finds
// that nobody reads any more, fails; the signal that goes with it (SIGXFSZ, SIGPIPE) would end a till behind
// a sale that the device has signed, so it is held back on the calling thread and dropped.
#pragma once

#include <stdarg.h>
#include <stddef.h>

// Until everything is written. False when the file takes no more; what was written before stays written.
bool write_whole(int descriptor, const char* bytes, size_t length);

// The same for what can be no pipe whose readers have gone: a log, or what is open for reading too. Only a
// file-size limit matters then; few processes have one, and to ask costs half of what holding back does.
bool write_whole_to_file(int descriptor, const char* bytes, size_t length);

// printf and vprintf.
void print(const char* format, ...) __attribute__((format(printf, 1, 2)));
void print_list(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));
