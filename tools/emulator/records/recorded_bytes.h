// A piece of the line's traffic.
#pragma once

#include <string>

#include "line/line.h"

namespace emulator {

struct RecordedBytes {
  double seconds = 0;
  Direction direction = Direction::from_till;
  std::string bytes;
};

}  // namespace emulator
