// talvex-hub check: is everything in place? Looks, and changes nothing.

#include <unistd.h>

#include "hub/commands/ask.h"
#include "hub/commands/commands.h"
#include "hub/device/port.h"
#include "hub/http/wire.h"
#include "hub/journal/journal.h"
#include "satctl/library/library.h"
#include "satctl/terminal/terminal.h"

namespace hub {

namespace {

struct Finding {
  bool good = true;
  std::string text;
};

using Check = Finding (*)(const Settings&);

struct CheckRow {
  Text name;
  Check look;
};

Finding check_journal(const Settings& settings) {
  if (!std::filesystem::exists(settings.journal())) {
    return {true, tr({"not there yet; the hub makes it", "ainda não existe; o hub o cria"})};
  }
  const Journal journal(settings.journal());
  const auto damages = journal.damages();
  if (!damages.empty()) return {false, damages.front()};
  const auto undecided = journal.in_state(State::undecided).size();
  if (undecided == 0) return {true, settings.journal().string()};
  return {false, fill({"{} operations wait for a decision: talvex-hub operations list --state undecided",
                       "{} operações esperam uma decisão: talvex-hub operations list --state undecided"},
                      {std::to_string(undecided)})};
}

Finding check_code(const Settings& settings) {
  const auto& file = settings.device.activation_code_file;
  if (!read_activation_code(file)) {
    return {false, fill({"no activation code in {}", "falta o código de ativação em {}"}, {file.string()})};
  }
  return {true, file.string()};
}

Finding check_port(const Settings& settings) {
  const auto port = settings.device.port.empty() ? find_usb_port() : std::optional(settings.device.port);
  if (!port) return {false, tr({"no device on the USB bus", "nenhum equipamento no barramento USB"})};
  if (!node_of(*port)) return {false, fill({"{} is no port", "{} não é uma porta"}, {port->string()})};
  return {true, port->string()};
}

Finding check_locks(const Settings& settings) {
  return {access(settings.locks.c_str(), W_OK | X_OK) == 0, settings.locks.string()};
}

Finding check_library(const Settings& settings) {
  return {true, satctl::Library(settings.library).path().string()};
}

Finding check_hub(const Settings& settings) {
  const HubAnswer answer = ask_hub(settings, "GET", "/healthz");
  return {answer.body.value("estado", std::string()) == "ok",
          answer.body.value("motivo", settings.socket.string())};
}

constexpr std::array kChecks{
    CheckRow{{"library", "biblioteca"}, check_library},
    CheckRow{{"activation code", "código de ativação"}, check_code},
    CheckRow{{"port", "porta"}, check_port},
    CheckRow{{"locks", "travas"}, check_locks},
    CheckRow{{"journal", "diário"}, check_journal},
    CheckRow{{"hub", "hub"}, check_hub},
};

Finding look(const CheckRow& row, const Settings& settings) {
  try {
    return row.look(settings);
  } catch (const std::exception& error) {
    return {false, error.what()};
  }
}

Exit check(const Settings& settings) {
  bool good = true;
  for (const CheckRow& row : kChecks) {
    const Finding finding = look(row, settings);
    good = good && finding.good;
    satctl::print_line(satctl::coloured(finding.good ? satctl::Colour::green : satctl::Colour::red,
                                        finding.good ? "ok   " : tr({"BAD  ", "RUIM "})) +
                       satctl::padded(tr(row.name), 20) + finding.text);
  }
  return good ? Exit::success : Exit::refused;
}

}  // namespace

void add_check_command(CommandLine& line) {
  line.app.add_subcommand("check", tr({"is everything in place?", "está tudo no lugar?"}))->callback([&line] {
    line.action = [&line] { return check(line.settings()); };
  });
}

}  // namespace hub
