// What stands behind an action's name in a fault rule: plain words and NAME=VALUE. With a "|" in it, all that
// follows the leading NAME=VALUE is one text, taken as it stands.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

inline constexpr const char* kBlanks = " \t\r";

class FaultSyntaxError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

class ActionArguments {
 public:
  explicit ActionArguments(const std::string& text);

  std::size_t count() const { return plain_.size(); }
  const std::string& word(std::size_t index) const { return plain_.at(index); }
  // The plain words from this one on.
  std::string words_from(std::size_t index) const;
  std::int64_t number(std::size_t index, std::int64_t otherwise, std::int64_t most) const;
  std::int64_t number(const std::string& name, std::int64_t otherwise, std::int64_t most) const;
  std::string named(const std::string& name) const;
  void check_names(const std::vector<std::string>& known) const;

 private:
  std::vector<std::string> plain_;
  std::map<std::string, std::string> named_;
};

// Separates only what is not the first.
void append_word(std::string& text, char separator, std::string_view word);

}  // namespace emulator
