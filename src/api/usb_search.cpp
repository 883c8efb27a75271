// Running the search costs several processes, a hundred milliseconds and more on a machine with many USB
// devices, and its answer hardly ever changes between two calls. So before a run a snapshot is taken of all
// that the answer depends on:
//
//   /sys/bus/usb/devices    every USB device that the kernel has, by name and inode number
//   /sys/class/tty          every ttyACM device, likewise
//   /run/udev/data          time stamps of udev's database, whose files are replaced, never changed in place
//   PATH                    which find, udevadm and grep the shell runs
//
// Sysfs gives a device that comes back under the same name new inode numbers. What cannot be read stands in
// the snapshot with its error number. An answer is recalled only while a new snapshot is the same to the
// byte; it is not kept at all when the bus changed during the run, when udev wrote its database so shortly
// before that a second change could bear the same time stamp, or when something does not fit its buffer.
#include "api/usb_search.h"

#include <dirent.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "olk_utils/bounded_text.h"
#include "olk_utils/system_clock.h"

// Walks the "dev" files of the USB tree and prints the node of every ttyACM device whose properties name
// the device line. Kept: the redirection stands behind the loop's end and silences nothing.
const char kUsbSearchCommand[] =
    "for sysdevpath in $(find /sys/bus/usb/devices/usb*/ -name \"dev\"); do   syspath=${sysdevpath%/dev};   devname=$(udevadm info -q name -p $syspath);   teste=$(udevadm info -q property --export -p $syspath | grep -e TALVEX -e VDR-K20);   if test \"$teste\"; then     dev=$(echo $devname | grep ttyACM);     if test \"$dev\"; then       echo /dev/$devname;     fi   fi done; 2> /dev/null ";

namespace {

constexpr char kUsbDevices[] = "/sys/bus/usb/devices";
constexpr char kTtyDevices[] = "/sys/class/tty";
constexpr char kUdevDatabase[] = "/run/udev/data";

// A time stamp of the database is trusted to differ from that of a later change once it is this old.
constexpr int64_t kSettledMs = 1000;

// A text that grows from the front; overflowed is set for good when something did not fit.
struct Record {
  char text[32768];
  size_t length;
  bool overflowed;
};

Record answer;           // output of the last run
Record answer_snapshot;  // of the bus, as that run saw it
bool answer_is_kept;

void clear(Record& record) {
  record.length = 0;
  record.overflowed = false;
  record.text[0] = '\0';
}

__attribute__((format(printf, 2, 3))) void append(Record& record, const char* format, ...) {
  if (record.overflowed) return;
  const size_t room = sizeof record.text - record.length;
  va_list arguments;
  va_start(arguments, format);
  const int added = vsnprintf(record.text + record.length, room, format, arguments);
  va_end(arguments);
  record.overflowed = added < 0 || static_cast<size_t>(added) >= room;
  if (!record.overflowed) record.length += static_cast<size_t>(added);
}

bool same(const Record& one, const Record& other) {
  return !one.overflowed && !other.overflowed && one.length == other.length &&
         memcmp(one.text, other.text, one.length) == 0;
}

// ---- Snapshot of the bus ----------------------------------------------------------------------------

void append_directory(Record& snapshot, const char* path, const char* prefix) {
  append(snapshot, "%s\n", path);
  DIR* directory = opendir(path);
  if (directory == nullptr) {
    append(snapshot, "error %d\n", errno);
    return;
  }
  errno = 0;
  while (const dirent* entry = readdir(directory)) {
    if (strncmp(entry->d_name, prefix, strlen(prefix)) != 0) continue;
    append(snapshot, "%s %llu\n", entry->d_name, static_cast<unsigned long long>(entry->d_ino));
  }
  if (errno != 0) append(snapshot, "error %d\n", errno);
  closedir(directory);
}

// Whether the database had been at rest for a while.
bool append_udev_database(Record& snapshot) {
  struct stat status {};
  if (stat(kUdevDatabase, &status) != 0) {
    append(snapshot, "%s error %d\n", kUdevDatabase, errno);
    return true;
  }
  append(snapshot, "%s %llu %lld.%09ld %lld.%09ld\n", kUdevDatabase,
         static_cast<unsigned long long>(status.st_ino), static_cast<long long>(status.st_mtim.tv_sec),
         status.st_mtim.tv_nsec, static_cast<long long>(status.st_ctim.tv_sec), status.st_ctim.tv_nsec);
  const int64_t written =
      static_cast<int64_t>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
  const int64_t age = static_cast<int64_t>(GetCurrentMilliTime()) - written;
  return age > kSettledMs;
}

// False when the snapshot must not be relied on.
bool take_snapshot(Record& snapshot) {
  clear(snapshot);
  append_directory(snapshot, kUsbDevices, "");
  append_directory(snapshot, kTtyDevices, "ttyACM");
  append(snapshot, "PATH %s\n", text_or_empty(getenv("PATH")));
  const bool settled = append_udev_database(snapshot);
  return settled && !snapshot.overflowed;
}

// ---- Running the command ----------------------------------------------------------------------------

int next_character(FILE* stream) {
  for (;;) {
    errno = 0;
    const int character = fgetc(stream);
    if (character != EOF || ferror(stream) == 0 || errno != EINTR) return character;
    clearerr(stream);
  }
}

// As fgets does, but not ended by a signal.
bool read_line(FILE* stream, UsbSearchLine& line) {
  size_t length = 0;
  while (length + 1 < sizeof line) {
    const int character = next_character(stream);
    if (character == EOF) break;
    line[length++] = static_cast<char>(character);
    if (character == '\n') break;
  }
  line[length] = '\0';
  return length > 0;
}

bool run_command(TakeUsbLine take, UsbSearchLine& found) {
  clear(answer);
  FILE* command = popen(kUsbSearchCommand, "re");
  if (command == nullptr) return false;
  UsbSearchLine line = {};
  for (int number = 0; read_line(command, line); ++number) {
    take(line, number, found);
    append(answer, "%s", line);
  }
  pclose(command);
  return true;
}

// The lines of the last run, cut as they were read then.
void recall(TakeUsbLine take, UsbSearchLine& found) {
  const char* rest = answer.text;
  for (int number = 0; *rest != '\0'; ++number) {
    UsbSearchLine line = {};
    const char* line_feed = strchr(rest, '\n');
    const size_t length = line_feed != nullptr ? static_cast<size_t>(line_feed - rest) + 1 : strlen(rest);
    rest += copy_text(line, length + 1 < sizeof line ? length + 1 : sizeof line, rest);
    take(line, number, found);
  }
}

}  // namespace

bool search_usb(TakeUsbLine take, UsbSearchLine& found) {
  static Record snapshot;
  const bool reliable = take_snapshot(snapshot);
  if (reliable && answer_is_kept && same(snapshot, answer_snapshot)) {
    recall(take, found);
    return true;
  }
  answer_is_kept = false;
  if (!run_command(take, found)) return false;

  take_snapshot(answer_snapshot);
  answer_is_kept = reliable && !answer.overflowed && same(snapshot, answer_snapshot);
  return true;
}
