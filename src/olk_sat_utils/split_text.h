// A private copy of a message text, to be taken apart with strtok_r.
#pragma once

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

inline constexpr char kSeparators[] = "|";

// The copy has slack zero bytes behind the text, so that looking a few bytes behind a token is safe at the
// end of the text too. nullptr without memory; the caller frees it.
inline char* copy_to_split(const char* text, size_t length, size_t slack) {
  char* const copy = static_cast<char*>(calloc(length + slack, 1));
  if (copy != nullptr) memcpy(copy, text, length);
  return copy;
}
