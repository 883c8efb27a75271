// Two stand-ins for the machine's USB devices, so that no test depends on what is plugged in:
//   UsbBus        a mocked bus; the real find and udevadm see it in a child run by umockdev-run
//   CannedSearch  find and udevadm themselves are replaced, for tests within one process
#pragma once

#include <string>
#include <utility>
#include <vector>

struct UsbNode {
  std::string name;                     // as udevadm gives it: "ttyACM0"
  std::vector<std::string> properties;  // "ID_MODEL=TALVEX_SAT"
};

// The description of a bus with one host controller and one USB device per node, each with that node as a
// child, in the format that umockdev-run --device takes.
class UsbBus {
 public:
  explicit UsbBus(std::vector<UsbNode> nodes) : nodes_(std::move(nodes)) {}
  std::string description() const;

 private:
  std::vector<UsbNode> nodes_;
};

// While it lives, find lists the "dev" files of these nodes, in this order, and udevadm tells their names
// and properties. Its files lie in the working directory.
class CannedSearch {
 public:
  explicit CannedSearch(const std::vector<UsbNode>& nodes = {});
  ~CannedSearch();
  CannedSearch(const CannedSearch&) = delete;
  CannedSearch& operator=(const CannedSearch&) = delete;

  // The arguments of every call of find and udevadm, a line each.
  std::string calls() const;

 private:
  std::string former_path_;
  std::string directory_;
};
