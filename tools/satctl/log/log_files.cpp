#include "log/log_files.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <tuple>

#include "library/functions.h"
#include "masking/frame_fields.h"
#include "terminal/settings.h"
#include "terminal/text.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kDateDigits = 8;
constexpr int kCurrentFile = 1'000'000;

struct LevelRow {
  const char* tag;
  Level level;
};
constexpr std::array kLevels{LevelRow{"ERR", Level::error},  LevelRow{"WRN", Level::warning},
                             LevelRow{"INF", Level::info},   LevelRow{"TRC", Level::trace},
                             LevelRow{"JNI", Level::jni},    LevelRow{"DBG", Level::debug},
                             LevelRow{"Unk", Level::unknown}};

int number(std::string_view text, std::size_t at, std::size_t digits) {
  return std::stoi(std::string(text.substr(at, digits)));
}

// What tells that a record starts is not longer.
constexpr std::size_t kLongestStart = 40;

// "[21:12:44.498]ERR "
bool starts_trace_record(std::string_view line) {
  constexpr std::string_view kForm = "[00:00:00.000]";
  if (line.size() < kForm.size() + 3) return false;
  return std::equal(kForm.begin(), kForm.end(), line.begin(),
                    [](char f, char c) { return f == '0' ? c >= '0' && c <= '9' : f == c; });
}

constexpr std::string_view kSent = " PC->SAT >> [";
constexpr std::string_view kReceived = " SAT->PC << [";
constexpr std::size_t kStampDigits = 14;

// "20261121001244 PC->SAT >> ["
bool starts_frame(std::string_view line) {
  if (!starts_with_digits(line, kStampDigits) || !parse_date(line.substr(0, kDateDigits))) return false;
  const std::string_view rest = line.substr(kStampDigits);
  return rest.starts_with(kSent) || rest.starts_with(kReceived);
}

// The log prints the hour three hours back: 21 to 24 are the local hours 0 to 3.
int local_hour(int printed) {
  constexpr int kShift = 3, kLastShifted = 21;
  return printed >= kLastShifted ? printed - kLastShifted : printed + kShift;
}

LocalTime time_of_day(int hours, int minutes, int seconds) {
  return ((hours * 60LL + minutes) * 60 + seconds) * 1000;
}

// The function's name in "[0213] [../src/api/TALVEX] [findSat]Lnx", "[0138]  ../src/x  findSat  rc" and
// "[0139] OLK_Exist rc".
std::string function_of(std::string_view message) {
  const auto next_word = [&message] {
    message = message.substr(std::min(message.find_first_not_of(" ["), message.size()));
    const std::size_t end = std::min(message.find_first_of(" ]\n"), message.size());
    const std::string_view word = message.substr(0, end);
    message.remove_prefix(std::min(end + 1, message.size()));
    return word;
  };
  next_word();
  std::string_view word = next_word();
  if (word.find('/') != std::string_view::npos) word = next_word();
  return std::string(word);
}

Record parse_trace(std::string_view text, const Date& date) {
  Record record;
  record.time = start_of(date) +
                time_of_day(local_hour(number(text, 1, 2)), number(text, 4, 2), number(text, 7, 2)) +
                number(text, 10, 3);
  record.stamp = text.substr(0, 14);
  record.level = parse_level(text.substr(14, 3)).value_or(Level::unknown);
  record.body = text.substr(std::min<std::size_t>(18, text.size()));
  while (record.body.ends_with('\n')) record.body.pop_back();
  record.function = function_of(record.body);
  return record;
}

// Kept by the library: the messages of a port that cannot be locked have no line feed, and the next one
// follows at once. Where it begins, or the end.
std::size_t second_message(std::string_view text) {
  constexpr std::size_t kHead = 120;
  const std::string_view head = text.substr(0, kHead);
  if (head.find("STEP-05b") == std::string_view::npos && head.find("STEP-05c") == std::string_view::npos)
    return text.size();
  for (auto end = text.find("]n["); end != std::string_view::npos; end = text.find("]n[", end + 1)) {
    if (starts_trace_record(text.substr(end + 2))) return end + 2;
  }
  return text.size();
}

Record parse_frame(std::string_view text) {
  Record record;
  const Date date{number(text, 0, 4), number(text, 4, 2), number(text, 6, 2)};
  record.time = start_of(date) + time_of_day(number(text, 8, 2), number(text, 10, 2), number(text, 12, 2));
  record.milliseconds_known = false;
  record.stamp = text.substr(0, kStampDigits);
  record.direction =
      text.substr(kStampDigits).starts_with(kSent) ? Direction::to_device : Direction::from_device;
  text.remove_prefix(kStampDigits + kSent.size());
  const std::size_t end = std::min(text.rfind(']'), text.size());
  record.mark = trimmed(text.substr(std::min(end + 1, text.size())));
  record.body = masking::unmarked(text.substr(0, end));
  const std::string_view name = std::string_view(record.body).substr(0, record.body.find('|'));
  // A sent frame whose checksum is zero stands under the other direction.
  const bool is_command = find_function(name) != nullptr;
  if (is_command) record.direction = Direction::to_device;
  if (is_command) record.function = name;
  return record;
}

}  // namespace

std::optional<Level> parse_level(std::string_view tag) {
  const auto found = std::find_if(kLevels.begin(), kLevels.end(), [tag](const LevelRow& row) {
    return lower_case(row.tag) == lower_case(tag);
  });
  return found == kLevels.end() ? std::nullopt : std::optional(found->level);
}

const char* level_tag(Level level) {
  return kLevels[static_cast<std::size_t>(level) - 1].tag;
}

std::optional<Date> parse_date(std::string_view text) {
  std::string digits(text);
  std::erase(digits, '-');
  if (digits.size() != kDateDigits || !all_digits(digits)) return std::nullopt;
  const Date date{number(digits, 0, 4), number(digits, 4, 2), number(digits, 6, 2)};
  using namespace std::chrono;
  const year_month_day known{year(date.year), month(static_cast<unsigned>(date.month)),
                             day(static_cast<unsigned>(date.day))};
  return known.ok() ? std::optional(date) : std::nullopt;
}

std::string format_date(const Date& date) {
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d", date.year, date.month, date.day);
  return text;
}

Date today() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

LocalTime start_of(const Date& date) {
  using namespace std::chrono;
  const year_month_day day_of{year(date.year), month(static_cast<unsigned>(date.month)),
                              day(static_cast<unsigned>(date.day))};
  return sys_days(day_of).time_since_epoch().count() * kMillisecondsOfDay;
}

std::string format_time(LocalTime time, bool milliseconds_known) {
  using namespace std::chrono;
  const LocalTime day_number = time / kMillisecondsOfDay;
  const year_month_day date{sys_days(days(day_number))};
  const int rest = static_cast<int>(time % kMillisecondsOfDay);
  char text[40];
  std::snprintf(text, sizeof text, " %02d:%02d:%02d", rest / 3'600'000, rest / 60'000 % 60, rest / 1000 % 60);
  std::string shown =
      format_date({static_cast<int>(date.year()), static_cast<int>(static_cast<unsigned>(date.month())),
                   static_cast<int>(static_cast<unsigned>(date.day()))}) +
      text;
  std::snprintf(text, sizeof text, ".%03d", rest % 1000);
  return shown + (milliseconds_known ? text : "    ");
}

std::optional<LogFile> log_file(const fs::path& path) {
  constexpr std::string_view kBackup = ".log_bkp_";
  const std::string name = path.filename().string();
  const auto date =
      starts_with_digits(name, kDateDigits) ? parse_date(name.substr(0, kDateDigits)) : std::nullopt;
  if (date && name.find("_SAT_ProtocolLog.txt") == kDateDigits)
    return LogFile{path, LogKind::protocol, *date, 0};
  const auto backup = name.find(kBackup);
  if (date && (name.ends_with(".log") && backup == std::string::npos)) {
    return LogFile{path, LogKind::trace, *date, kCurrentFile};
  }
  if (date && backup != std::string::npos) {
    return LogFile{path, LogKind::trace, *date, std::atoi(name.c_str() + backup + kBackup.size())};
  }
  const auto content = read_file(path);
  if (!content) return std::nullopt;
  if (starts_frame(*content)) {
    return LogFile{path, LogKind::protocol, parse_date(content->substr(0, kDateDigits)).value_or(today()), 0};
  }
  if (starts_trace_record(*content))
    return LogFile{path, LogKind::trace, date.value_or(today()), kCurrentFile};
  return std::nullopt;
}

std::vector<LogFile> find_log_files(const fs::path& folder) {
  std::vector<LogFile> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    const bool dated = starts_with_digits(name, kDateDigits) && parse_date(name.substr(0, kDateDigits));
    if (!dated || name.ends_with(".sat")) continue;
    if (const auto file = log_file(entry.path())) files.push_back(*file);
  }
  std::sort(files.begin(), files.end(), [](const LogFile& a, const LogFile& b) {
    return std::tuple(a.date, a.kind, a.backup, a.path) < std::tuple(b.date, b.kind, b.backup, b.path);
  });
  return files;
}

void append(std::vector<Record>& records, std::vector<Record> more) {
  std::move(more.begin(), more.end(), std::back_inserter(records));
}

bool RecordReader::starts(std::string_view text) const {
  return kind_ == LogKind::trace ? starts_trace_record(text) : starts_frame(text);
}

std::vector<Record> RecordReader::read(std::string_view piece) {
  pending_.append(piece);
  std::vector<Record> records;
  take_records(records, [this](std::size_t line) {
    // Whether a line starts a record shows in its first characters, which may be cut off here.
    return pending_.size() - line >= kLongestStart || pending_.find('\n', line) != std::string::npos;
  });
  return records;
}

std::vector<Record> RecordReader::finish() {
  std::vector<Record> records;
  take_records(records, [](std::size_t) { return true; });
  add(pending_, records);
  pending_.clear();
  looked_at_ = 0;
  return records;
}

void RecordReader::take_records(std::vector<Record>& records,
                                const std::function<bool(std::size_t)>& is_whole) {
  std::size_t record_start = 0;
  while (true) {
    const std::size_t feed = pending_.find('\n', looked_at_);
    looked_at_ = std::min(feed, pending_.size());
    if (feed == std::string::npos || !is_whole(feed + 1)) break;
    looked_at_ = feed + 1;
    if (!starts(std::string_view(pending_).substr(looked_at_))) continue;
    add(std::string_view(pending_).substr(record_start, looked_at_ - record_start), records);
    record_start = looked_at_;
  }
  pending_.erase(0, record_start);
  looked_at_ -= record_start;
}

void RecordReader::add(std::string_view text, std::vector<Record>& records) {
  if (!starts(text)) {
    skipped_ += text.size();
    return;
  }
  if (kind_ == LogKind::protocol) {
    records.push_back(parse_frame(text));
    return;
  }
  while (!text.empty()) {
    const std::size_t next = second_message(text);
    records.push_back(parse_trace(text.substr(0, next), date_));
    text.remove_prefix(next);
  }
}

}  // namespace satctl
