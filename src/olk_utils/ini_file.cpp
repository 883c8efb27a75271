// Reader and writer of INI-style files. Both work on the whole file in memory, as a text that ends at
// the first zero byte.
#include "olk_utils/ini_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "olk_utils/bounded_text.h"
#include "olk_utils/trace_log.h"

namespace {

constexpr char kReader[] = "OLK_GetIniFileValue";

// What a caller of the exported reader has to provide.
constexpr size_t kExportedValueSize = 128;
constexpr size_t kLargestValueSize = 512;
constexpr size_t kReadSlack = 1024;

// Normally absent: its lookup is not worth a line.
constexpr char kSilentItem[] = "FixarPorta";

// Dropped wherever they stand in a value that is read.
constexpr char kDroppedCharacters[] = "= ";

// Never blocks, so that a FIFO in the place of the file does not hang the caller.
int open_file(const char* file_name, int flags) {
  return open(file_name, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
}

// Reads until the buffer is full or the file ends; how many bytes, or -1 when reading fails.
ssize_t read_up_to(int descriptor, char* buffer, size_t capacity) {
  size_t length = 0;
  while (length < capacity) {
    const ssize_t count = read(descriptor, buffer + length, capacity - length);
    if (count == 0) break;
    if (count > 0) {
      length += static_cast<size_t>(count);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(length);
}

// First "[section]" of the text, wherever it stands.
const char* find_header(const char* text, const char* section) {
  const size_t length = strlen(section);
  for (const char* at = strchr(text, '['); at != nullptr; at = strchr(at + 1, '[')) {
    if (strncmp(at + 1, section, length) == 0 && at[1 + length] == ']') return at;
  }
  return nullptr;
}

// First occurrence of the item's name, as a part of any word, in front of the next "[". An empty name
// is found at once.
const char* find_item(const char* from, const char* item) {
  const char* section_end = strchrnul(from, '[');
  const char* found = strstr(from, item);
  if (found == nullptr || found > section_end || *found == '[') return nullptr;
  return found;
}

// Where the value that starts here ends. Kept: the look-ahead for a carriage return reaches as far
// beyond the value as the section's header lies from the start of the file.
const char* value_end(const char* value, size_t look_ahead, const char* file_end) {
  const char* at = value;
  while (*at != '\0' && *at != '\n') {
    if (static_cast<size_t>(file_end - at) > look_ahead && at[look_ahead] == '\r') break;
    ++at;
  }
  return at;
}

bool is_one_of(char character, const char* set) {
  return character != '\0' && strchr(set, character) != nullptr;
}

// Copies the value without its dropped characters and without carriage returns at its end. False, with
// an empty buffer, when it does not fit.
bool copy_value(const char* from, const char* end, char* value, size_t capacity) {
  while (end > from && (end[-1] == '\r' || is_one_of(end[-1], kDroppedCharacters))) --end;
  size_t length = 0;
  for (; from < end; ++from) {
    if (is_one_of(*from, kDroppedCharacters)) continue;
    if (length + 1 >= capacity) {
      value[0] = '\0';
      return false;
    }
    value[length++] = *from;
  }
  value[length] = '\0';
  return true;
}

// The names of one lookup, and where its value goes.
struct Lookup {
  const char* file_name;
  const char* section;
  const char* item;
  char* value;
  size_t capacity;
};

int value_in_text(const Lookup& lookup, const char* text, size_t file_length) {
  const char* header = find_header(text, lookup.section);
  if (header == nullptr) {
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_SESSION_NOT_FOUND Fail\n\t pIniFileName[%s] \n\t     pSession[%s] \n\t        pItem[%s] \n\t    pRetValue[%s]\n",
        INI_FILE_ERR_SESSION_NOT_FOUND, lookup.file_name, lookup.section, lookup.item, lookup.value);
    return INI_FILE_ERR_SESSION_NOT_FOUND;
  }
  const char* item = find_item(header + strlen(lookup.section) + 2, lookup.item);
  if (item == nullptr) {
    if (strcmp(lookup.item, kSilentItem) != 0) {
      UTILS_TRACE_IN(
          kReader, kError,
          " rc[%06d]ER:INI_FILE_ERR_ITEM_NOT_FOUND OLK_GetIniFileValue Fail\n\t pIniFileName[%s] \n\t pSession[%s] \n\t        pItem[%s]ITEM NOT FOUND!!\n",
          INI_FILE_ERR_ITEM_NOT_FOUND, lookup.file_name, lookup.section, lookup.item);
    }
    return INI_FILE_ERR_ITEM_NOT_FOUND;
  }
  const char* value = item + strlen(lookup.item);
  const char* end = value_end(value, static_cast<size_t>(header - text), text + file_length);
  if (!copy_value(value, end, lookup.value, lookup.capacity)) {
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_OPEN value too long pIniFileName[%s] pSession[%s] pItem[%s] capacity[%d]\n",
        INI_FILE_ERR_OPEN, lookup.file_name, lookup.section, lookup.item, length_field(lookup.capacity));
    return INI_FILE_ERR_OPEN;
  }
  return 0;
}

int value_in_file(const Lookup& lookup, size_t file_size) {
  char* text = static_cast<char*>(calloc(1, file_size + kReadSlack));
  if (text == nullptr) {
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_OPEN calloc() Fail\n\t pIniFileName[%s] \n\t     pSession[%s] \n\t        pItem[%s] \n\t    pRetValue[%s] sztFileSize[%05d]\n",
        INI_FILE_ERR_OPEN, lookup.file_name, lookup.section, lookup.item, lookup.value,
        length_field(file_size));
    return INI_FILE_ERR_OPEN;
  }
  int result = INI_FILE_ERR_OPEN;
  if (const int file = open_file(lookup.file_name, O_RDONLY); file == -1) {
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_OPEN fopen() Fail\n\t pIniFileName[%s] \n\t     pSession[%s] \n\t        pItem[%s] \n\t    pRetValue[%s]\n",
        INI_FILE_ERR_OPEN, lookup.file_name, lookup.section, lookup.item, lookup.value);
  } else {
    // What cannot be read, a directory for one, is a text without sections.
    const ssize_t length = read_up_to(file, text, file_size);
    close(file);
    result = value_in_text(lookup, text, length > 0 ? static_cast<size_t>(length) : 0);
  }
  free(text);
  return result;
}

}  // namespace

int read_ini_value(const char* ini_file_name, const char* section, const char* item, char* value,
                   size_t capacity) {
  if (ini_file_name == nullptr || section == nullptr || item == nullptr || value == nullptr ||
      capacity == 0) {
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_INVALID_PARAM pIniFileName[%08Xh] pSession[%08Xh] pItem[%08Xh] pRetValue[%08Xh] bSessionFound[%d] bItemFound[%d] bValueMatch[%d]\n",
        INI_FILE_ERR_INVALID_PARAM, hex32(ini_file_name), hex32(section), hex32(item), hex32(value), 0, 0, 0);
    return INI_FILE_ERR_INVALID_PARAM;
  }
  if (OLK_FileExist(ini_file_name) < 0) {
    // The buffer still holds what the caller left in it, perhaps without an end.
    char former_value[kLargestValueSize];
    copy_text(former_value, capacity < sizeof former_value ? capacity : sizeof former_value, value);
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_NOT_FOUND \n\t pIniFileName[%s] \n\t     pSession[%s] \n\t        pItem[%s] \n\t    pRetValue[%s]\n",
        INI_FILE_ERR_NOT_FOUND, ini_file_name, section, item, former_value);
    return INI_FILE_ERR_NOT_FOUND;
  }
  value[0] = '\0';
  const int file_size = OLK_GetFileSize(ini_file_name);
  if (file_size == 0) {
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_NOT_FOUND \n\t pIniFileName[%s] \n\t     pSession[%s] \n\t        pItem[%s] \n\t    pRetValue[%s]\n\t sztFileSize[%d]=0\n",
        INI_FILE_ERR_NOT_FOUND, ini_file_name, section, item, value, file_size);
    return INI_FILE_ERR_NOT_FOUND;
  }
  const Lookup lookup = {ini_file_name, section, item, value, capacity};
  return value_in_file(lookup, file_size > 0 ? static_cast<size_t>(file_size) : 0);
}

int OLK_GetIniFileValue(const char* pIniFileName, const char* pSession, const char* pItem, char* pRetValue) {
  return read_ini_value(pIniFileName, pSession, pItem, pRetValue, kExportedValueSize);
}
