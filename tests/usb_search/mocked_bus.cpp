#include "usb_search/mocked_bus.h"

#include <cstdlib>
#include <stdexcept>

#include "support/text_files.h"

namespace fs = std::filesystem;

namespace {

const fs::path kController = "devices/pci0000:00/0000:00:14.0/usb1";

std::string uevent(const std::string& name, const std::string& subsystem,
                   const MockedBus::Properties& properties) {
  std::string text = "DEVNAME=" + name + "\nSUBSYSTEM=" + subsystem + "\n";
  for (const std::string& property : properties) text += property + "\n";
  return text;
}

std::string usb_name(int port) {
  return "1-" + std::to_string(port);
}

}  // namespace

MockedBus::MockedBus() {
  const char* testbed = std::getenv("UMOCKDEV_DIR");
  if (testbed == nullptr) throw std::runtime_error("not inside umockdev-run");
  sys_ = fs::path(testbed) / "sys";
  fs::remove_all(sys_);
  fs::create_directories(fs::path(testbed) / "dev");
  fs::create_directories(sys_ / kController);
  fs::create_directories(sys_ / "bus/usb/devices");
  fs::create_directories(sys_ / "class/tty");
  fs::create_directory_symlink(fs::path("../../..") / kController, sys_ / "bus/usb/devices/usb1");
  fs::create_directory_symlink("../../../../bus/usb", sys_ / kController / "subsystem");
  write_file(sys_ / kController / "dev", "189:0\n");
  write_file(sys_ / kController / "uevent", uevent("bus/usb/001/001", "usb", {}));
}

fs::path MockedBus::device_folder(int port) const {
  return sys_ / kController / usb_name(port);
}

std::string MockedBus::node_of(int port) const {
  const fs::path nodes = device_folder(port) / (usb_name(port) + ":1.0/tty");
  return fs::directory_iterator(nodes)->path().filename();
}

void MockedBus::plug(int port, const std::string& node, const Properties& properties) {
  const fs::path device = device_folder(port);
  const fs::path tty = device / (usb_name(port) + ":1.0/tty") / node;
  fs::create_directories(tty);
  fs::create_directory_symlink("../../../../../bus/usb", device / "subsystem");
  write_file(device / "dev", "189:" + std::to_string(port) + "\n");
  write_file(device / "uevent", uevent("bus/usb/001/00" + std::to_string(port + 1), "usb", {}));
  fs::create_directory_symlink("../../../../../../../../class/tty", tty / "subsystem");
  write_file(tty / "dev", "166:" + std::to_string(port) + "\n");
  write_file(tty / "uevent", uevent(node, "tty", properties));

  const fs::path target = kController / usb_name(port);
  fs::create_directory_symlink(fs::path("../../..") / target, sys_ / "bus/usb/devices" / usb_name(port));
  fs::create_directory_symlink(fs::path("../..") / target / (usb_name(port) + ":1.0/tty") / node,
                               sys_ / "class/tty" / node);
}

void MockedBus::unplug(int port) {
  fs::remove(sys_ / "class/tty" / node_of(port));
  fs::remove(sys_ / "bus/usb/devices" / usb_name(port));
  fs::remove_all(device_folder(port));
}

void MockedBus::set_properties(int port, const Properties& properties) {
  const std::string node = node_of(port);
  write_file(sys_ / "class/tty" / node / "uevent", uevent(node, "tty", properties));
}

void MockedBus::hide_from_class(int port) {
  fs::remove(sys_ / "class/tty" / node_of(port));
}

void MockedBus::set_event_count(int count) {
  fs::create_directories(sys_ / "kernel");
  write_file(sys_ / "kernel/uevent_seqnum", std::to_string(count) + "\n");
}
