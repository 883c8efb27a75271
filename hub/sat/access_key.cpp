#include "hub/sat/access_key.h"

#include <algorithm>

#include "hub/text.h"

namespace hub {

namespace {

constexpr std::size_t kDigits = 44;
constexpr std::string_view kPrefix = "cfe";
constexpr int kNumbers = 999'999;
constexpr int kNewest = 500'000;

}  // namespace

std::optional<AccessKey> AccessKey::parse(std::string_view text) {
  if (satctl::lower_case(text.substr(0, kPrefix.size())) == kPrefix) text.remove_prefix(kPrefix.size());
  if (text.size() != kDigits || !all_digits(text)) return std::nullopt;
  return AccessKey(std::string(text));
}

int AccessKey::number() const {
  return std::stoi(digits_.substr(31, 6));
}

int numbers_between(int from, int to) {
  return ((to - from) % kNumbers + kNumbers) % kNumbers;
}

bool comes_after(const std::optional<AccessKey>& baseline, const AccessKey& key) {
  if (!baseline) return true;
  const int distance = numbers_between(baseline->number(), key.number());
  return distance >= 1 && distance <= kNewest;
}

}  // namespace hub
