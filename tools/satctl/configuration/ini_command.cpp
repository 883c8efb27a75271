// satctl ini get|set|check: SAT.ini with the eyes of the library.

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "calls/call.h"
#include "configuration/ini_items.h"
#include "terminal/command.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

constexpr std::size_t kItemWidth = 50;

struct GivenItem {
  std::string section, item, value;
};

std::string require_file() {
  const auto content = read_file(kIniFile);
  if (content) return *content;
  throw UsageError(fill({"{}: {}", "{}: {}"}, {kIniFile, std::strerror(errno)}));
}

ExitStatus get(const GivenItem& given, const Settings& settings) {
  const Library library(settings.library);
  enter(settings.folder);
  require_file();
  const auto value = library.ini_value(kIniFile, given.section, given.item);
  if (settings.json) {
    nlohmann::ordered_json object{{"section", given.section}, {"item", given.item}, {"value", nullptr}};
    if (value) object["value"] = valid_utf8(*value);
    print_json(object);
  } else if (value) {
    print_line(settings.raw ? *value : printable(*value));
  }
  if (value) return ExitStatus::success;
  print_error("satctl: " + fill({"[{}] {} is not in {}", "[{}] {} não está em {}"},
                                {given.section, given.item, kIniFile}));
  return ExitStatus::refused;
}

// Lines of the file, each with its section; the one place where the text is taken apart.
struct IniLine {
  std::string text, section, name;
};

std::vector<IniLine> lines_of(const std::string& content) {
  std::vector<IniLine> lines;
  std::string section;
  for (std::size_t start = 0; start < content.size();) {
    const std::size_t feed = content.find('\n', start);
    const std::size_t end = feed == std::string::npos ? content.size() : feed + 1;
    IniLine line{content.substr(start, end - start), {}, {}};
    const std::string_view text = trimmed(line.text);
    if (text.starts_with('['))
      section = text.substr(1, text.find(']') - 1);
    else if (!text.starts_with('#'))
      line.name = trimmed(text.substr(0, text.find('=')));
    line.section = section;
    lines.push_back(std::move(line));
    start = end;
  }
  return lines;
}

// Where the item stands, or would stand: behind the last item of its section.
struct Place {
  std::size_t line;
  bool item_exists = false;
  bool section_exists = false;
};

Place place_of(const std::vector<IniLine>& lines, const GivenItem& given) {
  Place place{lines.size()};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].section != given.section) continue;
    if (lines[i].name == given.item) return {i, true, true};
    const bool is_header = trimmed(lines[i].text).starts_with('[');
    if (is_header || !lines[i].name.empty()) place.line = i + 1;
    place.section_exists = true;
  }
  return place;
}

// The library's own writer puts a new item into the last section only and loses what stands behind any other
// one, so the text is edited here; the library then has to read it as it was meant.
std::string with_item(const std::string& content, const GivenItem& given) {
  const auto lines = lines_of(content);
  const Place place = place_of(lines, given);
  const std::string line_end = content.find("\r\n") == std::string::npos ? "\n" : "\r\n";
  std::string edited;
  const auto add_item = [&] {
    if (!edited.empty() && edited.back() != '\n') edited += line_end;
    if (!place.section_exists)
      edited += (edited.empty() ? "[" : line_end + "[") + given.section + "]" + line_end;
    edited += given.item + "=" + given.value + line_end;
  };
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i == place.line) add_item();
    if (i != place.line || !place.item_exists) edited += lines[i].text;
  }
  if (place.line == lines.size()) add_item();
  return edited;
}

// What the library makes of the text.
std::optional<std::string> value_in(const Library& library, const std::string& content,
                                    const GivenItem& given) {
  const std::string copy = std::string(kIniFile) + ".satctl";
  if (!replace_file(copy, content)) throw UsageError(copy + ": " + std::strerror(errno));
  auto value = library.ini_value(copy, given.section, given.item);
  unlink(copy.c_str());
  return value;
}

// The library drops blanks and "=" from a value.
std::string as_library_reads(std::string value) {
  std::erase_if(value, [](char c) { return c == ' ' || c == '='; });
  return value;
}

void check_given(const GivenItem& given) {
  const std::string names = given.section + given.item;
  if (given.section.empty() || given.item.empty() || names.find_first_of("[]=#\r\n ") != std::string::npos) {
    throw UsageError(tr({"names of section and item have no blanks and none of [ ] = #",
                         "nomes de seção e item não têm brancos nem [ ] = #"}));
  }
  if (given.value.size() > kLongestIniValue || given.value.find_first_of("\r\n[") != std::string::npos) {
    throw UsageError(tr({"a value has one line of at most 127 characters, without [",
                         "um valor tem uma linha de no máximo 127 caracteres, sem ["}));
  }
}

ExitStatus set(const GivenItem& given, const Settings& settings) {
  check_given(given);
  const Library library(settings.library);
  enter(settings.folder);
  const std::string edited = with_item(read_file(kIniFile).value_or(""), given);
  const auto value = value_in(library, edited, given);
  if (!value || *value != as_library_reads(given.value)) {
    throw UsageError(fill({"the library would read another line for [{}] {}; nothing was written",
                           "a biblioteca leria outra linha para [{}] {}; nada foi gravado"},
                          {given.section, given.item}));
  }
  if (!replace_file(kIniFile, edited)) throw UsageError(std::string(kIniFile) + ": " + std::strerror(errno));
  if (settings.json)
    print_json({{"section", given.section}, {"item", given.item}, {"value", valid_utf8(*value)}});
  else
    print_line("[" + given.section + "] " + given.item + "=" + printable(*value));
  if (*value != given.value) {
    print_error(std::string("satctl: ") + tr({"the library reads it so: it drops blanks and \"=\"",
                                              "a biblioteca lê assim: ela descarta brancos e \"=\""}));
  }
  return ExitStatus::success;
}

constexpr Colour kGradeColours[] = {Colour::green, Colour::yellow, Colour::red};

ExitStatus check(const Settings& settings) {
  const Library library(settings.library);
  enter(settings.folder);
  const std::string content = require_file();
  const auto findings = check_items(library);
  const auto stray = stray_lines(content);
  bool failed = false;
  nlohmann::ordered_json items = nlohmann::ordered_json::array();
  for (const IniFinding& finding : findings) {
    const auto grade = static_cast<std::size_t>(finding.grade);
    failed = failed || finding.grade == Grade::fail;
    const std::string value = finding.value.value_or("-");
    items.push_back({{"section", finding.item->section},
                     {"item", finding.item->name},
                     {"value", finding.value ? nlohmann::ordered_json(valid_utf8(*finding.value)) : nullptr},
                     {"default", finding.item->standard},
                     {"grade", grade_name(finding.grade)},
                     {"note", finding.note}});
    if (settings.json) continue;
    const std::string item = std::string("[") + finding.item->section + "] " + finding.item->name;
    print_line(coloured(kGradeColours[grade], padded(grade_name(finding.grade), 5)) +
               padded(item, kItemWidth) + padded(printable(value), 22) + " " + finding.note);
  }
  if (settings.json) print_json({{"items", items}, {"strayLines", stray}});
  for (const std::string& line : stray) {
    if (!settings.json) print_line(coloured(Colour::yellow, padded("WARN", 5)) + printable(line));
  }
  return failed ? ExitStatus::refused : ExitStatus::success;
}

}  // namespace

void add_ini_command(CommandLine& line) {
  CLI::App* ini = add_command(line.app, "ini", groups::kDiagnosis,
                              {"read, change or check SAT.ini", "ler, alterar ou conferir o SAT.ini"});
  ini->require_subcommand(1);
  const auto given = std::make_shared<GivenItem>();
  const auto add = [&](const char* name, const Text& help, bool with_item, bool with_value) {
    CLI::App* command = add_command(*ini, name, groups::kDiagnosis, help);
    if (with_item) {
      command
          ->add_option("section", given->section,
                       tr({"section, e.g. SAT_EMULATOR", "seção, ex.: SAT_EMULATOR"}))
          ->required();
      command->add_option("item", given->item, tr({"item, e.g. Enable", "item, ex.: Enable"}))->required();
    }
    if (with_value) command->add_option("value", given->value, tr({"new value", "novo valor"}))->required();
    return command;
  };
  when_chosen(line,
              add("get", {"show a value as the library reads it", "mostrar um valor como a biblioteca o lê"},
                  true, false),
              [given, &line] { return get(*given, line.settings); });
  when_chosen(line, add("set", {"change or add an item", "alterar ou incluir um item"}, true, true),
              [given, &line] { return set(*given, line.settings); });
  when_chosen(
      line,
      add("check",
          {"every item: value, default, whether it is applied", "cada item: valor, padrão e se é aplicado"},
          false, false),
      [&line] { return check(line.settings); });
}

}  // namespace satctl
