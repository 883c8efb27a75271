#include "calls/call.h"

#include <algorithm>
#include <cstdlib>
#include <random>

#include "calls/progress.h"
#include "calls/settlement.h"
#include "masking/own_reply.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

constexpr std::size_t kLongTextShown = 40;
constexpr std::size_t kNameWidth = 17;

constexpr Text kShortened{"{}... ({} characters)", "{}... ({} caracteres)"};
constexpr Text kOtherSession{"the call had session {}, the reply is of session {}",
                             "a chamada tinha a sessão {}, a resposta é da sessão {}"};

int limit_of(const Library& library, const Function& function) {
  if (!function.limit_configurable) return function.limit_seconds;
  const auto configured = library.ini_value(kIniFile, "SAT_TIMEOUT", function.name);
  const int seconds = configured ? std::atoi(configured->c_str()) : 0;
  return seconds > 0 ? seconds : function.limit_seconds;
}

std::string shown_value(const Library& library, const Reply& reply, const NamedField& field,
                        const std::string& document_note) {
  if (&field == reply.document()) return document_note;
  std::string value = printable(field.value);
  if (field.kind == FieldKind::long_text && value.size() > kLongTextShown) {
    return fill(kShortened, {value.substr(0, kLongTextShown), std::to_string(value.size())});
  }
  if (field.name == "EEEEE" && !reply.return_code().empty()) {
    value += "  " + library.return_code_message(reply.number());
  }
  return value;
}

// A device may put the code that it got into its reply.
masking::LearnedCodes secrets_of(const Function& function, const std::vector<std::string>& values) {
  constexpr std::size_t kShortest = 4;
  masking::LearnedCodes codes(kShortest);
  for (std::size_t i = 0; i < std::min(values.size(), function.parameters.size()); ++i) {
    const ParameterKind kind = function.parameters[i].kind;
    if (kind == ParameterKind::activation_code || kind == ParameterKind::secret) codes.add(values[i]);
  }
  return codes;
}

Colour colour_of(ExitStatus status) {
  switch (status) {
    case ExitStatus::success:
      return Colour::green;
    case ExitStatus::refused:
    case ExitStatus::busy:
      return Colour::yellow;
    default:
      return Colour::red;
  }
}

constexpr Text kTryAgain{"try again in a moment; satctl doctor says who holds the port.",
                         "tente de novo em instantes; satctl doctor diz quem ocupa a porta."};
constexpr Text kNothingSent{
    "nothing was sent; try again in a moment; satctl doctor says who holds the port.",
    "nada foi enviado; tente de novo em instantes; satctl doctor diz quem ocupa a porta."};

}  // namespace

int draw_session(int other_than) {
  std::random_device source;
  std::uniform_int_distribution<int> draw(1, kSessionsToDraw - 1);
  int session = draw(source);
  while (session == other_than) session = draw(source);
  return session;
}

Reply make_call(const Library& library, const Request& request, const std::vector<std::string>& values) {
  const Function& function = *request.function;
  const int limit = limit_of(library, function);
  const InterruptNotice notice(function, request.session);
  const Progress progress(function, request.session, limit);
  const std::string reply = library.call(function, request.session, values);
  return Reply(request, masking::reply_without_codes(reply, secrets_of(function, values)));
}

void show_fields(const Library& library, const Reply& reply, const std::string& document_note) {
  if (reply.fields().empty()) print_line("  " + printable(reply.raw()));
  for (const NamedField& field : reply.fields()) {
    print_line("  " + padded(field.name, kNameWidth) + shown_value(library, reply, field, document_note));
  }
}

void show_reply(const Library& library, const Reply& reply, const std::string& document_note) {
  const Request& request = reply.request();
  print_line(coloured(Colour::bold, request.function->name) + "  " +
             fill({"session {}", "sessão {}"}, {std::to_string(request.session)}));
  show_fields(library, reply, document_note);
  const std::string meaning = reply.meaning() == reply.outcome() ? "" : ": " + reply.meaning();
  print_line("=> " + coloured(colour_of(reply.status()), reply.outcome()) + meaning);
}

void explain_failure(const Reply& reply) {
  const Request& request = reply.request();
  if (reply.status() == ExitStatus::other_session) {
    print_error("satctl: " + fill(kOtherSession,
                                  {std::to_string(request.session), printable(reply.field("numeroSessao"))}));
  }
  if (reply.status() == ExitStatus::link_failure || reply.status() == ExitStatus::other_session) {
    print_error("satctl: " + how_to_find_out(*request.function, request.session));
  }
  if (reply.status() == ExitStatus::no_device) {
    print_error(std::string("satctl: ") +
                tr({"satctl doctor says what is missing.", "satctl doctor diz o que falta."}));
  }
  if (reply.status() == ExitStatus::busy) {
    const bool fiscal = request.function->effect == Effect::fiscal;
    print_error(std::string("satctl: ") + tr(fiscal ? kNothingSent : kTryAgain));
  }
}

nlohmann::ordered_json json_of(const Library& library, const Reply& reply) {
  nlohmann::ordered_json object;
  const Request& request = reply.request();
  object["function"] = request.function->name;
  object["session"] = request.session;
  object["exitStatus"] = static_cast<int>(reply.status());
  object["status"] = row_of(reply.status()).name;
  object["class"] = reply.outcome();
  object["meaning"] = reply.meaning();
  if (!reply.return_code().empty()) {
    object["EEEEE"] = reply.return_code();
    object["EEEEEMessage"] = valid_utf8(library.return_code_message(reply.number()));
  }
  if (!reply.field("CCCC").empty()) object["CCCC"] = reply.field("CCCC");
  object["fields"] = nlohmann::ordered_json::object();
  for (const NamedField& field : reply.fields()) {
    if (&field != reply.document()) object["fields"][field.name] = valid_utf8(field.value);
  }
  if (const NamedField* document = reply.document()) {
    object["document"] = {{"field", document->name}, {"base64Characters", document->value.size()}};
  }
  if (reply.fields().empty()) object["text"] = valid_utf8(reply.raw());
  return object;
}

void print_json(const nlohmann::ordered_json& object) {
  constexpr int kIndent = 2;
  print_line(object.dump(kIndent, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

}  // namespace satctl
