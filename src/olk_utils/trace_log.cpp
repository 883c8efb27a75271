#include "olk_utils/trace_log.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "olk_utils/file_size.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/utils_trace.h"

int64_t bErrorLogsEnabled;
int64_t bWarningLogsEnabled;
int64_t bMessageLogsEnabled;
int64_t bInfoLogsEnabled;
int64_t bTraceLogsEnabled;
int64_t bJniTraceLogsEnabled;
int64_t bDebugLogsEnabled;
int64_t bConsoleLogsEnabled;

TalvexLogConfiguration tLog;

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

// The day's file in a folder, or in the working directory where that is empty.
void dated_file_name(char (&name)[kFileNameSize], const char* before_folder, const char* folder,
                     const tm& date, const char* log_file_name) {
  const char* separator = *folder == '\0' ? "" : "/";
  snprintf(name, sizeof name, "%s%s%s%04d%02d%02d_%s", before_folder, folder, separator, date.tm_year + 1900,
           date.tm_mon + 1, date.tm_mday, log_file_name);
}

// The configured folder, or none.
const char* log_folder() {
  return strlen(tLog.strLogFilePath) > 1 ? tLog.strLogFilePath : "";
}

// A file that opens shows that its folder is there; only otherwise the folder itself is looked at.
int open_log(const tm& date, const char* log_file_name) {
  const char* folder = log_folder();
  char name[kFileNameSize];
  dated_file_name(name, "", folder, date, log_file_name);
  const int log = open_log_file(name, 0666);
  if (log != -1 || *folder == '\0' || is_directory(folder)) return log;
  dated_file_name(name, "", "", date, log_file_name);
  return open_log_file(name, 0666);
}

// A message that is longer than the line buffer takes memory of its own; without memory it is cut.
__attribute__((format(printf, 4, 0))) void write_message(int log, const LocalTime& now, uint32_t level,
                                                         const char* format, va_list arguments) {
  char line[kLineBufferSize];
  const int prefix =
      snprintf(line, sizeof line, "[%02d:%02d:%02d.%03d]%s ", shifted_hour(now.calendar.tm_hour),
               now.calendar.tm_min, now.calendar.tm_sec, now.milliseconds, level_tag(level));
  const auto begin = static_cast<size_t>(prefix);
  va_list arguments_again;
  va_copy(arguments_again, arguments);
  const int text = vsnprintf(line + begin, sizeof line - begin, format, arguments);
  const size_t length = begin + static_cast<size_t>(text < 0 ? 0 : text);

  char* long_line = nullptr;
  if (length < sizeof line) {
    write_whole_to_file(log, line, length);
  } else if (long_line = static_cast<char*>(malloc(length + 1)); long_line != nullptr) {
    memcpy(long_line, line, begin);
    vsnprintf(long_line + begin, length + 1 - begin, format, arguments_again);
    write_whole_to_file(log, long_line, length);
  } else {
    line[sizeof line - 1] = '\n';
    write_whole_to_file(log, line, sizeof line);
  }
  va_end(arguments_again);
  free(long_line);
}

// Opens, writes and closes: no handle is kept, and a file that cannot be opened loses the message.
__attribute__((format(printf, 3, 0))) void append_message(const char* log_file_name, uint32_t level,
                                                          const char* format, va_list arguments) {
  const LocalTime now = local_time_now();
  const int log = open_log(now.calendar, log_file_name);
  if (log == -1) return;
  write_message(log, now, level, format, arguments);
  close(log);
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
  if (echoes_to_console(level)) print_list(format, arguments_of_echo);
  va_end(arguments_of_echo);
  va_end(arguments);

  errno = errno_of_caller;
  return 0;
}

int TraleFileLogSzCtl() {
  const tm today = local_time_now().calendar;
  const char* folder = log_folder();
  char current[kFileNameSize];
  if (is_directory(folder)) {
    // Kept: "./" also stands in front of an absolute path, which is then never rotated.
    dated_file_name(current, "./", folder, today, tLog.strLogFileName);
  } else {
    dated_file_name(current, "", "", today, tLog.strLogFileName);
  }

  int size = file_size(current);
  if (size <= tLog.iLogFileMaxSize) return size;

  char backup[kFileNameSize + 32];
  int number = 0;
  do {
    snprintf(backup, sizeof backup, "%s_bkp_%02d.log", current, number++);
    size = file_size(backup);
  } while (size > 0);
  rename(current, backup);
  return size;
}
