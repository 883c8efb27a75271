// The calls of write by the library. The test is linked with write_calls.cpp and the linker's --wrap=write.
#pragma once

#include <string>
#include <vector>

namespace write_calls {

// While one of these lives, every other write is interrupted by a signal, and the rest take one byte each.
class Reluctant {
 public:
  Reluctant();
  ~Reluctant();
  Reluctant(const Reluctant&) = delete;
  Reluctant& operator=(const Reluctant&) = delete;
};

// While it lives, it keeps what each call wrote.
class Recorder {
 public:
  Recorder();
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  const std::vector<std::string>& calls() const { return calls_; }
  void add(const char* bytes, std::size_t length) { calls_.emplace_back(bytes, length); }

 private:
  std::vector<std::string> calls_;
};

}  // namespace write_calls
