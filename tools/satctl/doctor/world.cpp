#include "doctor/world.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

#include "terminal/settings.h"
#include "terminal/text.h"

namespace satctl {

namespace fs = std::filesystem;

namespace {

// What the library's own search looks for, in any property of the device.
constexpr std::array kDeviceNames{"TALVEX", "VDR-K20"};
constexpr const char* kNodeName = "ttyACM";
constexpr const char* kIgnoreProperty = "ID_MM_DEVICE_IGNORE";

constexpr std::array kRuleFolders{"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/local/lib/udev/rules.d",
                                  "/usr/lib/udev/rules.d", "/lib/udev/rules.d"};

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// The lines of /etc/passwd or /etc/group, taken apart.
std::vector<std::vector<std::string>> accounts(const World& world, const char* file, std::size_t fields) {
  std::vector<std::vector<std::string>> rows;
  for (const std::string& line : split(world.read(file).value_or(""), '\n')) {
    auto row = split(line, ':');
    row.resize(std::max(row.size(), fields));
    if (all_digits(row[2])) rows.push_back(std::move(row));
  }
  return rows;
}

std::vector<std::vector<std::string>> users(const World& world) {
  return accounts(world, "/etc/passwd", 4);
}
std::vector<std::vector<std::string>> user_groups(const World& world) {
  return accounts(world, "/etc/group", 4);
}

std::string name_of_number(const std::vector<std::vector<std::string>>& rows, unsigned number) {
  const auto found = std::find_if(rows.begin(), rows.end(),
                                  [number](const auto& row) { return row[2] == std::to_string(number); });
  return found == rows.end() ? std::to_string(number) : (*found)[0];
}

User user_of_row(const World& world, const std::vector<std::string>& row) {
  User user{row[0], static_cast<uid_t>(std::stoul(row[2])), {}};
  if (all_digits(row[3])) user.groups.push_back(static_cast<gid_t>(std::stoul(row[3])));
  for (const auto& group : user_groups(world)) {
    const auto members = split(group[3], ',');
    const bool member = std::find(members.begin(), members.end(), user.name) != members.end();
    if (member) user.groups.push_back(static_cast<gid_t>(std::stoul(group[2])));
  }
  return user;
}

bool names_device(const std::string& text) {
  return std::any_of(kDeviceNames.begin(), kDeviceNames.end(),
                     [&text](const char* name) { return text.find(name) != std::string::npos; });
}

std::string property(const std::string& text, const std::string& name) {
  for (const std::string& line : split(text, '\n')) {
    if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
  }
  return {};
}

// A directory of the USB tree with the identity of a device.
bool is_device_folder(const fs::path& folder) {
  std::error_code error;
  return fs::exists(folder / "idVendor", error);
}

UsbDevice describe(const World& world, const fs::path& folder) {
  UsbDevice device;
  device.bus_name = folder.filename().string();
  device.vendor = world.line(folder / "idVendor");
  device.product = world.line(folder / "idProduct");
  for (const char* item : {"manufacturer", "product", "serial"}) {
    const std::string value = world.line(folder / item);
    if (!value.empty()) device.description += (device.description.empty() ? "" : " ") + value;
  }
  return device;
}

// What udev knows of the node of this directory; where udev has no record, what the kernel says.
std::string node_properties(const World& world, const fs::path& folder, const UsbDevice& device) {
  const std::string number = world.line(folder / "dev");
  const auto record = world.read("/run/udev/data/c" + number);
  return read_file(folder / "uevent").value_or("") + record.value_or(device.description);
}

void add_nodes(const World& world, const fs::path& folder, UsbDevice& device) {
  std::error_code error;
  for (auto entry = fs::recursive_directory_iterator(folder, error); !error && entry != fs::end(entry);
       entry.increment(error)) {
    const fs::path inside = entry->path();
    if (entry->is_directory() && is_device_folder(inside)) entry.disable_recursion_pending();
    if (inside.filename() != "dev" || is_device_folder(inside.parent_path())) continue;
    const std::string properties = node_properties(world, inside.parent_path(), device);
    const std::string name = property(properties, "DEVNAME");
    if (name.find(kNodeName) == std::string::npos) continue;
    device.properties += properties;
    device.nodes.push_back("/dev/" + name);
  }
}

std::vector<fs::path> device_folders(const World& world) {
  std::vector<fs::path> folders;
  std::error_code error;
  for (const auto& bus : fs::directory_iterator(world.path("/sys/bus/usb/devices"), error)) {
    if (!bus.path().filename().string().starts_with("usb")) continue;
    std::error_code inner;
    const fs::path top = fs::canonical(bus.path(), inner);
    for (auto entry = fs::recursive_directory_iterator(top, inner); !inner && entry != fs::end(entry);
         entry.increment(inner)) {
      if (entry->is_directory() && !entry->is_symlink() && is_device_folder(entry->path())) {
        folders.push_back(entry->path());
      }
    }
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

std::string without_comments(const std::string& rules) {
  std::string text;
  for (const std::string& line : split(rules, '\n')) {
    if (!trimmed(line).starts_with('#')) text += line + '\n';
  }
  return text;
}

}  // namespace

fs::path World::path(const std::string& absolute) const {
  return is_real() ? fs::path(absolute) : root_ / fs::path(absolute).relative_path();
}

std::optional<std::string> World::read(const std::string& absolute) const {
  return read_file(path(absolute));
}

std::string World::line(const fs::path& file) const {
  const std::string text = read_file(file).value_or("");
  return std::string(trimmed(text.substr(0, text.find('\n'))));
}

bool User::in_group(gid_t group) const {
  return std::find(groups.begin(), groups.end(), group) != groups.end();
}

bool User::may(const struct stat& file, int wanted) const {
  if (uid == 0) return true;
  const unsigned shift = file.st_uid == uid ? 6 : in_group(file.st_gid) ? 3 : 0;
  const auto granted = static_cast<int>(file.st_mode >> shift & 7);
  return (granted & wanted) == wanted;
}

User current_user(const World& world) {
  User user{user_name(world, geteuid()), geteuid(), {getegid()}};
  std::array<gid_t, 256> groups{};
  const int count = getgroups(static_cast<int>(groups.size()), groups.data());
  for (int i = 0; i < count; ++i) user.groups.push_back(groups[static_cast<std::size_t>(i)]);
  return user;
}

std::optional<User> find_user(const World& world, const std::string& name) {
  for (const auto& row : users(world)) {
    if (row[0] == name) return user_of_row(world, row);
  }
  return std::nullopt;
}

std::string user_name(const World& world, uid_t uid) {
  return name_of_number(users(world), uid);
}
std::string group_name(const World& world, gid_t gid) {
  return name_of_number(user_groups(world), gid);
}

std::vector<int> process_ids(const World& world) {
  std::vector<int> ids;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(world.path("/proc"), error)) {
    const std::string name = entry.path().filename().string();
    if (all_digits(name) && name.size() < 10) ids.push_back(std::stoi(name));
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

Process process(const World& world, int id) {
  const std::string name = world.line(world.path("/proc/" + std::to_string(id) + "/comm"));
  return {id, name.empty() ? "?" : name};
}

std::vector<Process> lock_holders(const World& world, const struct stat& file) {
  std::vector<Process> holders;
  for (const std::string& line : split(world.read("/proc/locks").value_or(""), '\n')) {
    int id = 0;
    unsigned device_major = 0, device_minor = 0;
    unsigned long inode = 0;
    // "1: FLOCK  ADVISORY  WRITE 1234 00:18:3 0 EOF"; a waiting process has "->" in front of FLOCK.
    const int read = std::sscanf(line.c_str(), "%*d: FLOCK %*s %*s %d %x:%x:%lu", &id, &device_major,
                                 &device_minor, &inode);
    const bool same = read == 4 && device_major == major(file.st_dev) && device_minor == minor(file.st_dev) &&
                      inode == file.st_ino;
    if (same) holders.push_back(process(world, id));
  }
  return holders;
}

std::vector<Process> openers(const World& world, const std::string& absolute) {
  std::error_code error;
  const fs::path real = fs::canonical(world.path(absolute), error);
  std::vector<Process> found;
  for (const int id : process_ids(world)) {
    if (id == getpid()) continue;
    std::error_code unreadable;
    for (const auto& entry :
         fs::directory_iterator(world.path("/proc/" + std::to_string(id) + "/fd"), unreadable)) {
      const fs::path target = fs::read_symlink(entry.path(), unreadable);
      if (target != real && target != fs::path(absolute)) continue;
      found.push_back(process(world, id));
      break;
    }
  }
  return found;
}

std::vector<UsbDevice> find_devices(const World& world) {
  std::vector<UsbDevice> devices;
  for (const fs::path& folder : device_folders(world)) {
    UsbDevice device = describe(world, folder);
    add_nodes(world, folder, device);
    if (names_device(device.description) || names_device(device.properties))
      devices.push_back(std::move(device));
  }
  return devices;
}

std::string modem_manager_rule(const World& world, const std::vector<UsbDevice>& devices) {
  for (const UsbDevice& device : devices) {
    if (device.properties.find(std::string("E:") + kIgnoreProperty + "=1") != std::string::npos)
      return "udev";
  }
  for (const char* folder : kRuleFolders) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(world.path(folder), error)) {
      const std::string rules = without_comments(read_file(entry.path()).value_or(""));
      const bool for_device =
          names_device(rules) ||
          std::any_of(devices.begin(), devices.end(), [&rules](const UsbDevice& device) {
            return !device.vendor.empty() && rules.find(device.vendor) != std::string::npos;
          });
      if (for_device && rules.find(kIgnoreProperty) != std::string::npos) return entry.path().string();
    }
  }
  return {};
}

}  // namespace satctl
