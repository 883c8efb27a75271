// A USB bus in umockdev's testbed that a test changes while the library runs.
#pragma once

#include <filesystem>
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

  // Written over the former ones, as the kernel and udev show them from then on.
  void set_properties(int port, const Properties& properties);

  // The class folder forgets the port; the device stays.
  void hide_from_class(int port);

  // The kernel's count of device events; the bus has none until it is first set.
  void set_event_count(int count);

 private:
  std::filesystem::path device_folder(int port) const;
  std::string node_of(int port) const;

  std::filesystem::path sys_;
};
