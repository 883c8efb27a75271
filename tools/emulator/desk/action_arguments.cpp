#include "desk/action_arguments.h"

#include <algorithm>

#include "desk/settings.h"

namespace emulator {

namespace {

// The "=" of Base64 and of messages does not make a name.
bool is_named(const std::string& word) {
  const auto equals = word.find('=');
  return equals != std::string::npos && equals > 0 && word.find('|') == std::string::npos &&
         std::all_of(word.begin(), word.begin() + static_cast<std::ptrdiff_t>(equals),
                     [](char c) { return c >= 'a' && c <= 'z'; });
}

}  // namespace

void append_word(std::string& text, char separator, std::string_view word) {
  if (!text.empty()) text += separator;
  text += word;
}

ActionArguments::ActionArguments(const std::string& text) {
  const bool is_text = text.find('|') != std::string::npos;
  for (std::size_t at = 0; (at = text.find_first_not_of(kBlanks, at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
    const std::string word = text.substr(at, end - at);
    if (is_named(word)) {
      const auto equals = word.find('=');
      named_[word.substr(0, equals)] = word.substr(equals + 1);
    } else if (is_text) {
      plain_.push_back(text.substr(at));
      return;
    } else {
      plain_.push_back(word);
    }
    at = end;
  }
}

std::string ActionArguments::words_from(std::size_t index) const {
  std::string text;
  for (std::size_t i = index; i < plain_.size(); ++i) append_word(text, ' ', plain_[i]);
  return text;
}

std::int64_t ActionArguments::number(std::size_t index, std::int64_t otherwise, std::int64_t most) const {
  return index < plain_.size() ? number_within(plain_[index], 0, most) : otherwise;
}

std::int64_t ActionArguments::number(const std::string& name, std::int64_t otherwise,
                                     std::int64_t most) const {
  const auto found = named_.find(name);
  return found == named_.end() ? otherwise : number_within(found->second, 0, most);
}

std::string ActionArguments::named(const std::string& name) const {
  const auto found = named_.find(name);
  return found == named_.end() ? "" : found->second;
}

void ActionArguments::check_names(const std::vector<std::string>& known) const {
  for (const auto& [name, value] : named_) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw FaultSyntaxError("unknown argument " + name + "=");
    }
  }
}

}  // namespace emulator
