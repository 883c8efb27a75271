// The INI engine behind the exported OLK_*Ini* functions.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "talvex/talvex.h"

enum IniFileResult : int32_t {
  INI_FILE_ITEM_ADDED = 7,
  INI_FILE_ERR_INVALID_PARAM = -300,
  INI_FILE_ERR_NOT_FOUND = -301,
  INI_FILE_ERR_OPEN = -302,
  INI_FILE_ERR_SESSION_NOT_FOUND = -304,
  INI_FILE_ERR_ITEM_NOT_FOUND = -305,
  INI_FILE_ERR_CREATE = -401,
};

// OLK_GetIniFileValue with the caller's buffer size. A value that does not fit, terminator included, is
// a failed read: INI_FILE_ERR_OPEN, one error line, an empty buffer.
int read_ini_value(const char* ini_file_name, const char* section, const char* item, char* value,
                   size_t capacity);
