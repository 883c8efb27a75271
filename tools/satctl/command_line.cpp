#include "command_line.h"

#include <memory>
#include <sstream>

#include "terminal/command.h"

namespace satctl {

namespace {

struct Label {
  const char* key;
  Text text;
};

constexpr Label kLabels[] = {
    {"Usage", {"Usage", "Uso"}},
    {"OPTIONS", {"OPTIONS", "OPÇÕES"}},
    {"SUBCOMMAND", {"COMMAND", "COMANDO"}},
    {"SUBCOMMANDS", {"COMMANDS", "COMANDOS"}},
    {"Positionals", {"Arguments", "Argumentos"}},
    {"REQUIRED", {"(required)", "(obrigatório)"}},
    {"Needs", {"needs", "exige"}},
    {"Excludes", {"excludes", "exclui"}},
    {"TEXT", {"TEXT", "TEXTO"}},
    {"INT", {"NUMBER", "NÚMERO"}},
    {"UINT", {"NUMBER", "NÚMERO"}},
};

// Pieces of the parser's own messages.
constexpr Label kPhrases[] = {
    {"The following argument was not expected", {"unexpected argument", "argumento inesperado"}},
    {"The following arguments were not expected", {"unexpected arguments", "argumentos inesperados"}},
    {"A subcommand is required", {"a command is missing", "falta o comando"}},
    {" is required", {" is required", " é obrigatório"}},
    {" excludes ", {" excludes ", " não combina com "}},
    {" requires ", {" needs ", " exige "}},
    {"Could not convert", {"not understood", "não entendido"}},
    {" not in range ", {" is not in the range ", " está fora da faixa "}},
    {" to ", {" to ", " a "}},
    {" not in ", {" is not one of ", " não é um de "}},
    {"Value ", {"value ", "valor "}},
    {" required ", {" missing ", " obrigatório faltando: "}},
    {" missing", {"", ""}},
};

// The phrase at the start of the text, or null.
const Label* phrase_at(std::string_view text) {
  for (const Label& phrase : kPhrases) {
    if (text.starts_with(phrase.key)) return &phrase;
  }
  return nullptr;
}

// Commands under their short names; the standard's names stand in the descriptions.
class Help : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override {
    std::stringstream out;
    CLI::detail::format_help(out, command->get_name(), command->get_description(), column_width_);
    return out.str();
  }
};

}  // namespace

void speak_users_language(CLI::App& app) {
  constexpr std::size_t kColumn = 36;
  const auto formatter = std::make_shared<Help>();
  for (const Label& label : kLabels) formatter->label(label.key, tr(label.text));
  formatter->column_width(kColumn);
  app.formatter(formatter);
  app.set_help_flag("-h,--help", tr({"show this help", "mostrar esta ajuda"}));
  app.option_defaults()->group(tr({"Options", "Opções"}))->take_last();
  app.get_help_ptr()->group(tr({"Options", "Opções"}));
}

std::string describe(const CLI::ParseError& error) {
  const std::string message = error.what();
  std::string_view rest = message;
  std::string text;
  while (!rest.empty()) {
    const Label* phrase = phrase_at(rest);
    text += phrase == nullptr ? std::string(1, rest[0]) : tr(phrase->text);
    rest.remove_prefix(phrase == nullptr ? 1 : std::string_view(phrase->key).size());
  }
  return text;
}

CLI::Validator number_between(int least, int most) {
  return CLI::Range(least, most).description("");
}

CLI::App* add_command(CLI::App& parent, const std::string& name, const Text& group, const Text& help) {
  CLI::App* command = parent.add_subcommand(name, tr(help));
  command->group(tr(group));
  command->fallthrough();
  command->set_help_flag("-h,--help", tr({"show this help", "mostrar esta ajuda"}));
  command->get_help_ptr()->group(tr({"Options", "Opções"}));
  command->footer(
      tr({"--json, --raw, --dir FOLDER and --library FILE go with every command: satctl --help.\n",
          "--json, --raw, --dir PASTA e --library ARQUIVO valem para todo comando: satctl --help.\n"}));
  return command;
}

}  // namespace satctl
