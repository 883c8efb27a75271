#include "usb_search/mocked_bus.h"

#include <cstdlib>
#include <stdexcept>

#include "support/text_files.h"

namespace fs = std::filesystem;

namespace {

const fs::path kController = "devices/pci0000:00/0000:00:14.0/usb1";

std::string uevent(const std::string& node, const MockedBus::Properties& properties) {
  std::string text = "DEVNAME=" + node + "\nSUBSYSTEM=tty\n";
  for (const std::string& property : properties) text += property + "\n";
  return text;
}

fs::path device_folder(int port) {
  return kController / ("1-" + std::to_string(port));
}

}  // namespace

MockedBus::MockedBus() {
  const char* testbed = std::getenv("UMOCKDEV_DIR");
  if (testbed == nullptr) throw std::runtime_error("not inside umockdev-run");
  sys_ = fs::path(testbed) / "sys";
  fs::remove_all(sys_);
  for (const fs::path& folder :
       {fs::path("bus/usb/devices"), fs::path("class/tty"), fs::path("kernel"), kController})
    fs::create_directories(sys_ / folder);
  fs::create_directories(fs::path(testbed) / "dev");
  fs::create_directory_symlink(fs::path("../../..") / kController, sys_ / "bus/usb/devices/usb1");
  count_event();
}

void MockedBus::plug(int port, const std::string& node, const Properties& properties) {
  nodes_[port] = node;
  const fs::path tty = device_folder(port) / "tty" / node;
  fs::create_directories(sys_ / tty);
  fs::create_directory_symlink("../../../../../../../class/tty", sys_ / tty / "subsystem");
  fs::create_directory_symlink(fs::path("../..") / tty, sys_ / "class/tty" / node);
  write_file(sys_ / tty / "dev", "166:" + std::to_string(port) + "\n");
  set_properties(port, properties);
  count_event();
}

void MockedBus::unplug(int port) {
  fs::remove(sys_ / "class/tty" / nodes_.at(port));
  fs::remove_all(sys_ / device_folder(port));
  count_event();
}

void MockedBus::set_properties(int port, const Properties& properties) {
  const std::string& node = nodes_.at(port);
  write_file(sys_ / "class/tty" / node / "uevent", uevent(node, properties));
}

void MockedBus::count_event() {
  write_file(sys_ / "kernel/uevent_seqnum", std::to_string(++events_) + "\n");
}
