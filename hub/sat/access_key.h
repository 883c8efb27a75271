// The access key of a receipt: 44 digits that name state, month, issuer, device and number.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hub {

class AccessKey {
 public:
  // With or without "CFe" in front, in either case: devices differ.
  static std::optional<AccessKey> parse(std::string_view text);

  const std::string& digits() const { return digits_; }
  std::string text() const { return "CFe" + digits_; }
  std::string issuer() const { return digits_.substr(6, 14); }
  std::string serial() const { return digits_.substr(22, 9); }
  int number() const;

  bool operator==(const AccessKey&) const = default;

 private:
  explicit AccessKey(std::string digits) : digits_(std::move(digits)) {}
  std::string digits_;
};

// How many receipts lie from one number up to the other; they wrap behind 999999.
int numbers_between(int from, int to);

// Whether a receipt came after the other, or after none at all. The half of the numbers that lies ahead is
// newer.
bool comes_after(const std::optional<AccessKey>& baseline, const AccessKey& key);

}  // namespace hub
