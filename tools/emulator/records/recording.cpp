#include "records/recording.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "line/frame.h"

namespace emulator {

namespace {

constexpr std::string_view kFromTill = "PC->SAT";
constexpr std::string_view kToTill = "SAT->PC";

// A blank at the end would not survive every editor.
std::string escape(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    const auto byte = static_cast<unsigned char>(c);
    const bool inner_blank = c == ' ' && i + 1 < bytes.size();
    if (c == '\\') {
      text += "\\\\";
    } else if (inner_blank || (byte > 0x20 && byte < 0x7F)) {
      text += c;
    } else {
      std::array<char, 8> hex{};
      std::snprintf(hex.data(), hex.size(), "\\x%02x", byte);
      text += hex.data();
    }
  }
  return text;
}

std::string unescape(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
    } else if (text.substr(i, 2) == "\\\\") {
      bytes += '\\';
      ++i;
    } else {
      unsigned value = 0;
      const std::string_view digits = text.substr(i).substr(0, 4);
      const auto* end = digits.data() + digits.size();
      if (digits.size() != 4 || digits[1] != 'x' ||
          std::from_chars(digits.data() + 2, end, value, 16).ptr != end) {
        throw std::runtime_error("unknown escape");
      }
      bytes += static_cast<char>(value);
      i += 3;
    }
  }
  return bytes;
}

RecordedBytes parse_line(const std::string& line) {
  std::istringstream words(line);
  RecordedBytes record;
  std::string direction, text;
  if (!(words >> record.seconds >> direction) || words.get() != ' ' || !std::getline(words, text)) {
    throw std::runtime_error("a line reads: SECONDS DIRECTION BYTES");
  }
  // Of a line that was broken off anything may stand here.
  if (direction != kFromTill && direction != kToTill) throw std::runtime_error("unknown direction");
  record.direction = direction == kFromTill ? Direction::from_till : Direction::to_till;
  record.bytes = unescape(text);
  return record;
}

// Traffic that is not masked holds activation codes: a regular file of the user's own, for nobody else,
// whatever was there before. Who may write into the folder must not choose where it goes.
std::FILE* open_private(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  struct stat file {};
  if (fstat(fd, &file) == 0) {
    const bool own = S_ISREG(file.st_mode) && file.st_nlink == 1 && file.st_uid == geteuid();
    if (own && fchmod(fd, 0600) == 0 && ftruncate(fd, 0) == 0) return fdopen(fd, "w");
    if (!own) errno = EPERM;
  }
  const int error = errno;
  close(fd);
  errno = error;
  return nullptr;
}

}  // namespace

std::string to_recording_line(const RecordedBytes& record) {
  std::array<char, 40> seconds{};
  std::snprintf(seconds.data(), seconds.size(), "%.6f", record.seconds);
  std::string line = seconds.data();
  line += ' ';
  line += record.direction == Direction::from_till ? kFromTill : kToTill;
  return line + ' ' + escape(record.bytes);
}

std::vector<RecordedBytes> parse_recording(const std::string& text) {
  std::vector<RecordedBytes> records;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    try {
      records.push_back(parse_line(line));
    } catch (const std::runtime_error& error) {
      throw std::runtime_error("line " + std::to_string(number) + ": " + error.what());
    }
  }
  return records;
}

Recorder::Recorder(const std::string& path, bool masked) : file_(open_private(path)), masked_(masked) {
  if (!file_)
    throw std::runtime_error("cannot write " + path + ": " + std::generic_category().message(errno));
  std::fputs("# sat-emulator recording, format 1: seconds, direction, bytes\n", file_.get());
}

Recorder::~Recorder() {
  mask_.apply(held_back_);
  write(held_back_);
}

// A line to each frame and each answer, even if they arrived together.
void Recorder::record(Direction direction, std::string_view bytes) {
  const std::chrono::duration<double> elapsed = Clock::now() - start_;
  bool& in_frame = in_frame_.at(static_cast<std::size_t>(direction));
  std::size_t begin = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    const bool complete = in_frame ? byte == kEtx : byte == kAck || byte == kNak;
    if (in_frame ? byte == kEtx : byte == kStx) in_frame = !in_frame;
    if (!complete && i + 1 < bytes.size()) continue;
    held_back_.push_back({elapsed.count(), direction, std::string(bytes.substr(begin, i + 1 - begin))});
    begin = i + 1;
  }
  if (masked_ && (in_frame_[0] || in_frame_[1])) return;
  if (masked_) mask_.apply(held_back_);
  write(held_back_);
  held_back_.clear();
}

void Recorder::write(const std::vector<RecordedBytes>& records) {
  for (const RecordedBytes& record : records)
    std::fprintf(file_.get(), "%s\n", to_recording_line(record).c_str());
  std::fflush(file_.get());
}

}  // namespace emulator
