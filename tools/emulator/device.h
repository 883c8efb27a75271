#pragma once

#include <string>

#include "functions.h"
#include "options.h"

namespace emulator {

class Device {
 public:
  explicit Device(const Options& options) : options_(options), activated_(options.activated) {}
  std::string execute(const Command& command);

 private:
  Options options_;
  bool activated_;
};

}  // namespace emulator
