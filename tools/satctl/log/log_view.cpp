#include "log/log_view.h"

#include <cstdio>

#include "masking/known_names.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kValueShown = 200;

Colour colour_of(Level level) {
  return level == Level::error ? Colour::red : level == Level::warning ? Colour::yellow : Colour::plain;
}

const char* arrow(Direction direction) {
  return direction == Direction::to_device ? "PC->SAT" : "SAT->PC";
}

masking::Side sender(const Record& frame) {
  return frame.direction == Direction::to_device ? masking::Side::host : masking::Side::device;
}

std::string seconds(LocalTime milliseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", static_cast<double>(milliseconds) / 1000);
  return text;
}

std::string name_of(const LoggedCall& call) {
  return call.function == nullptr ? std::string("?") : std::string(call.function->name);
}

std::string trimmed_time(LocalTime time, bool milliseconds_known) {
  return std::string(trimmed(format_time(time, milliseconds_known)));
}

// One object to a line, so that a pipe can take them as they come.
void print_object(const Json& object) {
  print_line(object.dump(-1, ' ', false, Json::error_handler_t::replace));
}

// Further lines of a record stand under its text.
std::string indented(const std::string& text) {
  std::string shown;
  for (const char c : text) {
    shown += c;
    if (c == '\n') shown += "        ";
  }
  return shown;
}

}  // namespace

void LogView::learn(const Record& record) {
  if (!mask_) return;
  if (record.direction == Direction::none)
    masker_.learn_message(record.body);
  else
    masker_.learn_frame(record.body);
}

std::string LogView::text_of(const Record& record) const {
  if (!mask_) return record.body;
  return record.direction == Direction::none ? masker_.message(record.body)
                                             : masker_.frame(record.body, sender(record));
}

std::string LogView::function_of(const Record& record) const {
  return !mask_ || masking::is_library_function(record.function) ? record.function : std::string();
}

std::string LogView::mark_of(const Record& frame) const {
  return mask_ ? masker_.mark(frame.mark) : frame.mark;
}

std::string LogView::text_of(const Step& step) const {
  if (!step.is_message) return step.what;
  const std::string text = mask_ ? masker_.message(step.what) : step.what;
  return text.substr(0, text.find('\n'));
}

std::vector<LogView::NamedValue> LogView::values_of(const Record& frame, const Function* function) const {
  std::vector<std::string> values;
  if (mask_) {
    for (const auto& field : masking::take_apart(frame.body, sender(frame)))
      values.push_back(masker_.field(field));
  } else {
    values = split_fields(frame.body);
  }
  const auto names = names_of(frame, function, values);
  std::vector<NamedValue> named;
  for (std::size_t i = 0; i < values.size(); ++i) named.push_back({names[i], std::move(values[i])});
  return named;
}

void LogView::show(const Record& record, const LoggedCall* call) const {
  if (decode_) {
    if (record.direction != Direction::none) show_frame(record, call);
  } else if (json_) {
    show_record_as_json(record, call);
  } else {
    show_record(record);
  }
}

void LogView::show(const LoggedCall& call) const {
  if (json_)
    show_call_as_json(call);
  else
    show_call_as_text(call);
}

void LogView::show_record(const Record& record) const {
  const std::string time = format_time(record.time, record.milliseconds_known);
  const bool frame = record.direction != Direction::none;
  const std::string kind = frame ? arrow(record.direction) : level_tag(record.level);
  std::string text = printable(text_of(record), Layout::keep_lines);
  if (frame && !record.mark.empty()) text += "  " + printable(mark_of(record));
  print_line(coloured(Colour::dim, time) + " " +
             coloured(frame ? Colour::bold : colour_of(record.level), padded(kind, 8)) + indented(text));
}

void LogView::show_record_as_json(const Record& record, const LoggedCall* call) const {
  Json object{{"time", trimmed_time(record.time, record.milliseconds_known)}};
  if (record.direction == Direction::none)
    object["level"] = level_tag(record.level);
  else
    object["direction"] = arrow(record.direction);
  const std::string function = function_of(record);
  if (!function.empty()) object["function"] = valid_utf8(function);
  if (call != nullptr && call->function != nullptr) object["call"] = call->function->name;
  if (call != nullptr && call->session >= 0) object["session"] = call->session;
  if (!record.mark.empty()) object["mark"] = valid_utf8(mark_of(record));
  object["text"] = valid_utf8(text_of(record));
  print_object(object);
}

void LogView::show_frame(const Record& frame, const LoggedCall* call) const {
  const auto values = values_of(frame, call == nullptr ? nullptr : call->function);
  if (json_) {
    show_frame_as_json(frame, values);
    return;
  }
  print_line(coloured(Colour::dim, trimmed_time(frame.time, frame.milliseconds_known)) + " " +
             coloured(Colour::bold, arrow(frame.direction)) + "  " + printable(mark_of(frame)));
  for (const NamedValue& field : values) {
    std::string value = printable(field.value);
    if (value.size() > kValueShown) {
      value = printable(value.substr(0, kValueShown)) +
              fill({"... ({} characters)", "... ({} caracteres)"}, {std::to_string(field.value.size())});
    }
    print_line("    " + padded(field.name, 18) + value);
  }
}

void LogView::show_frame_as_json(const Record& frame, const std::vector<NamedValue>& values) const {
  Json object{{"time", trimmed_time(frame.time, frame.milliseconds_known)},
              {"direction", arrow(frame.direction)},
              {"mark", valid_utf8(mark_of(frame))},
              {"fields", Json::object()}};
  for (const NamedValue& field : values) object["fields"][field.name] = valid_utf8(field.value);
  print_object(object);
}

void LogView::show_call_as_text(const LoggedCall& call) const {
  const std::string code = call.return_code.empty() ? tr({"no reply", "sem resposta"}) : call.return_code;
  const bool good = all_digits(call.return_code) && is_success_code(std::stoi(call.return_code));
  const std::string session = call.session < 0 ? "?" : std::to_string(call.session);
  print_line(coloured(Colour::dim, format_time(call.start, call.milliseconds_known)) + " " +
             coloured(Colour::bold, name_of(call)) + "  " + fill({"session {}", "sessão {}"}, {session}) +
             "  => " + coloured(good ? Colour::green : Colour::red, code) + "  " +
             seconds(call.end - call.start) + " s");
  LocalTime before = call.start;
  for (const Step& step : call.steps) {
    print_line("    +" + padded(seconds(step.time - call.start), 9) + " " +
               padded("(" + seconds(step.time - before) + ")", 11) +
               coloured(step.is_error ? Colour::red : Colour::plain, printable(text_of(step))));
    before = step.time;
  }
}

void LogView::show_call_as_json(const LoggedCall& call) const {
  Json object{{"start", trimmed_time(call.start, call.milliseconds_known)},
              {"function", name_of(call)},
              {"session", call.session},
              {"code", call.return_code},
              {"milliseconds", call.end - call.start},
              {"steps", Json::array()}};
  for (const Step& step : call.steps) {
    object["steps"].push_back(
        {{"offset", step.time - call.start}, {"what", valid_utf8(text_of(step))}, {"error", step.is_error}});
  }
  print_object(object);
}

}  // namespace satctl
