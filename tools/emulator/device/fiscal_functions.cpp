// EnviarDadosVenda, CancelarUltimaVenda, TesteFimAFim.

#include "device/crypto.h"
#include "device/function_call.h"
#include "device/reply_template.h"
#include "documents/identifiers.h"
#include "documents/sale.h"

namespace emulator {

namespace {

// Endings of the return codes of sale and cancellation.
constexpr int kInvalidReceipt = 2;
constexpr int kNotAssociated = 3;
constexpr int kSignatureDiffers = 4;
constexpr int kTooLarge = 5;
constexpr int kBlockedByContributor = 6;
constexpr int kBlockedBySefaz = 7;
constexpr int kBlockedWithoutContact = 8;
constexpr int kInvalidContent = 10;
constexpr int kCertificateExpired = 11;

constexpr std::size_t kLargestSale = std::size_t{1'500} * 1'024;
constexpr Moment kCancellationLimit = Moment{30} * 60;
constexpr int kLastNumber = 999'999;
constexpr std::size_t kIssuerInKey = 9;  // behind "CFe", state and month

// Six digits that look random and are the same for the same seed and document.
int random_part(std::uint64_t seed, int number) {
  std::uint64_t x = seed + 0x9E3779B97F4A7C15ULL * (static_cast<std::uint64_t>(number) + 1);
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
  return static_cast<int>((x ^ (x >> 31)) % 1'000'000);
}

}  // namespace

int FunctionCall::enviar_dados_venda() {
  check_may_sell();
  if (!state_.associated) refuse(kNotAssociated);
  if (argument(1).size() > kLargestSale) refuse(kTooLarge);
  try {
    check_layout(argument(1), sale_layout());
    const auto sale = read_sale(argument(1));
    if (!state_.cnpj.empty() && sale->issuer_cnpj != state_.cnpj) {
      throw Rejected(Cause::issuer_unknown, "emit/CNPJ");
    }
    check_signature(sale->signature);
    const DocumentFacts facts = new_document(sale->issuer_cnpj, state_.next_number, sale->total, sale->buyer);
    Receipt receipt;
    receipt.kind = "sale";
    receipt.total = sale->total;
    receipt.buyer = sale->buyer;
    issue(facts, sale_document(*sale, facts), std::move(receipt));
  } catch (const Rejected& rejected) {
    refuse(kInvalidContent, std::string("Erro de validação do conteúdo: ") + rejected.what(),
           rejected.cccc());
  }
  return 6000;
}

int FunctionCall::cancelar_ultima_venda() {
  check_may_sell();
  try {
    if (!valid_access_key(argument(1))) throw Rejected(Cause::key_check_digit, "chave");
    check_layout(argument(2), cancellation_layout());
    const auto cancellation = read_cancellation(argument(2));
    if (cancellation->key != argument(1)) throw Rejected(Cause::key_check_digit, "infCFe@chCanc");
    check_signature(cancellation->signature);
    Receipt sale = sale_to_cancel();

    const std::string issuer = sale.key.substr(kIssuerInKey, 14);
    const DocumentFacts facts = new_document(issuer, state_.next_number, sale.total, sale.buyer);
    sale.cancelled_by = "CFe" + facts.key.digits();
    replace_receipt(state_.receipts, sale);
    Receipt receipt;
    receipt.kind = "cancellation";
    receipt.total = sale.total;
    receipt.buyer = sale.buyer;
    receipt.cancels = sale.key;
    const CancelledSale cancelled{sale.key, sale.buyer, sale.issued, sale.total};
    issue(facts, cancellation_document(*cancellation, cancelled, facts), std::move(receipt));
  } catch (const Rejected& rejected) {
    refuse(kInvalidContent, std::string("Erro de validação do conteúdo: ") + rejected.what(),
           rejected.cccc());
  }
  return 7000;
}

// A test makes a document with numbers of its own and leaves no receipt.
int FunctionCall::teste_fim_a_fim() {
  try {
    check_layout(argument(1), sale_layout());
    const auto sale = read_sale(argument(1));
    const DocumentFacts facts =
        new_document(sale->issuer_cnpj, state_.next_test_number, sale->total, sale->buyer);
    extra_ = {base64_encode(sale_document(*sale, facts)), format_moment(now_), padded(facts.key.number, 6),
              "CFe" + facts.key.digits()};
  } catch (const Rejected& rejected) {
    refuse(ending::kUnknownError, std::string("Erro desconhecido: ") + rejected.what());
  }
  return 9000;
}

void FunctionCall::check_may_sell() const {
  switch (faults_.block.value_or(state_.block)) {
    case Block::none:
      break;
    case Block::contributor:
      refuse(kBlockedByContributor);
    case Block::sefaz:
    case Block::deactivation:
      refuse(kBlockedBySefaz);
    case Block::autonomous:
      refuse(kBlockedWithoutContact);
  }
  if (faults_.certificate_expired || state_.certificate_expires < format_date(now_))
    refuse(kCertificateExpired);
}

void FunctionCall::check_layout(const std::string& document, const Layout& layout) const {
  if (!surroundings_.strict) return;
  const auto found = violations(document, layout);
  if (found.empty()) return;
  surroundings_.strict(found);
  throw Rejected(found.front().cause, found.front().field);
}

void FunctionCall::check_signature(const std::string& signature) const {
  if (!state_.signature.empty() && signature != state_.signature) refuse(kSignatureDiffers);
}

const Receipt& FunctionCall::sale_to_cancel() const {
  const auto invalid = [this](Cause cause) {
    const CauseRow& row = cause_row(cause);
    refuse(kInvalidReceipt, "Cupom inválido: " + std::string(row.text), row.cccc);
  };
  const Receipt* sale = newest(state_.receipts, [this](const Receipt& receipt) {
    return receipt.kind == "sale" && receipt.key == argument(1);
  });
  if (sale == nullptr) invalid(Cause::receipt_unknown);
  const Receipt* last =
      newest(state_.receipts, [](const Receipt& receipt) { return receipt.kind == "sale"; });
  if (surroundings_.last_sale_only && sale != last) invalid(Cause::not_the_last_sale);
  if (!sale->cancelled_by.empty()) invalid(Cause::already_cancelled);
  if (now_ - sale->issued > kCancellationLimit) invalid(Cause::too_late_to_cancel);
  return *sale;
}

AccessKey FunctionCall::new_key(const std::string& issuer_cnpj, int& counter) {
  AccessKey key;
  key.state = state_.uf;
  key.year_month = format_date(now_).substr(2, 4);
  key.cnpj = issuer_cnpj;
  key.serial = state_.serial;
  key.number = counter;
  key.random = random_part(device_.seed(), counter);
  counter = counter == kLastNumber ? 1 : counter + 1;
  return key;
}

// Its key is that of a document which leaves no receipt.
Reply FunctionCall::filled_in(const std::string& reply_template) {
  constexpr const char* kAnyIssuer = "11222333000181";
  const AccessKey key = new_key(state_.cnpj.empty() ? kAnyIssuer : state_.cnpj, state_.next_test_number);
  Reply reply;
  reply.fields =
      split_fields(fill_in(reply_template, {command_.session, format_moment(now_), "CFe" + key.digits()}));
  if (reply.fields.size() > 1) reply.code = small_number(reply.fields[1]).value_or(0);
  return reply;
}

DocumentFacts FunctionCall::new_document(const std::string& issuer_cnpj, int& counter, Cents total,
                                         const std::string& buyer) {
  DocumentFacts facts;
  facts.key = new_key(issuer_cnpj, counter);
  facts.moment = now_;
  facts.software_version = state_.software_version;
  facts.layout_version = kLayoutVersion;
  facts.qr_signature = device_.signing_key().sign(qr_text(facts.key.digits(), now_, total, buyer));
  return facts;
}

void FunctionCall::issue(const DocumentFacts& facts, const std::string& xml, Receipt receipt) {
  receipt.key = "CFe" + facts.key.digits();
  receipt.number = facts.key.number;
  receipt.session = *session_number(command_.session);
  receipt.issued = now_;
  receipt.transmitted = surroundings_.sefaz_reachable;
  if (receipt.transmitted) state_.last_transmission = state_.last_communication = format_moment(now_);
  state_.last_key = receipt.key;
  extra_ = {base64_encode(xml),           format_moment(now_), receipt.key,
            format_amount(receipt.total), receipt.buyer,       facts.qr_signature};
  keep(state_.receipts, std::move(receipt), kMostReceipts);
}

}  // namespace emulator
