#include "documents/moment.h"

#include <array>
#include <cctype>
#include <charconv>
#include <ctime>

namespace emulator {

std::optional<Moment> parse_moment(std::string_view text) {
  std::string digits;
  for (const char c : text) {
    if (std::isdigit(static_cast<unsigned char>(c)) != 0)
      digits += c;
    else if (std::string_view("-:T ").find(c) == std::string_view::npos)
      return std::nullopt;
  }
  if (digits.size() == 8) digits += "000000";
  if (digits.size() != 14) return std::nullopt;
  const auto number = [&digits](std::size_t at, std::size_t size) {
    return std::stoi(digits.substr(at, size));
  };
  std::tm time{};
  time.tm_year = number(0, 4) - 1900;
  time.tm_mon = number(4, 2) - 1;
  time.tm_mday = number(6, 2);
  time.tm_hour = number(8, 2);
  time.tm_min = number(10, 2);
  time.tm_sec = number(12, 2);
  const Moment moment = timegm(&time);
  // timegm mends a 31st of February; a moment that reads differently afterwards was none.
  if (format_moment(moment) != digits) return std::nullopt;
  return moment;
}

std::string format_moment(Moment moment) {
  const std::time_t seconds = moment;
  std::tm time{};
  gmtime_r(&seconds, &time);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &time);
  return text.data();
}

std::string format_date(Moment moment) {
  return format_moment(moment).substr(0, 8);
}

std::optional<std::int64_t> parse_duration(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || value < 0 || value > 100'000'000) return std::nullopt;
  const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
  if (unit.empty() || unit == "s") return value;
  if (unit == "m") return value * 60;
  if (unit == "h") return value * 3'600;
  if (unit == "d") return value * 86'400;
  return std::nullopt;
}

}  // namespace emulator
