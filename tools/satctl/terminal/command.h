// The commands of satctl. Each adds itself to the command line and, when chosen, leaves its action behind.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "terminal/exit_status.h"
#include "terminal/settings.h"

namespace satctl {

using Action = std::function<ExitStatus()>;

struct CommandLine {
  CLI::App& app;
  Settings settings;
  Action action;
};

inline constexpr Text kNumberType{"NUMBER", "NÚMERO"};
inline constexpr Text kTextType{"TEXT", "TEXTO"};
inline constexpr Text kFileType{"FILE", "ARQUIVO"};
inline constexpr Text kFolderType{"FOLDER", "PASTA"};
inline constexpr Text kKeyType{"KEY", "CHAVE"};

namespace groups {
inline constexpr Text kFunctions{"SAT functions", "Funções do SAT"};
inline constexpr Text kDiagnosis{"Diagnosis", "Diagnóstico"};
inline constexpr Text kUtilities{"Utilities", "Utilitários"};
}  // namespace groups

CLI::App* add_command(CLI::App& parent, const std::string& name, const Text& group, const Text& help);

// A range that does not repeat itself behind the option's type in the help.
CLI::Validator number_between(int least, int most);

template <typename Run>
void when_chosen(CommandLine& line, CLI::App* command, Run run) {
  command->callback([&line, run] { line.action = run; });
}

void add_function_commands(CommandLine& line);
void add_recover_command(CommandLine& line);
void add_doctor_command(CommandLine& line);
void add_log_command(CommandLine& line);
void add_ini_command(CommandLine& line);
void add_utility_commands(CommandLine& line);

}  // namespace satctl
