// satctl <function>: the sixteen functions of the standard, and the version.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "arguments.h"
#include "call.h"
#include "command.h"
#include "printable.h"
#include "terminal.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;

constexpr Text kSessionHelp{"session number, 0 to 999999 (default: drawn at random)",
                            "número de sessão, de 0 a 999999 (padrão: sorteado)"};
constexpr Text kSaveHelp{"save the document in the reply (XML, certificate request, log), decoded",
                         "salvar o documento da resposta (XML, pedido de certificado, log), decodificado"};
constexpr Text kNotShown{"(document, {} characters of base64; --save-xml FILE saves it)",
                         "(documento, {} caracteres de base64; --save-xml ARQUIVO o salva)"};
constexpr Text kSaved{"(document saved to {})", "(documento salvo em {})"};
constexpr Text kNotSaved{
    "the document could not be saved to {}: {}; "
    "satctl consultar-numero-sessao --numero {} --save-xml gets it again",
    "não foi possível salvar o documento em {}: {}; "
    "satctl consultar-numero-sessao --numero {} --save-xml o obtém de novo"};
constexpr Text kNoBase64{"the field is no base64", "o campo não é base64"};
constexpr Text kNoDocument{"the reply holds no document; {} was not written",
                           "a resposta não traz documento; {} não foi gravado"};

// What the user gave for one call.
struct GivenCall {
  const Function* function;
  std::vector<std::string> arguments;
  int session = -1;
  std::string save;
};

void check_target(const fs::path& target) {
  std::error_code error;
  const fs::path parent = target.parent_path();
  const int reason = fs::is_directory(target, error) ? EISDIR : access(parent.c_str(), W_OK) == 0 ? 0 : errno;
  if (reason == 0) return;
  throw UsageError(fill({"{} cannot be written: {}", "{} não pode ser gravado: {}"},
                        {target.string(), std::strerror(reason)}));
}

// Where the document went, in words; empty if it is nowhere.
std::string save_document(const Library& library, const Reply& reply, const fs::path& target) {
  const NamedField* document = reply.document();
  if (target.empty()) return {};
  if (document == nullptr) {
    print_error("satctl: " + fill(kNoDocument, {target.string()}));
    return {};
  }
  const auto content = library.decode_base64(document->value);
  if (content && replace_file(target, *content)) return target.string();
  const std::string reason = content ? std::strerror(errno) : tr(kNoBase64);
  print_error("satctl: " +
              fill(kNotSaved, {target.string(), reason, std::to_string(reply.request().session)}));
  return {};
}

void report(const Library& library, const Reply& reply, const Settings& settings, const std::string& saved) {
  if (settings.raw) {
    print_line(reply.raw());
  } else if (settings.json) {
    auto object = json_of(library, reply);
    if (!saved.empty()) object["document"]["savedTo"] = valid_utf8(saved);
    print_json(object);
  } else {
    const NamedField* document = reply.document();
    const std::string size = document == nullptr ? "0" : std::to_string(document->value.size());
    show_reply(library, reply, saved.empty() ? fill(kNotShown, {size}) : fill(kSaved, {saved}));
  }
  explain_failure(reply);
}

ExitStatus call_function(const GivenCall& given, const Settings& settings) {
  const fs::path target = given.save.empty() ? fs::path() : fs::absolute(given.save);
  if (!target.empty()) check_target(target);
  const Library library(settings.library);
  const auto values = argument_values(library, *given.function, given.arguments);
  enter(settings.folder);

  Request request{given.function, given.session < 0 ? draw_session() : given.session};
  if (given.function->reply_session == ReplySession::asked) request.asked_session = std::stoi(values.back());
  const Reply reply = make_call(library, request, values);
  report(library, reply, settings, save_document(library, reply, target));
  return reply.status();
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
    auto* option = command->add_option(std::string("--") + parameter.option, given->arguments[i], help);
    option->required(parameter.kind != ParameterKind::activation_code);
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
