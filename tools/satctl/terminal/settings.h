// What every command shares: the options of satctl itself and access to files.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace satctl {

struct Settings {
  bool json = false;
  bool raw = false;
  std::filesystem::path folder = ".";  // the till's working directory
  std::string library;
};

inline constexpr const char* kIniFile = "SAT.ini";
inline constexpr const char* kPortFile = "SAT.conf";

// The whole file, or nothing.
std::optional<std::string> read_file(const std::filesystem::path& path);

// Nothing too for a link and for anything else that is no file.
std::optional<std::string> read_regular_file(const std::filesystem::path& path);

// An argument as the user may write it: a value, @FILE, or - for standard input. Throws UsageError.
std::string read_argument(const std::string& argument);

// Replaces the file in one step, keeping its mode; false with errno on failure.
bool replace_file(const std::filesystem::path& path, const std::string& content);

// Makes the till's working directory the current one. Throws UsageError.
void enter(const std::filesystem::path& folder);

}  // namespace satctl
