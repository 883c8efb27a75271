// Trace lines of the SAT interface module, and a fixture with a directory, a fixed date and log switches.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "olk_utils/utils_trace.h"
#include "support/printed.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

using Lines = std::vector<std::string>;

// A line as trace_messages gives it: "ERR [] [../src/api/TALVEX] [findSat]text".
inline std::string api_line(const std::string& tag, const std::string& function, const std::string& text) {
  return tag + " [] [../src/api/TALVEX] [" + function + "]" + text;
}

// The form of the configuration reader: "ERR []  ../src/api/TALVEX  UpdateTalvexConfiguration  text".
inline std::string config_line(const std::string& tag, const std::string& function, const std::string& text) {
  return tag + " []  ../src/api/TALVEX  " + function + "  " + text;
}

// "[0042]" in front of what the library prints on standard output, without the source line's number.
inline std::string without_source_line(const std::string& output) {
  static const std::regex source_line(R"((^|\n)\[\d{4,}\])");
  return std::regex_replace(output, source_line, "$1[]");
}

inline Lines with_text(const Lines& lines, const std::string& text) {
  Lines found;
  for (const std::string& line : lines) {
    if (line.find(text) != std::string::npos) found.push_back(line);
  }
  return found;
}

class ApiTraceTest : public testing::Test {
 protected:
  ApiTraceTest() {
    tLog = {};
    pOlkUtilsLogFile = "olk_utils.log";
  }
  ~ApiTraceTest() override { log_up_to(0); }

  // Everything up to this level: kError, kWarning, kInfo or kTrace; nothing for 0.
  static void log_up_to(unsigned level) {
    bErrorLogsEnabled = level == kError;
    bWarningLogsEnabled = level == kWarning;
    bInfoLogsEnabled = level == kInfo;
    bTraceLogsEnabled = level == kTrace;
    bMessageLogsEnabled = bJniTraceLogsEnabled = bDebugLogsEnabled = bConsoleLogsEnabled = 0;
  }

  // All lines of the trace files of this name since they were last taken.
  static Lines take_all_lines(const std::string& log_name = "SAT_api.log") {
    Lines lines = trace_messages(log_name);
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(".")) {
      if (entry.path().filename().string().ends_with("_" + log_name)) files.push_back(entry.path());
    }
    for (const auto& file : files) std::filesystem::remove(file);
    return lines;
  }

  // The same, but only lines of the SAT interface module: utilities write into the same file.
  static Lines take_lines() {
    Lines lines = take_all_lines();
    std::erase_if(
        lines, [](const std::string& line) { return line.find("../src/api/TALVEX") == std::string::npos; });
    return lines;
  }

 private:
  ScratchDirectory scratch_;
};
