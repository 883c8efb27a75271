// satctl recuperar: what became of a sale or cancellation whose reply was lost. It only asks; nothing is sent
// again.

#include <memory>

#include "calls/arguments.h"
#include "calls/call.h"
#include "calls/document.h"
#include "calls/settlement.h"
#include "terminal/command.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

constexpr ExitStatus kUnknown = ExitStatus::link_failure;

struct Verdict {
  Fate fate;
  const char* name;
  ExitStatus status;
  Text text;
};

constexpr Verdict kVerdicts[] = {
    {Fate::issued,
     "issued",
     ExitStatus::success,
     {"Session {} made a sale; do not send it again.", "A sessão {} emitiu a venda; não a reenvie."}},
    {Fate::cancelled,
     "cancelled",
     ExitStatus::success,
     {"Session {} cancelled a sale; do not send it again.", "A sessão {} cancelou uma venda; não reenvie."}},
    {Fate::refused,
     "refused",
     ExitStatus::refused,
     {"The device refused session {}: nothing was issued. Put the cause right and send with a new session number.",
      "O equipamento recusou a sessão {}: nada foi emitido. Corrija a causa e envie com novo número de sessão."}},
    {Fate::not_issued,
     "not-issued",
     ExitStatus::refused,
     {"Session {} issued nothing: the device has no newer receipt than the one from before. Send with a new session "
      "number.",
      "A sessão {} não emitiu nada: o equipamento não tem cupom mais novo que o de antes. Envie com novo número de "
      "sessão."}},
    {Fate::no_comparison,
     "unknown",
     kUnknown,
     {"The device does not say what became of session {}. Compare its last receipt, below, with the last one that the "
      "till knew before: satctl recuperar --sessao {} --antes KEY. Do not send the sale again before.",
      "O equipamento não diz o que houve com a sessão {}. Compare o último cupom dele, abaixo, com o último que o PDV "
      "conhecia antes: satctl recuperar --sessao {} --antes CHAVE. Não reenvie a venda antes disso."}},
    {Fate::newer_receipts,
     "unknown",
     kUnknown,
     {"The device does not say what became of session {}, and has issued for another session since. Look for the sale "
      "among its receipts; do not send it again before.",
      "O equipamento não diz o que houve com a sessão {} e já emitiu para outra sessão depois. Procure a venda entre "
      "os cupons dele; não reenvie antes disso."}},
    {Fate::misfit,
     "unknown",
     kUnknown,
     {"The device does not say what became of session {}, and the receipt given with --antes is none that came before "
      "its last one: another device, or a wrong key. Do not send the sale again before you know.",
      "O equipamento não diz o que houve com a sessão {}, e o cupom informado em --antes não veio antes do último "
      "dele: outro equipamento ou chave errada. Não reenvie a venda antes de saber."}},
};

constexpr const char* kAskAgainName = "unknown";
constexpr Text kAskAgain{
    "Nothing is known of session {} yet: the device could not be asked. Ask again; do not send the sale again.",
    "Ainda não se sabe da sessão {}: não foi possível consultar o equipamento. Consulte de novo; não reenvie."};

constexpr Text kReceipt{"  key    {}\n  date   {}\n  total  {}", "  chave  {}\n  data   {}\n  total  {}"};
constexpr Text kDocument{"  XML    {}", "  XML    {}"};
constexpr Text kLastSession{"  The last sale or cancellation that it knows is session {} ({}, {}).",
                            "  A última venda ou cancelamento que ele conhece é a sessão {} ({}, {})."};

struct GivenRecovery {
  int session = 0;
  std::string code;
  std::string before;
  std::string save;
};

// The two queries, and what they say.
struct Inquiry {
  int session;
  std::vector<Reply> replies;
  const Verdict* verdict = nullptr;  // null: the device could not be asked

  const Reply& deciding_reply() const { return replies.back(); }
  bool has_receipt() const { return verdict != nullptr && verdict->status == ExitStatus::success; }
  const char* name() const { return verdict == nullptr ? kAskAgainName : verdict->name; }
  std::string text() const {
    const std::string number = std::to_string(session);
    return fill(verdict == nullptr ? kAskAgain : verdict->text, {number, number});
  }
};

const Verdict* verdict_of(Fate fate) {
  return &kVerdicts[static_cast<std::size_t>(fate)];
}

Reply ask(const Library& library, const char* name, int about, int session_before,
          const std::vector<std::string>& values) {
  const Request request{find_function(name), draw_session(session_before), about};
  return make_call(library, request, values);
}

// Whether the device was asked, and has nothing to say about the session.
bool knows_nothing(const Reply& reply) {
  constexpr int kNoSuchSession = 11003, kUnknownError = 11099;
  return reply.number() == kNoSuchSession || reply.number() == kUnknownError;
}

// Whether the device has never issued anything.
bool has_no_receipt(const Reply& reply) {
  constexpr int kNoFiscalSession = 19003;
  return reply.number() == kNoFiscalSession;
}

Inquiry inquire(const Library& library, int session, const std::string& code,
                std::optional<std::string_view> before) {
  Inquiry inquiry{session, {}};
  inquiry.replies.push_back(
      ask(library, "ConsultarNumeroSessao", session, session, {code, std::to_string(session)}));
  const Reply& stored = inquiry.replies.back();
  const int query_session = stored.request().session;
  if (stored.status() == ExitStatus::success) {
    if (const auto fate = fate_by_session(session, stored.evidence(), before)) {
      inquiry.verdict = verdict_of(*fate);
      return inquiry;
    }
  } else if (!knows_nothing(stored)) {
    return inquiry;
  }

  inquiry.replies.push_back(ask(library, "ConsultarUltimaSessaoFiscal", session, query_session, {code}));
  const Reply& last = inquiry.replies.back();
  if (last.status() == ExitStatus::success || has_no_receipt(last)) {
    inquiry.verdict = verdict_of(fate_by_last_receipt(session, last.evidence(), before));
  }
  return inquiry;
}

// A query that was refused says nothing about the sale: 1 would read as "nothing was issued".
ExitStatus status_of(const Inquiry& inquiry) {
  if (inquiry.verdict != nullptr) return inquiry.verdict->status;
  const ExitStatus status = inquiry.deciding_reply().status();
  const bool says_why = status == ExitStatus::no_device || status == ExitStatus::busy;
  return says_why ? status : kUnknown;
}

void show(const Library& library, const Inquiry& inquiry, const Saving& saving) {
  const Reply& reply = inquiry.deciding_reply();
  print_line(inquiry.text());
  if (inquiry.has_receipt()) {
    print_line(fill(kReceipt, {printable(reply.field("chaveConsulta")), printable(reply.field("timeStamp")),
                               printable(reply.field("valorTotalCFe"))}));
    print_line(fill(kDocument, {document_note(reply, saving)}));
  } else if (inquiry.replies.size() > 1 && !reply.field("chaveConsulta").empty()) {
    print_line(
        fill(kLastSession, {printable(reply.field("numeroSessao")), printable(reply.field("timeStamp")),
                            printable(reply.field("chaveConsulta"))}));
  } else {
    show_fields(library, reply, {});
  }
}

void show_as_json(const Library& library, const Inquiry& inquiry, const Saving& saving) {
  nlohmann::ordered_json object;
  object["session"] = inquiry.session;
  object["verdict"] = inquiry.name();
  add_saving(object, saving, status_after(saving, status_of(inquiry)));
  object["meaning"] = inquiry.text();
  for (const Reply& reply : inquiry.replies) object["replies"].push_back(json_of(library, reply));
  print_json(object);
}

std::optional<std::string_view> receipt_before(const std::string& given) {
  if (given.empty()) return std::nullopt;
  if (is_access_key(given)) return given;
  throw UsageError(tr({"--antes: an access key is needed: CFe and 44 digits",
                       "--antes: precisa ser uma chave de acesso: CFe e 44 dígitos"}));
}

ExitStatus recover(const GivenRecovery& given, const Settings& settings) {
  const auto before = receipt_before(given.before);
  const std::filesystem::path target = save_target(given.save);
  const Library library(settings.library);
  const std::string activation_code = activation_code_value(given.code);
  enter(settings.folder);
  const Inquiry inquiry = inquire(library, given.session, activation_code, before);
  const Saving saving =
      inquiry.has_receipt() ? save_document(library, inquiry.deciding_reply(), target) : Saving{};
  if (settings.raw)
    print_line(inquiry.deciding_reply().raw());
  else if (settings.json)
    show_as_json(library, inquiry, saving);
  else
    show(library, inquiry, saving);
  return status_after(saving, status_of(inquiry));
}

}  // namespace

void add_recover_command(CommandLine& line) {
  CLI::App* command = add_command(line.app, "recuperar", groups::kFunctions,
                                  {"find out what became of a sale whose reply was lost",
                                   "descobrir o que houve com uma venda cuja resposta se perdeu"});
  const auto given = std::make_shared<GivenRecovery>();
  command
      ->add_option(
          "--sessao", given->session,
          tr({"session number of the sale or cancellation", "número de sessão da venda ou do cancelamento"}))
      ->required()
      ->check(number_between(0, kLargestSession))
      ->type_name(tr(kNumberType));
  command
      ->add_option("--antes", given->before,
                   tr({"access key of the last receipt that the till knew before",
                       "chave de acesso do último cupom que o PDV conhecia antes"}))
      ->type_name(tr(kKeyType));
  command->add_option("--codigo", given->code,
                      tr({"activation code: a value, @FILE, -, or in SAT_CODIGO",
                          "código de ativação: valor, @ARQUIVO, -, ou em SAT_CODIGO"}));
  command->add_option("--save-xml", given->save, tr(kSaveHelp))->type_name(tr(kFileType));
  when_chosen(line, command, [given, &line] { return recover(*given, line.settings); });
}

}  // namespace satctl
