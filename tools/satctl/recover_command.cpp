// satctl recuperar: what became of a sale or cancellation whose reply was lost. It only asks; nothing is sent
// again.

#include <memory>

#include "arguments.h"
#include "call.h"
#include "command.h"
#include "printable.h"
#include "terminal.h"

namespace satctl {

namespace {

enum class Verdict { issued, cancelled, other_reply, refused, not_found, query_failed };

struct VerdictRow {
  Verdict verdict;
  const char* name;
  Text text;
};

constexpr VerdictRow kVerdicts[] = {
    {Verdict::issued,
     "issued",
     {"Session {} made a sale; do not send it again.", "A sessão {} emitiu a venda; não a reenvie."}},
    {Verdict::cancelled,
     "cancelled",
     {"Session {} cancelled a sale; do not send it again.", "A sessão {} cancelou uma venda; não reenvie."}},
    {Verdict::other_reply,
     "other-function",
     {"Session {} was no sale or cancellation; this is its reply.",
      "A sessão {} não foi venda nem cancelamento; esta é a resposta dela."}},
    {Verdict::refused,
     "refused",
     {"The device refused session {}: nothing was issued. Put the cause right and send with a new session number.",
      "O equipamento recusou a sessão {}: nada foi emitido. Corrija a causa e envie com novo número de sessão."}},
    {Verdict::not_found,
     "not-found",
     {"The device does not know session {}. If nothing else was sold since, it was never carried out and can be sent "
      "with a new session number; otherwise look for the receipt in the device's list first.",
      "O equipamento não conhece a sessão {}. Se nada mais foi vendido depois dela, ela não foi executada e pode ser "
      "enviada com novo número de sessão; senão, procure antes o cupom na lista do equipamento."}},
    {Verdict::query_failed,
     "unknown",
     {"Nothing is known of session {} yet: the device could not be asked. Ask again; do not send the sale again.",
      "Ainda não se sabe da sessão {}: não foi possível consultar o equipamento. Consulte de novo; não reenvie."}},
};

const VerdictRow& row_of(Verdict verdict) {
  return kVerdicts[static_cast<std::size_t>(verdict)];
}

constexpr Text kReceipt{"  key    {}\n  date   {}\n  total  {}", "  chave  {}\n  data   {}\n  total  {}"};
constexpr Text kLastSession{"  The last sale or cancellation that it knows is session {} ({}, {}).",
                            "  A última venda ou cancelamento que ele conhece é a sessão {} ({}, {})."};

// The two queries, and what they say.
struct Inquiry {
  int session;
  std::vector<Reply> replies;
  Verdict verdict = Verdict::query_failed;
  std::size_t decisive = 0;  // the reply that decided

  const Reply& deciding_reply() const { return replies[decisive]; }
};

bool is_reply_of(const Reply& reply, int session) {
  const std::string_view text = reply.field("numeroSessao");
  return all_digits(text) && std::stol(std::string(text)) == session;
}

Verdict verdict_of_stored(const Reply& stored) {
  constexpr int kIssued = 6000, kCancelled = 7000;
  if (stored.number() == kIssued) return Verdict::issued;
  if (stored.number() == kCancelled) return Verdict::cancelled;
  const Function* function = find_function_by_code(stored.return_code());
  const bool fiscal = function != nullptr && function->effect == Effect::fiscal;
  return fiscal ? Verdict::refused : Verdict::other_reply;
}

Reply ask(const Library& library, const char* name, int about, const std::vector<std::string>& values) {
  const Request request{find_function(name), draw_session(), about};
  return make_call(library, request, values);
}

bool unknown_to_device(const Reply& reply) {
  constexpr int kNoSuchSession = 11003;
  return reply.number() == kNoSuchSession;
}

Inquiry inquire(const Library& library, int session, const std::string& code) {
  Inquiry inquiry{session, {}};
  inquiry.replies.push_back(ask(library, "ConsultarNumeroSessao", session, {code, std::to_string(session)}));
  const Reply& by_number = inquiry.replies.front();
  if (by_number.status() == ExitStatus::success && is_reply_of(by_number, session)) {
    inquiry.verdict = verdict_of_stored(by_number);
    return inquiry;
  }
  if (!unknown_to_device(by_number)) return inquiry;

  inquiry.replies.push_back(ask(library, "ConsultarUltimaSessaoFiscal", session, {code}));
  const Reply& last = inquiry.replies.back();
  inquiry.decisive = 1;
  if (last.status() == ExitStatus::success) {
    inquiry.verdict = is_reply_of(last, session) ? verdict_of_stored(last) : Verdict::not_found;
  } else if (last.outcome() == "not-found") {
    inquiry.verdict = Verdict::not_found;
  }
  return inquiry;
}

ExitStatus status_of(const Inquiry& inquiry) {
  switch (inquiry.verdict) {
    case Verdict::issued:
    case Verdict::cancelled:
    case Verdict::other_reply:
      return ExitStatus::success;
    case Verdict::refused:
    case Verdict::not_found:
      return ExitStatus::refused;
    case Verdict::query_failed:
      return inquiry.replies.back().status();
  }
  return ExitStatus::link_failure;
}

void show(const Library& library, const Inquiry& inquiry) {
  const Reply& reply = inquiry.deciding_reply();
  print_line(fill(row_of(inquiry.verdict).text, {std::to_string(inquiry.session)}));
  switch (inquiry.verdict) {
    case Verdict::issued:
    case Verdict::cancelled:
      print_line(fill(kReceipt, {printable(reply.field("chaveConsulta")), printable(reply.field("timeStamp")),
                                 printable(reply.field("valorTotalCFe"))}));
      break;
    case Verdict::not_found:
      if (reply.status() == ExitStatus::success) {
        print_line(
            fill(kLastSession, {printable(reply.field("numeroSessao")), printable(reply.field("timeStamp")),
                                printable(reply.field("chaveConsulta"))}));
      }
      break;
    default:
      show_fields(library, reply, {});
  }
}

void show_as_json(const Library& library, const Inquiry& inquiry) {
  nlohmann::ordered_json object;
  object["session"] = inquiry.session;
  object["verdict"] = row_of(inquiry.verdict).name;
  object["exitStatus"] = static_cast<int>(status_of(inquiry));
  object["meaning"] = fill(row_of(inquiry.verdict).text, {std::to_string(inquiry.session)});
  for (const Reply& reply : inquiry.replies) object["replies"].push_back(json_of(library, reply));
  print_json(object);
}

ExitStatus recover(int session, const std::string& code, const Settings& settings) {
  const Library library(settings.library);
  const std::string activation_code = activation_code_value(code);
  enter(settings.folder);
  const Inquiry inquiry = inquire(library, session, activation_code);
  if (settings.raw)
    print_line(inquiry.deciding_reply().raw());
  else if (settings.json)
    show_as_json(library, inquiry);
  else
    show(library, inquiry);
  return status_of(inquiry);
}

}  // namespace

void add_recover_command(CommandLine& line) {
  CLI::App* command = add_command(line.app, "recuperar", groups::kFunctions,
                                  {"find out what became of a sale whose reply was lost",
                                   "descobrir o que houve com uma venda cuja resposta se perdeu"});
  struct Given {
    int session = 0;
    std::string code;
  };
  const auto given = std::make_shared<Given>();
  command
      ->add_option(
          "--sessao", given->session,
          tr({"session number of the sale or cancellation", "número de sessão da venda ou do cancelamento"}))
      ->required()
      ->check(number_between(0, kLargestSession))
      ->type_name(tr(kNumberType));
  command->add_option("--codigo", given->code,
                      tr({"activation code: a value, @FILE, -, or in SAT_CODIGO",
                          "código de ativação: valor, @ARQUIVO, -, ou em SAT_CODIGO"}));
  when_chosen(line, command, [given, &line] { return recover(given->session, given->code, line.settings); });
}

}  // namespace satctl
