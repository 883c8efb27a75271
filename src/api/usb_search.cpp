// Running the search costs several processes, a hundred milliseconds and more on a machine with many USB
// devices, and its answer hardly ever changes between two calls. So its last answer is recalled as long as
// nothing that it depends on has changed:
//
//   /dev                       time stamps of the folder, where it is the kernel's own (a devtmpfs): while
//                              they stand still no port has come, gone or been replaced, and sysfs need
//                              not be read again
//   /sys/kernel/uevent_seqnum  the kernel's count of device events, which tells the same elsewhere
//   /sys/bus/usb/devices       every USB device that the kernel has, by name, inode number and properties
//   /sys/class/tty             every ttyACM device, likewise
//   /run/udev/data             time stamps of udev's database; it replaces its files, never changes them
//   PATH                       where the shell finds find, udevadm and grep
//
// Sysfs gives a device that comes back under the same name new inode numbers, and shows a device before its
// node is made and its event counted. What cannot be read is held with its error number. An answer is not
// kept at all when the command failed, when the bus changed while it ran, when a time stamp is so young that
// a second change could bear it too, when one of the programs is not the system's own, or when something does
// not fit its buffer. Nor is it kept when the kernel's list of ports does not bear it out, because one of the
// command's many processes may have failed unseen: no port found beside a ttyACM port is never kept, and an
// answer that leaves one of them out only once a second run has given it too.
#include "api/usb_search.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "olk_utils/bounded_text.h"
#include "olk_utils/system_clock.h"

// Walks the "dev" files of the USB tree and prints the node of every ttyACM device whose properties name
// the device line. Kept: the redirection stands behind the loop's end and silences nothing.
const char kUsbSearchCommand[] =
    "for sysdevpath in $(find /sys/bus/usb/devices/usb*/ -name \"dev\"); do   syspath=${sysdevpath%/dev};   devname=$(udevadm info -q name -p $syspath);   teste=$(udevadm info -q property --export -p $syspath | grep -e TALVEX -e VDR-K20);   if test \"$teste\"; then     dev=$(echo $devname | grep ttyACM);     if test \"$dev\"; then       echo /dev/$devname;     fi   fi done; 2> /dev/null ";

namespace {

constexpr char kNodes[] = "/dev";
constexpr char kMounts[] = "/proc/self/mountinfo";
constexpr char kEventCount[] = "/sys/kernel/uevent_seqnum";
constexpr char kUsbDevices[] = "/sys/bus/usb/devices";
constexpr char kTtyDevices[] = "/sys/class/tty";
constexpr char kUdevDatabase[] = "/run/udev/data";

// A time stamp is trusted to differ from that of a later change once it is this old.
constexpr int64_t kSettledMs = 1000;

// A text that grows from the front; overflowed is set for good when something did not fit.
struct Record {
  char text[262144];
  size_t length;
  bool overflowed;
};

// Where a file or folder stands; all zero but the error when it cannot be examined.
struct Stamp {
  int error;
  dev_t device;
  ino_t inode;
  timespec modified;
  timespec changed;
};

// What shows that no device has come or gone.
struct Sign {
  Stamp nodes;      // of the kernel's folder of device nodes; no inode where that is another's
  char events[32];  // the kernel's count, in its place; empty when it cannot be read
};

// What the answer depends on.
struct Snapshot {
  Sign sign;
  char program_path[4096];  // PATH
  Stamp udev;               // the database
  Record devices;           // on the bus
  bool reliable;            // PATH fits, and the database has been at rest for a while
};

Record answer;             // output of the last run
Snapshot answer_snapshot;  // as that run saw it
bool answer_is_kept;

dev_t kernels_nodes;  // file system of the kernel's device nodes; 0 when it is not mounted on /dev

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

void copy(Record& destination, const Record& source) {
  memcpy(destination.text, source.text, source.length + 1);
  destination.length = source.length;
  destination.overflowed = source.overflowed;
}

bool same(const Record& one, const Record& other) {
  return !one.overflowed && !other.overflowed && one.length == other.length &&
         memcmp(one.text, other.text, one.length) == 0;
}

// ---- Snapshot of the bus ----------------------------------------------------------------------------

// As much of a file as fits; false when it cannot be read.
bool read_file(const char* path, char* content, size_t capacity) {
  content[0] = '\0';
  const int file = open(path, O_RDONLY | O_NOCTTY | O_CLOEXEC);
  if (file == -1) return false;
  const ssize_t length = read(file, content, capacity - 1);
  const int error = errno;
  close(file);
  errno = error;
  if (length >= 0) content[length] = '\0';
  return length >= 0;
}

void append_device(Record& devices, const char* folder, const dirent& entry) {
  append(devices, "%s %llu\n", entry.d_name, static_cast<unsigned long long>(entry.d_ino));
  char path[sizeof entry.d_name + 64];
  char properties[4096];
  snprintf(path, sizeof path, "%s/%s/uevent", folder, entry.d_name);
  if (read_file(path, properties, sizeof properties)) {
    append(devices, "%s\n", properties);
  } else {
    append(devices, "error %d\n", errno);
  }
}

void append_folder(Record& devices, const char* folder, const char* name_start) {
  append(devices, "%s\n", folder);
  DIR* stream = opendir(folder);
  if (stream == nullptr) {
    append(devices, "error %d\n", errno);
    return;
  }
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream);
    if (entry == nullptr) break;
    if (entry->d_name[0] == '.' || strncmp(entry->d_name, name_start, strlen(name_start)) != 0) continue;
    append_device(devices, folder, *entry);
  }
  if (errno != 0) append(devices, "error %d\n", errno);
  closedir(stream);
}

Stamp stamp_of(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return {errno, 0, 0, {}, {}};
  return {0, status.st_dev, status.st_ino, status.st_mtim, status.st_ctim};
}

bool same(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool same(const Stamp& one, const Stamp& other) {
  return one.error == other.error && one.device == other.device && one.inode == other.inode &&
         same(one.modified, other.modified) && same(one.changed, other.changed);
}

bool is_settled(const Stamp& stamp) {
  const auto modified_ms =
      static_cast<int64_t>(stamp.modified.tv_sec) * 1000 + stamp.modified.tv_nsec / 1000000;
  return stamp.error != 0 || static_cast<int64_t>(GetCurrentMilliTime()) - modified_ms > kSettledMs;
}

// "24 27 0:6 / /dev rw,relatime - devtmpfs devtmpfs rw". A sysfs without the count is not the kernel's, and
// its nodes say nothing about it.
dev_t find_kernels_nodes() {
  char count[32];
  if (!read_file(kEventCount, count, sizeof count)) return 0;
  FILE* mounts = fopen(kMounts, "re");
  if (mounts == nullptr) return 0;
  dev_t found = 0;
  char line[1024];
  while (fgets(line, sizeof line, mounts) != nullptr) {
    unsigned major_number = 0;
    unsigned minor_number = 0;
    char mount_point[8] = "";
    if (strstr(line, " - devtmpfs ") == nullptr ||
        sscanf(line, "%*d %*d %u:%u / %7s", &major_number, &minor_number, mount_point) != 3) {
      continue;
    }
    if (strcmp(mount_point, kNodes) == 0) found = makedev(major_number, minor_number);
  }
  fclose(mounts);
  return found;
}

void look_at_sign(Sign& sign) {
  sign = {};
  const Stamp nodes = stamp_of(kNodes);
  if (kernels_nodes != 0 && nodes.device == kernels_nodes && is_settled(nodes)) {
    sign.nodes = nodes;
  } else {
    read_file(kEventCount, sign.events, sizeof sign.events);
  }
}

bool same(const Sign& one, const Sign& other) {
  const bool by_nodes = one.nodes.inode != 0 && same(one.nodes, other.nodes);
  return by_nodes || (one.events[0] != '\0' && strcmp(one.events, other.events) == 0);
}

// Whether the program that the shell runs is the system's own. An empty folder is the working directory to
// it.
bool is_the_systems(const char* name, const char* program_path) {
  constexpr const char* kSystemFolders[] = {"/usr/bin", "/bin", "/usr/sbin", "/sbin"};
  for (const char* rest = program_path; *rest != '\0';) {
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

bool programs_are_the_systems(const char* program_path) {
  return is_the_systems("find", program_path) && is_the_systems("udevadm", program_path) &&
         is_the_systems("grep", program_path);
}

void look_at_signs(Snapshot& snapshot) {
  look_at_sign(snapshot.sign);
  const size_t path_length = copy_text(snapshot.program_path, getenv("PATH"));
  snapshot.udev = stamp_of(kUdevDatabase);
  snapshot.reliable = path_length + 1 < sizeof snapshot.program_path && is_settled(snapshot.udev);
}

void look_at_devices(Snapshot& snapshot) {
  clear(snapshot.devices);
  append_folder(snapshot.devices, kUsbDevices, "");
  append_folder(snapshot.devices, kTtyDevices, "ttyACM");
}

bool same_sources(const Snapshot& one, const Snapshot& other) {
  return same(one.udev, other.udev) && strcmp(one.program_path, other.program_path) == 0;
}

// Looks at the devices only when no sign vouches for them.
bool answer_still_holds(Snapshot& now) {
  look_at_signs(now);
  const bool may_hold = answer_is_kept && now.reliable && same_sources(now, answer_snapshot);
  if (may_hold && same(now.sign, answer_snapshot.sign)) return true;

  look_at_devices(now);
  if (!may_hold || !same(now.devices, answer_snapshot.devices)) return false;
  answer_snapshot.sign = now.sign;
  return true;
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

enum class RunResult { kNotStarted, kFailed, kDone };

RunResult run_command(TakeUsbLine take, UsbSearchLine& found) {
  clear(answer);
  FILE* command = popen(kUsbSearchCommand, "re");
  if (command == nullptr) return RunResult::kNotStarted;
  UsbSearchLine line = {};
  for (int number = 0; read_line(command, line); ++number) {
    take(line, number, found);
    append(answer, "%s", line);
  }
  return pclose(command) == 0 ? RunResult::kDone : RunResult::kFailed;
}

// Takes one line of a former run's output, cut as it was read then.
bool next_line(const char*& rest, UsbSearchLine& line) {
  if (*rest == '\0') return false;
  memset(line, 0, sizeof line);
  const size_t length = strcspn(rest, "\n");
  const size_t whole = rest[length] == '\n' ? length + 1 : length;
  rest += copy_text(line, whole < sizeof line ? whole + 1 : sizeof line, rest);
  return true;
}

void recall(TakeUsbLine take, UsbSearchLine& found) {
  const char* rest = answer.text;
  UsbSearchLine line;
  for (int number = 0; next_line(rest, line); ++number) take(line, number, found);
}

// Whether the kernel lists the port that this line names.
bool is_listed(const UsbSearchLine& line, const Snapshot& snapshot) {
  constexpr char kFolder[] = "/dev/";
  constexpr size_t kFolderLength = sizeof kFolder - 1;
  if (strncmp(line, kFolder, kFolderLength) != 0) return false;
  char entry[sizeof line + 2];
  snprintf(entry, sizeof entry, "\n%.*s ", static_cast<int>(strcspn(line + kFolderLength, "\n")),
           line + kFolderLength);
  return strstr(snapshot.devices.text, entry) != nullptr;
}

int count_acm_ports(const Snapshot& snapshot) {
  constexpr char kEntry[] = "\nttyACM";
  int count = 0;
  for (const char* at = snapshot.devices.text; (at = strstr(at, kEntry)) != nullptr; ++at) ++count;
  return count;
}

// Whether the kernel's list of ports bears the answer out; repeated says that the run before gave it too.
bool kernel_bears_out(const Record& lines, const Snapshot& snapshot, bool repeated) {
  const char* rest = lines.text;
  UsbSearchLine line;
  int count = 0;
  for (; next_line(rest, line); ++count) {
    if (!is_listed(line, snapshot)) return false;
  }
  const int ports = count_acm_ports(snapshot);
  return count == ports || (count != 0 && repeated);
}

}  // namespace

bool search_usb(TakeUsbLine take, UsbSearchLine& found) {
  static Snapshot before;
  static Record former_answer;
  if (answer_still_holds(before)) {
    recall(take, found);
    return true;
  }
  answer_is_kept = false;
  const bool nothing_changed =
      same_sources(before, answer_snapshot) && same(before.devices, answer_snapshot.devices);
  copy(former_answer, answer);
  kernels_nodes = find_kernels_nodes();
  const RunResult result = run_command(take, found);
  if (result == RunResult::kNotStarted) return false;

  look_at_signs(answer_snapshot);
  look_at_devices(answer_snapshot);
  answer_is_kept = result == RunResult::kDone && !answer.overflowed && before.reliable &&
                   programs_are_the_systems(before.program_path) && same_sources(before, answer_snapshot) &&
                   same(before.devices, answer_snapshot.devices) &&
                   kernel_bears_out(answer, answer_snapshot, nothing_changed && same(answer, former_answer));
  // What came during the run is looked into again.
  answer_snapshot.sign = before.sign;
  return true;
}
