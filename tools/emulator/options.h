// The command line.
#pragma once

#include <string>

namespace emulator {

struct Options {
  std::string link;
  std::string activation_code = "12345678";
  bool activated = false;
  int latency_ms = 0;
};

}  // namespace emulator
