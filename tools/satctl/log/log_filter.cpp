#include "log/log_filter.h"

#include <cstdio>

#include "library/functions.h"
#include "terminal/exit_status.h"

namespace satctl {

namespace {

std::optional<LocalTime> parse_clock(const std::string& text) {
  int hours = 0, minutes = 0, seconds = 0, used = 0;
  const int count = std::sscanf(text.c_str(), "%2d:%2d%n:%2d%n", &hours, &minutes, &used, &seconds, &used);
  const bool valid = count >= 2 && static_cast<std::size_t>(used) == text.size() && hours >= 0 &&
                     hours < 24 && minutes >= 0 && minutes < 60 && seconds >= 0 && seconds < 60;
  if (!valid) return std::nullopt;
  return ((hours * 60LL + minutes) * 60 + seconds) * 1000;
}

}  // namespace

std::optional<LogFilter::Bound> LogFilter::parse_bound(const std::string& option, const std::string& text) {
  if (text.empty()) return std::nullopt;
  constexpr std::size_t kDateLength = 10;
  const bool with_date = text.size() > kDateLength;
  const auto date = with_date ? parse_date(text.substr(0, kDateLength)) : parse_date(text);
  const auto clock = with_date ? parse_clock(text.substr(kDateLength + 1)) : parse_clock(text);
  if (date && (clock || !with_date)) return Bound{start_of(*date) + clock.value_or(0), false};
  if (clock && !with_date) return Bound{*clock, true};
  throw UsageError(fill({"{} {}: a time is HH:MM[:SS] or YYYY-MM-DD[ HH:MM[:SS]]",
                         "{} {}: o horário é HH:MM[:SS] ou AAAA-MM-DD[ HH:MM[:SS]]"},
                        {option, text}));
}

LogFilter::LogFilter(const GivenView& given)
    : since_(parse_bound("--since", given.since)),
      until_(parse_bound("--until", given.until)),
      function_(find_function(given.function)),
      name_(given.function),
      session_(given.session),
      frames_only_(given.frames) {
  if (given.level.empty()) return;
  level_ = parse_level(given.level);
  if (!level_) {
    throw UsageError(fill({"--level {}: a level is ERR, WRN, INF, TRC, JNI or DBG",
                           "--level {}: o nível é ERR, WRN, INF, TRC, JNI ou DBG"},
                          {given.level}));
  }
}

bool LogFilter::passes(const Record& record, const LoggedCall* call) const {
  return (!frames_only_ || record.direction != Direction::none) && in_time(record.time) && in_level(record) &&
         of_function(record, call) && of_session(record, call);
}

bool LogFilter::passes(const LoggedCall& call) const {
  return in_time(call.start) && (name_.empty() || (function_ != nullptr && call.function == function_)) &&
         (session_ < 0 || call.session == session_);
}

bool LogFilter::in_time(LocalTime time) const {
  const auto at = [time](const Bound& bound) { return bound.any_day ? time % kMillisecondsOfDay : time; };
  return (!since_ || at(*since_) >= since_->time) && (!until_ || at(*until_) <= until_->time);
}

bool LogFilter::in_level(const Record& record) const {
  const Level level = record.direction == Direction::none ? record.level : Level::info;
  return !level_ || level <= *level_;
}

bool LogFilter::of_function(const Record& record, const LoggedCall* call) const {
  if (name_.empty() || lower_case(record.function) == lower_case(name_)) return true;
  return call != nullptr && function_ != nullptr && call->function == function_;
}

bool LogFilter::of_session(const Record& record, const LoggedCall* call) const {
  if (session_ < 0) return true;
  if (record.direction != Direction::none && session_of(record) == session_) return true;
  return call != nullptr && call->session == session_;
}

}  // namespace satctl
