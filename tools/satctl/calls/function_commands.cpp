// satctl <function>: the sixteen functions of the standard, and the version.

#include <memory>

#include "calls/arguments.h"
#include "calls/call.h"
#include "calls/document.h"
#include "terminal/command.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

constexpr Text kSessionHelp{"session number, 0 to 999999 (default: drawn at random, below 100000)",
                            "número de sessão, de 0 a 999999 (padrão: sorteado, abaixo de 100000)"};
constexpr Text kLiteralHelp{"send the value of {} as it is: no file's name, and not checked",
                            "enviar o valor de {} como está: não é nome de arquivo nem é conferido"};

// What the user gave for one call.
struct GivenCall {
  const Function* function;
  std::vector<GivenArgument> arguments;
  int session = -1;
  std::string save;
};

void report(const Library& library, const Reply& reply, const Settings& settings, const Saving& saving) {
  if (settings.raw) {
    print_line(reply.raw());
  } else if (settings.json) {
    auto object = json_of(library, reply);
    add_saving(object, saving, status_after(saving, reply.status()));
    print_json(object);
  } else {
    show_reply(library, reply, document_note(reply, saving));
  }
  explain_failure(reply);
}

ExitStatus call_function(const GivenCall& given, const Settings& settings) {
  const std::filesystem::path target = save_target(given.save);
  const Library library(settings.library);
  const auto values = argument_values(library, *given.function, given.arguments);
  enter(settings.folder);

  const bool asks = given.function->reply_session == ReplySession::asked;
  const int asked = asks ? std::stoi(values.back()) : -1;
  const Request request{given.function, given.session < 0 ? draw_session(asked) : given.session, asked};
  const Reply reply = make_call(library, request, values);
  const Saving saving = save_document(library, reply, target);
  report(library, reply, settings, saving);
  return status_after(saving, reply.status());
}

void add_function_command(CommandLine& line, const Function& function) {
  CLI::App* command = add_command(line.app, function.command, groups::kFunctions, function.help);
  command->description(std::string(tr(function.help)) + " (" + function.name + ")");
  command->alias(function.name);
  const auto given = std::make_shared<GivenCall>();
  given->function = &function;
  given->arguments.resize(function.parameters.size());
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    const Parameter& parameter = function.parameters[i];
    const std::string help = std::string(tr(parameter.help)) + " [" + parameter.name + "]";
    const std::string name = std::string("--") + parameter.option;
    GivenArgument& argument = given->arguments[i];
    command->add_option(name, argument.text, help)
        ->required(parameter.kind != ParameterKind::activation_code);
    if (has_form(parameter.kind)) {
      command->add_flag(name + "-literal", argument.literal, fill(kLiteralHelp, {name}));
    }
  }
  command->add_option("--sessao", given->session, tr(kSessionHelp))
      ->check(number_between(0, kLargestSession))
      ->type_name(tr(kNumberType));
  command->add_option("--save-xml", given->save, tr(kSaveHelp))->type_name(tr(kFileType));
  when_chosen(line, command, [given, &line] { return call_function(*given, line.settings); });
}

ExitStatus show_version(const Settings& settings) {
  const Library library(settings.library);
  enter(settings.folder);
  const std::string version = library.version();
  if (settings.json)
    print_json({{"version", valid_utf8(version)}, {"library", library.path().string()}});
  else
    print_line(settings.raw ? version : printable(version));
  return ExitStatus::success;
}

}  // namespace

void add_function_commands(CommandLine& line) {
  for (const Function& function : functions()) add_function_command(line, function);
  CLI::App* version = add_command(line.app, "versao-dll-talvex", groups::kFunctions,
                                  {"show the library's version", "mostrar a versão da biblioteca"});
  version->alias("VersaoDllTalvex");
  version->description(version->get_description() + " (VersaoDllTalvex)");
  when_chosen(line, version, [&line] { return show_version(line.settings); });
}

}  // namespace satctl
