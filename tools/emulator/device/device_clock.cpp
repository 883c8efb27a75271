#include "device/device_clock.h"

#include <ctime>

namespace emulator {

Moment DeviceClock::now() const {
  if (fixed_) return *fixed_;
  const std::time_t utc = std::time(nullptr);
  std::tm local{};
  localtime_r(&utc, &local);
  return timegm(&local) + offset_;
}

void DeviceClock::advance(std::int64_t seconds) {
  (fixed_ ? *fixed_ : offset_) += seconds;
}

}  // namespace emulator
