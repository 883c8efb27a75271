// talvex-hub operations: what became of each, and what a supervisor says about those that nobody can prove.

#include "hub/commands/ask.h"
#include "hub/commands/commands.h"
#include "hub/journal/operation.h"
#include "satctl/terminal/terminal.h"

namespace hub {

namespace {

struct Wanted {
  std::string state, decision, receipt, reason;
  OperationId id = 0;
};

Exit list(const Settings& settings, const std::string& state) {
  const std::string query = state.empty() ? "" : "?estado=" + state;
  const HubAnswer answer = ask_hub(settings, "GET", "/v1/operacoes" + query);
  if (answer.status != 200) {
    satctl::print_error("talvex-hub: " + answer.detail());
    return Exit::refused;
  }
  for (const auto& operation : answer.body.value("operacoes", nlohmann::json::array())) {
    satctl::print_line(satctl::padded(std::to_string(operation.value("id", 0)), 8) +
                       satctl::padded(operation.value("estado", std::string()), 12) +
                       satctl::padded(operation.value("caixa", std::string()), 16) +
                       satctl::padded(operation.value("funcao", std::string()), 22) +
                       operation.value("chave", std::string()) + "  " +
                       operation.value("motivo", std::string()));
  }
  return Exit::success;
}

Exit decide(const Settings& settings, const Wanted& wanted) {
  nlohmann::json body{{"decisao", wanted.decision}, {"motivo", wanted.reason}};
  if (!wanted.receipt.empty()) body["chaveConsulta"] = wanted.receipt;
  const HubAnswer answer =
      ask_hub(settings, "POST", "/v1/operacoes/" + std::to_string(wanted.id) + "/decisao", body);
  if (answer.status == 200) {
    satctl::print_line(answer.body.value("estado", std::string()));
    return Exit::success;
  }
  satctl::print_error("talvex-hub: " + answer.detail());
  return answer.status == 400 ? Exit::usage : Exit::refused;
}

}  // namespace

void add_operations_command(CommandLine& line) {
  static Wanted wanted;
  auto* operations =
      line.app.add_subcommand("operations", tr({"what became of each", "o que houve com cada uma"}));
  operations->require_subcommand(1);
  auto* listing = operations->add_subcommand("list", tr({"show them", "mostrar"}));
  listing->add_option(
      "--state", wanted.state,
      tr({"only those in this state, such as undecided", "só as desse estado, como undecided"}));
  listing->callback([&line] { line.action = [&line] { return list(line.settings(), wanted.state); }; });
  auto* deciding = operations->add_subcommand(
      "decide", tr({"settle one that nobody can prove", "resolver uma que ninguém consegue provar"}));
  deciding->add_option("id", wanted.id, tr({"its number", "o número"}))->required();
  deciding
      ->add_option(
          "decision", wanted.decision,
          tr({"issued, not-issued, undecided or confirmed", "issued, not-issued, undecided ou confirmed"}))
      ->required();
  deciding->add_option("--receipt", wanted.receipt,
                       tr({"issued: the receipt's access key", "issued: a chave de acesso do cupom"}));
  deciding->add_option("--reason", wanted.reason, tr({"why; it is kept", "por quê; fica registrado"}))
      ->required();
  deciding->callback([&line] { line.action = [&line] { return decide(line.settings(), wanted); }; });
}

}  // namespace hub
