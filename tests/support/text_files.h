// Reading and writing whole files, and the trace log without its time stamps.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

inline std::string read_file(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void write_file(const std::filesystem::path& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
}

namespace trace_stamp {

// Whether "[HH:MM:SS.mmm]TAG [line]" stands at this place; begin and end then are where the message's own
// text begins behind it, and the tag.
inline bool match(const std::string& text, std::size_t at, std::string& tag, std::size_t& end) {
  static constexpr std::string_view kShape = "[dd:dd:dd.ddd]";
  static constexpr std::string_view kTags[] = {"ERR ", "WRN ", "INF ", "TRC ", "JNI ", "DBG ", "Unk "};
  const auto is_digit = [&](std::size_t i) { return i < text.size() && text[i] >= '0' && text[i] <= '9'; };
  for (const char shape : kShape) {
    if (at >= text.size() || (shape == 'd' ? !is_digit(at) : text[at] != shape)) return false;
    ++at;
  }
  const std::string_view behind = std::string_view(text).substr(at, 4);
  if (std::find(std::begin(kTags), std::end(kTags), behind) == std::end(kTags)) return false;
  at += behind.size();
  if (at >= text.size() || text[at] != '[') return false;
  const std::size_t first_digit = ++at;
  while (is_digit(at)) ++at;
  if (at - first_digit < 4 || at >= text.size() || text[at] != ']') return false;
  tag = behind;
  end = at + 1;
  return true;
}

}  // namespace trace_stamp

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
  for (const auto& file : files) {
    const std::string text = read_file(file);
    std::string tag;
    std::size_t end = 0;
    for (std::size_t at = text.find('['); at != std::string::npos; at = text.find('[', at + 1)) {
      if (trace_stamp::match(text, at, tag, end)) {
        messages.push_back(tag + "[]");
        at = end - 1;
        const std::size_t next = text.find('[', end);
        messages.back().append(text, end, (next == std::string::npos ? text.size() : next) - end);
      } else if (!messages.empty()) {
        const std::size_t next = text.find('[', at + 1);
        messages.back().append(text, at, (next == std::string::npos ? text.size() : next) - at);
      }
    }
  }
  return messages;
}
