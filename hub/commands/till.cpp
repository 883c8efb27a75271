// talvex-hub till: who may ask. Works beside a hub that runs.

#include "hub/commands/commands.h"
#include "hub/tills/tills.h"
#include "satctl/terminal/terminal.h"

namespace hub {

namespace {

Exit add(const Settings& settings, const std::string& name, const std::string& role) {
  if (!role_named(role)) {
    satctl::print_error(
        fill({"talvex-hub: there is no role {}", "talvex-hub: não existe o papel {}"}, {role}));
    return Exit::usage;
  }
  std::filesystem::create_directories(settings.state);
  Journal journal(settings.journal());
  satctl::print_line(give_token(journal, name, role));
  return Exit::success;
}

Exit list(const Settings& settings) {
  const Journal journal(settings.journal());
  for (const Till& till : journal.tills()) {
    satctl::print_line(satctl::padded(till.name, 24) + satctl::padded(till.role, 16) +
                       (till.has_token ? "" : tr({"no token", "sem token"})));
  }
  return Exit::success;
}

Exit revoke(const Settings& settings, const std::string& name) {
  Journal journal(settings.journal());
  const auto till = journal.till_named(name);
  if (!till || journal.revoke_tokens(till->id) == 0) {
    satctl::print_error(fill({"talvex-hub: {} has no token", "talvex-hub: {} não tem token"}, {name}));
    return Exit::refused;
  }
  return Exit::success;
}

}  // namespace

void add_till_command(CommandLine& line) {
  auto* till = line.app.add_subcommand("till", tr({"who may ask", "quem pode pedir"}));
  till->require_subcommand(1);
  static std::string name, role = "till";
  auto* adding = till->add_subcommand(
      "add", tr({"make a till, or a new token for one; the token is printed, and shown never again",
                 "criar um caixa, ou um novo token para ele; o token é impresso e nunca mais mostrado"}));
  adding->add_option("--name", name, tr({"its name", "o nome"}))->required();
  adding->add_option(
      "--role", role,
      tr({"till, viewer, supervisor or administrator", "till, viewer, supervisor ou administrator"}));
  adding->callback([&line] { line.action = [&line] { return add(line.settings(), name, role); }; });
  till->add_subcommand("list", tr({"show the tills", "mostrar os caixas"}))->callback([&line] {
    line.action = [&line] { return list(line.settings()); };
  });
  auto* revoking = till->add_subcommand(
      "revoke", tr({"its tokens are worth nothing from now on", "os tokens dele deixam de valer"}));
  revoking->add_option("--name", name, tr({"its name", "o nome"}))->required();
  revoking->callback([&line] { line.action = [&line] { return revoke(line.settings(), name); }; });
}

}  // namespace hub
