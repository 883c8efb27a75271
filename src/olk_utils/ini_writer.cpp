// The writer of INI-style files.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "olk_utils/bounded_text.h"
#include "olk_utils/file_helpers.h"
#include "olk_utils/ini_file.h"
#include "olk_utils/ini_text.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"
#include "olk_utils/utils_trace.h"

namespace {

constexpr char kWriter[] = "OLK_SetIniFileValue";

// The writer takes in what a growing file has gained since it was measured, up to this many bytes.
constexpr size_t kReadAhead = 64;
// The most by which one call may lengthen a value.
constexpr size_t kLargestGrowth = kReadAhead + 1024;
// Room of the writer's copy beyond the file: a moved line end takes one byte more, the final NUL another.
constexpr size_t kWriteSlack = kReadAhead + kLargestGrowth + 2;
// A composed line, or a header with its first line, and the NUL.
constexpr size_t kLineSize = 256;

// What one call of the writer is to do.
struct Edit {
  const char* file_name;
  const char* section;
  const char* item;   // null: the section alone
  const char* value;  // null or empty: blank the item
};

bool names_item(const Edit& edit) {
  return edit.item != nullptr && *edit.item != '\0';
}
bool has_value(const Edit& edit) {
  return edit.value != nullptr && *edit.value != '\0';
}

// The writer's copy of the file; bytes of the file may follow behind the end of the text.
struct Text {
  char* bytes;
  size_t length;
};

// What does not fit the engine's limits leaves the file as it was.
int refuse(const Edit& edit, const char* reason) {
  UTILS_TRACE_IN(kWriter, kError,
                 " rc[%06d]ER:INI_FILE_ERR_CREATE %s pIniFileName[%s] pSession[%s] pItem[%s]\n",
                 INI_FILE_ERR_CREATE, reason, edit.file_name, edit.section, text_or_empty(edit.item));
  return INI_FILE_ERR_CREATE;
}

bool fits(int formatted_length, size_t capacity) {
  return formatted_length >= 0 && static_cast<size_t>(formatted_length) < capacity;
}

// "[section]" and its line feed.
bool section_fits(const char* section) {
  return strlen(section) + 3 < kLineSize;
}

bool compose_item(const Edit& edit, char* line, size_t capacity) {
  return fits(snprintf(line, capacity, "%s=%s\n", text_or_empty(edit.item), edit.value), capacity);
}

// A section's header behind `lead`, and its first line: the item, or `without_value` where it has none.
bool compose_section(const Edit& edit, const char* lead, const char* without_value,
                     char (&lines)[kLineSize]) {
  const int header_length = snprintf(lines, sizeof lines, "%s[%s]\n", lead, edit.section);
  if (!fits(header_length, sizeof lines)) return false;
  if (!names_item(edit)) return true;
  char* line = lines + header_length;
  const size_t room = sizeof lines - static_cast<size_t>(header_length);
  if (has_value(edit)) return compose_item(edit, line, room);
  return fits(snprintf(line, room, "%s", without_value), room);
}

// Writes and closes; a full disk is a failure like a file that cannot be opened.
int store(const Edit& edit, int file, const char* bytes, size_t length, int success, int failure) {
  const bool written = write_whole(file, bytes, length);
  if (close(file) == 0 && written) return success;
  UTILS_TRACE_IN(kWriter, kError, " rc[%06d]ER write() Fail pIniFileName[%s] pSession[%s] pItem[%s]\n",
                 failure, edit.file_name, edit.section, text_or_empty(edit.item));
  return failure;
}

int create_file(const Edit& edit) {
  char lines[kLineSize];
  if (!compose_section(edit, "", "", lines)) return refuse(edit, "line too long");

  UTILS_TRACE_IN(kWriter, kWarning, " rc[%06d]WR: pIniFileName[%s] Not Found! Create it now!!!\n", -1,
                 edit.file_name);
  const int file = open_file(edit.file_name, O_WRONLY | O_APPEND | O_CREAT, 0666);
  if (file == -1) {
    UTILS_TRACE_IN(kWriter, kError,
                   " rc[%06d]ER:INI_FILE_ERR_CREATE fopen Fail pIniFileName[%s] pSession[%s] pItem[%s]\n",
                   INI_FILE_ERR_CREATE, edit.file_name, edit.section, text_or_empty(edit.item));
    return INI_FILE_ERR_CREATE;
  }
  UTILS_TRACE_IN(kWriter, kWarning, " rc[%06d]OK: pIniFileName[%s]File Successful Openned!!!\n", 0,
                 edit.file_name);
  const bool with_item = names_item(edit) && has_value(edit);
  return store(edit, file, lines, strlen(lines), with_item ? TALVEX_INI_CREATED : TALVEX_INI_SECTION_ONLY,
               INI_FILE_ERR_CREATE);
}

int report_unopened(const Edit& edit) {
  UTILS_TRACE_IN(kWriter, kError,
                 " rc[%06d]ER:INI_FILE_ERR_CREATE    fopen() Fail pIniFileName[%s] pSession[%s] pItem[%s]\n",
                 INI_FILE_ERR_CREATE, edit.file_name, edit.section, text_or_empty(edit.item));
  return INI_FILE_ERR_CREATE;
}

int append_section(const Edit& edit) {
  char lines[kLineSize];
  if (!compose_section(edit, "\n", "-\n", lines)) return refuse(edit, "line too long");

  const int file = open_file(edit.file_name, O_WRONLY | O_APPEND | O_CREAT, 0666);
  if (file == -1) return report_unopened(edit);
  const int with_item = has_value(edit) ? TALVEX_INI_CREATED : TALVEX_INI_NO_VALUE;
  return store(edit, file, lines, strlen(lines), names_item(edit) ? with_item : TALVEX_INI_SECTION_ONLY,
               INI_FILE_ERR_CREATE);
}

// The truncating write comes last, when the new text is complete.
int rewrite(const Edit& edit, const Text& text, int success) {
  const int file = open_file(edit.file_name, O_WRONLY | O_TRUNC | O_CREAT, 0666);
  if (file == -1) {
    UTILS_TRACE_IN(
        kWriter, kError,
        " rc[%06d]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[%s] pSession[%s] pItem[%s]\n",
        INI_FILE_ERR_NOT_FOUND, edit.file_name, edit.section, text_or_empty(edit.item));
    return INI_FILE_ERR_NOT_FOUND;
  }
  return store(edit, file, text.bytes, text.length, success, INI_FILE_ERR_NOT_FOUND);
}

// Where a line ends: at its second character when carriage return and line feed stand together.
size_t line_end(const char* bytes, size_t at) {
  const bool pair =
      (bytes[at] == '\r' && bytes[at + 1] == '\n') || (bytes[at] == '\n' && bytes[at + 1] == '\r');
  return pair ? at + 1 : at;
}

// Kept: with a two-character line end the rest of the text moves one byte further than the value grows,
// so that one stale byte stays in front of it and its last byte falls off.
void lengthen_value(Text& text, size_t value_end, size_t growth) {
  const size_t target = line_end(text.bytes, value_end) + growth;
  memmove(text.bytes + target, text.bytes + value_end, text.length - value_end);
  text.length += growth;
}

// A shorter value is padded with blanks: the file never shrinks.
int replace_value(const Edit& edit, Text& text, size_t at) {
  char* value = text.bytes + at;
  const size_t old_length = strcspn(value, "\r\n");
  const size_t new_length = strlen(edit.value);
  if (new_length == old_length && memcmp(value, edit.value, new_length) == 0) return TALVEX_INI_UNCHANGED;

  if (new_length > old_length) {
    const size_t growth = new_length - old_length;
    if (growth > kLargestGrowth) return refuse(edit, "value too long");
    lengthen_value(text, at + old_length, growth);
  } else {
    memset(value + new_length, ' ', old_length - new_length);
  }
  memcpy(value, edit.value, new_length);
  return rewrite(edit, text, TALVEX_INI_CHANGED);
}

// Name and value become blanks, the length of the file stays.
int blank_item(const Edit& edit, const Text& text, size_t at) {
  char* name = text.bytes + at;
  memset(name, ' ', strcspn(name, "\r\n"));
  return rewrite(edit, text, TALVEX_INI_CHANGED);
}

// Kept: the value starts one character behind the name, whatever that character is.
int change_item(const Edit& edit, Text& text, size_t at) {
  if (!has_value(edit)) return blank_item(edit, text, at);
  const size_t name_end = at + strlen(edit.item);
  if (name_end == text.length) return refuse(edit, "no place for the value");
  return replace_value(edit, text, name_end + 1);
}

int report_unopened_for_append(const Edit& edit) {
  if (edit.value == nullptr) {
    UTILS_TRACE_IN(
        kWriter, kError,
        " rc[%06d]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[%s] pSession[%s] pItem[%s] pNewValue=NULL\n",
        INI_FILE_ERR_NOT_FOUND, edit.file_name, edit.section, text_or_empty(edit.item));
  } else {
    UTILS_TRACE_IN(
        kWriter, kError,
        " rc[%06d]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[%s] pSession[%s] pItem[%s] pNewValue[%s]\n",
        INI_FILE_ERR_NOT_FOUND, edit.file_name, edit.section, text_or_empty(edit.item), edit.value);
  }
  return INI_FILE_ERR_NOT_FOUND;
}

// Without a value there is nothing to append, but a file that cannot be written is reported all the same.
int append_item(const Edit& edit) {
  char line[kLineSize];
  if (has_value(edit) && !compose_item(edit, line, sizeof line)) return refuse(edit, "line too long");

  const int file = open_file(edit.file_name, O_WRONLY | O_APPEND | O_CREAT, 0666);
  if (file == -1) return report_unopened_for_append(edit);
  if (!has_value(edit)) {
    close(file);
    return TALVEX_INI_NO_VALUE;
  }
  return store(edit, file, line, strlen(line), INI_FILE_ITEM_ADDED, INI_FILE_ERR_NOT_FOUND);
}

// A new item in front of another section. Kept: the whole text is shifted, its first bytes stand twice,
// and the line's closing zero cuts off everything behind it, the other sections included.
int insert_item(const Edit& edit, Text& text, size_t at) {
  char line[kLineSize] = "-\n";
  if (has_value(edit) && !compose_item(edit, line, sizeof line - 1)) return refuse(edit, "line too long");

  const size_t shift = strlen(line) + 2;
  memmove(text.bytes + shift, text.bytes, text.length);
  memcpy(text.bytes + at, line, shift);
  text.length = strlen(text.bytes);

  const int result = rewrite(edit, text, INI_FILE_ITEM_ADDED);
  if (result == INI_FILE_ITEM_ADDED) {
    UTILS_TRACE_IN(kWriter, kWarning,
                   " rc[%06d]WR:INI_FILE_ITEM_ADDED Fail pIniFileName[%s] pSession[%s] pItem[%s]\n",
                   INI_FILE_ITEM_ADDED, edit.file_name, edit.section, text_or_empty(edit.item));
  }
  return result;
}

// The writer's search steps over "=" and blanks, so no name that starts with one is ever found.
const char* find_item_to_change(const char* from, const char* item) {
  if (is_dropped(*item)) return nullptr;
  return find_item(from + strspn(from, kDroppedCharacters), item);
}

int change_text(const Edit& edit, Text& text) {
  const char* header = find_header(text.bytes, edit.section);
  if (header == nullptr) return append_section(edit);
  if (edit.item == nullptr) return TALVEX_INI_SECTION_ONLY;

  const char* body = header + strlen(edit.section) + 2;
  if (const char* item = find_item_to_change(body, edit.item); item != nullptr) {
    return change_item(edit, text, static_cast<size_t>(item - text.bytes));
  }
  const char* next_section = strchr(body, '[');
  if (next_section == nullptr) return append_item(edit);
  return insert_item(edit, text, static_cast<size_t>(next_section - 1 - text.bytes));
}

int change_file(const Edit& edit) {
  const int file = open_file(edit.file_name, O_RDONLY);
  if (file == -1) return report_unopened(edit);
  const off_t end = lseek(file, 0, SEEK_END);
  const off_t file_size = end > 0 ? end : 0;  // what cannot be measured, a FIFO for one, has no size
  lseek(file, 0, SEEK_SET);

  Text text{allocate_for(file_size, kWriteSlack), 0};
  if (text.bytes == nullptr) {
    close(file);
    UTILS_TRACE_IN(
        kWriter, kError,
        " rc[%06d]ER:INI_FILE_ERR_CREATE    calloc() Fail pIniFileName[%s] pSession[%s] pItem[%s]\n",
        INI_FILE_ERR_CREATE, edit.file_name, edit.section, text_or_empty(edit.item));
    return INI_FILE_ERR_CREATE;
  }
  // Half a text must not be written back.
  size_t length = 0;
  const bool complete = read_up_to(file, text.bytes, static_cast<size_t>(file_size) + kReadAhead, length);
  close(file);
  text.length = strlen(text.bytes);
  const int result = complete ? change_text(edit, text) : refuse(edit, "read() Fail");
  free(text.bytes);
  return result;
}

}  // namespace

int OLK_SetIniFileValue(const char* pIniFileName, const char* pSession, const char* pItem,
                        const char* pNewValue) {
  forget_lease_waits();
  if (pIniFileName == nullptr || pSession == nullptr) {
    UTILS_TRACE(
        kError,
        " rc[%06d]ER:INI_FILE_ERR_INVALID_PARAM Invalid Params pIniFileName[%08Xh] pSession[%08Xh] pItem[%08Xh] pRetValue[%08Xh] bSessionFound[%d]\n",
        INI_FILE_ERR_INVALID_PARAM, hex32(pIniFileName), hex32(pSession), hex32(pItem), hex32(pNewValue), 0);
    return INI_FILE_ERR_INVALID_PARAM;
  }
  const Edit edit = {pIniFileName, pSession, pItem, pNewValue};
  if (!section_fits(pSession)) return refuse(edit, "line too long");
  return existing_file_size(pIniFileName) < 0 ? create_file(edit) : change_file(edit);
}

int OLK_SetIniFileItemValue(const char* pIniFileName, const char* pSession, const char* pItem,
                            const char* pNewValue) {
  return OLK_SetIniFileValue(pIniFileName, pSession, pItem, pNewValue);
}

int OLK_AddIniFileItem(const char* pIniFileName, const char* pSession, const char* pItem,
                       const char* pNewValue) {
  return OLK_SetIniFileValue(pIniFileName, pSession, pItem, pNewValue);
}

// Kept: the third argument is not used.
int OLK_AddIniFileSection(const char* pIniFileName, const char* pSession, const char* /*pUnused*/) {
  return OLK_SetIniFileValue(pIniFileName, pSession, nullptr, nullptr);
}

// Kept: nothing is removed; a missing section is added.
int OLK_DelIniFileSection(const char* pIniFileName, const char* pSession) {
  return OLK_SetIniFileValue(pIniFileName, pSession, nullptr, nullptr);
}

int OLK_DelIniFileItem(const char* pIniFileName, const char* pSession, const char* pItem) {
  return OLK_SetIniFileValue(pIniFileName, pSession, pItem, nullptr);
}
