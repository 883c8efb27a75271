#include "desk/settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <stdexcept>

#include "device/messages.h"

namespace emulator {

namespace {

template <typename T>
T demand(const std::optional<T>& value, const std::string& complaint) {
  if (!value) throw std::invalid_argument(complaint);
  return *value;
}

}  // namespace

std::int64_t number_within(const std::string& text, std::int64_t least, std::int64_t most) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || value < least || value > most) {
    throw std::invalid_argument("\"" + text + "\" is no number from " + std::to_string(least) + " to " +
                                std::to_string(most));
  }
  return value;
}

Moment moment_of(const std::string& text) {
  return demand(parse_moment(text), "\"" + text + "\" is no moment like 2026-03-01T10:00:00");
}

std::int64_t duration_of(const std::string& text) {
  return demand(parse_duration(text), "\"" + text + "\" is no duration like 90s, 31m, 2h or 3d");
}

Block block_called(const std::string& name) {
  static const std::map<std::string, Block> blocks{{"none", Block::none},
                                                   {"sefaz", Block::sefaz},
                                                   {"contributor", Block::contributor},
                                                   {"autonomous", Block::autonomous},
                                                   {"deactivation", Block::deactivation}};
  const auto found = blocks.find(name);
  if (found == blocks.end()) {
    throw std::invalid_argument("\"" + name +
                                "\" is none of none, sefaz, contributor, autonomous, deactivation");
  }
  return found->second;
}

const Profile& profile_called(const std::string& name) {
  const Profile* profile = find_profile(name);
  if (profile == nullptr) throw std::invalid_argument("no profile is called \"" + name + "\"");
  return *profile;
}

std::string battery_level(const std::string& text) {
  if (text != "ALTO" && text != "MEDIO" && text != "BAIXO") {
    throw std::invalid_argument("a battery is ALTO, MEDIO or BAIXO");
  }
  return text;
}

int notice_code(const std::string& text) {
  const auto code = static_cast<int>(number_within(text, 0, 999));
  if (code != 0 && !sefaz_notice(code)) throw std::invalid_argument("no notice has the code " + text);
  return code;
}

int uf_code(const std::string& text) {
  static const std::map<std::string, int> states{
      {"RO", 11}, {"AC", 12}, {"AM", 13}, {"RR", 14}, {"PA", 15}, {"AP", 16}, {"TO", 17},
      {"MA", 21}, {"PI", 22}, {"CE", 23}, {"RN", 24}, {"PB", 25}, {"PE", 26}, {"AL", 27},
      {"SE", 28}, {"BA", 29}, {"MG", 31}, {"ES", 32}, {"RJ", 33}, {"SP", 35}, {"PR", 41},
      {"SC", 42}, {"RS", 43}, {"MS", 50}, {"MT", 51}, {"GO", 52}, {"DF", 53}};
  for (const auto& [letters, code] : states) {
    if (text == letters || text == std::to_string(code)) return code;
  }
  throw std::invalid_argument("\"" + text + "\" is no state (like 35 or SP)");
}

}  // namespace emulator
