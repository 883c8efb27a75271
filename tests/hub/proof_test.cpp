// The tables of proof, row by row.

#include "hub/proof/proof.h"

#include <gtest/gtest.h>

#include <set>

#include "emulator/sale_data.h"
#include "hub/encoding.h"

namespace hub {
namespace {

constexpr int kSession = 4711;
const std::string kSerial = "900000001";

std::string key(int number, const std::string& serial = kSerial) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%06d", number);
  return "CFe3526" + std::string("0311222333000181") + "59" + serial + digits + "1234567";
}

std::string issued(const std::string& receipt, int session = kSession, const std::string& document = {},
                   const std::string& code = "06000") {
  const std::string xml = document.empty() ? SaleData{}.xml() : document;
  return six_digits(session) + "|" + code + "|0000|Emitido|||" + base64(xml) + "|20260301102030|" + receipt +
         "|10.00||QR";
}

std::string status(const std::string& last, const std::string& serial = kSerial) {
  std::string text = "000009|10000|Resposta com Sucesso|||" + serial;
  for (int i = 0; i < 14; ++i) text += "|x";
  return text + "|" + last + "||||||||0";
}

Order order() {
  Order order;
  order.session = kSession;
  order.serial = kSerial;
  order.baseline = AccessKey::parse(key(17));
  order.data = facts_of(SaleData{}.xml());
  return order;
}

const Known kNothingKnown = [](const AccessKey&) { return false; };
const Known kAllKnown = [](const AccessKey&) { return true; };

// ---- What the call returned ----

struct OutcomeCase {
  const char* row;
  std::string reply;
  Outcome outcome;
  bool known = false;
};

const std::vector<OutcomeCase> kOutcomeCases{
    {"no port found", "SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[x]",
     Outcome::nothing_sent},
    {"port not opened", "SAT Erro[-02000]Lnx SAT nao encontrado Dev[/dev/L[1]/0] L[2254] F[Communicate]",
     Outcome::nothing_sent},
    {"port not locked", "SAT Erro[-02010]Lnx SAT  Dev[/dev/pts/0] ocupado L[2272] F[Communicate]",
     Outcome::nothing_sent},
    {"port not set up",
     "SAT Erro[-02002]Lnx SAT  Dev[/dev/pts/0] falhou ao configurar L[2286] F[Communicate]",
     Outcome::nothing_sent},
    {"no busy reply for this function",
     "SAT Erro[-03000] Parametro Invalido  SAT L[3149] F[generate_98_return] ", Outcome::held_by_stranger},
    {"the library's busy reply", "4711|06098|0000|SAT em processamento, tente novamente.||",
     Outcome::held_by_stranger},
    {"any other failure text",
     "SAT Erro[-02003]Lnx SAT  Dev[/dev/pts/0] falhou na recepcao da resposta L[2324] F[x]",
     Outcome::unknown},
    {"any other failure text", "SAT Erro[-00002]Lnx Dev[/dev/pts/0] L[2305] F[x] >> CMD or << ACK LibVer[x]",
     Outcome::unknown},
    {"any other failure text", "SAT Erro[-02000]something else L[9999]", Outcome::unknown},
    {"any other failure text", "SAT Erro[-02002]in the middle L[2305]", Outcome::unknown},
    {"another session's reply", issued(key(18), 4710), Outcome::unknown},
    {"another session's reply", "", Outcome::unknown},
    {"another session's reply", "4711|06000|0000|not padded||", Outcome::unknown},
    {"another function's code", "004711|08000|SAT em operacao||", Outcome::unknown},
    {"another function's code", issued(key(18), kSession, {}, "07000"), Outcome::unknown},
    {"another function's code", "004711|xyz|?||", Outcome::unknown},
    {"xx097, xx098, xx099", "004711|06097|0000|sessao||", Outcome::unknown},
    {"xx097, xx098, xx099", "004711|06098|0000|SAT em processamento||", Outcome::unknown},
    {"xx097, xx098, xx099", "004711|06099|0000|erro||", Outcome::unknown},
    {"issued, a receipt that is new", issued(key(18)), Outcome::issued},
    {"issued, a receipt that is new", issued(key(18, "900000002")), Outcome::issued},
    {"issued, without a receipt that is new", issued(key(18)), Outcome::unknown, true},
    {"issued, without a receipt that is new", "004711|06000|0000|Emitido||", Outcome::unknown},
    {"refused", "004711|06010|1464|Erro de validacao||", Outcome::refused},
    {"refused", "004711|06001|0000|codigo||", Outcome::refused},
};

TEST(Proof, WhatTheCallReturned) {
  for (const OutcomeCase& one : kOutcomeCases) {
    const OutcomeRow& row = judge(order(), Reply(one.reply), one.known ? kAllKnown : kNothingKnown);
    EXPECT_STREQ(row.name, one.row) << one.reply;
    EXPECT_EQ(row.outcome, one.outcome) << one.reply;
  }
}

TEST(Proof, EveryRowOfTheCallIsTested) {
  std::set<std::string> tested;
  for (const OutcomeCase& one : kOutcomeCases) tested.insert(one.row);
  for (const OutcomeRow& row : outcome_rows()) EXPECT_TRUE(tested.contains(row.name)) << row.name;
}

TEST(Proof, ADevicesBusyReplyIsNotTheLibrarys) {
  Order small = order();
  small.session = 42;
  EXPECT_EQ(
      judge(small, Reply("42|06098|0000|SAT em processamento, tente novamente.||"), kNothingKnown).outcome,
      Outcome::held_by_stranger);
  EXPECT_EQ(judge(small, Reply("000042|06098|0000|SAT em processamento, tente novamente.||"), kNothingKnown)
                .outcome,
            Outcome::unknown);
}

// ---- What the device says afterwards ----

constexpr const char* kUnknownSession = "000010|11003|Sessao nao existe||";
constexpr const char* kNothingIssued = "000011|19003|Nao existe sessao fiscal||";
constexpr const char* kLost = "SAT Erro[-02003]";

struct FindingCase {
  const char* row;
  std::string status, session, last;
  Finding finding;
};

const std::vector<FindingCase> kFindingCases{
    {"another device answers", status(key(17), "900000002"), issued(key(18)), issued(key(18)),
     Finding::ask_again},
    {"the session's stored reply", status(key(18)), issued(key(18)), kLost, Finding::issued_by_session},
    {"the session's stored reply", kLost, issued(key(18)), kLost, Finding::issued_by_session},
    {"the last fiscal reply", status(key(18)), kUnknownSession, issued(key(18)), Finding::issued_by_last},
    {"the last fiscal reply", status(key(18)), "004711|06099|0000|erro||", issued(key(18)),
     Finding::issued_by_last},
    {"the device does not answer, or is in process", kLost, kUnknownSession, issued(key(17), 1),
     Finding::ask_again},
    {"the device does not answer, or is in process", status(key(17)), kLost, issued(key(17), 1),
     Finding::ask_again},
    {"the device does not answer, or is in process", status(key(17)), kUnknownSession, kLost,
     Finding::ask_again},
    {"the device does not answer, or is in process", "000009|10098|em processamento||", kUnknownSession,
     issued(key(17), 1), Finding::ask_again},
    {"the device does not answer, or is in process", status(key(17)), "000010|11098|em processamento||",
     issued(key(17), 1), Finding::ask_again},
    {"the device does not answer, or is in process", status(key(17)), kUnknownSession, "000011|19098|x||",
     Finding::ask_again},
    {"the device does not answer, or is in process", "000009|10001|codigo||", "000010|11001|codigo||",
     "000011|19001|codigo||", Finding::ask_again},
    {"the last receipt is the baseline, twice", status(key(17)), kUnknownSession, issued(key(17), 1),
     Finding::not_issued},
    {"the last receipt is the baseline, twice", status(key(17)), "004711|06010|1464|Erro||",
     issued(key(17), 1), Finding::not_issued},
    {"the last receipt is the baseline, twice", status(key(17)), "004711|08000|SAT em operacao||",
     issued(key(17), 1), Finding::not_issued},
    {"neither", status(key(18)), kUnknownSession, issued(key(18), 1), Finding::undecided},
    {"neither", status(key(17)), kUnknownSession, issued(key(18), 1), Finding::undecided},
    {"neither", status(key(18)), kUnknownSession, issued(key(17), 1), Finding::undecided},
    {"neither", status(key(17)), kUnknownSession, kNothingIssued, Finding::undecided},
};

TEST(Proof, WhatTheDeviceSaysAfterwards) {
  for (const FindingCase& one : kFindingCases) {
    const Answers answers{Reply(one.status), Reply(one.session), Reply(one.last)};
    const FindingRow& row = find_out(order(), answers, kNothingKnown);
    EXPECT_STREQ(row.name, one.row) << one.status << '\n' << one.session << '\n' << one.last;
    EXPECT_EQ(row.finding, one.finding) << one.session;
  }
}

TEST(Proof, EveryRowOfFindingOutIsTested) {
  std::set<std::string> tested;
  for (const FindingCase& one : kFindingCases) tested.insert(one.row);
  for (const FindingRow& row : finding_rows()) EXPECT_TRUE(tested.contains(row.name)) << row.name;
}

TEST(Proof, ADeviceThatNeverIssuedAnything) {
  Order first = order();
  first.baseline.reset();
  const Answers nothing{Reply(status("")), Reply(kUnknownSession), Reply(kNothingIssued)};
  EXPECT_EQ(find_out(first, nothing, kNothingKnown).finding, Finding::not_issued);
  const Answers something{Reply(status(key(1))), Reply(issued(key(1))), Reply(issued(key(1)))};
  EXPECT_EQ(find_out(first, something, kNothingKnown).finding, Finding::issued_by_session);
}

TEST(Proof, NotIssuedNeedsEveryDeviceThatWasSeen) {
  Order strange = order();
  strange.stood_in = true;
  const Answers answers{Reply(status(key(17))), Reply(kUnknownSession), Reply(issued(key(17), 1))};
  EXPECT_EQ(find_out(strange, answers, kNothingKnown).finding, Finding::undecided);
}

TEST(Proof, ThatAReceiptIsOurs) {
  EXPECT_TRUE(proves_issue(order(), Reply(issued(key(18))), kNothingKnown));
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(18), 4712)), kNothingKnown)) << "a stranger's session";
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(18))), kAllKnown)) << "another operation's receipt";
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(18, "900000002"))), kNothingKnown)) << "another device";
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(16))), kNothingKnown)) << "older than the order";
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(18), kSession, {}, "07000")), kNothingKnown))
      << "another function";
  SaleData other;
  other.items = SaleData::item(1, "2.0000", "10.00");
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(18), kSession, other.xml())), kNothingKnown))
      << "a stranger's sale in step with our session";
  SaleData shop;
  shop.issuer = "<CNPJ>12345678000195</CNPJ>";
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(18), kSession, shop.xml())), kNothingKnown))
      << "another shop";
  SaleData paid;
  paid.payments = SaleData::payment("01", "20.00");
  EXPECT_FALSE(proves_issue(order(), Reply(issued(key(18), kSession, paid.xml())), kNothingKnown))
      << "paid otherwise";
}

TEST(Proof, NumbersWrap) {
  Order late = order();
  late.baseline = AccessKey::parse(key(999'999));
  EXPECT_TRUE(proves_issue(late, Reply(issued(key(1))), kNothingKnown));
  EXPECT_FALSE(proves_issue(late, Reply(issued(key(999'998))), kNothingKnown));
  EXPECT_FALSE(proves_issue(late, Reply(issued(key(999'999))), kNothingKnown));
}

TEST(Proof, ACancellationNamesItsSale) {
  const std::string digits = AccessKey::parse(key(17))->text();
  Order cancel = order();
  cancel.function = Fiscal::cancellation;
  cancel.data = facts_of(cancellation_xml(digits));
  const std::string right = cancellation_xml(digits), wrong = cancellation_xml(key(16));
  EXPECT_TRUE(proves_issue(cancel, Reply(issued(key(18), kSession, right, "07000")), kNothingKnown));
  EXPECT_FALSE(proves_issue(cancel, Reply(issued(key(18), kSession, wrong, "07000")), kNothingKnown));
}

TEST(Document, AmountsAreComparedAsNumbersAndDoctypesRefused) {
  SaleData one, same;
  one.items = SaleData::item(1, "1.0000", "10.00");
  same.items = SaleData::item(1, "1", "010.0");
  EXPECT_EQ(facts_of(one.xml()), facts_of(same.xml()));
  EXPECT_FALSE(facts_of("<!DOCTYPE x [<!ENTITY a \"b\">]>" + one.xml()).readable);
  EXPECT_FALSE(facts_of("<CFe><infCFe>").readable);
  EXPECT_FALSE(made_of(facts_of(""), facts_of("")));
}

TEST(AccessKey, IsReadWithAndWithoutItsPrefix) {
  EXPECT_EQ(AccessKey::parse(key(17))->number(), 17);
  EXPECT_EQ(AccessKey::parse(key(17))->serial(), kSerial);
  EXPECT_EQ(AccessKey::parse("cfe" + key(17).substr(3)), AccessKey::parse(key(17).substr(3)));
  EXPECT_FALSE(AccessKey::parse(""));
  EXPECT_FALSE(AccessKey::parse(key(17) + "0"));
  EXPECT_FALSE(AccessKey::parse("CFe" + std::string(44, 'x')));
}

}  // namespace
}  // namespace hub
