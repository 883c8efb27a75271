// Reader of frames.txt; the format is described at the head of that file.
#pragma once

#include <cstddef>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

struct FrameVector {
  std::string comment;
  bool is_command;
  bool is_valid;
  std::string bytes;
};

inline std::vector<FrameVector> read_frame_vectors(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::vector<FrameVector> vectors;
  std::string comment;
  for (std::string line; std::getline(file, line);) {
    const std::size_t mark = line.find('#');
    if (mark != std::string::npos) comment = line.substr(mark + 1);
    std::istringstream words(line.substr(0, mark));
    std::string direction, verdict;
    if (!(words >> direction)) continue;
    words >> verdict;
    if ((direction != "command" && direction != "response") || (verdict != "valid" && verdict != "damaged")) {
      throw std::runtime_error("unknown line: " + line);
    }
    std::string bytes;
    for (std::string word; words >> word;) {
      const std::size_t count = word.size() > 2 && word[2] == '*' ? std::stoul(word.substr(3)) : 1;
      bytes.append(count, static_cast<char>(std::stoul(word.substr(0, 2), nullptr, 16)));
    }
    vectors.push_back({comment, direction == "command", verdict == "valid", bytes});
  }
  return vectors;
}
