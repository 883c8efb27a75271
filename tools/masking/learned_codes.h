// Activation codes and other secrets that stand in the input: blotted out wherever else they stand.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_set>

namespace masking {

class LearnedCodes {
 public:
  // Shorter ones stand in too many places by chance; the standard has eight characters at least.
  static constexpr std::size_t kShortest = 6;
  explicit LearnedCodes(std::size_t shortest = kShortest) : shortest_(shortest) {}

  void add(std::string_view code);
  // From the text of a command.
  void learn_command(std::string_view text);
  bool empty() const { return by_length_.empty(); }

  // Calls blot(start, length) for each place, the longest code first where several begin; places do not
  // overlap.
  template <typename Blot>
  void for_each(std::string_view text, Blot blot) const;

  std::string without_codes(std::string_view text) const;

 private:
  std::size_t longest_at(std::string_view text) const;

  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };
  using Texts = std::unordered_set<std::string, Hash, std::equal_to<>>;

  // A longer one is known by this much of it.
  static constexpr std::size_t kLongest = 64;
  std::map<std::size_t, Texts, std::greater<>> by_length_;
  std::size_t shortest_;
  Texts beginnings_;  // most places are none: one look tells
};

template <typename Blot>
void LearnedCodes::for_each(std::string_view text, Blot blot) const {
  if (empty()) return;
  for (std::size_t at = 0; at + shortest_ <= text.size();) {
    const std::size_t length = longest_at(text.substr(at));
    if (length > 0) blot(at, length);
    at += length > 0 ? length : 1;
  }
}

}  // namespace masking
