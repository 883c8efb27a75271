#include "hub/sat/reply.h"

#include <charconv>
#include <cstdio>

#include "hub/text.h"
#include "satctl/calls/reply.h"

namespace hub {

namespace {

constexpr std::size_t kCodeDigits = 5;
constexpr std::size_t kSessionDigits = 6;
constexpr std::string_view kLineMark = "L[";

int number_in(std::string_view text) {
  int value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

// A device's name stands in front of the line's number, never behind it.
int line_in(std::string_view failure) {
  const auto mark = failure.rfind(kLineMark);
  return mark == std::string_view::npos ? 0 : number_in(failure.substr(mark + kLineMark.size()));
}

}  // namespace

Reply::Reply(std::string text) : text_(std::move(text)), failure_(satctl::library_failure(text_)) {
  if (failure_) {
    failure_line_ = line_in(text_);
    return;
  }
  fields_ = satctl::split_fields(text_);
  const auto code = field(1);
  if (code.size() == kCodeDigits && all_digits(code)) code_ = number_in(code);
}

std::string_view Reply::field(std::size_t index) const {
  return index < fields_.size() ? std::string_view(fields_[index]) : std::string_view();
}

bool Reply::bears_session(int session) const {
  return field(0) == six_digits(session);
}

bool Reply::is_librarys_busy_reply(int session) const {
  return is_in_process() && field(0).size() < kSessionDigits && field(0) == std::to_string(session);
}

std::optional<AccessKey> Reply::receipt() const {
  const bool issued = code_ == kSaleFamily * 1000 || code_ == kCancellationFamily * 1000;
  if (!issued || fields_.size() < field::kIssuedFields) return std::nullopt;
  return AccessKey::parse(field(field::kKey));
}

std::string six_digits(int session) {
  char text[16];
  std::snprintf(text, sizeof text, "%06d", session);
  return text;
}

std::string under_session(std::string_view reply, int session) {
  const auto bar = reply.find('|');
  if (bar == std::string_view::npos) return std::string(reply);
  return six_digits(session).append(reply.substr(bar));
}

}  // namespace hub
