#include "hub/device/port.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>

namespace hub {

namespace {

constexpr long long kNanoseconds = 1'000'000'000;
constexpr const char* kMarks[] = {"TALVEX", "VDR-K20"};

bool bears_mark(const std::filesystem::path& properties) {
  std::ifstream file(properties);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return std::any_of(std::begin(kMarks), std::end(kMarks),
                     [&](const char* mark) { return text.find(mark) != std::string::npos; });
}

std::string udev_record(dev_t device) {
  return "c" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

// Created by whoever comes first. Files of other users in a sticky folder may be opened, not created over.
int open_lock(const std::filesystem::path& file) {
  const int existing = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (existing >= 0 || errno != ENOENT) return existing;
  return open(file.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
}

}  // namespace

std::optional<PortNode> node_of(const std::filesystem::path& port) {
  struct stat status {};
  if (stat(port.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) return std::nullopt;
  return PortNode{status.st_rdev, status.st_ino,
                  status.st_ctim.tv_sec * kNanoseconds + status.st_ctim.tv_nsec};
}

std::optional<std::filesystem::path> find_usb_port(const std::filesystem::path& root) {
  std::optional<std::filesystem::path> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(root / "dev", error)) {
    if (!entry.path().filename().string().starts_with("ttyACM")) continue;
    const auto node = node_of(entry.path());
    if (!node || !bears_mark(root / "run/udev/data" / udev_record(node->device))) continue;
    if (!found || *found < entry.path()) found = entry.path();
  }
  return found;
}

LockResult lock_for_life(const std::filesystem::path& folder, const std::string& name) {
  const int file = open_lock(folder / name);
  if (file < 0) return LockResult::impossible;
  if (flock(file, LOCK_EX | LOCK_NB) == 0) return LockResult::locked;
  const int reason = errno;
  close(file);
  return reason == EWOULDBLOCK ? LockResult::held : LockResult::impossible;
}

std::string lock_name(const PortNode& node) {
  return "talvex-port-" + std::to_string(major(node.device)) + "-" + std::to_string(minor(node.device)) +
         ".lock";
}

std::string lock_name_of_serial(const std::string& serial) {
  std::string name = serial;
  std::replace_if(
      name.begin(), name.end(),
      [](unsigned char c) {
        return !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'));
      },
      '_');
  return "talvex-serial-" + name + ".lock";
}

}  // namespace hub
