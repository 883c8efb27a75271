// Commands and replies taken apart into fields, each with the rule that its place gives it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "masking/field_rules.h"

namespace masking {

enum class Side { host, device };  // who sent the text

struct RuledField {
  Rule rule;
  std::string_view value;
};

// The fields of a text between its frame marks, in their order, the separators left out. What does not have
// the structure of a command or reply is one hidden field. A device may send a command back: it is taken for
// one.
std::vector<RuledField> take_apart(std::string_view text, Side side);

// The text with each field as it may be shown.
std::string masked_frame(std::string_view text, Side side);

// As the protocol log shows frames: "<02>TEXT<41><03>", the marks perhaps missing. The checksum is left out.
std::string masked_logged_frame(std::string_view text, Side side);
// The text without these marks.
std::string_view unmarked(std::string_view text);

// As the trace log shows frames: with or without their marks and checksum, long ones with their middle left
// out.
std::string masked_quotation(std::string_view text, Side side);
// The text without marks and checksum, as far as it is there.
std::string_view quoted_text(std::string_view text);

// Whether this argument of a command is an activation code or another secret; counted from 0 behind the
// session.
bool is_secret_argument(std::string_view function, std::size_t index);

}  // namespace masking
