// The reader of INI-style files.
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "olk_utils/bounded_text.h"
#include "olk_utils/file_helpers.h"
#include "olk_utils/ini_file.h"
#include "olk_utils/ini_text.h"
#include "olk_utils/open_file.h"
#include "olk_utils/usually_absent.h"
#include "olk_utils/utils_trace.h"

namespace {

constexpr char kReader[] = "OLK_GetIniFileValue";

// What a caller of the exported reader has to provide.
constexpr size_t kExportedValueSize = 128;
constexpr size_t kLargestValueSize = 512;
constexpr size_t kReadSlack = 1024;

// Copies the value without its dropped characters and without carriage returns at its end. False, with
// an empty buffer, when it does not fit.
bool copy_value(const char* from, const char* end, char* value, size_t capacity) {
  while (end > from && (end[-1] == '\r' || is_dropped(end[-1]))) --end;
  size_t length = 0;
  for (; from < end; ++from) {
    if (is_dropped(*from)) continue;
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
    if (!is_usually_absent(Thing::kItem, lookup.item)) {
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
  char* text = allocate_for(static_cast<off_t>(file_size), kReadSlack);
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
    size_t length = 0;
    read_up_to(file, text, file_size, length);
    close(file);
    result = value_in_text(lookup, text, length);
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
  const int file_size = existing_file_size(ini_file_name);
  if (file_size < 0) {
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
  if (file_size == 0) {
    UTILS_TRACE_IN(
        kReader, kError,
        " rc[%06d]ER:INI_FILE_ERR_NOT_FOUND \n\t pIniFileName[%s] \n\t     pSession[%s] \n\t        pItem[%s] \n\t    pRetValue[%s]\n\t sztFileSize[%d]=0\n",
        INI_FILE_ERR_NOT_FOUND, ini_file_name, section, item, value, file_size);
    return INI_FILE_ERR_NOT_FOUND;
  }
  const Lookup lookup = {ini_file_name, section, item, value, capacity};
  return value_in_file(lookup, static_cast<size_t>(file_size));
}

int OLK_GetIniFileValue(const char* pIniFileName, const char* pSession, const char* pItem, char* pRetValue) {
  forget_lease_waits();
  return read_ini_value(pIniFileName, pSession, pItem, pRetValue, kExportedValueSize);
}
