// The INI engine behind the exported OLK_*Ini* functions.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "talvex/talvex.h"

enum IniFileResult : int32_t {
  INI_FILE_ITEM_ADDED = TALVEX_INI_ITEM_ADDED,
  INI_FILE_ERR_INVALID_PARAM = TALVEX_INI_ERR_INVALID_PARAM,
  INI_FILE_ERR_NOT_FOUND = TALVEX_INI_ERR_NOT_FOUND,
  INI_FILE_ERR_OPEN = TALVEX_INI_ERR_OPEN,
  INI_FILE_ERR_SESSION_NOT_FOUND = TALVEX_INI_ERR_SECTION_NOT_FOUND,
  INI_FILE_ERR_ITEM_NOT_FOUND = TALVEX_INI_ERR_ITEM_NOT_FOUND,
  INI_FILE_ERR_CREATE = TALVEX_INI_ERR_CREATE,
};

// OLK_GetIniFileValue with the caller's buffer size. A value that does not fit, terminator included, is
// a failed read: INI_FILE_ERR_OPEN, one error line, an empty buffer.
int read_ini_value(const char* ini_file_name, const char* section, const char* item, char* value,
                   size_t capacity);
