// The log files that the user chose, read and joined.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "log/log_calls.h"
#include "log/log_filter.h"
#include "terminal/settings.h"

namespace satctl {

std::filesystem::path log_folder(const Settings& settings);

// Throws UsageError for a file that is no log.
std::vector<LogFile> named_files(const std::vector<std::string>& names);
// The days that the user chose; without a choice the last day that has a log.
std::vector<LogFile> chosen_files(const GivenView& given, const std::filesystem::path& folder);

// How far each file has been read.
using Ends = std::map<std::filesystem::path, std::size_t>;
Ends sizes_of(const std::vector<LogFile>& files);

JoinedLogs load(const std::vector<LogFile>& files, Ends& ends);

}  // namespace satctl
