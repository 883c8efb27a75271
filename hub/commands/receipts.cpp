// talvex-hub receipts: from the journal, whether a hub is at work or not.

#include "hub/commands/commands.h"
#include "hub/encoding.h"
#include "hub/http/parsing.h"
#include "hub/journal/journal.h"
#include "satctl/terminal/terminal.h"

namespace hub {

namespace {

Exit list(const Settings& settings, const std::map<std::string, std::string>& query) {
  const auto search = parse_receipt_search(query);
  if (const auto* wrong = std::get_if<Problem>(&search)) {
    satctl::print_error("talvex-hub: " + wrong->detail);
    return Exit::usage;
  }
  const Journal journal(settings.journal());
  for (const Receipt& receipt : journal.receipts(std::get<ReceiptSearch>(search))) {
    satctl::print_line("CFe" + receipt.key + "  " + moment_text(receipt.moment) + "  " +
                       satctl::padded(receipt.total, 12) + receipt.till);
  }
  return Exit::success;
}

// The document itself, byte for byte.
Exit show(const Settings& settings, const std::string& name) {
  const Journal journal(settings.journal());
  const auto key = AccessKey::parse(name);
  const auto receipt = key ? journal.receipt(key->digits()) : std::nullopt;
  const auto xml =
      receipt ? from_wrapped_base64(Reply(receipt->reply).field(field::kDocument)) : std::nullopt;
  if (!xml || xml->empty()) {
    satctl::print_error(
        fill({"talvex-hub: there is no receipt {}", "talvex-hub: não existe o cupom {}"}, {name}));
    return Exit::refused;
  }
  satctl::print(*xml);
  return Exit::success;
}

}  // namespace

void add_receipts_command(CommandLine& line) {
  static std::map<std::string, std::string> query;
  static std::string key;
  auto* receipts = line.app.add_subcommand("receipts", tr({"receipts in the journal", "cupons no diário"}));
  receipts->require_subcommand(1);
  auto* listing = receipts->add_subcommand("list", tr({"show them", "mostrar"}));
  const auto add_filter = [&](const char* option, const char* name, const Text& help) {
    listing->add_option_function<std::string>(
        option, [name](const std::string& value) { query[name] = value; }, tr(help));
  };
  add_filter("--from", "de", {"from this day on, 2026-03-01", "a partir desse dia, 2026-03-01"});
  add_filter("--to", "ate", {"up to this day", "até esse dia"});
  add_filter("--till", "caixa", {"of this till", "desse caixa"});
  add_filter("--total", "valor", {"with this total, 10.00", "com esse total, 10.00"});
  listing->callback([&line] { line.action = [&line] { return list(line.settings(), query); }; });
  auto* showing = receipts->add_subcommand("show", tr({"print its XML", "imprimir o XML"}));
  showing->add_option("key", key, tr({"its access key", "a chave de acesso"}))->required();
  showing->callback([&line] { line.action = [&line] { return show(line.settings(), key); }; });
}

}  // namespace hub
