// What the library returned, taken apart: a device's reply, the library's own busy reply, or a failure text.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hub/sat/access_key.h"

namespace hub {

enum class Fiscal { sale, cancellation };

// EEEEE of a function, without its last three digits: 06000 to 06999 belong to a sale.
inline constexpr int kSaleFamily = 6;
inline constexpr int kCancellationFamily = 7;
constexpr int family(Fiscal function) {
  return function == Fiscal::sale ? kSaleFamily : kCancellationFamily;
}

class Reply {
 public:
  explicit Reply(std::string text);

  const std::string& text() const { return text_; }
  const std::vector<std::string>& fields() const { return fields_; }
  std::string_view field(std::size_t index) const;  // empty if there is none

  std::optional<int> failure() const { return failure_; }  // the code of a failure text
  int failure_line() const { return failure_line_; }       // its L[...], the stage that failed
  int code() const { return code_; }                       // EEEEE; 0 if there is none
  bool bears_session(int session) const;

  // The library composes this itself when another process holds the port. The device pads its session numbers
  // and the library does not: below 100000 the two differ.
  bool is_librarys_busy_reply(int session) const;
  bool is_in_process() const { return code_ % 1000 == 98; }
  bool is_wrong_code() const { return code_ % 1000 == 1; }

  // The receipt of an issued sale or cancellation, wherever the reply was asked for.
  std::optional<AccessKey> receipt() const;

 private:
  std::string text_;
  std::vector<std::string> fields_;
  std::optional<int> failure_;
  int failure_line_ = 0;
  int code_ = 0;
};

std::string six_digits(int session);

// The device's reply with another session number in its first field, otherwise byte for byte.
std::string under_session(std::string_view reply, int session);

// Fields of an issued sale or cancellation, and of ConsultarStatusOperacional.
namespace field {
inline constexpr std::size_t kDocument = 6;
inline constexpr std::size_t kTimeStamp = 7;
inline constexpr std::size_t kKey = 8;
inline constexpr std::size_t kTotal = 9;
inline constexpr std::size_t kIssuedFields = 12;
inline constexpr std::size_t kSerial = 5;
inline constexpr std::size_t kLastKey = 20;
}  // namespace field

}  // namespace hub
