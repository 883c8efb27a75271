// The commands of talvex-hub. Each adds itself to the command line and says how it went.
#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <filesystem>
#include <functional>

#include "hub/settings.h"
#include "hub/text.h"

namespace hub {

// What a script has to know.
enum class Exit : int {
  success = 0,
  refused = 1,
  usage = 2,
  journal = 3,
  listen = 4,
  no_hub = 5,
};

struct ExitRow {
  Exit status;
  Text meaning;
};
inline constexpr std::array kExits{
    ExitRow{Exit::success, {"success", "sucesso"}},
    ExitRow{Exit::refused, {"refused, or a check said no", "recusado, ou a verificação reprovou"}},
    ExitRow{Exit::usage, {"wrong usage or configuration", "uso ou configuração incorretos"}},
    ExitRow{Exit::journal, {"the journal cannot be used", "o diário não pode ser usado"}},
    ExitRow{Exit::listen,
            {"another hub is at work, or the address cannot be had",
             "outro hub está em operação, ou o endereço não está disponível"}},
    ExitRow{Exit::no_hub, {"no hub answers", "nenhum hub responde"}},
};

struct CommandLine {
  CLI::App& app;
  std::filesystem::path config, state;
  std::function<Exit()> action;

  Settings settings() const { return load_settings(config, state); }
};

void add_serve_command(CommandLine& line);
void add_till_command(CommandLine& line);
void add_device_command(CommandLine& line);
void add_operations_command(CommandLine& line);
void add_receipts_command(CommandLine& line);
void add_check_command(CommandLine& line);

// Serves until a signal comes.
Exit serve(const Settings& settings);

}  // namespace hub
