#include "api/context.h"

#include <string.h>
#include <sys/stat.h>

#include "api/api_trace.h"
#include "api/configuration.h"
#include "api/default_configuration.h"
#include "api/protocol_log.h"
#include "api/version.h"
#include "olk_utils/file_helpers.h"
#include "olk_utils/open_file.h"

SatContext gl_tSat;

namespace {

constexpr char kFunction[] = "init_global_sat_struct";

bool modification_time(time_t& time) {
  struct stat status {};
  if (stat(kIniFileName, &status) != 0) return false;
  time = status.st_mtime;
  return true;
}

void read_again_if_changed() {
  time_t changed = 0;
  if (!modification_time(changed) || changed == gl_tSat.settings.tIniFileTime) return;
  UpdateTalvexConfiguration(gl_tSat.settings, true);
  OLK_SetIniFileLogMode(pApiLogFileName, kIniFileName);
  gl_tSat.settings.tIniFileTime = changed;
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
  gl_tSat = {};
  create_missing_configuration();
  const int log_mode = OLK_SetIniFileLogMode(pApiLogFileName, kIniFileName);
  UpdateTalvexConfiguration(gl_tSat.settings, false);
  trace_start_up(log_mode);

  bWarningLogsEnabled = 0;
  OLK_SetIniFileLogMode(pApiLogFileName, kIniFileName);
  modification_time(gl_tSat.settings.tIniFileTime);
  // The second reading is the one that is logged with the final log settings.
  UpdateTalvexConfiguration(gl_tSat.settings, false);

  gl_tSat.is_set_up = true;
}

}  // namespace

int init_global_sat_struct() {
  forget_lease_waits();
  if (!gl_tSat.is_set_up) {
    set_up();
    return 0;
  }
  TraleFileLogSzCtl();
  LogSATProtocolSzCtl();
  read_again_if_changed();
  return 1;
}
