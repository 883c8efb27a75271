#include "api/result_files.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "api/api_trace.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"
#include "olk_utils/system_clock.h"

namespace {

constexpr char kBaseFolder[] = ".";
constexpr int kOk = 1;
constexpr int kDirectory = 1;

using Path = char[512];

// Kept: the name carries neither month nor year, so it comes back after a month and is written over.
void compose_file_name(Path& name, const Call& call, const tm& now) {
  snprintf(name, sizeof name, "%s%02d%02d%02d%02d-%02d-1.sat", call.function.result_file, now.tm_mday,
           now.tm_hour, now.tm_min, now.tm_sec, call.session);
}

void compose_target_folder(Path& folder, const char* configured) {
  snprintf(folder, sizeof folder, "%s/%s", kBaseFolder, "Arvolen/Cupons/New");
  if (configured[0] != '\0') snprintf(folder, sizeof folder, "%s", configured);
}

void save(const char* path, const tm& now, const char* reply) {
  char time_stamp[64];
  snprintf(time_stamp, sizeof time_stamp, "%02d/%02d/%04d %02d:%02d:%02d", now.tm_mday, now.tm_mon + 1,
           now.tm_year + 1900, now.tm_hour, now.tm_min, now.tm_sec);
  // No links: the name can be foretold, and what it leads to would be emptied.
  const int file = open_file(path, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666);
  if (file == -1) {
    API_TRACE_IN(
        "write_operation_result", kInfo,
        "Win: rc[%06d]ER:Timestamp Not Saved on File[%s]\n\t          [DD/MM/YYYY HH:MM:SS]\n\t strTmpTimeStamp[%s]\n",
        kOk, path, time_stamp);
    return;
  }
  API_TRACE_IN(
      "write_operation_result", kInfo,
      "Win: rc[%06d]OK:\n\tSaved File[%s]\n\t          [DD/MM/YYYY HH:MM:SS]\n\t strTmpTimeStamp[%s]\n", kOk,
      path, time_stamp);
  write_whole_to_file(file, reply, strlen(reply));
  close(file);
}

}  // namespace

void write_operation_result(const Call& call) {
  if (!call.settings.lResultFilesOn) return;
  // Kept: "Win:" in all of these lines; they read the same on every platform.
  API_TRACE(kInfo, "Win: strTmpFolderPath[%05d:%s]\n", length_field(strlen(kBaseFolder)), kBaseFolder);

  const tm now = local_time_in_current_zone().calendar;
  Path name;
  compose_file_name(name, call, now);
  API_TRACE(kInfo, "Win: strFinalFile[%05d:%s]\n", length_field(strlen(name)), name);

  Path folder;
  compose_target_folder(folder, call.settings.strResultPathLinux);
  API_TRACE(kInfo, " rc[%06d]Win:OK \n\t<Operation><DHMS-<Session>.sat\n\tstrTarget[%s]\n", kOk, folder);
  if (OLK_Exist(folder) != kDirectory) return;

  char path[sizeof folder + sizeof name + 1];
  snprintf(path, sizeof path, "%s/%s", folder, name);
  save(path, now, call.packet.bytes);
}
