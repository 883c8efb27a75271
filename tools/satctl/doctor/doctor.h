// The checks of satctl doctor.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "configuration/ini_items.h"
#include "doctor/world.h"
#include "library/library.h"

namespace satctl {

struct Finding {
  std::string id;
  Grade grade;
  std::string text;
  std::string remedy;       // what to do, unless all is well
  std::string quoted = {};  // what the text quotes from SAT.ini
};

// What the checks look at; it is gathered once.
struct Patient {
  World world;
  User user;
  std::filesystem::path folder;  // the till's working directory, absolute; the current one
  std::optional<Library> library;
  std::string library_error;
  std::vector<UsbDevice> devices;
  std::string port;  // the one that the library will use; empty if there is none
  std::filesystem::path log_folder;
};

Patient examine(const World& world, const User& user, const std::string& library_path);
std::vector<Finding> diagnose(const Patient& patient);

}  // namespace satctl
