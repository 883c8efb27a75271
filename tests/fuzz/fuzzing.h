// What the fuzz targets share: rules that end the process when they are broken, a folder of their own in
// memory, and inputs cut into parts.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace fuzzing {

inline void require(bool rule) {
  if (!rule) std::abort();
}

// A folder in memory, the working directory from now on.
inline void enter_own_folder() {
  char path[] = "/dev/shm/talvex-fuzz-XXXXXX";
  char fallback[] = "/tmp/talvex-fuzz-XXXXXX";
  const char* made = mkdtemp(path);
  if (made == nullptr) made = mkdtemp(fallback);
  require(made != nullptr);
  require(chdir(made) == 0);
}

// The input from its front.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return rest_.empty(); }
  std::size_t size() const { return rest_.size(); }

  unsigned char byte() {
    if (rest_.empty()) return 0;
    const auto value = static_cast<unsigned char>(rest_[0]);
    rest_.remove_prefix(1);
    return value;
  }

  // Up to the mark, which is dropped; all that is left when there is none.
  std::string up_to(char mark) {
    const std::size_t end = rest_.find(mark);
    std::string part(rest_.substr(0, end));
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    return part;
  }

  std::string rest() {
    std::string all(rest_);
    rest_ = {};
    return all;
  }

  std::string take(std::size_t count) {
    std::string part(rest_.substr(0, count));
    rest_.remove_prefix(part.size());
    return part;
  }

 private:
  std::string_view rest_;
};

}  // namespace fuzzing
