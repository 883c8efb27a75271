#include "olk_utils/trace_log.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "olk_utils/open_file.h"
#include "olk_utils/system_clock.h"

int64_t bErrorLogsEnabled;
int64_t bWarningLogsEnabled;
int64_t bMessageLogsEnabled;
int64_t bInfoLogsEnabled;
int64_t bTraceLogsEnabled;
int64_t bJniTraceLogsEnabled;
int64_t bDebugLogsEnabled;
int64_t bConsoleLogsEnabled;

TalvexLogConfiguration tLog;

const char* pApiLogFileName = "SAT_api.log";
const char* pLogOlkSatUtils = "SAT_api.log";
const char* pOlkUtilsLogFile = "olk_utils.log";

namespace {

constexpr size_t kFileNameSize = 2048;
// A line that fits reaches the file in one write, whole, however many processes log at once.
constexpr size_t kLineBufferSize = 8192;

struct LevelFilter {
  const int64_t* flag;
  uint32_t mask;
};

// No mask lets level 32 through: kept, debug lines never reach a log.
constexpr LevelFilter kLevelFilters[] = {
    {&bErrorLogsEnabled, 1},  {&bWarningLogsEnabled, 3},   {&bMessageLogsEnabled, 7}, {&bInfoLogsEnabled, 7},
    {&bTraceLogsEnabled, 15}, {&bJniTraceLogsEnabled, 16}, {&bDebugLogsEnabled, 31},
};

struct LevelTag {
  uint32_t level;
  const char* tag;
};

constexpr LevelTag kLevelTags[] = {
    {kError, "ERR"}, {kWarning, "WRN"}, {kInfo, "INF"}, {kTrace, "TRC"}, {kJni, "JNI"}, {kDebug, "DBG"},
};

const char* level_tag(uint32_t level) {
  for (const LevelTag& known : kLevelTags) {
    if (known.level == level) return known.tag;
  }
  return "Unk";
}

bool is_directory(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Kept: the printed hour runs three hours behind, 01 to 24, while the date is not moved with it.
int shifted_hour(int hour) {
  return hour - 3 > 0 ? hour - 3 : hour + 21;
}

enum class Purpose { kWriting, kSizeControl };

// Name of the day's file.
void dated_file_name(char (&name)[kFileNameSize], Purpose purpose, const tm& date,
                     const char* log_file_name) {
  const int year = date.tm_year + 1900;
  const int month = date.tm_mon + 1;
  const char* path = tLog.strLogFilePath;
  const bool in_path = strlen(path) > 1 && is_directory(path);
  if (in_path && purpose == Purpose::kSizeControl) {
    // Kept: "./" also stands in front of an absolute path, which is then never rotated.
    snprintf(name, sizeof name, "./%s/%04d%02d%02d_%s", path, year, month, date.tm_mday, log_file_name);
  } else if (in_path) {
    snprintf(name, sizeof name, "%s/%04d%02d%02d_%s", path, year, month, date.tm_mday, log_file_name);
  } else {
    snprintf(name, sizeof name, "%04d%02d%02d_%s", year, month, date.tm_mday, log_file_name);
  }
}

FILE* open_for_append(const char* file_name) {
  const int descriptor = open_log_file(file_name, 0666);
  if (descriptor == -1) return nullptr;
  FILE* log = fdopen(descriptor, "a");
  if (log == nullptr) close(descriptor);
  return log;
}

// Opens, writes and closes: no handle is kept, and a file that cannot be opened loses the message.
__attribute__((format(printf, 3, 0))) void append_message(const char* log_file_name, uint32_t level,
                                                          const char* format, va_list arguments) {
  const LocalTime now = local_time_now();
  char file_name[kFileNameSize];
  dated_file_name(file_name, Purpose::kWriting, now.calendar, log_file_name);
  FILE* log = open_for_append(file_name);
  if (log == nullptr) return;

  char line_buffer[kLineBufferSize];
  setvbuf(log, line_buffer, _IOFBF, sizeof line_buffer);
  fprintf(log, "[%02d:%02d:%02d.%03d]%s ", shifted_hour(now.calendar.tm_hour), now.calendar.tm_min,
          now.calendar.tm_sec, now.milliseconds, level_tag(level));
  vfprintf(log, format, arguments);
  fclose(log);
}

bool echoes_to_console(uint32_t level) {
  if (bConsoleLogsEnabled == 0) return false;
  return (bErrorLogsEnabled != 0 && level == kError) || (bWarningLogsEnabled != 0 && level == kWarning) ||
         (bInfoLogsEnabled != 0 && level == kInfo) || bTraceLogsEnabled != 0;
}

}  // namespace

bool trace_passes(uint32_t level) {
  for (const LevelFilter& filter : kLevelFilters) {
    if (*filter.flag != 0 && (level & filter.mask) != 0) return true;
  }
  return false;
}

int64_t TraceFileLog(const char* log_file_name, uint32_t level, const char* format, ...) {
  if (!trace_passes(level)) return 0;
  const int errno_of_caller = errno;

  va_list arguments;
  va_start(arguments, format);
  va_list arguments_of_echo;
  va_copy(arguments_of_echo, arguments);
  append_message(log_file_name, level, format, arguments);
  if (echoes_to_console(level)) vprintf(format, arguments_of_echo);
  va_end(arguments_of_echo);
  va_end(arguments);

  errno = errno_of_caller;
  return 0;
}

int TraleFileLogSzCtl() {
  char current[kFileNameSize];
  dated_file_name(current, Purpose::kSizeControl, local_time_now().calendar, tLog.strLogFileName);

  int size = OLK_GetFileSize(current);
  if (size <= tLog.iLogFileMaxSize) return size;

  char backup[kFileNameSize + 32];
  int number = 0;
  do {
    snprintf(backup, sizeof backup, "%s_bkp_%02d.log", current, number++);
    size = OLK_GetFileSize(backup);
  } while (size > 0);
  rename(current, backup);
  return size;
}
