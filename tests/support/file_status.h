// Who may read a file, and how many descriptors this process has open.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <iterator>

// Permissions alone; 0 when there is no such file.
inline unsigned mode_of(const std::filesystem::path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class Umask {
 public:
  explicit Umask(mode_t mask) : former_(umask(mask)) {}
  ~Umask() { umask(former_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t former_;
};

// Those that lead to this path.
inline long open_descriptors(const std::string& path) {
  long count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the directory's own
    if (std::filesystem::read_symlink(entry, gone) == path) ++count;
  }
  return count;
}

inline long open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}
