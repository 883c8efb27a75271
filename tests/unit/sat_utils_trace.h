// Trace lines of the SAT utilities, and a fixture that logs them into a directory of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "olk_utils/trace_log.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

class SatUtilsTraceTest : public testing::Test {
 protected:
  void SetUp() override { log_only(kInfo); }
  void TearDown() override { log_only(0); }

  // Everything up to this level: kError, kWarning or kInfo; nothing for 0.
  static void log_only(unsigned level) {
    bErrorLogsEnabled = level == kError;
    bWarningLogsEnabled = level == kWarning;
    bInfoLogsEnabled = level == kInfo;
  }

  // The lines since the last call, as "INF [function]text"; lines with another source path keep it.
  static std::vector<std::string> take_lines() {
    std::vector<std::string> lines = trace_messages("SAT_api.log");
    static const std::string kPath = " [] [../src/olk_sat_utils/olk_sat_utils] ";
    for (std::string& line : lines) {
      const std::size_t at = line.find(kPath);
      if (at == 3) line.replace(at, kPath.size(), " ");
    }
    for (const auto& entry : std::filesystem::directory_iterator(".")) std::filesystem::remove(entry);
    return lines;
  }

 private:
  ScratchDirectory scratch_;
};

// "INF [function]text" for each text.
inline std::vector<std::string> lines_of(const std::string& function,
                                         std::initializer_list<const char*> texts,
                                         const std::string& tag = "INF") {
  std::vector<std::string> lines;
  const std::string start = tag + " [" + function + "]";
  for (const char* text : texts) lines.push_back(start + text);
  return lines;
}
