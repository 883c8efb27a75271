// Running the search costs several processes, a hundred milliseconds and more on a machine with many USB
// devices, and its answer hardly ever changes between two calls. So the last answer is recalled while all
// that it depends on is as it was when that search began; what comes while one runs leads to the next:
//
//   /sys/kernel/uevent_seqnum  the kernel's count of device events: no device comes, goes or is renamed
//                              without one
//   /run/udev/data             when udev's database last changed; udev replaces its files and never writes
//                              into them. A machine without udev has none
//   PATH                       where the shell finds find, udevadm and grep
//
// The search ends well even when find or udevadm was killed, so that alone proves nothing. An answer is kept
// when the kernel's list of ports bears it out, and one that leaves a listed port out only once a second run
// has given it too; none at all beside a listed port is never kept. The list is read after the run: the
// kernel takes a port off it before it counts the removal, so that a port which is leaving cannot be kept
// either.
#include "api/usb_search.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "olk_utils/bounded_text.h"
#include "olk_utils/open_file.h"
#include "olk_utils/system_clock.h"

// Walks the "dev" files of the USB tree and prints the node of every ttyACM device whose properties name
// the device line. Kept: the redirection stands behind the loop's end and silences nothing.
const char kUsbSearchCommand[] =
    "for sysdevpath in $(find /sys/bus/usb/devices/usb*/ -name \"dev\"); do   syspath=${sysdevpath%/dev};   devname=$(udevadm info -q name -p $syspath);   teste=$(udevadm info -q property --export -p $syspath | grep -e TALVEX -e VDR-K20);   if test \"$teste\"; then     dev=$(echo $devname | grep ttyACM);     if test \"$dev\"; then       echo /dev/$devname;     fi   fi done; 2> /dev/null ";

namespace {

struct Evidence {
  char events[32];
  timespec database;  // zero when there is none
  char program_path[4096];
  bool complete;  // the rest means nothing without it
};

struct Answer {
  UsbSearchLine lines[16];
  int count;  // of all lines, also of those that have no room
};

constexpr int kMaxLines = sizeof Answer::lines / sizeof(UsbSearchLine);

// Of the last run.
Evidence evidence;
Answer answer;
bool answer_is_kept;

// The kernel's count stays open between two calls: to open it costs more than all other evidence together. A
// host that became a daemon may have closed it, and have something of its own under that number.
struct EventCount {
  int descriptor = -1;
  dev_t device;
  ino_t inode;
};
EventCount event_count;

bool is_open(const EventCount& file) {
  struct stat status {};
  return file.descriptor != -1 && fstat(file.descriptor, &status) == 0 && status.st_dev == file.device &&
         status.st_ino == file.inode;
}

bool open_anew(EventCount& file) {
  struct stat status {};
  file.descriptor = open_file("/sys/kernel/uevent_seqnum", O_RDONLY);
  if (file.descriptor == -1 || fstat(file.descriptor, &status) != 0) return false;
  file.device = status.st_dev;
  file.inode = status.st_ino;
  return true;
}

bool read_event_count(char (&count)[sizeof Evidence::events]) {
  if (!is_open(event_count) && !open_anew(event_count)) return false;
  const ssize_t length = pread(event_count.descriptor, count, sizeof count - 1, 0);
  count[length > 0 ? length : 0] = '\0';
  return length > 0;
}

// A time is trusted to differ from that of a later change once it is a second old.
bool read_database_time(timespec& changed) {
  constexpr int64_t kSettledMs = 1000;
  struct stat status {};
  if (stat("/run/udev/data", &status) != 0) return errno == ENOENT;
  changed = status.st_ctim;
  const int64_t changed_ms = int64_t{changed.tv_sec} * 1000 + changed.tv_nsec / 1000000;
  return static_cast<int64_t>(GetCurrentMilliTime()) - changed_ms > kSettledMs;
}

Evidence gather() {
  Evidence now = {};
  const size_t path_length = copy_text(now.program_path, getenv("PATH"));
  now.complete = path_length + 1 < sizeof now.program_path && read_event_count(now.events) &&
                 read_database_time(now.database);
  return now;
}

bool same(const Evidence& one, const Evidence& other) {
  return one.complete && other.complete && strcmp(one.events, other.events) == 0 &&
         one.database.tv_sec == other.database.tv_sec && one.database.tv_nsec == other.database.tv_nsec &&
         strcmp(one.program_path, other.program_path) == 0;
}

// As fgets does, but not ended by a signal.
bool read_line(FILE* stream, UsbSearchLine& line) {
  size_t length = 0;
  while (length + 1 < sizeof line) {
    errno = 0;
    const int character = fgetc(stream);
    if (character == EOF && errno == EINTR) continue;
    if (character == EOF) break;
    line[length++] = static_cast<char>(character);
    if (character == '\n') break;
  }
  line[length] = '\0';
  return length > 0;
}

enum class RunResult { kNotStarted, kFailed, kDone };

RunResult run_command(TakeUsbLine take, UsbSearchLine& found) {
  answer = {};
  FILE* command = popen(kUsbSearchCommand, "re");
  if (command == nullptr) return RunResult::kNotStarted;
  for (UsbSearchLine line = {}; read_line(command, line); ++answer.count) {
    take(line, answer.count, found);
    if (answer.count < kMaxLines) copy_text(answer.lines[answer.count], line);
  }
  return pclose(command) == 0 ? RunResult::kDone : RunResult::kFailed;
}

// Whether the program that the shell runs is the system's own. An empty folder is the working directory to
// it.
bool is_the_systems(const char* name) {
  constexpr const char* kSystemFolders[] = {"/usr/bin", "/bin", "/usr/sbin", "/sbin"};
  for (const char* rest = evidence.program_path; *rest != '\0';) {
    char folder[256];
    char program[sizeof folder + 16];
    const size_t length = strcspn(rest, ":");
    if (length == 0 || length >= sizeof folder) return false;
    copy_text(folder, length + 1, rest);
    snprintf(program, sizeof program, "%s/%s", folder, name);
    if (access(program, X_OK) == 0) return is_one_of(folder, kSystemFolders);
    rest += rest[length] == ':' ? length + 1 : length;
  }
  return false;
}

bool is_named(const char* port) {
  char line[sizeof dirent::d_name + 8];
  snprintf(line, sizeof line, "/dev/%s\n", port);
  for (const UsbSearchLine& named : answer.lines) {
    if (strcmp(named, line) == 0) return true;
  }
  return false;
}

bool kernel_bears_out(bool repeated) {
  DIR* folder = opendir("/sys/class/tty");
  if (folder == nullptr) return false;
  int listed = 0;
  int named = 0;
  while (const dirent* port = readdir(folder)) {
    if (strncmp(port->d_name, "ttyACM", 6) != 0) continue;
    ++listed;
    if (is_named(port->d_name)) ++named;
  }
  closedir(folder);
  return named == answer.count && (named == listed || (named != 0 && repeated));
}

}  // namespace

bool search_usb(TakeUsbLine take, UsbSearchLine& found) {
  const Evidence now = gather();
  const bool nothing_changed = same(now, evidence);
  if (nothing_changed && answer_is_kept) {
    for (int number = 0; number < answer.count; ++number) take(answer.lines[number], number, found);
    return true;
  }
  const Answer former_answer = answer;
  evidence = now;
  const RunResult result = run_command(take, found);
  if (result != RunResult::kDone) evidence.complete = false;
  answer_is_kept = evidence.complete && is_the_systems("find") && is_the_systems("udevadm") &&
                   is_the_systems("grep") &&
                   kernel_bears_out(nothing_changed && memcmp(&answer, &former_answer, sizeof answer) == 0);
  return result != RunResult::kNotStarted;
}

void close_event_count() {
  if (is_open(event_count)) close(event_count.descriptor);
  event_count.descriptor = -1;
}
