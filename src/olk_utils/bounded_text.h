// Bounded copies and conversions of C strings. Every copy into a fixed field goes through copy_text.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

// Copies at most capacity - 1 characters and always terminates; a null source is an empty text.
// Returns the number of characters copied. The rest of the destination is left as it was.
inline size_t copy_text(char* destination, size_t capacity, const char* source) {
  if (capacity == 0) return 0;
  const size_t length = source == nullptr ? 0 : strnlen(source, capacity - 1);
  if (length != 0) memmove(destination, source, length);
  destination[length] = '\0';
  return length;
}

template <size_t N>
size_t copy_text(char (&destination)[N], const char* source) {
  return copy_text(destination, N, source);
}

inline const char* text_or_empty(const char* text) {
  return text == nullptr ? "" : text;
}

template <size_t N>
bool is_one_of(const char* text, const char* const (&list)[N]) {
  for (const char* entry : list) {
    if (strcmp(text, entry) == 0) return true;
  }
  return false;
}

// Leading decimal number, 0 if there is none; values outside int saturate.
inline int decimal_value(const char* text) {
  const long value = strtol(text, nullptr, 10);
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

// Removes characters from the end until the last one is a decimal digit or nothing is left.
inline size_t trim_to_last_digit(char* text) {
  size_t length = strlen(text);
  while (length > 0 && (text[length - 1] < '0' || text[length - 1] > '9')) text[--length] = '\0';
  return length;
}
