// talvex-hub: all tills of a shop share one SAT device.

#include <exception>

#include "hub/commands/commands.h"
#include "hub/http/wire.h"
#include "hub/journal/journal.h"
#include "satctl/command_line.h"
#include "satctl/terminal/terminal.h"

namespace {

using namespace hub;

constexpr Text kDescription{
    "talvex-hub: all tills of a shop share one SAT device (CF-e-SAT).\n",
    "talvex-hub: todos os caixas da loja compartilham um equipamento SAT (CF-e-SAT).\n"};

constexpr Text kExamples{
    "\nFirst steps:\n"
    "  install -m 400 code.txt ~/.local/state/talvex-hub/activation-code\n"
    "  talvex-hub serve &                               the device that the library finds, on 127.0.0.1:8360\n"
    "  talvex-hub check                                 is everything in place?\n"
    "  talvex-hub till add --name \"Caixa 1\"             prints the till's token\n"
    "  talvex-hub operations list --state undecided     what a supervisor has to decide\n"
    "\nThe guide is docs/hub.md.\n",
    "\nPrimeiros passos:\n"
    "  install -m 400 codigo.txt ~/.local/state/talvex-hub/activation-code\n"
    "  talvex-hub serve &                               o equipamento que a biblioteca acha, em 127.0.0.1:8360\n"
    "  talvex-hub check                                 está tudo no lugar?\n"
    "  talvex-hub till add --name \"Caixa 1\"             imprime o token do caixa\n"
    "  talvex-hub operations list --state undecided     o que um supervisor tem de decidir\n"
    "\nO guia é docs/pt-BR/hub.md.\n"};

std::string footer() {
  std::string text = std::string("\n") + tr({"Exit status:", "Código de saída:"}) + '\n';
  for (const ExitRow& row : kExits) {
    text += "  " + std::to_string(static_cast<int>(row.status)) + "  " + tr(row.meaning) + '\n';
  }
  return text + tr(kExamples);
}

Exit fail(Exit status, const std::string& reason) {
  satctl::print_error("talvex-hub: " + reason);
  return status;
}

Exit run(int argc, char** argv) {
  CLI::App app{tr(kDescription), "talvex-hub"};
  satctl::speak_users_language(app);
  app.footer(footer());
  app.require_subcommand(1);
  app.fallthrough();
  CommandLine line{app, {}, {}, {}};
  app.add_option("--config", line.config,
                 tr({"hub.toml; without it the defaults hold", "hub.toml; sem ele valem os padrões"}));
  app.add_option("--state", line.state, tr({"folder of the journal", "pasta do diário"}));
  app.set_version_flag("--version", "talvex-hub " HUB_VERSION, tr({"show the version", "mostrar a versão"}));
  for (const auto add : {add_serve_command, add_till_command, add_device_command, add_operations_command,
                         add_receipts_command, add_check_command}) {
    add(line);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    satctl::print(app.help());
    return Exit::success;
  } catch (const CLI::Success& version) {
    satctl::print_line(version.what());
    return Exit::success;
  } catch (const CLI::ParseError& error) {
    return fail(Exit::usage, satctl::describe(error));
  }
  return line.action();
}

Exit run_safely(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const SettingsError& error) {
    return fail(Exit::usage, error.what());
  } catch (const JournalError& error) {
    return fail(Exit::journal, error.what());
  } catch (const ListenError& error) {
    return fail(Exit::listen, error.what());
  } catch (const NoHubError& error) {
    return fail(Exit::no_hub, error.what());
  } catch (const std::exception& error) {
    return fail(Exit::usage, error.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  satctl::claim_terminal();
  const Exit status = run_safely(argc, argv);
  if (!satctl::output_arrived() && status == Exit::success) return static_cast<int>(Exit::usage);
  return static_cast<int>(status);
}
