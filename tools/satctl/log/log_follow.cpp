#include "log/log_follow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace satctl {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds kPollInterval{200};

// A log file that grows; a rotated one is read to its end before its successor is opened.
class GrowingFile {
 public:
  GrowingFile(const LogFile& file, std::size_t end) : file_(file), reader_(file.kind, file.date) {
    open_again();
    if (descriptor_ >= 0) lseek(descriptor_, static_cast<off_t>(end), SEEK_SET);
  }
  GrowingFile(GrowingFile&& other) noexcept
      : file_(std::move(other.file_)),
        reader_(std::move(other.reader_)),
        descriptor_(other.descriptor_),
        inode_(other.inode_) {
    other.descriptor_ = -1;
  }
  GrowingFile(const GrowingFile&) = delete;
  GrowingFile& operator=(const GrowingFile&) = delete;
  ~GrowingFile() { shut(); }

  std::vector<Record> new_records() {
    struct stat now {};
    const bool replaced = stat(file_.path.c_str(), &now) == 0 && now.st_ino != inode_;
    auto records = read_rest();
    if (replaced) {
      append(records, reader_.finish());
      open_again();
      append(records, read_rest());
    }
    return records;
  }

 private:
  void shut() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
  }

  void open_again() {
    shut();
    descriptor_ = open(file_.path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat opened {};
    if (descriptor_ >= 0 && fstat(descriptor_, &opened) == 0) inode_ = opened.st_ino;
  }

  // The library writes each record at once: what the last look brought is whole when nothing follows.
  std::vector<Record> read_rest() {
    std::string piece(65536, '\0');
    std::vector<Record> records;
    bool grown = false;
    for (ssize_t count = 0; (count = read(descriptor_, piece.data(), piece.size())) > 0; grown = true) {
      append(records, reader_.read(std::string_view(piece).substr(0, static_cast<std::size_t>(count))));
    }
    if (!grown) append(records, reader_.finish());
    return records;
  }

  LogFile file_;
  RecordReader reader_;
  int descriptor_ = -1;
  ino_t inode_ = 0;
};

// The newest records of a log that is followed: enough to know to which calls those that come next belong.
class RecentRecords {
 public:
  void add(std::vector<Record> messages, std::vector<Record> frames) {
    append(messages_, std::move(messages));
    append(frames_, std::move(frames));
  }

  JoinedLogs join() {
    for (auto* records : {&messages_, &frames_}) forget_old(*records);
    JoinedLogs logs = join_logs(messages_, frames_);
    for (auto* records : {&messages_, &frames_}) {
      for (Record& record : *records) record.shown = true;
    }
    return logs;
  }

 private:
  static void forget_old(std::vector<Record>& records) {
    constexpr std::size_t kMostRecords = 2000, kMostBytes = 32'000'000;
    std::size_t kept = 0, bytes = 0;
    while (kept < records.size()) {
      const Record& record = records[records.size() - 1 - kept];
      bytes += record.body.size();
      if (record.shown && (kept >= kMostRecords || bytes > kMostBytes)) break;
      ++kept;
    }
    records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(kept));
  }

  std::vector<Record> messages_, frames_;
};

RecentRecords recent_of(const JoinedLogs& logs) {
  std::vector<Record> messages, frames;
  for (const Record& record : logs.records) {
    auto& records = record.direction == Direction::none ? messages : frames;
    records.push_back(record);
    records.back().shown = true;
  }
  RecentRecords recent;
  recent.add(std::move(messages), std::move(frames));
  return recent;
}

bool is_current(const LogFile& file) {
  return file.kind == LogKind::protocol ||
         (file.path.extension() == ".log" && file.path.string().find(".log_bkp_") == std::string::npos);
}

}  // namespace

void follow_logs(const fs::path& folder, const Ends& ends, const JoinedLogs& joined,
                 const std::function<void(const JoinedLogs&)>& show) {
  RecentRecords recent = recent_of(joined);
  std::map<fs::path, GrowingFile> files;
  while (true) {
    std::vector<Record> messages, frames;
    for (const LogFile& file : find_log_files(folder)) {
      if (!is_current(file)) continue;
      const auto end = ends.find(file.path);
      auto& growing = files.try_emplace(file.path, file, end == ends.end() ? 0 : end->second).first->second;
      append(file.kind == LogKind::trace ? messages : frames, growing.new_records());
    }
    if (!messages.empty() || !frames.empty()) {
      recent.add(std::move(messages), std::move(frames));
      show(recent.join());
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

}  // namespace satctl
