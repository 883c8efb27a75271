// The machine that doctor looks at: /sys, /proc, /dev, /etc and /run, under a prefix if one is given.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace satctl {

class World {
 public:
  explicit World(std::filesystem::path root = "/") : root_(std::move(root)) {}

  bool is_real() const { return root_ == "/"; }
  std::filesystem::path path(const std::string& absolute) const;
  std::optional<std::string> read(const std::string& absolute) const;
  // The first line, trimmed; empty if there is none.
  std::string line(const std::filesystem::path& file) const;

 private:
  std::filesystem::path root_;
};

// A user with the groups that /etc/group gives.
struct User {
  std::string name;
  uid_t uid = 0;
  std::vector<gid_t> groups;

  bool in_group(gid_t group) const;
  // Whether the mode bits allow it; wanted is R_OK | W_OK | X_OK.
  bool may(const struct stat& file, int wanted) const;
};

User current_user(const World& world);
std::optional<User> find_user(const World& world, const std::string& name);
std::string user_name(const World& world, uid_t uid);
std::string group_name(const World& world, gid_t gid);

struct Process {
  int id;
  std::string program;
};

std::vector<int> process_ids(const World& world);
Process process(const World& world, int id);

// Who holds a lock on the file, by /proc/locks.
std::vector<Process> lock_holders(const World& world, const struct stat& file);
// Who has the file open.
std::vector<Process> openers(const World& world, const std::string& absolute);

struct UsbDevice {
  std::string bus_name;            // 1-1.2
  std::string vendor, product;     // hexadecimal
  std::string description;         // manufacturer, product, serial number
  std::vector<std::string> nodes;  // /dev/ttyACM0 ...
  std::string properties;          // what udev knows of the nodes
};

// The devices on the USB that name the line which the library looks for.
std::vector<UsbDevice> find_devices(const World& world);

// A udev rule file that keeps ModemManager off the device; empty if there is none.
std::string modem_manager_rule(const World& world, const std::vector<UsbDevice>& devices);

}  // namespace satctl
