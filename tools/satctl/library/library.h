// The installed driver library, loaded at run time.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "library/functions.h"

namespace satctl {

class Library {
 public:
  // An empty path: libtalvex.so.2 as the loader finds it, else beside satctl. Throws UsageError.
  explicit Library(const std::string& path);

  // The address, or null.
  void* find(const char* name) const;

  template <typename Declared>
  Declared* function(const char* name) const {
    return reinterpret_cast<Declared*>(required(name));
  }

  std::string call(const Function& function, int session, const std::vector<std::string>& values) const;
  std::string version() const;
  const std::filesystem::path& path() const { return path_; }

  std::string return_code_message(int code) const;
  std::optional<std::string> ini_value(const std::filesystem::path& file, const std::string& section,
                                       const std::string& item) const;
  std::optional<std::string> decode_base64(const std::string& text) const;

 private:
  void* required(const char* name) const;

  void* handle_ = nullptr;
  std::filesystem::path path_;
};

}  // namespace satctl
