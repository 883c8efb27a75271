// Set-up of the trace log from section "LOG" of an INI file.
#include <string.h>

#include <initializer_list>

#include "olk_utils/bounded_text.h"
#include "olk_utils/ini_file.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/utils_trace.h"

namespace {

constexpr char kFunction[] = "OLK_SetIniFileLogMode";
constexpr char kSection[] = "LOG";
constexpr uint8_t kMark = 0xAA;
constexpr uint8_t kExpectedTail = 0x55;
constexpr size_t kShortestFileName = 4;
constexpr int kItemRead = 3;

using Value = char[512];

struct LogMode {
  char digit;
  uint8_t mask;
  int64_t* flag;
  const char* note;
};

constexpr LogMode kLogModes[] = {
    {'0', 0, nullptr, "DISABLED!"},
    {'1', 1, &bErrorLogsEnabled, "ERROR_LOGS_ENABLED"},
    {'2', 3, &bWarningLogsEnabled, "WARNING_LOGS_ENABLED"},
    {'3', 7, &bInfoLogsEnabled, "INFO_LOGS_ENABLED"},
    {'4', 15, &bTraceLogsEnabled, "TRACE_LOGS_ENABLED"},
    {'5', 31, &bDebugLogsEnabled, "DEBUG_LOGS_ENABLED"},
};
constexpr LogMode kDefaultLogMode = {'\0', 1, &bErrorLogsEnabled, "ERROR_LOGS_ENABLED<DEFAULT>"};

void clear_level_flags() {
  for (int64_t* flag :
       {&bErrorLogsEnabled, &bWarningLogsEnabled, &bMessageLogsEnabled, &bInfoLogsEnabled, &bTraceLogsEnabled,
        &bJniTraceLogsEnabled, &bDebugLogsEnabled, &bConsoleLogsEnabled}) {
    *flag = 0;
  }
}

// Kept: the tail is tested against 0x55 but set to 0xAA, so every call starts afresh, host flags included.
void reset_log(const char* log_file_name) {
  if (tLog.ucInitMark == kMark && tLog.ucInitTail == kExpectedTail) return;
  memset(&tLog, 0, sizeof tLog);
  tLog.ucInitMark = kMark;
  tLog.ucInitTail = kMark;
  clear_level_flags();
  if (log_file_name != nullptr) pOlkUtilsLogFile = log_file_name;
}

#define LOG_MODE_TRACE(level, text, rc, item, value) \
  UTILS_PATH_TRACE_IN(kFunction, level, text, rc, text_or_empty(ini_file_name), kSection, item, value)

void set_log_path(const char* ini_file_name) {
  static constexpr char kItem[] = "LogFilePath";
  Value value{};
  int rc = read_ini_value(ini_file_name, kSection, kItem, value, sizeof value);
  if (rc < 0) {
    copy_text(value, "Log");
    LOG_MODE_TRACE(kError, " rc[%04d]ER FileName[%s] Session[%s] item[%s=%s]<DEFAULT>\n", rc, kItem, value);
  } else {
    rc = kItemRead;
    LOG_MODE_TRACE(kWarning, " rc[%04d]WR FileName[%s] Session[%s] item[%s=%s]\n", rc, kItem, value);
  }
  copy_text(tLog.strLogFilePath, value);
}

void set_log_file_name(const char* ini_file_name) {
  static constexpr char kItem[] = "LogFileName";
  Value value{};
  int rc = read_ini_value(ini_file_name, kSection, kItem, value, sizeof value);
  if (rc < 0) {
    copy_text(value, pOlkUtilsLogFile);
    LOG_MODE_TRACE(kError, " rc[%04d]ER FileName[%s] Session[%s] item[%s=%s]<DEFAULT>\n", rc, kItem, value);
  } else {
    rc = kItemRead;
    if (strlen(value) >= kShortestFileName) {
      LOG_MODE_TRACE(kWarning, " rc[%04d]WR FileName[%s] Session[%s] item[%s=%s]\n", rc, kItem, value);
    } else {
      copy_text(value, pOlkUtilsLogFile);
      LOG_MODE_TRACE(kWarning, " rc[%04d]WR FileName[%s] Session[%s] item[%s=%s]<DEFAULT>\n", rc, kItem,
                     value);
    }
  }
  copy_text(tLog.strLogFileName, value);
}

void set_log_max_size(const char* ini_file_name) {
  static constexpr char kItem[] = "LogFileMaxSize";
  Value value{};
  const int rc = read_ini_value(ini_file_name, kSection, kItem, value, sizeof value);
  if (rc < 0) {
    tLog.iLogFileMaxSize = kDefaultLogMaxSize;
    LOG_MODE_TRACE(kWarning, " rc[%04d]WR FileName[%s] Session[%s] item[%s=%s]<DEFAULT>\n", rc, kItem, value);
    return;
  }
  tLog.iLogFileMaxSize = decimal_value(value);
  if (tLog.iLogFileMaxSize > 0) {
    LOG_MODE_TRACE(kWarning, " rc[%04d]WR FileName[%s] Session[%s] item[%s=%s]\n", rc, kItem, value);
  } else {
    tLog.iLogFileMaxSize = kDefaultLogMaxSize;
    // Kept: this one text lacks its closing bracket.
    LOG_MODE_TRACE(kWarning, " rc[%04d]WR FileName[%s] Session[%s] item[%s=%s<DEFAULT>\n", rc, kItem, value);
  }
}

const LogMode& log_mode_of(char digit) {
  for (const LogMode& mode : kLogModes) {
    if (mode.digit == digit) return mode;
  }
  return kDefaultLogMode;
}

}  // namespace

int OLK_SetIniFileLogMode(const char* log_file_name, const char* ini_file_name) {
  if (ini_file_name == nullptr) UTILS_PATH_TRACE_IN(kFunction, kError, " rc[%04d]ER pIniFileName=NULL\n", 1);

  reset_log(log_file_name);
  set_log_path(ini_file_name);
  set_log_file_name(ini_file_name);
  set_log_max_size(ini_file_name);

  static constexpr char kItem[] = "LogMode";
  Value value{};
  const int rc = read_ini_value(ini_file_name, kSection, kItem, value, sizeof value);
  if (rc < 0) {
    copy_text(value, "1");
    LOG_MODE_TRACE(kError, " rc[%04d]ER FileName[%s] Session[%s] item[%s=%s]<DEFAULT>\n", rc, kItem, value);
    tLog.ucModeMask = kDefaultLogMode.mask;
    *kDefaultLogMode.flag = 1;
    return rc;
  }

  // The mode's own flag is raised after its message, which therefore never shows up.
  const LogMode& mode = log_mode_of(value[0]);
  UTILS_PATH_TRACE_IN(kFunction, kWarning, " rc[%04d]WR FileName[%s] Session[%s] item[%s=%s]%s\n", rc,
                      text_or_empty(ini_file_name), kSection, kItem, value, mode.note);
  tLog.ucModeMask = mode.mask;
  if (mode.flag != nullptr) *mode.flag = 1;
  tLog.ulSetUpTime = GetCurrentMilliTime();
  if (value[0] != '2') bWarningLogsEnabled = 0;
  return mode.mask;
}
