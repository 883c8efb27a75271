// hub.toml, and what holds without it.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace hub {

class SettingsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct DeviceSettings {
  std::filesystem::path port;  // empty: what the USB bus has
  std::string serial;          // empty: any
  std::filesystem::path activation_code_file;
};

struct Settings {
  std::filesystem::path state;
  std::vector<std::string> http{"127.0.0.1:8360"};
  std::filesystem::path socket;
  std::filesystem::path locks{"/run/lock"};
  std::string library;  // empty: as the loader finds it
  DeviceSettings device;

  std::filesystem::path journal() const { return state / "journal.sqlite"; }
};

// Without a file name: the defaults. A state folder given on the command line wins.
Settings load_settings(const std::filesystem::path& file, const std::filesystem::path& state);
Settings read_settings(std::string_view toml, const Settings& defaults);

// An activation code as it lies in its file, and which file that was, so that a changed one is noticed. The
// code itself is kept nowhere else.
struct ActivationCode {
  std::string code;
  std::string stamp;
};
// None if there is no file. Throws for one that others may read.
std::optional<ActivationCode> read_activation_code(const std::filesystem::path& file);

}  // namespace hub
