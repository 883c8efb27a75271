// The device's clock: the local time, or one that stands still until it is moved.
#pragma once

#include <cstdint>
#include <optional>

#include "documents/moment.h"

namespace emulator {

class DeviceClock {
 public:
  Moment now() const;
  // The clock stands still at this moment from now on.
  void stop_at(Moment moment) { fixed_ = moment; }
  // Moves a standing clock, or sets a running one ahead.
  void advance(std::int64_t seconds);

 private:
  std::optional<Moment> fixed_;
  std::int64_t offset_ = 0;
};

}  // namespace emulator
