#include "masking/own_reply.h"

#include "masking/frame_fields.h"

namespace masking {

namespace {

// A document is longer than a code that a device may put in its place.
bool has_form_of_document(std::string_view text) {
  constexpr std::size_t kLongestCode = 64;
  constexpr std::string_view kCharacters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=\r\n";
  return text.size() > kLongestCode && text.find_first_not_of(kCharacters) == std::string_view::npos;
}

bool is_as_wanted(const RuledField& field) {
  switch (field.rule) {
    case Rule::document:
      return has_form_of_document(field.value);
    case Rule::access_key:
      return !access_key_digits(field.value).empty();
    case Rule::message:
      return false;
    default:
      return shown(field.rule, field.value) == field.value;
  }
}

}  // namespace

std::string reply_without_codes(std::string_view reply, const LearnedCodes& codes) {
  std::string text;
  const auto fields = take_apart(reply, Side::device);
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) text += '|';
    text += is_as_wanted(fields[i]) ? std::string(fields[i].value) : codes.without_codes(fields[i].value);
  }
  return text;
}

}  // namespace masking
