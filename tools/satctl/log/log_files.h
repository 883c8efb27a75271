// Trace and protocol logs: finding the files, reading their records.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace satctl {

// Local wall-clock time in milliseconds since the epoch of the local calendar; the protocol log knows whole
// seconds only.
using LocalTime = std::int64_t;
constexpr LocalTime kMillisecondsOfDay = 86'400'000;

enum class Level { error = 1, warning, info, trace, jni, debug, unknown };
enum class Direction { none, to_device, from_device };

// One message of the trace log (Direction::none), or one frame of the protocol log.
struct Record {
  LocalTime time = 0;
  bool milliseconds_known = true;
  Level level = Level::unknown;
  Direction direction = Direction::none;
  std::string stamp;     // the time as it stands in the file
  std::string function;  // of the library, or of the SAT for a command frame
  std::string body;      // the message behind time and level, or the frame's text
  std::string mark;      // protocol log: OK:a, WR:d ...
  bool shown = false;    // by a reader who follows the log
};

struct Date {
  int year, month, day;
  auto operator<=>(const Date&) const = default;
};

enum class LogKind { trace, protocol };

struct LogFile {
  std::filesystem::path path;
  LogKind kind;
  Date date;
  int backup;  // number of a rotated trace file; the current one comes last
};

// The logs of a folder in the order of their content.
std::vector<LogFile> find_log_files(const std::filesystem::path& folder);
// By its name; a file with another name by its first line.
std::optional<LogFile> log_file(const std::filesystem::path& path);

// Takes the text of one file in pieces and gives its records as they become complete.
class RecordReader {
 public:
  RecordReader(LogKind kind, Date date) : kind_(kind), date_(date) {}

  std::vector<Record> read(std::string_view piece);
  // The last record, which no other follows yet.
  std::vector<Record> finish();
  // Bytes in front of the first record, which belong to none.
  std::size_t skipped() const { return skipped_; }

 private:
  bool starts(std::string_view text) const;
  void add(std::string_view text, std::vector<Record>& records);
  void take_records(std::vector<Record>& records, const std::function<bool(std::size_t)>& is_whole);

  LogKind kind_;
  Date date_;
  std::string pending_;
  std::size_t looked_at_ = 0;  // in pending_: no line feed in front of it is of interest any more
  std::size_t skipped_ = 0;
};

void append(std::vector<Record>& records, std::vector<Record> more);

std::optional<Date> parse_date(std::string_view text);  // YYYY-MM-DD or YYYYMMDD
std::string format_date(const Date& date);
Date today();
LocalTime start_of(const Date& date);
std::string format_time(LocalTime time, bool milliseconds_known);  // YYYY-MM-DD HH:MM:SS.mmm
std::optional<Level> parse_level(std::string_view tag);
const char* level_tag(Level level);

}  // namespace satctl
