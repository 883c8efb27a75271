// A USB bus in umockdev's testbed that a test changes while the library runs.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

class MockedBus {
 public:
  using Properties = std::vector<std::string>;  // "ID_MODEL=TALVEX_SAT"

  // An empty bus: one host controller.
  MockedBus();

  // A serial device on a port of the controller; node is the name of its port, "ttyACM0".
  void plug(int port, const std::string& node, const Properties& properties);
  void unplug(int port);

  // Written over the former ones, as udev shows them from then on; the kernel counts nothing.
  void set_properties(int port, const Properties& properties);

  // In the kernel's count, as every plug and unplug does.
  void count_event();

  std::filesystem::path path(const std::string& name) const { return sys_ / name; }  // "class/tty"

 private:
  std::filesystem::path sys_;
  std::map<int, std::string> nodes_;
  int events_ = 1000;
};
