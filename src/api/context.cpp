#include "api/context.h"

#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "api/configuration.h"
#include "api/protocol_log.h"
#include "api/version.h"
#include "olk_utils/file_helpers.h"
#include "olk_utils/open_file.h"
#include "olk_utils/trace_log.h"

namespace {

constexpr uint8_t kMark = 0xAA;
constexpr uint8_t kTail = 0x55;

constexpr size_t kPageSize = 4096;
// Small commands and replies live in these first bytes: clearing them by hand is cheaper than a page fault.
constexpr size_t kClearedByHand = 4 * kPageSize;

}  // namespace

SatContext gl_tSat;

alignas(kPageSize) char gl_sSatPkt[kPacketBufferSize];
alignas(kPageSize) char gl_TmpBuf[kPacketBufferSize];

namespace {

// Everything in gl_sSatPkt from here on is zero.
size_t packet_end = kPacketBufferSize;

constexpr char kFunction[] = "init_global_sat_struct";

bool modification_time(time_t& time) {
  struct stat status {};
  if (stat(kIniFileName, &status) != 0) return false;
  time = status.st_mtime;
  return true;
}

void read_again_if_changed() {
  time_t changed = 0;
  if (!modification_time(changed) || changed == gl_tSat.tIniFileTime) return;
  UpdateTalvexConfiguration();
  OLK_SetIniFileLogMode(pApiLogFileName, kIniFileName);
  gl_tSat.tIniFileTime = changed;
}

void create_missing_configuration() {
  if (existing_file_size(kIniFileName) >= 0) return;
  const int created = CreateFile_TalvexIni();
  if (created < 0) {
    API_TRACE_IN(kFunction, kError, "--- rc[%06d]ER ConfigFile[%s]NotCreated!!!\n", created, kIniFileName);
  } else {
    API_TRACE_IN(kFunction, kWarning, "--- rc[%06d]OK ConfigFile[%s]Created!!!\n", created, kIniFileName);
  }
}

void trace_start_up(int log_mode) {
  if (log_mode < 0) {
    API_TRACE_IN(kFunction, kError, "--- rc[%06d]ER ConfigFile[%s]\n", log_mode, kIniFileName);
  } else {
    API_TRACE_IN(
        kFunction, kWarning,
        "--- Sat Struct Initialized!!\n\t   Version[%s - %s]\n\t BuildDate[%s]\n\t   This Is[%02d Bits] Platform\n",
        kVersionText, kLibraryDate, kBuildStamp, kPlatformBits);
  }
}

void set_up() {
  memset(&gl_tSat, 0, sizeof gl_tSat);
  create_missing_configuration();
  const int log_mode = OLK_SetIniFileLogMode(pApiLogFileName, kIniFileName);
  UpdateTalvexConfiguration();
  trace_start_up(log_mode);

  bWarningLogsEnabled = 0;
  OLK_SetIniFileLogMode(pApiLogFileName, kIniFileName);
  modification_time(gl_tSat.tIniFileTime);
  // The second reading is the one that is logged with the final log settings.
  UpdateTalvexConfiguration();

  gl_tSat.ucInitMark = kMark;
  gl_tSat.ucInitTail = kTail;
}

}  // namespace

bool context_is_set_up() {
  return gl_tSat.ucInitMark == kMark && gl_tSat.ucInitTail == kTail;
}

int init_global_sat_struct() {
  forget_lease_waits();
  if (!context_is_set_up()) {
    set_up();
    return 0;
  }
  TraleFileLogSzCtl();
  LogSATProtocolSzCtl();
  read_again_if_changed();
  return 1;
}

void clear_buffer(char* buffer, size_t size) {
  if (buffer == gl_sSatPkt) {
    if (size > packet_end) size = packet_end;
    packet_end = kPacketBufferSize;
    const size_t pages_end = size - size % kPageSize;
    if (pages_end > kClearedByHand &&
        madvise(buffer + kClearedByHand, pages_end - kClearedByHand, MADV_DONTNEED) == 0) {
      memset(buffer + pages_end, 0, size - pages_end);
      size = kClearedByHand;
    }
  }
  memset(buffer, 0, size);
}

void packet_buffer_ends_at(size_t bytes) {
  packet_end = bytes < kPacketBufferSize ? bytes : kPacketBufferSize;
}
