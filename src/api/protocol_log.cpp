#include "api/protocol_log.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "api/api_trace.h"
#include "api/context.h"
#include "api/packet_buffer.h"
#include "api/protocol_line.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"
#include "olk_utils/system_clock.h"

int gl_iFd;

namespace {

char line[kPacketBufferSize];  // the last one that was composed
// The log is closed only behind the first one; a size-control loop on another thread looks at it.
std::atomic<bool> has_composed_line = false;

constexpr char kLogMsg[] = "LogSATProtocolMsg";
constexpr char kCreate[] = "CreateSAT_ProtLogFile";
constexpr char kDefaultDirectory[] = "Log";
constexpr int kNotCreated = -1101;
constexpr int kNotOpened = -1102;

// One step, so that of a call and the size-control loop on another thread only one has the descriptor.
int exchange_descriptor(int descriptor) {
  return __atomic_exchange_n(&gl_iFd, descriptor, __ATOMIC_ACQ_REL);
}

// Nobody else has the descriptor while it is written to: the loop closes it before the line or behind it,
// never under it, when its number may have become the port's.
bool write_line() {
  const int descriptor = exchange_descriptor(0);
  if (descriptor == 0) return false;
  if (descriptor > 0 && !is_open_log_file(descriptor)) return false;
  write_whole_to_file(descriptor, line, strlen(line));
  exchange_descriptor(descriptor);
  return true;
}

void log_line() {
  if (write_line()) return;
  API_TRACE_IN(kLogMsg, kWarning, "All ER:gl_iFd[%08Xh]=NULL\n\t Msg[%06d:%s] Trying to Open NOw\n",
               hex32(gl_iFd), length_field(strlen(line)), line);
  CreateSAT_ProtLogFile();
  if (write_line()) return;
  // Kept: the second attempt's success comes too late for this line.
  CreateSAT_ProtLogFile();
  API_TRACE_IN(kLogMsg, kWarning, "All ER:gl_iFd[%08Xh]=NULL\n\t Msg[%06d:%s]\n", hex32(gl_iFd),
               length_field(strlen(line)), line);
}

// With logging off and no file open nobody sees the line; only the mark that there was one stays.
bool nobody_sees_the_line() {
  return gl_iFd == 0 && tLog.ucModeMask == 0 && !trace_passes(kWarning);
}

// The protocol log lives in the trace log's directory.
void follow_trace_log_path() {
  const bool is_default =
      tLog.strLogFilePath[0] == '\0' || strcmp(tLog.strLogFilePath, kDefaultDirectory) == 0;
  char path[sizeof gl_tSat.strSatProtLogFilePath];
  copy_text(path, is_default ? kDefaultDirectory : tLog.strLogFilePath);
  if (strcmp(gl_tSat.strSatProtLogFilePath, path) == 0) return;
  copy_text(gl_tSat.strSatProtLogFilePath, path);
  API_TRACE_IN(kCreate, kWarning, "---  gl_tSat.strSatProtLogFilePath[%s]UPDATED\n",
               gl_tSat.strSatProtLogFilePath);
}

bool directory_exists_or_is_made(const char* path) {
  int result = OLK_Exist(path);
  if (result != 1) result = OLK_CreateDir(path);
  return result == 1 || result == 2;
}

}  // namespace

void LogSATProtocolMsg(const char* text, bool received) {
  if (text == nullptr) {
    API_TRACE(kWarning, "All WR:pText=NUL\nL");
    return;
  }
  if (!nobody_sees_the_line()) {
    if (!compose_protocol_line(text, received, line, sizeof line)) return;
    log_line();
  }
  has_composed_line = true;
}

void CreateSAT_ProtLogFile() {
  int rc = kNotCreated;
  // Also takes in a time zone that the host has changed, for the lines of the whole call.
  const tm today = local_time_in_current_zone().calendar;
  follow_trace_log_path();
  if (tLog.ucModeMask == 0) return;

  const char* directory = gl_tSat.strSatProtLogFilePath;
  if (!directory_exists_or_is_made(directory)) {
    print("[%04d] [%s] [%s]--- rc[%05d]ER gl_tSat.strSatProtLogFilePath[%s]\n", __LINE__, kApiSourcePath,
          kCreate, rc, directory);
    API_TRACE(kError, "---   rc[%06d]ER: dir[%s]Not Created!!!!!!!!!\n", rc, directory);
    return;
  }
  if (gl_iFd != 0) {
    print("[%04d] [%s] [%s]--- rc[%05d] gl_tSat.strSatProtLogFilePath[%s] gl_iFd[%08Xh]\n", __LINE__,
          kApiSourcePath, kCreate, rc, directory, hex32(gl_iFd));
    return;
  }
  char* name = gl_tSat.strSatProtLogFileName;
  snprintf(name, sizeof gl_tSat.strSatProtLogFileName, "%s/%04d%02d%02d_SAT_ProtocolLog.txt", directory,
           today.tm_year + 1900, today.tm_mon + 1, today.tm_mday);
  const int descriptor = open_log_file(name, S_IRUSR | S_IWUSR);
  exchange_descriptor(descriptor);
  if (descriptor != -1) {
    API_TRACE(kInfo, "---  rc[%06d]OK:logFd[%08Xh] pcLogName[%s]Created!!!\n", rc, hex32(descriptor),
              gl_tSat.strSatProtLogFileName);
  } else {
    rc = kNotOpened;
    API_TRACE(kError, "---   rc[%06d]ER:logFd[%08Xh]=NULL or -1 pcLogName[%s]File Not Created\n", rc,
              hex32(descriptor), gl_tSat.strSatProtLogFileName);
  }
}

void LogSATProtocolSzCtl() {
  if (!has_composed_line) return;
  close_protocol_log();
  // Kept: an outgrown protocol log is neither moved nor cut, it grows for the whole day.
  if (tLog.iLogFileMaxSize == 0) tLog.iLogFileMaxSize = kDefaultLogMaxSize;
}

void close_protocol_log() {
  const int descriptor = exchange_descriptor(0);
  if (descriptor > 0 && is_open_log_file(descriptor)) close(descriptor);
}
