// A temporary directory that is the working directory while the object lives; the library reads and
// writes its files in the working directory.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

class ScratchDirectory {
 public:
  ScratchDirectory() : former_(std::filesystem::current_path()) {
    std::string path = (std::filesystem::temp_directory_path() / "talvex-test-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = path;
    std::filesystem::current_path(path_);
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(former_, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path former_;
  std::filesystem::path path_;
};
