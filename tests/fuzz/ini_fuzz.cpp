// The INI engine over any file: section, item and value, a line each, then the file. The written file is read
// again.
#include <fcntl.h>

#include <array>
#include <cstring>
#include <vector>

#include "fuzz/fuzzing.h"
#include "olk_utils/ini_file.h"
#include "olk_utils/trace_log.h"

namespace {

using fuzzing::require;

constexpr char kFile[] = "x.ini";

void put(const std::string& content) {
  const int file = open(kFile, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  require(file != -1 && write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
  close(file);
}

std::string content() {
  std::string text(std::size_t{1} << 16, '\0');
  const int file = open(kFile, O_RDONLY);
  if (file == -1) return "";
  const ssize_t length = read(file, text.data(), text.size());
  close(file);
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return text;
}

// Reads into a buffer of its own, so that a byte too many shows.
int get(const std::string& section, const std::string& item, std::size_t capacity, std::string& value) {
  std::vector<char> buffer(capacity, '\0');
  const int rc = read_ini_value(kFile, section.c_str(), item.c_str(), buffer.data(), capacity);
  require(memchr(buffer.data(), '\0', capacity) != nullptr);
  value = buffer.data();
  require(rc == 0 || value.empty());
  require(value.find_first_of("= ") == std::string::npos);
  return rc;
}

// A section alone: a null item, whatever the value, and the wrappers, whatever their names say. One that is
// there changes nothing; another one is appended.
void check_sections(const std::string& section, const std::string& value, const std::string& before) {
  const char* name = section.c_str();
  put(before);
  const int rc = OLK_SetIniFileValue(kFile, name, nullptr, nullptr);
  const std::string after = content();
  require(rc == 2 || rc == -401);
  require(after == before || after == before + "\n[" + name + "]\n");

  const auto does_the_same = [&](auto&& call) {
    put(before);
    require(call() == rc);
    require(content() == after);
  };
  does_the_same([&] { return OLK_SetIniFileValue(kFile, name, nullptr, value.c_str()); });
  does_the_same([&] { return OLK_AddIniFileSection(kFile, name, nullptr); });
  does_the_same([&] { return OLK_DelIniFileSection(kFile, name); });
}

// The wrapper that blanks an item does what a null value does; no byte moves, none but blanks are new.
void check_blanking(const std::string& section, const std::string& item, const std::string& before) {
  put(before);
  const int rc = OLK_SetIniFileValue(kFile, section.c_str(), item.c_str(), nullptr);
  const std::string after = content();
  put(before);
  require(OLK_DelIniFileItem(kFile, section.c_str(), item.c_str()) == rc);
  require(content() == after);
  if (rc != 5 || after.size() != before.size()) return;  // another item's line may have come in
  for (std::size_t i = 0; i < after.size(); ++i) require(after[i] == before[i] || after[i] == ' ');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);
  bDebugLogsEnabled = 1;

  fuzzing::Input input(data, size);
  const std::string section = input.up_to('\n');
  const std::string item = input.up_to('\n');
  const std::string value = input.up_to('\n');
  const std::string before = input.rest();
  if (before.size() > 30000) return 0;
  put(before);

  std::string read;
  for (const std::size_t capacity : {1u, 2u, 32u, 128u, 512u}) get(section, item, capacity, read);

  const char* texts[] = {nullptr, item.c_str(), value.c_str()};
  for (const char* new_value : {texts[0], texts[2]}) {
    put(before);
    const int rc = OLK_SetIniFileValue(kFile, section.c_str(), texts[1], new_value);
    const std::string after = content();
    require(rc == 0 || rc == 2 || rc == 4 || rc == 5 || rc == 7 || rc == 8 || rc == -401);
    if (rc == -401 || rc == 0) require(after == before);
    require(after.size() <= before.size() + section.size() + item.size() + value.size() + 2048);
    get(section, item, 128, read);
  }
  check_sections(section, value, before);
  check_blanking(section, item, before);
  return 0;
}
