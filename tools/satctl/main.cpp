// satctl: SAT devices from the command line, over the installed driver library.

#include <exception>
#include <filesystem>

#include "command_line.h"
#include "terminal/command.h"
#include "terminal/terminal.h"

namespace {

using namespace satctl;

constexpr Text kDescription{
    "satctl: talk to a SAT fiscal device (CF-e-SAT), find out what is wrong, read the logs.\n",
    "satctl: conversa com o equipamento SAT (CF-e-SAT), descobre o que há de errado e lê os logs.\n"};

constexpr Text kExamples{
    "\nFirst steps:\n"
    "  satctl doctor                                    is everything in place?\n"
    "  satctl consultar-sat                             does the device answer?\n"
    "  export SAT_CODIGO=...                            the activation code, out of the process list\n"
    "  satctl consultar-status-operacional              state, clock, certificate\n"
    "  satctl enviar-dados-venda --dados @venda.xml --save-xml cfe.xml\n"
    "  satctl recuperar --sessao 12345                  what became of a sale whose reply was lost\n"
    "  satctl log --calls                               today's calls, step by step\n"
    "\nsatctl COMMAND --help shows the options of a command; the manual is satctl(1).\n",
    "\nPrimeiros passos:\n"
    "  satctl doctor                                    está tudo no lugar?\n"
    "  satctl consultar-sat                             o equipamento responde?\n"
    "  export SAT_CODIGO=...                            o código de ativação, fora da lista de processos\n"
    "  satctl consultar-status-operacional              estado, relógio, certificado\n"
    "  satctl enviar-dados-venda --dados @venda.xml --save-xml cfe.xml\n"
    "  satctl recuperar --sessao 12345                  o que houve com a venda cuja resposta se perdeu\n"
    "  satctl log --calls                               as chamadas de hoje, passo a passo\n"
    "\nsatctl COMANDO --help mostra as opções de um comando; o manual é satctl(1).\n"};

std::string footer() {
  std::string text = std::string("\n") + tr({"Exit status:", "Código de saída:"}) + '\n';
  for (const ExitStatusRow& row : kExitStatuses) {
    text += "  " + std::to_string(static_cast<int>(row.status)) + "  " + tr(row.meaning) + '\n';
  }
  return text + tr(kExamples);
}

void add_options(CommandLine& line) {
  line.app.add_flag("--json", line.settings.json, tr({"print one JSON object", "imprimir um objeto JSON"}));
  line.app.add_flag("--raw", line.settings.raw,
                    tr({"print the reply as it came", "imprimir a resposta como veio"}));
  line.app
      .add_option("--dir", line.settings.folder,
                  tr({"working directory of the till, with SAT.ini and logs (default: the current one)",
                      "pasta de trabalho do aplicativo, com SAT.ini e logs (padrão: a atual)"}))
      ->type_name(tr(kFolderType));
  line.app
      .add_option(
          "--library", line.settings.library,
          tr({"the driver library (default: libtalvex.so.2 of the system, else in ../lib or .. of satctl)",
              "a biblioteca (padrão: libtalvex.so.2 do sistema, senão em ../lib ou .. do satctl)"}))
      ->type_name(tr(kFileType));
  line.app.set_version_flag("--version", "satctl " SATCTL_VERSION,
                            tr({"show the version of satctl", "mostrar a versão do satctl"}));
}

void add_commands(CommandLine& line) {
  add_function_commands(line);
  add_recover_command(line);
  add_doctor_command(line);
  add_log_command(line);
  add_ini_command(line);
  add_utility_commands(line);
}

ExitStatus fail(const std::string& reason) {
  print_error("satctl: " + reason);
  return ExitStatus::usage;
}

// "satctl ini set", as far as the user has got.
std::string chosen_command(const CLI::App& app) {
  std::string name = app.get_name();
  for (const CLI::App* next = &app; !next->get_subcommands().empty();) {
    next = next->get_subcommands().front();
    name += " " + next->get_name();
  }
  return name;
}

// The command leaves the caller's folder; a bare name is looked up by the loader.
void make_absolute(std::string& library) {
  if (library.find('/') != std::string::npos) library = std::filesystem::absolute(library).string();
}

ExitStatus run(int argc, char** argv) {
  CLI::App app{tr(kDescription), "satctl"};
  speak_users_language(app);
  app.footer(footer());
  app.require_subcommand(1);
  CommandLine line{app, {}, {}};
  add_options(line);
  add_commands(line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    print(app.help());
    return ExitStatus::success;
  } catch (const CLI::Success& version) {
    print_line(version.what());
    return ExitStatus::success;
  } catch (const CLI::ParseError& error) {
    const auto unknown = app.remaining();
    const bool no_such_command = app.get_subcommands().empty() && !unknown.empty();
    const std::string reason =
        no_such_command ? fill({"there is no command {}", "não existe o comando {}"}, {unknown.front()})
                        : describe(error);
    return fail(reason + "\n" +
                fill({"{} --help shows the usage.", "{} --help mostra o uso."}, {chosen_command(app)}));
  }
  make_absolute(line.settings.library);
  return line.action();
}

}  // namespace

int main(int argc, char** argv) {
  claim_terminal();
  ExitStatus status = ExitStatus::usage;
  try {
    status = run(argc, argv);
  } catch (const std::exception& error) {
    status = fail(error.what());
  }
  if (!output_arrived() && status == ExitStatus::success) {
    fail(tr({"the output could not be written", "não foi possível gravar a saída"}));
    status = ExitStatus::not_written;
  }
  return static_cast<int>(status);
}
