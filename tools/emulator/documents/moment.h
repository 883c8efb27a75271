// Moments are seconds of local wall time since 1970-01-01 00:00 local, so that a fixed one means the same on
// every machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace emulator {

using Moment = std::int64_t;

// "2026-03-01T10:00:00", "2026-03-01 10:00:00", "2026-03-01" or "20260301100000".
std::optional<Moment> parse_moment(std::string_view text);
std::string format_moment(Moment moment);  // yyyymmddHHMMSS
std::string format_date(Moment moment);    // yyyymmdd

// "90", "90s", "31m", "2h", "3d", in seconds.
std::optional<std::int64_t> parse_duration(std::string_view text);

}  // namespace emulator
