#include "hub/sat/document.h"

#include <algorithm>
#include <pugixml.hpp>

#include "hub/sat/access_key.h"

namespace hub {

namespace {

constexpr unsigned kParsing = pugi::parse_minimal | pugi::parse_cdata | pugi::parse_escapes;

// "1.0000" and "1" are the same amount: devices write their own number of decimals.
std::string amount(std::string text) {
  const auto point = text.find('.');
  if (point != std::string::npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
  }
  text.erase(0, std::min(text.find_first_not_of('0'), text.size()));
  return text.empty() || text.front() == '.' ? "0" + text : text;
}

// Descriptions are left out: devices change their code page.
std::string line_of(const pugi::xml_node& item) {
  const auto product = item.child("prod");
  return std::string(product.child_value("cProd")) + '|' + amount(product.child_value("qCom")) + '|' +
         amount(product.child_value("vUnCom")) + '|' + product.child_value("CFOP");
}

std::string line_of_payment(const pugi::xml_node& payment) {
  return std::string(payment.child_value("cMP")) + '|' + amount(payment.child_value("vMP"));
}

std::string cancelled_key(const pugi::xml_node& group) {
  const auto key = AccessKey::parse(group.attribute("chCanc").value());
  return key ? key->digits() : std::string();
}

}  // namespace

DocumentFacts facts_of(std::string_view xml) {
  DocumentFacts facts;
  if (xml.find("<!DOCTYPE") != std::string_view::npos) return facts;
  pugi::xml_document document;
  if (!document.load_buffer(xml.data(), xml.size(), kParsing)) return facts;
  const auto group = document.document_element().child("infCFe");
  if (!group) return facts;
  facts.readable = true;
  facts.issuer = group.child("emit").child_value("CNPJ");
  for (const auto& item : group.children("det")) facts.lines.push_back(line_of(item));
  // Data name no total, the device computes it; what was paid stands in both.
  for (const auto& payment : group.child("pgto").children("MP"))
    facts.lines.push_back(line_of_payment(payment));
  facts.cancelled = cancelled_key(group);
  return facts;
}

bool made_of(const DocumentFacts& receipt, const DocumentFacts& data) {
  if (!receipt.readable || !data.readable) return false;
  if (!data.issuer.empty() && receipt.issuer != data.issuer) return false;
  return receipt.lines == data.lines && receipt.cancelled == data.cancelled;
}

}  // namespace hub
