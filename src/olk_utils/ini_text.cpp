#include "olk_utils/ini_text.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

// Larger files are none of settings: they count as what there is no memory for.
constexpr off_t kLargestFile = off_t{64} * 1024 * 1024;

}  // namespace

bool is_dropped(char character) {
  return character != '\0' && strchr(kDroppedCharacters, character) != nullptr;
}

char* allocate_for(off_t file_size, size_t slack) {
  if (file_size > kLargestFile) return nullptr;
  return static_cast<char*>(calloc(1, static_cast<size_t>(file_size) + slack));
}

bool read_up_to(int descriptor, char* buffer, size_t capacity, size_t& length) {
  length = 0;
  while (length < capacity) {
    const ssize_t count = read(descriptor, buffer + length, capacity - length);
    if (count == 0) break;
    if (count > 0) {
      length += static_cast<size_t>(count);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

const char* find_header(const char* text, const char* section) {
  const size_t length = strlen(section);
  for (const char* at = strchr(text, '['); at != nullptr; at = strchr(at + 1, '[')) {
    if (strncmp(at + 1, section, length) == 0 && at[1 + length] == ']') return at;
  }
  return nullptr;
}

const char* find_item(const char* from, const char* item) {
  const char* section_end = strchrnul(from, '[');
  const char* found = strstr(from, item);
  if (found == nullptr || found > section_end || *found == '[') return nullptr;
  return found;
}

const char* value_end(const char* value, size_t look_ahead, const char* file_end) {
  const char* at = value;
  while (*at != '\0' && *at != '\n') {
    if (static_cast<size_t>(file_end - at) > look_ahead && at[look_ahead] == '\r') break;
    ++at;
  }
  return at;
}
