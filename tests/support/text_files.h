// Reading and writing whole files, and the trace log without its time stamps.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

inline std::string read_file(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void write_file(const std::filesystem::path& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
}

// Messages of every dated trace file with this name (for example "SAT_api.log") below the directory, in
// order of writing within a file. Each starts with its level tag; time stamps and source line numbers are
// cut out: "ERR [] [../src/api/TALVEX] [findSat]..." Messages may hold line breaks.
inline std::vector<std::string> trace_messages(const std::string& log_name,
                                               const std::filesystem::path& directory = ".") {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    const std::string name = entry.path().filename().string();
    if (name.size() == log_name.size() + 9 && name.ends_with("_" + log_name)) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  std::vector<std::string> messages;
  static const std::regex stamp(R"(\[\d\d:\d\d:\d\d\.\d\d\d\]((ERR|WRN|INF|TRC|JNI|DBG|Unk) )\[\d{4,}\])");
  for (const auto& file : files) {
    const std::string text = read_file(file);
    std::size_t start = std::string::npos;
    std::string tag;
    for (std::sregex_iterator it(text.begin(), text.end(), stamp), end;; ++it) {
      const std::size_t next = it == end ? text.size() : static_cast<std::size_t>(it->position(0));
      if (start != std::string::npos) messages.push_back(tag + "[]" + text.substr(start, next - start));
      if (it == end) break;
      tag = (*it)[1];
      start = static_cast<std::size_t>(it->position(0) + it->length(0));
    }
  }
  return messages;
}
