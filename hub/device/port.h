// The device's port: which one it is, and whether it still is the same.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace hub {

// What makes a node this node. A device that goes and comes back, and a name that points elsewhere, give
// another one.
struct PortNode {
  dev_t device = 0;
  ino_t inode = 0;
  long long changed = 0;  // nanoseconds since 1970

  bool operator==(const PortNode&) const = default;
};

// None: there is no such port, or it is no character device.
std::optional<PortNode> node_of(const std::filesystem::path& port);

// The port that the driver library would find on the USB bus: the last ttyACM whose udev properties bear its
// mark.
std::optional<std::filesystem::path> find_usb_port(const std::filesystem::path& root = "/");

// An exclusive lock on a file of its own, until the process ends. None if somebody else has it.
enum class LockResult { locked, held, impossible };
LockResult lock_for_life(const std::filesystem::path& folder, const std::string& name);
std::string lock_name(const PortNode& node);
std::string lock_name_of_serial(const std::string& serial);

}  // namespace hub
