#include "documents/strict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>

#include "documents/identifiers.h"
#include "documents/xml_element.h"
#include "emulator/device_bench.h"

namespace emulator {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string file_text(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// "rule field" of every violation.
std::vector<std::string> broken(const std::string& xml, const Layout& layout = sale_layout()) {
  std::vector<std::string> list;
  for (const Violation& violation : violations(xml, layout)) {
    list.push_back(std::string(violation.rule) + " " + violation.field);
  }
  return list;
}

std::string house() {
  return "<ide><CNPJ>12345678000195</CNPJ><signAC>" + std::string(344, 'A') +
         "</signAC><numeroCaixa>001</numeroCaixa></ide>";
}

std::string item(int number, const std::string& taxes) {
  return "<det nItem=\"" + std::to_string(number) +
         "\"><prod><cProd>1</cProd><cEAN>7891000100103</cEAN><xProd>Café</xProd><NCM>09012100</NCM>"
         "<CEST>1709600</CEST><CFOP>5102</CFOP><uCom>UN</uCom><qCom>1.0000</qCom><vUnCom>10.00</vUnCom>"
         "<indRegra>A</indRegra><vDesc>1.00</vDesc><vOutro>0.50</vOutro>"
         "<obsFiscoDet xCampoDet=\"Campo\"><xTextoDet>Texto</xTextoDet></obsFiscoDet></prod><imposto>"
         "<vItem12741>1.00</vItem12741>" +
         taxes + "</imposto><infAdProd>Nada</infAdProd></det>";
}

// Both have the same groups; `name` is PIS or COFINS.
std::string contribution(const std::string& name, const std::string& kind, const std::string& fields) {
  return "<" + name + "><" + name + kind + ">" + fields + "</" + name + kind + "></" + name + ">";
}
std::string contributions(const std::string& kind, const std::string& fields, bool by_rate = false) {
  const auto rate = [&](const std::string& name) {
    return by_rate ? "<vBC>9.50</vBC><p" + name + ">0.0165</p" + name + ">" : std::string();
  };
  return contribution("PIS", kind, fields + rate("PIS")) +
         contribution("COFINS", kind, fields + rate("COFINS"));
}

const std::string kQuantityTax = "<qBCProd>1.0000</qBCProd><vAliqProd>0.1000</vAliqProd>";

// With every element of the layout, as far as one may stand beside the other.
std::string full_sale(const std::string& buyer = "<CPF>12345678909</CPF>",
                      const std::string& adjustment = "<vDescSubtot>1.00</vDescSubtot>") {
  const std::string substitution = "<PISST><vBC>1.00</vBC><pPIS>0.0165</pPIS>" + kQuantityTax + "</PISST>" +
                                   contribution("COFINS", "NT", "<CST>04</CST>") +
                                   "<COFINSST><vBC>1.00</vBC><pCOFINS>0.0760</pCOFINS>" + kQuantityTax +
                                   "</COFINSST>";
  const std::string other_pis =
      "<PIS><PISOutr><CST>99</CST><vBC>1.00</vBC><pPIS>0.0165</pPIS>" + kQuantityTax + "</PISOutr></PIS>";
  const std::string other_cofins =
      "<COFINS><COFINSOutr><CST>99</CST><vBC>1.00</vBC><pCOFINS>0.0760</pCOFINS>" + kQuantityTax +
      "</COFINSOutr></COFINS>";
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><CFe><infCFe versaoDadosEnt=\"0.08\">" + house() +
         "<emit><CNPJ>11222333000181</CNPJ><IE>111222333444</IE><IM>123</IM>"
         "<cRegTribISSQN>3</cRegTribISSQN><indRatISSQN>N</indRatISSQN></emit>"
         "<dest>" +
         buyer +
         "<xNome>Maria</xNome></dest>"
         "<entrega><xLgr>Rua A</xLgr><nro>1</nro><xCpl>ap 2</xCpl><xBairro>Centro</xBairro>"
         "<xMun>Campinas</xMun><UF>SP</UF></entrega>" +
         item(1, "<ICMS><ICMS00><Orig>0</Orig><CST>00</CST><pICMS>18.00</pICMS></ICMS00></ICMS>" +
                     contributions("Aliq", "<CST>01</CST>", true)) +
         item(2, "<ICMS><ICMS40><Orig>0</Orig><CST>40</CST></ICMS40></ICMS>" +
                     contributions("Qtde", "<CST>03</CST>" + kQuantityTax)) +
         item(3, "<ICMS><ICMSSN102><Orig>0</Orig><CSOSN>102</CSOSN></ICMSSN102></ICMS>" +
                     contribution("PIS", "NT", "<CST>04</CST>") + substitution) +
         item(4, "<ICMS><ICMSSN900><Orig>0</Orig><CSOSN>900</CSOSN><pICMS>2.00</pICMS></ICMSSN900></ICMS>" +
                     contributions("SN", "<CST>49</CST>")) +
         item(5,
              "<ISSQN><vDeducISSQN>0.00</vDeducISSQN><vAliq>5.00</vAliq><cMunFG>3509502</cMunFG>"
              "<cListServ>14.01</cListServ><cServTribMun>140100</cServTribMun><cNatOp>01</cNatOp>"
              "<indIncFisc>1</indIncFisc></ISSQN>" +
                  other_pis + other_cofins) +
         "<total><DescAcrEntr>" + adjustment +
         "</DescAcrEntr><vCFeLei12741>5.00</vCFeLei12741></total><pgto><MP><cMP>03</cMP><vMP>9000.00</vMP>"
         "<cAdmC>001</cAdmC></MP></pgto><infAdic><infCpl>Obrigado</infCpl><obsFisco/></infAdic></infCFe></CFe>";
}

std::string full_cancellation(const std::string& buyer = "<CPF>12345678909</CPF>") {
  AccessKey key;
  key.year_month = "2603";
  key.cnpj = "11222333000181";
  key.serial = "900000001";
  key.number = 1;
  return "<CFeCanc><infCFe chCanc=\"CFe" + key.digits() + "\">" + house() + "<emit/><dest>" + buyer +
         "</dest><total/><infAdic/></infCFe></CFeCanc>";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto place = text.find(from);
  EXPECT_NE(place, std::string::npos) << from;
  return text.replace(place, from.size(), to);
}

// One row of a layout, a document that contains what it describes, and where.
struct Place {
  const Layout* layout;
  const LayoutRow* row;
  std::string xml;
};

struct Opened {
  pugi::xml_document document;
  pugi::xml_node holder;  // the group that has the row's element or attribute
  pugi::xml_node element;
  std::string text() const { return xml_text(document); }
};

std::string xpath(const Place& place) {
  const std::string group = std::string("/") + place.layout->root + "/infCFe";
  return group + "/" + std::string(place.row->path);
}

Opened open(const Place& place) {
  Opened opened;
  opened.document.load_string(place.xml.c_str());
  const auto found = opened.document.select_node(xpath(place).c_str());
  opened.holder = found.parent();
  opened.element = found.node();
  return opened;
}

std::string path_of(pugi::xml_node node) {
  const std::string name = node.name();
  if (name == "infCFe") return "";
  std::string number;
  if (name == "det" || name == "MP" || name == "obsFiscoDet" || name == "obsFisco") {
    int before = 1;
    for (auto other = node.previous_sibling(name.c_str()); other;
         other = other.previous_sibling(name.c_str()))
      ++before;
    number = "[" + std::to_string(before) + "]";
  }
  const std::string parent = path_of(node.parent());
  return (parent.empty() ? "" : parent + "/") + name + number;
}

std::string below(pugi::xml_node holder, std::string_view name) {
  const std::string parent = path_of(holder);
  return (parent.empty() ? "" : parent + "/") + std::string(name);
}

std::vector<Place> all_places() {
  std::vector<Place> places;
  const auto add = [&](const Layout& layout, const std::vector<std::string>& documents) {
    for (const LayoutRow& row : layout.rows) {
      Place place{&layout, &row, ""};
      for (const std::string& xml : documents) {
        pugi::xml_document document;
        document.load_string(xml.c_str());
        place.xml = xml;
        if (document.select_node(xpath(place).c_str())) break;
        place.xml.clear();
      }
      EXPECT_NE(place.xml, "") << "no document has " << row.path;
      places.push_back(place);
    }
  };
  add(sale_layout(),
      {full_sale(), full_sale("<CNPJ>11222333000181</CNPJ>", "<vAcresSubtot>1.00</vAcresSubtot>")});
  add(cancellation_layout(), {full_cancellation(), full_cancellation("<CNPJ>11222333000181</CNPJ>")});
  return places;
}

std::vector<std::string> wrong_values(const Format& format) {
  switch (format.kind) {
    case Kind::group:
    case Kind::open:
      return {};
    case Kind::text:
      return {"", std::string(format.most + 1, 'x')};
    case Kind::digits:
      return {"", std::string(format.most, 'x'), std::string(format.most + 1, '1')};
    case Kind::digits_of_two:
      return {"", std::string(format.most, 'x'), std::string(format.most - 1, '1')};
    case Kind::number:
      return {"", "1,00", "-1.00", "1." + std::string(format.most + 1, '0'), "47.0"};
    case Kind::one_of:
      return {"", "Z", std::string(format.values) + " "};
    case Kind::cnpj:
      return {"", "11222333000182", "11.222.333/0001-81"};
    case Kind::cpf:
      return {"", "12345678900", "123.456.789-09"};
    case Kind::access_key:
      return {"", "CFe1", "CFe" + std::string(44, '1')};
  }
  return {};
}

TEST(Strict, AcceptsWhatKeepsToTheLayout) {
  EXPECT_THAT(broken(full_sale()), IsEmpty());
  EXPECT_THAT(broken(file_text(EXAMPLE_SALE)), IsEmpty());
  EXPECT_THAT(broken(full_cancellation(), cancellation_layout()), IsEmpty());
  const std::string latin1 =
      replaced(replaced(file_text(EXAMPLE_SALE), "UTF-8", "ISO-8859-1"), "CAFE", "CAF\xC9");
  EXPECT_THAT(broken(latin1), IsEmpty());
}

TEST(StrictRows, RefuseValuesOfAnotherForm) {
  for (const Place& place : all_places()) {
    for (const std::string& wrong : wrong_values(place.row->format)) {
      SCOPED_TRACE(std::string(place.row->path) + " = " + wrong);
      Opened opened = open(place);
      std::string field;
      if (place.row->is_attribute()) {
        const std::string name(place.row->name());
        opened.holder.attribute(name.substr(1).c_str()).set_value(wrong.c_str());
        field = below(opened.holder, name);
      } else {
        opened.element.text().set(wrong.c_str());
        field = path_of(opened.element);
      }
      EXPECT_THAT(broken(opened.text(), *place.layout), ElementsAre("format " + field));
      EXPECT_EQ(violations(opened.text(), *place.layout).at(0).cause, place.row->misfit);
    }
  }
}

TEST(StrictRows, DemandWhatIsRequired) {
  for (const Place& place : all_places()) {
    if (place.row->presence != Presence::required) continue;
    SCOPED_TRACE(place.row->path);
    Opened opened = open(place);
    const std::string name(place.row->name());
    const std::string field = below(opened.holder, name);
    if (place.row->is_attribute())
      opened.holder.remove_attribute(name.substr(1).c_str());
    else
      while (opened.holder.remove_child(name.c_str())) continue;
    EXPECT_THAT(broken(opened.text(), *place.layout), ElementsAre("missing " + field));
  }
}

TEST(StrictRows, RefuseWhatOccursTooOften) {
  for (const Place& place : all_places()) {
    if (place.row->is_attribute()) continue;
    SCOPED_TRACE(place.row->path);
    Opened opened = open(place);
    const std::string field = below(opened.holder, place.row->name());
    std::size_t count = 0;
    for ([[maybe_unused]] const auto same : opened.holder.children(opened.element.name())) ++count;
    for (; count <= place.row->most; ++count) {
      auto copy = opened.holder.insert_copy_after(opened.element, opened.element);
      if (place.row->name() == "det") opened.element = copy;
    }
    int number = 0;
    for (auto det : opened.holder.children("det")) det.attribute("nItem").set_value(++number);
    EXPECT_THAT(broken(opened.text(), *place.layout), ElementsAre("too-many " + field));
  }
}

TEST(StrictRows, StandInOrder) {
  for (const Place& place : all_places()) {
    if (place.row->is_attribute()) continue;
    Opened opened = open(place);
    const auto before = opened.element.previous_sibling();
    if (!before) continue;
    SCOPED_TRACE(place.row->path);
    const std::string field = path_of(before);
    opened.holder.insert_move_before(opened.element, before);
    EXPECT_THAT(broken(opened.text(), *place.layout), ElementsAre("out-of-order " + field));
  }
}

TEST(StrictRows, GroupsHoldNothingElse) {
  for (const Place& place : all_places()) {
    if (place.row->format.kind != Kind::group) continue;
    SCOPED_TRACE(place.row->path);
    Opened opened = open(place);
    opened.element.append_child("outro");
    EXPECT_THAT(broken(opened.text(), *place.layout),
                ElementsAre("not-in-layout " + below(opened.element, "outro")));
  }
}

TEST(StrictRules, LongNamesAreCutBetweenCharacters) {
  const auto name = [](int letters) {
    std::string text = "x";
    for (int i = 0; i < letters; ++i) text += "é";
    return text;
  };
  EXPECT_THAT(broken(replaced(full_sale(), "<total>", "<" + name(5000) + "/><total>")),
              ElementsAre("not-in-layout " + name(29)));
}

TEST(StrictRules, LayoutsHaveTheirOwnElements) {
  const std::string older = replaced(full_sale(), "0.08", "0.07");
  std::vector<std::string> expected;
  for (int i = 1; i <= 5; ++i) expected.push_back("not-in-layout det[" + std::to_string(i) + "]/prod/CEST");
  EXPECT_EQ(broken(older), expected);
  EXPECT_THAT(broken(replaced(full_sale(), "0.08", "0.09")), ElementsAre("format @versaoDadosEnt"));
}

TEST(StrictRules, Alternatives) {
  const std::string cpf = "<CPF>12345678909</CPF>";
  EXPECT_THAT(broken(full_sale("")), IsEmpty());
  EXPECT_THAT(broken(full_sale("<CNPJ>11222333000181</CNPJ>" + cpf)), ElementsAre("alternatives dest"));
  EXPECT_THAT(broken(full_cancellation("<CNPJ>11222333000181</CNPJ>" + cpf), cancellation_layout()),
              ElementsAre("alternatives dest"));
  EXPECT_THAT(broken(full_sale(cpf, "<vDescSubtot>1.00</vDescSubtot><vAcresSubtot>1.00</vAcresSubtot>")),
              ElementsAre("alternatives total/DescAcrEntr"));
  const std::string icms40 = "<ICMS><ICMS40><Orig>0</Orig><CST>40</CST></ICMS40></ICMS>";
  EXPECT_THAT(broken(replaced(full_sale(), icms40, "")), ElementsAre("alternatives det[2]/imposto"));
  EXPECT_THAT(broken(replaced(full_sale(), "<ISSQN>", icms40 + "<ISSQN>")),
              ElementsAre("alternatives det[5]/imposto"));
  const std::string two_kinds = "</ICMS00><ICMS40><Orig>0</Orig><CST>40</CST></ICMS40>";
  EXPECT_THAT(broken(replaced(full_sale(), "</ICMS00>", two_kinds)),
              ElementsAre("alternatives det[1]/imposto/ICMS"));
  for (const std::string name : {"PIS", "COFINS"}) {
    const std::string kind = "<" + name + "SN><CST>49</CST></" + name + "SN>";
    const std::string field = "alternatives det[4]/imposto/" + name;
    EXPECT_THAT(broken(replaced(full_sale(), kind, "")), ElementsAre(field));
    EXPECT_THAT(broken(replaced(full_sale(), kind, "<" + name + "NT><CST>04</CST></" + name + "NT>" + kind)),
                ElementsAre(field));
  }
}

TEST(StrictRules, Bytes) {
  EXPECT_THAT(broken("\xEF\xBB\xBF" + full_sale()), ElementsAre("byte-order-mark XML"));
  const std::string sale = file_text(EXAMPLE_SALE);
  const std::string latin1 = replaced(sale, "CAFE", "CAF\xC9");
  EXPECT_THAT(broken(latin1), ElementsAre("encoding utf-8, byte " + std::to_string(latin1.find('\xC9'))));
  EXPECT_THAT(broken("<CFe>"), ElementsAre(testing::StartsWith("xml ")));
  EXPECT_THAT(broken("<outro/>"), ElementsAre("missing CFe"));
  EXPECT_THAT(broken("<CFe/>"), ElementsAre("missing CFe/infCFe"));
}

TEST(StrictRules, Amounts) {
  EXPECT_THAT(broken(replaced(full_sale(), "9000.00", "1.00")), ElementsAre("amounts pgto"));
  EXPECT_THAT(broken(replaced(full_sale(), "nItem=\"2\"", "nItem=\"3\"")), ElementsAre("amounts det[2]"));
  const auto found = violations(replaced(full_sale(), "9000.00", "1.00"), sale_layout());
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].cause, Cause::payments_below_total);
}

TEST(StrictRules, LengthsCountCharacters) {
  std::string name;
  for (int i = 0; i < 120; ++i) name += "é";
  EXPECT_THAT(broken(replaced(full_sale(), "Café", name)), IsEmpty());
  EXPECT_THAT(broken(replaced(full_sale(), "Café", name + "é")), ElementsAre("format det[1]/prod/xProd"));
}

TEST(StrictRules, AllThatIsWrongIsNamed) {
  std::string sale = replaced(full_sale(), "<NCM>09012100</NCM>", "");
  sale = replaced(sale, "12345678000195", "12345678000190");
  sale = replaced(sale, "9000.00", "1.00");
  EXPECT_THAT(broken("\xEF\xBB\xBF" + sale), ElementsAre("byte-order-mark XML", "format ide/CNPJ",
                                                         "missing det[1]/prod/NCM", "amounts pgto"));
}

class StrictDevice : public DeviceBench {
 protected:
  StrictDevice() {
    device.surroundings().strict = [this](const std::vector<Violation>& violations) { told = violations; };
  }
  std::vector<Violation> told;
};

TEST_F(StrictDevice, RefusesWithTheFirstViolationAndTellsAll) {
  const std::string sale = replaced(replaced(full_sale(), "<NCM>09012100</NCM>", ""), "9000.00", "1.00");
  const auto reply = call("EnviarDadosVenda", {kCode, sale});
  EXPECT_EQ(reply[1], "06010");
  EXPECT_EQ(reply[2], std::to_string(cause_row(Cause::missing_field).cccc));
  EXPECT_THAT(reply[3], HasSubstr("(det[1]/prod/NCM)"));
  EXPECT_EQ(told.size(), 2U);
  EXPECT_TRUE(device.state().receipts.empty());
  EXPECT_EQ(code_of("TesteFimAFim", {kCode, sale}), "09099");
}

TEST_F(StrictDevice, SellsAndCancelsWhatIsRight) {
  const auto sold = call("EnviarDadosVenda", {kCode, file_text(EXAMPLE_SALE)});
  ASSERT_EQ(sold[1], "06000");
  const std::string key = device.state().last_key;
  const auto refused = cancel(key);
  EXPECT_EQ(refused[1], "07010");
  EXPECT_THAT(refused[3], HasSubstr("(ide/signAC)"));
  const std::string right = cancellation_xml(key, std::string(344, 'A'));
  EXPECT_EQ(code_of("CancelarUltimaVenda", {kCode, key, right}), "07000");
}

TEST_F(DeviceBench, SellsAnythingReadableUnlessItIsStrict) {
  EXPECT_EQ(sell()[1], "06000");
  EXPECT_EQ(call("EnviarDadosVenda", {kCode, "\xEF\xBB\xBF" + SaleData().xml()})[1], "06000");
}

// The page says every rule and every row as the tables have it.
std::string page_tables() {
  std::string text = "| Rule | What it demands |\n|---|---|\n";
  for (const StrictRule& rule : rule::kAll) {
    text += "| `" + std::string(rule.name) + "` | " + std::string(rule.meaning) + " |\n";
  }
  constexpr std::array kPresences{"required", "optional", "exactly one of these", "at most one of these"};
  for (const Layout* layout : {&sale_layout(), &cancellation_layout()}) {
    text += "\n### " + std::string(layout->root) +
            "\n\n| Field below `infCFe` | Presence | Form |\n|---|---|---|\n";
    for (const LayoutRow& row : layout->rows) {
      text += "| `" + std::string(row.path) + "` | " + kPresences.at(static_cast<std::size_t>(row.presence));
      if (row.most > 1) text += ", up to " + std::to_string(row.most);
      if (row.since != "0.07") text += ", from layout " + std::string(row.since);
      text += " | " + description(row.format) + " |\n";
    }
  }
  return text;
}

TEST(StrictPage, HasTheTables) {
  EXPECT_THAT(file_text(STRICT_PAGE), HasSubstr(page_tables())) << "The page is to hold:\n" << page_tables();
}

TEST(StrictPage, SaysWhatIsNotChecked) {
  EXPECT_THAT(file_text(STRICT_PAGE), HasSubstr("no copy of the tax authority's schema"));
}

}  // namespace
}  // namespace emulator
