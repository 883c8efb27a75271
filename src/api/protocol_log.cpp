#include "api/protocol_log.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "api/api_trace.h"
#include "api/context.h"
#include "api/packet_buffer.h"
#include "olk_sat_utils/frames.h"
#include "olk_sat_utils/sat_functions.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"
#include "olk_utils/system_clock.h"

int gl_iFd;
int gl_hComm = -1;

namespace {

char line[kPacketBufferSize];  // the last one that was composed
// The log is closed only behind the first one; a size-control loop on another thread looks at it.
std::atomic<bool> has_composed_line = false;

constexpr char kLogMsg[] = "LogSATProtocolMsg";
constexpr char kCreate[] = "CreateSAT_ProtLogFile";
constexpr char kDefaultDirectory[] = "Log";
constexpr int kNotCreated = -1101;
constexpr int kNotOpened = -1102;

// Room for the marks "<02>", checksum and ETX around the text.
constexpr size_t kMarksSize = 48;

// ---- Rendering --------------------------------------------------------------------------------------

struct Frame {
  const char* text;
  size_t length;  // up to the first NUL, one more when that NUL is the checksum of a frame
  bool has_stx;
  bool invalid;  // STX, but no ETX where one belongs
};

char last_byte(const Frame& frame) {
  return frame.length > 0 ? frame.text[frame.length - 1] : '\xff';
}

// The work buffer, filled from the front.
struct Rendering {
  char* work;
  size_t length;
};

void append(Rendering& rendering, const char* bytes, size_t count) {
  memcpy(rendering.work + rendering.length, bytes, count);
  rendering.length += count;
}

void append_hex(Rendering& rendering, char byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto value = static_cast<uint8_t>(byte);
  const char hex[] = {'<', kDigits[value >> 4], kDigits[value & 0x0F], '>'};
  append(rendering, hex, sizeof hex);
}

// Bytes first to last of the frame, both included; none if there are none.
void append_bytes(Rendering& rendering, const Frame& frame, size_t first, size_t last) {
  if (last >= first && last < frame.length) append(rendering, frame.text + first, last - first + 1);
}

Frame classify(const char* text) {
  Frame frame{text, strlen(text), text[0] == kStx, false};
  if (!frame.has_stx) return frame;
  if (last_byte(frame) == kEtx) {
    API_TRACE_IN(kLogMsg, kWarning, "All WR\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[%02Xh]Rcvd ETX\n",
                 length_field(frame.length), static_cast<uint8_t>(last_byte(frame)));
  } else if (frame.text[frame.length + 1] == kEtx) {
    ++frame.length;
    API_TRACE_IN(kLogMsg, kWarning,
                 "All WR:\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[%02Xh]rcvd ETX CKSUM=0x00\n",
                 length_field(frame.length), static_cast<uint8_t>(last_byte(frame)));
  } else {
    API_TRACE_IN(kLogMsg, kWarning,
                 "All WR:bInvalidPacket\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[%02Xh]Expected ETX\n",
                 length_field(frame.length), static_cast<uint8_t>(last_byte(frame)));
    frame.invalid = true;
  }
  return frame;
}

// The last byte that belongs to a frame's text; checksum and ETX follow it.
size_t last_text_byte(const Frame& frame) {
  return frame.length >= 3 ? frame.length - 3 : 0;
}

// A line is cut at the buffer's end, its line feed kept.
void finish_line(int length) {
  has_composed_line = true;
  if (length >= static_cast<int>(sizeof line)) line[sizeof line - 2] = '\n';
}

#define COMPOSE_LINE(format)                                                                       \
  finish_line(snprintf(line, sizeof line, format, now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, \
                       now.tm_hour, now.tm_min, now.tm_sec, rendering.work))

void render_sent(const Frame& frame, const tm& now, Rendering& rendering) {
  if (frame.invalid) {
    append(rendering, frame.text, frame.length);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d PC->SAT >> [%s]InvalidSatPkg\n");
  } else if (last_byte(frame) == kEtx) {
    append(rendering, "<02>", 4);
    append_bytes(rendering, frame, 1, last_text_byte(frame));
    if (frame.length >= 2) append_hex(rendering, frame.text[frame.length - 2]);
    append_hex(rendering, last_byte(frame));
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d PC->SAT >> [%s]OK:a\n");
  } else if (frame.text[frame.length] == '\0') {
    append_hex(rendering, frame.text[0]);
    if (frame.length > 0) append_bytes(rendering, frame, 1, frame.length - 1);
    append_hex(rendering, frame.text[frame.length + 1]);
    append_hex(rendering, frame.text[frame.length + 2]);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d PC->SAT >> [%s]WR:CKSUM=00h\n");
  } else {
    // Kept: a checksum of 0x00 hides "<02>" and the last character, and turns the direction.
    append_bytes(rendering, frame, 1, last_text_byte(frame));
    append_hex(rendering, last_byte(frame));
    append_hex(rendering, frame.text[frame.length]);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]WR:CKSUM=0x00--\n");
  }
}

void render_received(const Frame& frame, const tm& now, Rendering& rendering) {
  if (frame.invalid) {
    append(rendering, frame.text, frame.length);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]InvalidSatPkg\n");
    return;
  }
  append(rendering, "<02>", 4);
  if (frame.has_stx) {
    append_bytes(rendering, frame, 1, last_text_byte(frame));
  } else {
    append(rendering, frame.text, frame.length);
  }
  if (last_byte(frame) == '\0') {
    append_hex(rendering, last_byte(frame));
    append_hex(rendering, frame.text[frame.length]);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]WR:CKS=0x00\n");
  } else if (last_byte(frame) == kEtx) {
    if (frame.length >= 2) append_hex(rendering, frame.text[frame.length - 2]);
    append_hex(rendering, last_byte(frame));
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]OK:c\n");
  } else {
    append(rendering, "<--><03>", 8);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]WR:d\n");
  }
}

// ---- The file ---------------------------------------------------------------------------------------

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
  write_whole(descriptor, line, strlen(line));
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

bool is_held_back_while_running(const char* command) {
  const SatFunction* function = find_sat_function(command);
  return function != nullptr && function->holds_back_size_control;
}

}  // namespace

void LogSATProtocolMsg(const char* text, bool received) {
  if (text == nullptr) {
    API_TRACE(kWarning, "All WR:pText=NUL\nL");
    return;
  }
  if (nobody_sees_the_line()) {
    has_composed_line = true;
    return;
  }
  const size_t length = strlen(text);
  char* work = static_cast<char*>(calloc(1, length + kMarksSize));
  if (work == nullptr) {
    API_TRACE(kWarning, "All WR:calloc error iSatPkgLen[%08d]\n", length_field(length));
    return;
  }
  const tm now = local_time_now().calendar;
  const Frame frame = classify(text);
  Rendering rendering{work, 0};
  (received ? render_received : render_sent)(frame, now, rendering);
  free(work);
  log_line();
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

void LogSzCtlTherad(void) {
  constexpr unsigned kHandle = 0;  // of the loop's thread, which the library does not know
  constexpr int kSecondsPerCycle = 5;
  constexpr unsigned kSecond = 1000000;
  constexpr int kCyclesHeldBack = 19;

  API_PLAIN_TRACE(kWarning, " Entering hT[%08Xh]\n", kHandle);
  int cycles = 0;
  for (;;) {
    for (int second = 0; second < kSecondsPerCycle; ++second) pause_microseconds(kSecond);
    if (gl_hComm != 0 && gl_hComm != -1 && is_held_back_while_running(gl_tSat.CurSatCmdInProc)) {
      if (++cycles <= kCyclesHeldBack) continue;
      API_PLAIN_TRACE(kWarning, " hT[%08Xh] i[%02d] CurSatCmdInProc[%s]Running for Long Time!!!\n", kHandle,
                      cycles, gl_tSat.CurSatCmdInProc);
    }
    cycles = 0;
    TraleFileLogSzCtl();
    LogSATProtocolSzCtl();
  }
}
