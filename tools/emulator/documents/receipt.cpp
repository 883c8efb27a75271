#include "documents/receipt.h"

#include <array>
#include <cstdio>

#include "documents/xml_element.h"

namespace emulator {

namespace {

constexpr const char* kLayoutOfData = "0.07";
constexpr const char* kModel = "59";
constexpr const char* kTestEnvironment = "2";

void add(pugi::xml_node parent, const char* name, const std::string& value) {
  parent.append_child(name).text().set(value.c_str());
}

void add_amount(pugi::xml_node parent, const char* name, Cents value) {
  add(parent, name, format_amount(value));
}

// Copies the child if the till sent it; `always` leaves an empty element otherwise.
void copy(pugi::xml_node to, pugi::xml_node from, const char* name, bool always = false) {
  if (const auto child = from.child(name))
    to.append_copy(child);
  else if (always)
    to.append_child(name);
}

void insert_after(pugi::xml_node parent, const char* neighbour, const char* name, Cents value) {
  parent.remove_child(name);
  parent.insert_child_after(name, parent.child(neighbour)).text().set(format_amount(value).c_str());
}

std::string six_digits(int number) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%06d", number % 1'000'000);
  return text.data();
}

void add_identification(pugi::xml_node group, pugi::xml_node from, const DocumentFacts& facts) {
  const std::string digits = facts.key.digits();
  const std::string stamp = format_moment(facts.moment);
  auto ide = group.append_child("ide");
  add(ide, "cUF", digits.substr(0, 2));
  add(ide, "cNF", six_digits(facts.key.random));
  add(ide, "mod", kModel);
  add(ide, "nserieSAT", facts.key.serial);
  add(ide, "nCFe", six_digits(facts.key.number));
  add(ide, "dEmi", stamp.substr(0, 8));
  add(ide, "hEmi", stamp.substr(8));
  add(ide, "cDV", digits.substr(43));
  add(ide, "tpAmb", kTestEnvironment);
  for (const char* name : {"CNPJ", "signAC"}) copy(ide, from.child("ide"), name);
  add(ide, "assinaturaQRCODE", facts.qr_signature);
  copy(ide, from.child("ide"), "numeroCaixa");
}

pugi::xml_node start_document(pugi::xml_document& document, const char* root, const DocumentFacts& facts) {
  auto group = document.append_child(root).append_child("infCFe");
  group.append_attribute("Id").set_value(("CFe" + facts.key.digits()).c_str());
  group.append_attribute("versao").set_value(facts.layout_version.c_str());
  group.append_attribute("versaoDadosEnt").set_value(kLayoutOfData);
  group.append_attribute("versaoSB").set_value(facts.software_version.c_str());
  return group;
}

void complete_item(pugi::xml_node det, const SaleItem& item) {
  auto product = det.child("prod");
  insert_after(product, "vUnCom", "vProd", item.gross);
  for (const char* name : {"vItem", "vRatDesc", "vRatAcr"}) product.remove_child(name);
  add_amount(product, "vItem", item.net);
  if (item.shared_discount > 0) add_amount(product, "vRatDesc", item.shared_discount);
  if (item.shared_surcharge > 0) add_amount(product, "vRatAcr", item.shared_surcharge);
}

void add_totals(pugi::xml_node group, const Sale& sale) {
  Cents gross = 0, discount = 0, other = 0;
  for (const SaleItem& item : sale.items) {
    gross += item.gross;
    discount += item.discount;
    other += item.other;
  }
  auto total = group.append_child("total");
  auto taxes = total.append_child("ICMSTot");
  add_amount(taxes, "vICMS", sale.taxes.icms);
  add_amount(taxes, "vProd", gross);
  add_amount(taxes, "vDesc", discount);
  add_amount(taxes, "vPIS", sale.taxes.pis);
  add_amount(taxes, "vCOFINS", sale.taxes.cofins);
  add_amount(taxes, "vPISST", sale.taxes.pis_st);
  add_amount(taxes, "vCOFINSST", sale.taxes.cofins_st);
  add_amount(taxes, "vOutro", other);
  add_amount(total, "vCFe", sale.total);
  for (const char* name : {"DescAcrEntr", "vCFeLei12741"}) copy(total, sale.content.child("total"), name);
}

}  // namespace

std::string qr_text(const std::string& key_digits, Moment moment, Cents total, const std::string& buyer) {
  return key_digits + "|" + format_moment(moment) + "|" + format_amount(total) + "|" + buyer;
}

std::string sale_document(const Sale& sale, const DocumentFacts& facts) {
  pugi::xml_document document;
  auto group = start_document(document, "CFe", facts);
  add_identification(group, sale.content, facts);
  copy(group, sale.content, "emit");
  copy(group, sale.content, "dest", true);
  copy(group, sale.content, "entrega");
  for (const SaleItem& item : sale.items) complete_item(group.append_copy(item.node), item);
  add_totals(group, sale);
  copy(group, sale.content, "pgto");
  auto payments = group.child("pgto");
  payments.remove_child("vTroco");
  add_amount(payments, "vTroco", sale.paid - sale.total);
  copy(group, sale.content, "infAdic");
  return xml_text(document);
}

std::string cancellation_document(const Cancellation& cancellation, const CancelledSale& sale,
                                  const DocumentFacts& facts) {
  pugi::xml_document document;
  auto group = start_document(document, "CFeCanc", facts);
  group.append_attribute("chCanc").set_value(sale.key.c_str());
  const std::string stamp = format_moment(sale.moment);
  add(group, "dEmi", stamp.substr(0, 8));
  add(group, "hEmi", stamp.substr(8));
  add_identification(group, cancellation.content, facts);
  add(group.append_child("emit"), "CNPJ", facts.key.cnpj);
  auto buyer = group.append_child("dest");
  if (!sale.buyer.empty()) add(buyer, sale.buyer.size() == 11 ? "CPF" : "CNPJ", sale.buyer);
  add_amount(group.append_child("total"), "vCFe", sale.total);
  copy(group, cancellation.content, "infAdic");
  return xml_text(document);
}

}  // namespace emulator
