#include "log/log_loading.h"

#include <algorithm>

#include "configuration/ini_items.h"
#include "terminal/exit_status.h"
#include "terminal/terminal.h"

namespace satctl {

namespace fs = std::filesystem;

std::filesystem::path log_folder(const Settings& settings) {
  const Library library(settings.library);
  const fs::path configured = effective_value(library, "LOG", "LogFilePath");
  std::error_code error;
  return fs::is_directory(configured, error) ? configured : fs::path(".");
}

std::vector<LogFile> named_files(const std::vector<std::string>& names) {
  std::vector<LogFile> files;
  for (const std::string& name : names) {
    const auto file = log_file(name);
    if (!file) {
      throw UsageError(fill({"{}: no trace or protocol log, or not readable",
                             "{}: não é log de trace nem de protocolo, ou não pode ser lido"},
                            {name}));
    }
    files.push_back(*file);
  }
  return files;
}

std::vector<LogFile> chosen_files(const GivenView& given, const fs::path& folder) {
  auto files = find_log_files(folder);
  if (given.all || files.empty()) return files;
  const auto wanted = given.date.empty() ? std::optional(files.back().date) : parse_date(given.date);
  if (!wanted) {
    throw UsageError(
        fill({"--date {}: a date is YYYY-MM-DD", "--date {}: a data é AAAA-MM-DD"}, {given.date}));
  }
  const LocalTime first = start_of(*wanted) - (given.days - 1) * kMillisecondsOfDay;
  std::erase_if(files,
                [&](const LogFile& file) { return start_of(file.date) < first || file.date > *wanted; });
  return files;
}

JoinedLogs load(const std::vector<LogFile>& files, Ends& ends) {
  std::vector<Record> messages, frames;
  for (const LogFile& file : files) {
    const auto content = read_file(file.path);
    if (!content) {
      print_error("satctl: " + fill({"{} cannot be read", "{} não pode ser lido"}, {file.path.string()}));
      continue;
    }
    ends[file.path] = content->size();
    RecordReader reader(file.kind, file.date);
    auto& records = file.kind == LogKind::trace ? messages : frames;
    append(records, reader.read(*content));
    append(records, reader.finish());
  }
  const auto by_time = [](const Record& a, const Record& b) { return a.time < b.time; };
  std::stable_sort(messages.begin(), messages.end(), by_time);
  std::stable_sort(frames.begin(), frames.end(), by_time);
  return join_logs(std::move(messages), std::move(frames));
}

Ends sizes_of(const std::vector<LogFile>& files) {
  Ends ends;
  std::error_code error;
  for (const LogFile& file : files)
    ends[file.path] = static_cast<std::size_t>(fs::file_size(file.path, error));
  return ends;
}

}  // namespace satctl
