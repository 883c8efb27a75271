#include "api/default_configuration.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "api/api_trace.h"
#include "api/settings.h"
#include "olk_sat_utils/sat_functions.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/file_helpers.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"

namespace {

constexpr size_t kWorkBufferSize = 8192;

// In its place stands a line for each SAT function.
constexpr const char* kTimeoutLines = nullptr;

// An empty line ends a block; each block is written at once. No comment below the first header names an item
// of the section above it, because a lookup would match there.
constexpr const char* kDefaultFile[] = {
    "#",
    "# IMPORTANTE: Para fixar a porta adicione >> FixarPorta=<NomeDaPorta>",
    "#",
    "[SERIAL_PORT_CONFIG]",
    "SerialPortConfig=115200,8,N,1",
    "ReadIntervalTimeout=10",
    "ReadTotalTimeoutMultiplier=1",
    "ReadTotalTimeoutConstant=1",
    "WriteTotalTimeoutMultiplier=1",
    "WriteTotalTimeoutConstant=1000",
    "",
    "#",
    "# Define o timeout em Segundos de resposta para as funcaes do SAT",
    "#",
    "[SAT_TIMEOUT]",
    kTimeoutLines,
    "",
    "#",
    "# SAT_EMULATOR <default>0=Disable",
    "#",
    "[SAT_EMULATOR]",
    "SerialPortWindows=CNCA0",
    "SerialPortLinux=/dev/ttyVSP0",
    "Enable=0",
    "",
    "#",
    "# Arvolen <default>0=Disable",
    "#",
    "[ARVOLEN]",
    "PathWindows=C:\\ProgramData\\Arvolen\\Cupons\\New",
    "PathLinux=/etc/Arvolen/Cupons/New",
    "Enable=0",
    "",
    "#",
    "# LogMode 0=Disable, 1=Error, 2=Warning, 3=Info, 4=Trace, 5=Debug",
    "#",
    "[LOG]",
    "LogFilePath=Log",
    "LogFileName=",
    "LogFileMaxSize=1300000",
    "LogMode=1",
    "",
};

// Whatever has content is left alone, also when it has only just been made; the file that a link names is
// made if it is missing.
int open_for_default_file() {
  const int made = open_file(kIniFileName, O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (made != -1 || errno != EEXIST) return made;
  const int found = open_file(kIniFileName, O_WRONLY | O_CREAT, 0666);
  struct stat status {};
  if (found == -1 || (fstat(found, &status) == 0 && status.st_size == 0)) return found;
  close(found);
  errno = EEXIST;
  return -1;
}

size_t put_line(char* block, size_t length, const char* line) {
  length += copy_text(block + length, kWorkBufferSize - length - 1, line);
  block[length] = '\n';
  return length + 1;
}

size_t put_timeout_lines(char* block, size_t length) {
  for (const SatFunction& function : kSatFunctions) {
    char line[64];
    snprintf(line, sizeof line, "%-30s=%4u", function.name, function.default_timeout_s);
    length = put_line(block, length, line);
  }
  return length;
}

void write_default_file(int file, char* block) {
  size_t length = 0;
  for (const char* line : kDefaultFile) {
    if (line == kTimeoutLines) {
      length = put_timeout_lines(block, length);
      continue;
    }
    length = put_line(block, length, line);
    if (line[0] != '\0') continue;
    write_whole(file, block, length);
    length = 0;
  }
}

}  // namespace

int CreateFile_TalvexIni() {
  int existing = existing_file_size(kIniFileName);
  int file = -1;
  if (existing <= 0) {
    file = open_for_default_file();
    const bool other_was_faster = file == -1 && errno == EEXIST;
    if (other_was_faster) existing = existing_file_size(kIniFileName);
  }
  if (existing > 0) {
    API_TRACE(kInfo, " rc[%06d]OK file[%s]Already Exist!\n", existing, kIniFileName);
    return existing;
  }
  if (file == -1) {
    API_TRACE(kError, " rc[%06d]ER file[%s]Could not be Created!!!\n", existing, kIniFileName);
    return existing;
  }
  char* block = static_cast<char*>(calloc(1, kWorkBufferSize));
  if (block == nullptr) {
    API_TRACE(kError, " rc[%06d]ER file[%s] calloc fail!!!\n", existing, kIniFileName);
    close(file);
    return existing;
  }
  write_default_file(file, block);
  close(file);
  free(block);

  const int created = existing_file_size(kIniFileName);
  if (created < 0) {
    API_TRACE(kError, " rc[%06d]ER file[%s]Could not be Created!!!\n", created, kIniFileName);
  } else {
    API_TRACE(kWarning, " rc[%06d]OK file[%s]Successfull Created!!!\n", created, kIniFileName);
  }
  return created;
}
