#include "documents/layout.h"

#include <algorithm>
#include <array>

#include "documents/decimal.h"
#include "documents/identifiers.h"

namespace emulator {

namespace {

constexpr std::size_t kSignatureLength = 344;  // 256 bytes in Base64

constexpr Format text(std::size_t least, std::size_t most) {
  return {Kind::text, least, most};
}
constexpr Format digits(std::size_t least, std::size_t most) {
  return {Kind::digits, least, most};
}
constexpr Format number(std::size_t least, std::size_t most) {
  return {Kind::number, least, most};
}
constexpr Format one_of(std::string_view values) {
  return {Kind::one_of, 0, 0, values};
}
constexpr Format kGroup{Kind::group};
constexpr Format kOpen{Kind::open};
constexpr Format kCnpj{Kind::cnpj};
constexpr Format kCpf{Kind::cpf};
constexpr Format kAmount = number(2, 2);
constexpr Format kRate = number(4, 4);
constexpr Format kOrigin = one_of("0 1 2 3 4 5 6 7 8");

using enum Presence;

constexpr auto kSaleRows = std::to_array<LayoutRow>({
    {"@versaoDadosEnt", required, one_of("0.07 0.08"), 1, Cause::unknown_version},
    {"ide", required, kGroup},
    {"ide/CNPJ", required, kCnpj, 1, Cause::software_house_cnpj},
    {"ide/signAC", required, text(kSignatureLength, kSignatureLength), 1, Cause::signature_length},
    {"ide/numeroCaixa", required, digits(3, 3), 1, Cause::register_number},
    {"emit", required, kGroup},
    {"emit/CNPJ", required, kCnpj, 1, Cause::issuer_cnpj},
    {"emit/IE", required, text(2, 14)},
    {"emit/IM", optional, text(1, 15)},
    {"emit/cRegTribISSQN", optional, one_of("1 2 3 4 5")},
    {"emit/indRatISSQN", required, one_of("S N")},
    {"dest", required, kGroup},
    {"dest/CNPJ", at_most_one, kCnpj, 1, Cause::buyer_cnpj},
    {"dest/CPF", at_most_one, kCpf, 1, Cause::buyer_cpf},
    {"dest/xNome", optional, text(2, 60)},
    {"entrega", optional, kGroup},
    {"entrega/xLgr", required, text(2, 60)},
    {"entrega/nro", required, text(1, 60)},
    {"entrega/xCpl", optional, text(1, 60)},
    {"entrega/xBairro", required, text(1, 60)},
    {"entrega/xMun", required, text(2, 60)},
    {"entrega/UF", required, text(2, 2)},
    {"det", required, kGroup, 500},
    {"det/prod", required, kGroup},
    {"det/prod/cProd", required, text(1, 60)},
    {"det/prod/cEAN", optional, kOpen},
    {"det/prod/xProd", required, text(1, 120)},
    {"det/prod/NCM", required, {Kind::digits_of_two, 2, 8}},
    {"det/prod/CEST", optional, digits(7, 7), 1, Cause::format, "0.08"},
    {"det/prod/CFOP", required, digits(4, 4)},
    {"det/prod/uCom", required, text(1, 6)},
    {"det/prod/qCom", required, number(4, 4)},
    {"det/prod/vUnCom", required, number(2, 3)},
    {"det/prod/indRegra", required, one_of("A T")},
    {"det/prod/vDesc", optional, kAmount},
    {"det/prod/vOutro", optional, kAmount},
    {"det/prod/obsFiscoDet", optional, kGroup, 500},
    {"det/prod/obsFiscoDet/@xCampoDet", required, text(1, 20)},
    {"det/prod/obsFiscoDet/xTextoDet", required, text(1, 60)},
    {"det/imposto", required, kGroup},
    {"det/imposto/vItem12741", optional, kAmount},
    {"det/imposto/ICMS", exactly_one, kGroup},
    {"det/imposto/ICMS/ICMS00", exactly_one, kGroup},
    {"det/imposto/ICMS/ICMS00/Orig", required, kOrigin},
    {"det/imposto/ICMS/ICMS00/CST", required, one_of("00 20 90")},
    {"det/imposto/ICMS/ICMS00/pICMS", required, kAmount},
    {"det/imposto/ICMS/ICMS40", exactly_one, kGroup},
    {"det/imposto/ICMS/ICMS40/Orig", required, kOrigin},
    {"det/imposto/ICMS/ICMS40/CST", required, one_of("40 41 50 60")},
    {"det/imposto/ICMS/ICMSSN102", exactly_one, kGroup},
    {"det/imposto/ICMS/ICMSSN102/Orig", required, kOrigin},
    {"det/imposto/ICMS/ICMSSN102/CSOSN", required, one_of("102 300 400 500")},
    {"det/imposto/ICMS/ICMSSN900", exactly_one, kGroup},
    {"det/imposto/ICMS/ICMSSN900/Orig", required, kOrigin},
    {"det/imposto/ICMS/ICMSSN900/CSOSN", required, one_of("900")},
    {"det/imposto/ICMS/ICMSSN900/pICMS", required, kAmount},
    {"det/imposto/ISSQN", exactly_one, kGroup},
    {"det/imposto/ISSQN/vDeducISSQN", required, kAmount},
    {"det/imposto/ISSQN/vAliq", required, kAmount},
    {"det/imposto/ISSQN/cMunFG", optional, digits(7, 7)},
    {"det/imposto/ISSQN/cListServ", optional, text(5, 5)},
    {"det/imposto/ISSQN/cServTribMun", optional, text(1, 20)},
    {"det/imposto/ISSQN/cNatOp", required, digits(2, 2)},
    {"det/imposto/ISSQN/indIncFisc", required, one_of("1 2")},
    {"det/imposto/PIS", required, kGroup},
    {"det/imposto/PIS/PISAliq", exactly_one, kGroup},
    {"det/imposto/PIS/PISAliq/CST", required, one_of("01 02 05")},
    {"det/imposto/PIS/PISAliq/vBC", required, kAmount},
    {"det/imposto/PIS/PISAliq/pPIS", required, kRate},
    {"det/imposto/PIS/PISQtde", exactly_one, kGroup},
    {"det/imposto/PIS/PISQtde/CST", required, one_of("03")},
    {"det/imposto/PIS/PISQtde/qBCProd", required, kRate},
    {"det/imposto/PIS/PISQtde/vAliqProd", required, kRate},
    {"det/imposto/PIS/PISNT", exactly_one, kGroup},
    {"det/imposto/PIS/PISNT/CST", required, one_of("04 06 07 08 09")},
    {"det/imposto/PIS/PISSN", exactly_one, kGroup},
    {"det/imposto/PIS/PISSN/CST", required, one_of("49")},
    {"det/imposto/PIS/PISOutr", exactly_one, kGroup},
    {"det/imposto/PIS/PISOutr/CST", required, one_of("99")},
    {"det/imposto/PIS/PISOutr/vBC", optional, kAmount},
    {"det/imposto/PIS/PISOutr/pPIS", optional, kRate},
    {"det/imposto/PIS/PISOutr/qBCProd", optional, kRate},
    {"det/imposto/PIS/PISOutr/vAliqProd", optional, kRate},
    {"det/imposto/PISST", optional, kGroup},
    {"det/imposto/PISST/vBC", optional, kAmount},
    {"det/imposto/PISST/pPIS", optional, kRate},
    {"det/imposto/PISST/qBCProd", optional, kRate},
    {"det/imposto/PISST/vAliqProd", optional, kRate},
    {"det/imposto/COFINS", required, kGroup},
    {"det/imposto/COFINS/COFINSAliq", exactly_one, kGroup},
    {"det/imposto/COFINS/COFINSAliq/CST", required, one_of("01 02 05")},
    {"det/imposto/COFINS/COFINSAliq/vBC", required, kAmount},
    {"det/imposto/COFINS/COFINSAliq/pCOFINS", required, kRate},
    {"det/imposto/COFINS/COFINSQtde", exactly_one, kGroup},
    {"det/imposto/COFINS/COFINSQtde/CST", required, one_of("03")},
    {"det/imposto/COFINS/COFINSQtde/qBCProd", required, kRate},
    {"det/imposto/COFINS/COFINSQtde/vAliqProd", required, kRate},
    {"det/imposto/COFINS/COFINSNT", exactly_one, kGroup},
    {"det/imposto/COFINS/COFINSNT/CST", required, one_of("04 06 07 08 09")},
    {"det/imposto/COFINS/COFINSSN", exactly_one, kGroup},
    {"det/imposto/COFINS/COFINSSN/CST", required, one_of("49")},
    {"det/imposto/COFINS/COFINSOutr", exactly_one, kGroup},
    {"det/imposto/COFINS/COFINSOutr/CST", required, one_of("99")},
    {"det/imposto/COFINS/COFINSOutr/vBC", optional, kAmount},
    {"det/imposto/COFINS/COFINSOutr/pCOFINS", optional, kRate},
    {"det/imposto/COFINS/COFINSOutr/qBCProd", optional, kRate},
    {"det/imposto/COFINS/COFINSOutr/vAliqProd", optional, kRate},
    {"det/imposto/COFINSST", optional, kGroup},
    {"det/imposto/COFINSST/vBC", optional, kAmount},
    {"det/imposto/COFINSST/pCOFINS", optional, kRate},
    {"det/imposto/COFINSST/qBCProd", optional, kRate},
    {"det/imposto/COFINSST/vAliqProd", optional, kRate},
    {"det/infAdProd", optional, text(1, 500)},
    {"total", required, kGroup},
    {"total/DescAcrEntr", optional, kGroup},
    {"total/DescAcrEntr/vDescSubtot", at_most_one, kAmount},
    {"total/DescAcrEntr/vAcresSubtot", at_most_one, kAmount},
    {"total/vCFeLei12741", optional, kAmount},
    {"pgto", required, kGroup},
    {"pgto/MP", required, kGroup, 10},
    {"pgto/MP/cMP", required, digits(2, 2)},
    {"pgto/MP/vMP", required, kAmount},
    {"pgto/MP/cAdmC", optional, digits(3, 3)},
    {"infAdic", optional, kGroup},
    {"infAdic/infCpl", optional, text(1, 5000)},
    {"infAdic/obsFisco", optional, kOpen, 10},
});

constexpr auto kCancellationRows = std::to_array<LayoutRow>({
    {"@chCanc", required, {Kind::access_key}, 1, Cause::key_check_digit},
    {"ide", required, kGroup},
    {"ide/CNPJ", required, kCnpj, 1, Cause::software_house_cnpj},
    {"ide/signAC", required, text(kSignatureLength, kSignatureLength), 1, Cause::signature_length},
    {"ide/numeroCaixa", required, digits(3, 3), 1, Cause::register_number},
    {"emit", required, kOpen},
    {"dest", required, kGroup},
    {"dest/CNPJ", at_most_one, kCnpj, 1, Cause::buyer_cnpj},
    {"dest/CPF", at_most_one, kCpf, 1, Cause::buyer_cpf},
    {"total", required, kOpen},
    {"infAdic", optional, kOpen},
});

// Of UTF-8 text that has been read as XML.
std::size_t count_characters(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

bool within(std::size_t size, const Format& format) {
  return size >= format.least && size <= format.most;
}

bool fits_number(std::string_view text, const Format& format) {
  const auto point = text.find('.');
  const bool places_fit = point == std::string_view::npos || within(text.size() - point - 1, format);
  return places_fit && parse_decimal(text, static_cast<int>(format.most)).has_value();
}

bool is_among(std::string_view text, std::string_view values) {
  while (!values.empty()) {
    const auto end = std::min(values.find(' '), values.size());
    if (values.substr(0, end) == text) return true;
    values.remove_prefix(std::min(end + 1, values.size()));
  }
  return false;
}

std::string extent(const Format& format, const char* between, const char* what) {
  std::string text = std::to_string(format.least);
  if (format.most != format.least) text += between + std::to_string(format.most);
  return text + what;
}

}  // namespace

std::string description(const Format& format) {
  switch (format.kind) {
    case Kind::group:
      return "group";
    case Kind::open:
      return "not checked";
    case Kind::text:
      return extent(format, " to ", " characters");
    case Kind::digits:
      return extent(format, " to ", " digits");
    case Kind::digits_of_two:
      return extent(format, " or ", " digits");
    case Kind::number:
      return "number, whole or with " + extent(format, " or ", " decimals");
    case Kind::one_of:
      return "one of: " + std::string(format.values);
    case Kind::cnpj:
      return "CNPJ: 14 digits, right check digits";
    case Kind::cpf:
      return "CPF: 11 digits, right check digits";
    case Kind::access_key:
      return "CFe and 44 digits, right check digit";
  }
  return {};
}

bool fits(const Format& format, std::string_view text) {
  switch (format.kind) {
    case Kind::group:
    case Kind::open:
      return true;
    case Kind::text:
      return within(count_characters(text), format);
    case Kind::digits:
      return all_digits(text) && within(text.size(), format);
    case Kind::digits_of_two:
      return all_digits(text) && (text.size() == format.least || text.size() == format.most);
    case Kind::number:
      return fits_number(text, format);
    case Kind::one_of:
      return is_among(text, format.values);
    case Kind::cnpj:
      return valid_cnpj(text);
    case Kind::cpf:
      return valid_cpf(text);
    case Kind::access_key:
      return valid_access_key(text);
  }
  return false;
}

std::string_view LayoutRow::parent() const {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view LayoutRow::name() const {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::vector<const LayoutRow*> Layout::children_of(std::string_view group) const {
  std::vector<const LayoutRow*> children;
  for (const LayoutRow& row : rows) {
    if (row.parent() == group) children.push_back(&row);
  }
  return children;
}

const Layout& sale_layout() {
  static const Layout layout{"CFe", kSaleRows, true};
  return layout;
}

const Layout& cancellation_layout() {
  static const Layout layout{"CFeCanc", kCancellationRows, false};
  return layout;
}

}  // namespace emulator
