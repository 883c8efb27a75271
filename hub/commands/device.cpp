// talvex-hub device: the device as the hub at work sees it.

#include "hub/commands/ask.h"
#include "hub/commands/commands.h"
#include "satctl/terminal/terminal.h"

namespace hub {

namespace {

Exit list(const Settings& settings) {
  const HubAnswer answer = ask_hub(settings, "GET", "/v1/equipamentos");
  for (const auto& device : answer.body.value("equipamentos", nlohmann::json::array())) {
    satctl::print_line(satctl::padded(device.value("equipamento", std::string("-")), 12) +
                       satctl::padded(device.value("estado", std::string()), 14) +
                       device.value("motivo", std::string()));
  }
  return answer.status == 200 ? Exit::success : Exit::refused;
}

Exit test(const Settings& settings) {
  const HubAnswer answer = ask_hub(settings, "POST", "/v1/funcoes/ConsultarSAT", nlohmann::json::object());
  const auto reply = answer.body.value("resposta", nlohmann::json::object());
  const std::string code = reply.value("EEEEE", std::string());
  satctl::print_line(answer.status == 200 ? code + " " + reply.value("mensagem", std::string())
                                          : answer.detail());
  return code == "08000" ? Exit::success : Exit::refused;
}

}  // namespace

void add_device_command(CommandLine& line) {
  auto* device = line.app.add_subcommand("device", tr({"the device", "o equipamento"}));
  device->require_subcommand(1);
  device->add_subcommand("list", tr({"show its state", "mostrar o estado"}))->callback([&line] {
    line.action = [&line] { return list(line.settings()); };
  });
  device->add_subcommand("test", tr({"ask whether it works", "perguntar se opera"}))->callback([&line] {
    line.action = [&line] { return test(line.settings()); };
  });
}

}  // namespace hub
