#include "documents/sale.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "documents/receipt.h"
#include "documents/rejection.h"
#include "emulator/sale_data.h"

namespace emulator {
namespace {

struct Refused {
  int cccc = 0;
  std::string field;
};

template <typename Read>
Refused refusal_of(Read read) {
  try {
    read();
  } catch (const Rejected& rejected) {
    EXPECT_EQ(rejected.what(), std::string(rejected.what())) << "message";
    EXPECT_NE(std::string(rejected.what()).find("(" + rejected.field() + ")"), std::string::npos);
    return {rejected.cccc(), rejected.field()};
  }
  return {};
}

struct BadSale {
  const char* name;
  Cause cause;
  const char* field;
  void (*spoil)(SaleData& data);
};

class RefusedSales : public testing::TestWithParam<BadSale> {};

TEST_P(RefusedSales, NamesCauseAndField) {
  SaleData data;
  ASSERT_NO_THROW(read_sale(data.xml()));
  GetParam().spoil(data);
  const Refused refused = refusal_of([&] { read_sale(data.xml()); });
  EXPECT_EQ(refused.cccc, cause_row(GetParam().cause).cccc);
  EXPECT_EQ(refused.field, GetParam().field);
}

const BadSale kBadSales[] = {
    {"NoSoftwareHouse", Cause::software_house_cnpj, "ide/CNPJ",
     [](SaleData& d) { d.house = "<CNPJ>1</CNPJ><signAC>x</signAC><numeroCaixa>001</numeroCaixa>"; }},
    {"NoRegister", Cause::missing_field, "ide/numeroCaixa",
     [](SaleData& d) { d.house = "<CNPJ>12345678000195</CNPJ><signAC>x</signAC>"; }},
    {"BadRegister", Cause::register_number, "ide/numeroCaixa",
     [](SaleData& d) {
       d.house = "<CNPJ>12345678000195</CNPJ><signAC>x</signAC><numeroCaixa>1</numeroCaixa>";
     }},
    {"EmptySignature", Cause::empty_signature, "ide/signAC",
     [](SaleData& d) { d.house = "<CNPJ>12345678000195</CNPJ><signAC/><numeroCaixa>001</numeroCaixa>"; }},
    {"NoIssuer", Cause::missing_field, "emit/CNPJ", [](SaleData& d) { d.issuer.clear(); }},
    {"BadIssuer", Cause::issuer_cnpj, "emit/CNPJ",
     [](SaleData& d) { d.issuer = "<CNPJ>11222333000182</CNPJ>"; }},
    {"BadBuyerCpf", Cause::buyer_cpf, "dest/CPF", [](SaleData& d) { d.buyer = "<CPF>123</CPF>"; }},
    {"BadBuyerCnpj", Cause::buyer_cnpj, "dest/CNPJ", [](SaleData& d) { d.buyer = "<CNPJ>123</CNPJ>"; }},
    {"NoItem", Cause::missing_field, "det", [](SaleData& d) { d.items.clear(); }},
    {"ItemOutOfOrder", Cause::item_number, "det[1]",
     [](SaleData& d) { d.items = SaleData::item(2, "1", "10.00"); }},
    {"TooManyItems", Cause::too_many, "det",
     [](SaleData& d) {
       d.items.clear();
       for (int i = 1; i <= 501; ++i) d.items += SaleData::item(i, "1", "0.01");
     }},
    {"NoProduct", Cause::missing_field, "det[1]/prod",
     [](SaleData& d) { d.items = "<det nItem=\"1\"><imposto/></det>"; }},
    {"BlankDescription", Cause::empty_text, "det[1]/prod/xProd",
     [](SaleData& d) { d.items.replace(d.items.find("Artigo"), 6, "   "); }},
    {"IncomingOperation", Cause::outgoing_operation, "det[1]/prod/CFOP",
     [](SaleData& d) { d.items.replace(d.items.find("5102"), 4, "1102"); }},
    {"ZeroQuantity", Cause::quantity, "det[1]/prod/qCom",
     [](SaleData& d) { d.items = SaleData::item(1, "0.0000", "10.00"); }},
    {"NegativeQuantity", Cause::quantity, "det[2]/prod/qCom",
     [](SaleData& d) { d.items += SaleData::item(2, "-1", "10.00"); }},
    {"QuantityWithComma", Cause::quantity, "det[1]/prod/qCom",
     [](SaleData& d) { d.items = SaleData::item(1, "1,0", "10.00"); }},
    {"FineQuantity", Cause::quantity, "det[1]/prod/qCom",
     [](SaleData& d) { d.items = SaleData::item(1, "1.00001", "10.00"); }},
    {"ZeroPrice", Cause::unit_price, "det[1]/prod/vUnCom",
     [](SaleData& d) { d.items = SaleData::item(1, "1", "0"); }},
    {"FinePrice", Cause::unit_price, "det[1]/prod/vUnCom",
     [](SaleData& d) { d.items = SaleData::item(1, "1", "1.0001"); }},
    {"UnknownRule", Cause::calculation_rule, "det[1]/prod/indRegra",
     [](SaleData& d) { d.items = SaleData::item(1, "1", "10.00", "R"); }},
    {"DiscountAboveValue", Cause::discount, "det[1]/prod/vDesc",
     [](SaleData& d) { d.items = SaleData::item(1, "1", "10.00", "A", "<vDesc>10.01</vDesc>"); }},
    {"DiscountNoAmount", Cause::discount, "det[1]/prod/vDesc",
     [](SaleData& d) { d.items = SaleData::item(1, "1", "10.00", "A", "<vDesc>x</vDesc>"); }},
    {"ChargesNoAmount", Cause::other_charges, "det[1]/prod/vOutro",
     [](SaleData& d) { d.items = SaleData::item(1, "1", "10.00", "A", "<vOutro>-1</vOutro>"); }},
    {"ItemValueTooLarge", Cause::item_value, "det[1]/prod/qCom",
     [](SaleData& d) { d.items = SaleData::item(1, "999999999999", "999999999999"); }},
    {"NoTaxes", Cause::missing_field, "det[1]/imposto",
     [](SaleData& d) {
       d.items = "<det nItem=\"1\"><prod>" + SaleData::product("1", "10.00") + "</prod></det>";
     }},
    {"EmptyTaxGroup", Cause::taxes, "det[1]/imposto/ICMS",
     [](SaleData& d) { d.items = SaleData::item_of(1, SaleData::product("1", "10.00"), "<ICMS/>"); }},
    {"BadTaxRate", Cause::taxes, "det[1]/imposto/PIS/PISAliq/pPIS",
     [](SaleData& d) {
       d.items = SaleData::item_of(1, SaleData::product("1", "10.00"),
                                   "<PIS><PISAliq><pPIS>a</pPIS></PISAliq></PIS>");
     }},
    {"SubtotalDiscountAboveSum", Cause::subtotal_adjustment, "total/DescAcrEntr",
     [](SaleData& d) {
       d.total = "<total><DescAcrEntr><vDescSubtot>10.01</vDescSubtot></DescAcrEntr></total>";
     }},
    {"SubtotalDiscountNoAmount", Cause::subtotal_adjustment, "total/DescAcrEntr/vDescSubtot",
     [](SaleData& d) { d.total = "<total><DescAcrEntr><vDescSubtot/></DescAcrEntr></total>"; }},
    {"NoPayment", Cause::missing_field, "pgto/MP", [](SaleData& d) { d.payments.clear(); }},
    {"TooManyPayments", Cause::too_many, "pgto/MP",
     [](SaleData& d) {
       for (int i = 0; i < 10; ++i) d.payments += SaleData::payment("01", "1.00");
     }},
    {"UnknownPaymentMethod", Cause::payment_method, "pgto/MP[2]/cMP",
     [](SaleData& d) { d.payments += SaleData::payment("77", "1.00"); }},
    {"PaymentNoAmount", Cause::payment_value, "pgto/MP[1]/vMP",
     [](SaleData& d) { d.payments = SaleData::payment("01", "10.001"); }},
    {"PaymentsBelowTotal", Cause::payments_below_total, "pgto",
     [](SaleData& d) { d.payments = SaleData::payment("01", "4.99") + SaleData::payment("04", "5.00"); }},
};

INSTANTIATE_TEST_SUITE_P(Sales, RefusedSales, testing::ValuesIn(kBadSales),
                         [](const auto& row) { return row.param.name; });

TEST(RefusedXml, WhateverItIs) {
  for (const char* text : {"", "x", "<CFe>", "<CFe><infCFe></CFe>", "<CFe/><", "<CFe><infCFe>x</infCFe>"}) {
    const Refused refused = refusal_of([&] { read_sale(text); });
    EXPECT_EQ(refused.cccc, cause_row(Cause::not_xml).cccc) << text;
  }
  EXPECT_EQ(refusal_of([] { read_sale("<CFe><infCFe>\xff</infCFe>"); }).cccc,
            cause_row(Cause::encoding).cccc);
  EXPECT_EQ(refusal_of([] { read_sale("<CFe/>"); }).cccc, cause_row(Cause::missing_field).cccc);
  EXPECT_EQ(refusal_of([] { read_sale("<outro/>"); }).cccc, cause_row(Cause::missing_field).cccc);
}

TEST(Causes, EachHasACodeOfItsOwn) {
  std::vector<int> codes;
  for (const CauseRow& row : causes()) {
    EXPECT_GE(row.cccc, 1000);
    EXPECT_LE(row.cccc, 9999);
    EXPECT_EQ(std::count(codes.begin(), codes.end(), row.cccc), 0) << row.cccc;
    codes.push_back(row.cccc);
  }
}

TEST(SaleTotals, AddUpItemsDiscountsAndCharges) {
  SaleData data;
  data.items = SaleData::item(1, "2.0000", "15.90", "A", "<vDesc>1.80</vDesc>") +
               SaleData::item(2, "0.3250", "39.90", "T", "<vOutro>0.05</vOutro>");
  data.payments = SaleData::payment("01", "20.00") + SaleData::payment("03", "30.00");
  const auto sale = read_sale(data.xml());
  EXPECT_EQ(sale->items[0].gross, 3180);
  EXPECT_EQ(sale->items[0].net, 3000);
  EXPECT_EQ(sale->items[1].gross, 1296);
  EXPECT_EQ(sale->items[1].net, 1301);
  EXPECT_EQ(sale->total, 4301);
  EXPECT_EQ(sale->paid, 5000);
}

TEST(SaleTotals, ExactPaymentIsEnough) {
  SaleData data;
  data.items = SaleData::item(1, "0.1000", "0.30") + SaleData::item(2, "3", "0.10");  // 0.03 + 0.30
  data.payments = SaleData::payment("01", "0.33");
  EXPECT_EQ(read_sale(data.xml())->total, 33);
}

TEST(SaleTotals, ADiscountOnTheSubtotalIsSharedToTheLastCent) {
  SaleData data;
  data.items =
      SaleData::item(1, "1", "1.00") + SaleData::item(2, "1", "1.00") + SaleData::item(3, "1", "1.00");
  data.total = "<total><DescAcrEntr><vDescSubtot>1.00</vDescSubtot></DescAcrEntr></total>";
  const auto sale = read_sale(data.xml());
  EXPECT_EQ(sale->items[0].shared_discount, 33);
  EXPECT_EQ(sale->items[1].shared_discount, 33);
  EXPECT_EQ(sale->items[2].shared_discount, 34);
  EXPECT_EQ(sale->items[2].net, 66);
  EXPECT_EQ(sale->total, 200);
}

TEST(SaleTotals, ASurchargeOnTheSubtotalRaisesThem) {
  SaleData data;
  data.total = "<total><DescAcrEntr><vAcresSubtot>0.50</vAcresSubtot></DescAcrEntr></total>";
  data.payments = SaleData::payment("01", "10.50");
  const auto sale = read_sale(data.xml());
  EXPECT_EQ(sale->items[0].shared_surcharge, 50);
  EXPECT_EQ(sale->total, 1050);
}

TEST(SaleTaxes, ComeFromBaseAndRate) {
  SaleData data;
  data.items =
      SaleData::item_of(1, SaleData::product("1", "10.00"),
                        "<ICMS><ICMS00><Orig>0</Orig><CST>00</CST><pICMS>18.00</pICMS></ICMS00></ICMS>"
                        "<PIS><PISAliq><CST>01</CST><vBC>8.00</vBC><pPIS>0.0165</pPIS></PISAliq></PIS>"
                        "<PISST><vBC>1.00</vBC><pPIS>0.5000</pPIS></PISST>"
                        "<COFINS><COFINSNT><CST>07</CST></COFINSNT></COFINS>");
  const auto sale = read_sale(data.xml());
  EXPECT_EQ(sale->taxes.icms, 180);
  EXPECT_EQ(sale->taxes.pis, 13);  // 0.132
  EXPECT_EQ(sale->taxes.pis_st, 50);
  EXPECT_EQ(sale->taxes.cofins, 0);
}

TEST(SaleBuyer, IsCpfCnpjOrNobody) {
  SaleData data;
  EXPECT_EQ(read_sale(data.xml())->buyer, "");
  data.buyer = "<CPF>52998224725</CPF>";
  EXPECT_EQ(read_sale(data.xml())->buyer, "52998224725");
  data.buyer = "<CNPJ>12345678000195</CNPJ>";
  EXPECT_EQ(read_sale(data.xml())->buyer, "12345678000195");
}

DocumentFacts facts_of_test() {
  DocumentFacts facts;
  facts.key = {35, "2603", "11222333000181", "900000001", 42, 7};
  facts.moment = *parse_moment("2026-03-01T10:20:30");
  facts.qr_signature = "QR";
  facts.software_version = "010000";
  facts.layout_version = "0.07";
  return facts;
}

pugi::xml_document parsed(const std::string& text) {
  pugi::xml_document document;
  EXPECT_TRUE(document.load_string(text.c_str())) << text;
  return document;
}

TEST(SaleDocument, ShowsKeyMomentTotalsChangeAndSignature) {
  SaleData data;
  data.buyer = "<CPF>52998224725</CPF><xNome>Jos\xc3\xa9</xNome>";
  data.payments = SaleData::payment("01", "12.00");
  const auto document = parsed(sale_document(*read_sale(data.xml()), facts_of_test()));
  const auto group = document.child("CFe").child("infCFe");
  const auto text = [&](const char* path) {
    return std::string(group.first_element_by_path(path).text().get());
  };
  const std::string digits = facts_of_test().key.digits();
  EXPECT_EQ(group.attribute("Id").value(), "CFe" + digits);
  EXPECT_EQ(text("ide/cUF"), "35");
  EXPECT_EQ(text("ide/cNF"), "000007");
  EXPECT_EQ(text("ide/mod"), "59");
  EXPECT_EQ(text("ide/nserieSAT"), "900000001");
  EXPECT_EQ(text("ide/nCFe"), "000042");
  EXPECT_EQ(text("ide/dEmi"), "20260301");
  EXPECT_EQ(text("ide/hEmi"), "102030");
  EXPECT_EQ(text("ide/cDV"), digits.substr(43));
  EXPECT_EQ(text("ide/signAC"), "assinatura");
  EXPECT_EQ(text("ide/assinaturaQRCODE"), "QR");
  EXPECT_EQ(text("ide/numeroCaixa"), "001");
  EXPECT_EQ(text("emit/CNPJ"), "11222333000181");
  EXPECT_EQ(text("dest/xNome"), "Jos\xc3\xa9");
  EXPECT_EQ(text("det/prod/vProd"), "10.00");
  EXPECT_EQ(text("det/prod/vItem"), "10.00");
  EXPECT_EQ(text("total/ICMSTot/vProd"), "10.00");
  EXPECT_EQ(text("total/vCFe"), "10.00");
  EXPECT_EQ(text("pgto/MP/vMP"), "12.00");
  EXPECT_EQ(text("pgto/vTroco"), "2.00");
}

TEST(SaleDocument, HasNoDefaultNamespaceEvenIfTheTillSendsOne) {
  SaleData data;
  std::string xml = data.xml();
  xml.replace(0, 4, "<CFe xmlns=\"urn:sat\"");
  xml.replace(xml.find("<det "), 5, "<det xmlns=\"urn:x\" ");
  const std::string document = sale_document(*read_sale(xml), facts_of_test());
  EXPECT_EQ(document.find("xmlns"), std::string::npos);
}

TEST(SaleDocument, ComputedValuesReplaceThoseOfTheTill) {
  SaleData data;
  data.items = SaleData::item(1, "1", "10.00", "A", "<vItem>99.00</vItem><vProd>98.00</vProd>");
  const std::string document = sale_document(*read_sale(data.xml()), facts_of_test());
  EXPECT_EQ(document.find("99.00"), std::string::npos);
  EXPECT_EQ(document.find("98.00"), std::string::npos);
}

TEST(ExampleSale, IsARightOne) {
  std::ifstream file(EXAMPLE_SALE);
  const std::string xml{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_EQ(read_sale(xml)->total, 12684);
}

TEST(Cancellation, NamesTheReceipt) {
  const std::string key = "CFe35260111222333000181599000000010000010000012";
  EXPECT_EQ(read_cancellation(cancellation_xml(key))->key, key);
  EXPECT_EQ(refusal_of([&] { read_cancellation(cancellation_xml(key + "1")); }).cccc,
            cause_row(Cause::key_check_digit).cccc);
  EXPECT_EQ(refusal_of([&] { read_cancellation("<CFeCanc><infCFe/></CFeCanc>"); }).field, "infCFe@chCanc");
}

TEST(CancellationDocument, NamesBothReceipts) {
  const std::string key = "CFe35260111222333000181599000000010000010000012";
  const CancelledSale sale{key, "52998224725", *parse_moment("2026-03-01T10:00:00"), 1234};
  const auto document =
      parsed(cancellation_document(*read_cancellation(cancellation_xml(key)), sale, facts_of_test()));
  const auto group = document.child("CFeCanc").child("infCFe");
  EXPECT_EQ(group.attribute("chCanc").value(), key);
  EXPECT_EQ(group.attribute("Id").value(), "CFe" + facts_of_test().key.digits());
  EXPECT_STREQ(group.child("hEmi").text().get(), "100000");
  EXPECT_STREQ(group.first_element_by_path("ide/hEmi").text().get(), "102030");
  EXPECT_STREQ(group.first_element_by_path("dest/CPF").text().get(), "52998224725");
  EXPECT_STREQ(group.first_element_by_path("total/vCFe").text().get(), "12.34");
}

}  // namespace
}  // namespace emulator
