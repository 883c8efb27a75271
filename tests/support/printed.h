#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

// A printf-formatted std::string of any length.
__attribute__((format(printf, 1, 2))) inline std::string printed(const char* format, ...) {
  va_list values;
  va_start(values, format);
  char* text = nullptr;
  const int length = vasprintf(&text, format, values);
  va_end(values);
  std::string result(text, static_cast<std::size_t>(length));
  std::free(text);
  return result;
}
