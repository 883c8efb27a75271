#include "support/usb_bus.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "support/environment.h"
#include "support/text_files.h"

namespace {

void write_program(const std::filesystem::path& path, const std::string& script) {
  write_file(path, "#!/bin/sh\n" + script);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

std::string joined(const std::vector<std::string>& lines, const std::string& prefix) {
  std::string text;
  for (const std::string& line : lines) text.append(prefix).append(line).append("\n");
  return text;
}

}  // namespace

std::string UsbBus::description() const {
  const std::string host = "/devices/pci0000:00/0000:00:14.0/usb1";
  std::ostringstream text;
  text
      << "P: " << host
      << "\nN: bus/usb/001/001\nE: DEVNAME=/dev/bus/usb/001/001\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nA: "
         "dev=189:0\\n\n\n";
  int port = 0;
  for (const UsbNode& node : nodes_) {
    ++port;
    text << "P: " << host << "/1-" << port << "\nN: bus/usb/001/00" << port + 1
         << "\nE: DEVNAME=/dev/bus/usb/001/00" << port + 1 << "\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\n"
         << joined(node.properties, "E: ") << "A: dev=189:" << port << "\\n\n\n";
    text << "P: " << host << "/1-" << port << "/1-" << port << ":1.0/tty/" << node.name
         << "\nN: " << node.name << "\nE: DEVNAME=/dev/" << node.name << "\nE: SUBSYSTEM=tty\n"
         << joined(node.properties, "E: ") << "A: dev=166:" << port << "\\n\n\n";
  }
  return text.str();
}

CannedSearch::CannedSearch(const std::vector<UsbNode>& nodes) {
  former_path_ = environment("PATH");
  // A name of its own each time: the search depends on PATH, and a former answer must not be recalled.
  static int searches = 0;
  directory_ = (std::filesystem::current_path() / ("canned-search-" + std::to_string(searches++))).string();
  std::filesystem::create_directory(directory_);
  std::string listing;
  int number = 0;
  for (const UsbNode& node : nodes) {
    const std::string device = directory_ + "/device" + std::to_string(number++);
    std::filesystem::create_directory(device);
    write_file(device + "/name", node.name + "\n");
    write_file(device + "/properties", joined(node.properties, ""));
    listing += device + "/dev\n";
  }
  write_file(directory_ + "/listing", listing);
  write_file(directory_ + "/calls", "");
  // They go on where their record of calls meets a full disk.
  write_program(directory_ + "/find", "trap '' XFSZ\necho \"find $*\" >> " + directory_ + "/calls\ncat " +
                                          directory_ + "/listing\n");
  write_program(directory_ + "/udevadm",
                "trap '' XFSZ\necho \"udevadm $*\" >> " + directory_ +
                    "/calls\nfor path; do :; done\n"
                    "case \"$3\" in name) cat $path/name;; *) cat $path/properties;; esac\n");
  setenv("PATH", (directory_ + ":" + former_path_).c_str(), 1);
}

CannedSearch::~CannedSearch() {
  setenv("PATH", former_path_.c_str(), 1);
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

std::string CannedSearch::calls() const {
  std::string text = read_file(directory_ + "/calls");
  for (std::size_t at; (at = text.find(directory_)) != std::string::npos;)
    text.erase(at, directory_.size() + 1);
  return text;
}
