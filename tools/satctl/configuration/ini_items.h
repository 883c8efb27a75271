// SAT.ini as data: every item, its default, and whether the library acts on it.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "library/library.h"
#include "terminal/text.h"

namespace satctl {

constexpr std::size_t kLongestIniValue = 127;

enum class ItemForm { text, switch_on_1, seconds, log_mode, file_size, emulator_port, fixed_port };

enum class ItemUse {
  applied,
  not_applied,  // read and logged, without effect
  other_platform,
};

struct IniItem {
  const char* section;
  const char* name;
  const char* standard;  // what the library writes into a new file
  ItemForm form;
  ItemUse use;
  const char* when_missing = nullptr;  // what holds without the item, if that is something else
};

std::span<const IniItem> ini_items();
const IniItem* find_ini_item(const std::string& section, const std::string& name);

enum class Grade { ok, warn, fail };
const char* grade_name(Grade grade);

// One item as the library finds it.
struct IniFinding {
  const IniItem* item;
  std::optional<std::string> value;
  Grade grade = Grade::ok;
  std::string note;  // whether it is applied, or what is wrong
};
std::vector<IniFinding> check_items(const Library& library);

// Lines that the library will never read: unknown or misspelt items and sections, second occurrences.
std::vector<std::string> stray_lines(const std::string& text);

// The value that the library works with: from the file, or the default.
std::string effective_value(const Library& library, const std::string& section, const std::string& name);

}  // namespace satctl
