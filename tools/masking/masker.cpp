#include "masking/masker.h"

#include <algorithm>

#include "masking/configuration.h"
#include "masking/trace_message.h"

namespace masking {

void Masker::learn_message(std::string_view message) {
  for_each_quotation(message, [this](Quoted kind, long place, std::string_view text) {
    constexpr long kFirstArgument = 3;
    switch (kind) {
      case Quoted::command:
      case Quoted::packet:
        codes_.learn_command(quoted_text(text));
        break;
      case Quoted::function:
        if (place == 1) dissected_ = text;
        break;
      case Quoted::argument:
        if (place >= kFirstArgument &&
            is_secret_argument(dissected_, static_cast<std::size_t>(place - kFirstArgument)))
          codes_.add(text);
        break;
      case Quoted::log_line:
        if (const auto bracket = text.find(" >> ["); bracket != std::string_view::npos) {
          const std::string_view frame = text.substr(bracket + 5);
          codes_.learn_command(unmarked(frame.substr(0, frame.rfind(']'))));
        }
        break;
      default:
        break;
    }
  });
}

std::string Masker::message(std::string_view message) const {
  return codes_.without_codes(masked_message(message));
}

std::string Masker::frame(std::string_view text, Side side) const {
  return codes_.without_codes(masked_logged_frame(text, side));
}

std::string Masker::field(const RuledField& field) const {
  return codes_.without_codes(shown(field.rule, field.value));
}

std::string Masker::mark(std::string_view mark) const {
  return masked_mark(mark);
}

std::string Masker::configuration(std::string_view text) const {
  return codes_.without_codes(masked_configuration(text));
}

std::string Masker::path(std::string_view text) const {
  const bool feed = text.ends_with('\n');
  if (feed) text.remove_suffix(1);
  return codes_.without_codes(masked_path(text)) + (feed ? "\n" : "");
}

std::string Masker::own_text(std::string_view text) const {
  return codes_.without_codes(without_long_numbers(text));
}

}  // namespace masking
