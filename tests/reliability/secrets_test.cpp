// Where the activation code shows up, by log mode; and who may read what the library makes.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "reliability/child_device.h"
#include "reliability/hosts.h"
#include "support/file_status.h"
#include "support/scratch_directory.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSecret[] = "s3gr3d0";

struct Exposure {
  char log_mode;
  bool protocol_log;
  bool trace_of_short_command;
  bool trace_of_long_command;  // more than 1,000 bytes
};

constexpr Exposure kExposures[] = {
    {'0', false, false, false}, {'1', true, false, false}, {'2', true, false, true},
    {'3', true, true, true},    {'4', true, true, true},   {'5', true, true, true},
};

// What the folder's files of this ending hold, all together.
std::string content_of(const fs::path& folder, const std::string& ending) {
  std::string all;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.path().string().ends_with(ending)) all += read_file(entry.path());
  }
  return all;
}

bool holds_secret(const std::string& text) {
  return text.find(kSecret) != std::string::npos;
}

class Secrets : public testing::TestWithParam<Exposure> {
 protected:
  // A host that makes one call with a secret activation code, in a folder of its own.
  fs::path play(const std::string& name, char plan, std::size_t sale_length,
                const std::string& file_in_the_way = "") {
    fs::path folder = fs::absolute(name);
    if (!file_in_the_way.empty()) {
      fs::create_directories(folder);
      write_file(folder / file_in_the_way, "");
    }
    const int end = run_host(folder, [&] {
      umask(022);
      configure_port(device_.port(), GetParam().log_mode);
      const std::string code = plan + std::string("200-") + kSecret;
      const std::string sale(sale_length, 'v');
      EnviarDadosVenda(42, code.c_str(), sale.c_str());
      return 0;
    });
    EXPECT_EQ(end, 0);
    return folder;
  }
  const std::string& device_port() const { return device_.port(); }

 private:
  ScratchDirectory scratch_;
  ChildDevice device_{TALVEX_PLANNED_DEVICE};
};

TEST_P(Secrets, ActivationCodeIsLoggedExactlyWhereTheTableSays) {
  const fs::path brief = play("short", 'A', 100);
  const fs::path lengthy = play("long", 'A', 5000);
  EXPECT_EQ(holds_secret(content_of(brief, "_SAT_ProtocolLog.txt")), GetParam().protocol_log);
  EXPECT_EQ(holds_secret(content_of(lengthy, "_SAT_ProtocolLog.txt")), GetParam().protocol_log);
  EXPECT_EQ(holds_secret(content_of(brief, ".log")), GetParam().trace_of_short_command);
  EXPECT_EQ(holds_secret(content_of(lengthy, ".log")), GetParam().trace_of_long_command);
  for (const fs::path& folder : {brief, lengthy}) {
    EXPECT_FALSE(holds_secret(content_of(folder, "SAT.conf")));
    EXPECT_FALSE(holds_secret(content_of(folder, "SAT.ini")));
  }
}

// The line that finds no log is shown in the warning about it.
TEST_P(Secrets, WithoutAFolderForLogsTheWarningTells) {
  const fs::path folder = play("no_folder", 'A', 100, "Log");
  EXPECT_EQ(holds_secret(content_of(folder, "_SAT_ProtocolLog.txt")), false);
  EXPECT_EQ(holds_secret(content_of(folder, ".log")), GetParam().log_mode >= '2');
}

TEST_P(Secrets, AFailedCallTellsNoMore) {
  const fs::path folder = play("refused", 'D', 100);  // four NAKs
  EXPECT_EQ(holds_secret(content_of(folder, ".log")), GetParam().trace_of_short_command);
}

TEST_P(Secrets, FilesAreReadableAsTheTableSays) {
  const fs::path folder = play("short", 'A', 100);
  EXPECT_EQ(mode_of(folder / "SAT.conf"), 0644u);
  if (GetParam().log_mode == '0') {
    EXPECT_FALSE(fs::exists(folder / "Log"));
    return;
  }
  EXPECT_EQ(mode_of(folder / "Log"), 0700u);
  for (const auto& entry : fs::directory_iterator(folder / "Log")) {
    const bool is_protocol_log = entry.path().string().ends_with(".txt");
    EXPECT_EQ(mode_of(entry.path()), is_protocol_log ? 0600u : 0644u) << entry.path();
  }
}

// The configuration that the library makes, result files, and the trace without a folder for logs.
TEST_P(Secrets, FilesOutsideTheFolderForLogsAreReadableAsTheTableSays) {
  const fs::path folder = fs::absolute("outside");
  fs::create_directories(folder / "coupons");
  write_file(folder / "Log", "");
  const int end = run_host(folder, [&] {
    umask(022);
    VersaoDllTalvex();
    std::string settings = read_file("SAT.ini");
    const auto set = [&](const std::string& line, const std::string& replacement) {
      settings.replace(settings.find(line), line.size(), replacement);
    };
    set("[SERIAL_PORT_CONFIG]\n", "[SERIAL_PORT_CONFIG]\nFixarPorta=" + device_port() + "\n");
    set("PathLinux=/etc/Arvolen/Cupons/New\nEnable=0", "PathLinux=coupons\nEnable=1");
    set("LogMode=1", std::string("LogMode=") + GetParam().log_mode);
    write_file("SAT.ini", settings);
    EnviarDadosVenda(42, "A200-code", "sale");
    return 0;
  });
  EXPECT_EQ(end, 0);
  int results = 0;
  int traces = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    results += name.ends_with(".sat") ? 1 : 0;
    traces += name.ends_with("_SAT_api.log") ? 1 : 0;
    if (!entry.is_regular_file() || name == "Log") continue;
    EXPECT_EQ(mode_of(entry.path()), 0644u) << name;
  }
  EXPECT_TRUE(fs::exists(folder / "SAT.ini"));
  EXPECT_EQ(results, 1);
  EXPECT_EQ(traces, 1);
}

INSTANTIATE_TEST_SUITE_P(ByLogMode, Secrets, testing::ValuesIn(kExposures),
                         [](const auto& test) { return std::string("LogMode") + test.param.log_mode; });

}  // namespace
