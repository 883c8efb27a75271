#include "documents/sale.h"

#include <algorithm>
#include <cctype>

#include "documents/identifiers.h"
#include "documents/xml_element.h"

namespace emulator {

namespace {

constexpr std::size_t kMostItems = 500;
constexpr std::size_t kMostPayments = 10;
constexpr int kQuantityPlaces = 4;
constexpr int kPricePlaces = 3;
constexpr int kRatePlaces = 4;

// What pays for a sale: codes of the payment table.
constexpr std::array<std::string_view, 15> kPaymentMethods{"01", "02", "03", "04", "05", "10", "11", "12",
                                                           "13", "15", "16", "17", "18", "19", "99"};

// A tax given by base and rate. ICMS rates are percentages, the others are fractions.
struct RatedTax {
  const char* group;
  const char* rate;
  const char* value;
  int extra_places;  // of the rate, for the percent sign
  Cents TaxTotals::*total;
};
constexpr std::array kRatedTaxes{
    RatedTax{"ICMS", "pICMS", "vICMS", 2, &TaxTotals::icms},
    RatedTax{"PIS", "pPIS", "vPIS", 0, &TaxTotals::pis},
    RatedTax{"COFINS", "pCOFINS", "vCOFINS", 0, &TaxTotals::cofins},
    RatedTax{"PISST", "pPIS", "vPIS", 0, &TaxTotals::pis_st},
    RatedTax{"COFINSST", "pCOFINS", "vCOFINS", 0, &TaxTotals::cofins_st},
};

void demand_text(const Element& parent, const char* name) {
  const Element field = parent.child(name);
  const std::string text = field.text();
  if (std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; })) {
    field.reject(Cause::empty_text);
  }
}

Cents optional_amount(const Element& parent, const char* name, Cause cause) {
  const auto field = parent.find(name);
  if (!field) return 0;
  const auto amount = parse_amount(field->text());
  if (!amount) field->reject(cause);
  return *amount;
}

std::int64_t required_number(const Element& parent, const char* name, int places, Cause cause) {
  const Element field = parent.child(name);
  const auto number = parse_decimal(field.text(), places);
  if (!number || *number == 0) field.reject(cause);
  return *number;
}

std::string read_software_house(const Element& group) {
  const Element house = group.child("ide");
  if (!valid_cnpj(house.child("CNPJ").text())) house.child("CNPJ").reject(Cause::software_house_cnpj);
  const std::string number = house.child("numeroCaixa").text();
  if (number.size() != 3 || !all_digits(number)) house.child("numeroCaixa").reject(Cause::register_number);
  const Element signature = house.child("signAC");
  if (signature.text().empty()) signature.reject(Cause::empty_signature);
  return signature.text();
}

std::string read_buyer(const Element& group) {
  const auto buyer = group.find("dest");
  if (!buyer) return "";
  if (const auto cpf = buyer->find("CPF"); cpf) {
    if (!valid_cpf(cpf->text())) cpf->reject(Cause::buyer_cpf);
    return cpf->text();
  }
  if (const auto cnpj = buyer->find("CNPJ"); cnpj) {
    if (!valid_cnpj(cnpj->text())) cnpj->reject(Cause::buyer_cnpj);
    return cnpj->text();
  }
  return "";
}

Rounding read_rule(const Element& product) {
  const Element field = product.child("indRegra");
  if (field.text() == "A") return Rounding::half_to_even;
  if (field.text() == "T") return Rounding::truncate;
  field.reject(Cause::calculation_rule);
}

void check_operation(const Element& product) {
  const Element field = product.child("CFOP");
  const std::string code = field.text();
  if (code.size() != 4 || !all_digits(code) || code[0] < '5' || code[0] > '7') {
    field.reject(Cause::outgoing_operation);
  }
}

SaleItem read_item(const Element& element, std::size_t number) {
  if (element.node().attribute("nItem").value() != std::to_string(number)) element.reject(Cause::item_number);
  const Element product = element.child("prod");
  for (const char* name : {"cProd", "xProd", "uCom"}) demand_text(product, name);
  check_operation(product);
  const Rounding rule = read_rule(product);
  const auto quantity = required_number(product, "qCom", kQuantityPlaces, Cause::quantity);
  const auto price = required_number(product, "vUnCom", kPricePlaces, Cause::unit_price);

  SaleItem item;
  item.node = element.node();
  const auto gross = multiply(quantity, price, kQuantityPlaces + kPricePlaces - 2, rule);
  if (!gross) product.child("qCom").reject(Cause::item_value);
  item.gross = *gross;
  item.discount = optional_amount(product, "vDesc", Cause::discount);
  item.other = optional_amount(product, "vOutro", Cause::other_charges);
  if (item.discount > item.gross) product.child("vDesc").reject(Cause::discount);
  item.net = item.gross - item.discount + item.other;
  if (item.net > kLargestAmount) product.reject(Cause::item_value);
  return item;
}

// Shares an amount out over the items in proportion to their net values; the last one takes what rounding
// has left over.
void share_out(Cents amount, Cents SaleItem::*share, Cents sum, std::vector<SaleItem>& items) {
  if (amount == 0) return;
  Cents left = amount;
  for (SaleItem& item : items) {
    item.*share = share_of(amount, item.net, sum);
    left -= item.*share;
  }
  items.back().*share += left;
}

void read_subtotal_adjustment(const Element& group, Sale& sale, Cents sum) {
  const auto total = group.find("total");
  if (!total) return;
  const auto adjustment = total->find("DescAcrEntr");
  if (!adjustment) return;
  sale.subtotal_discount = optional_amount(*adjustment, "vDescSubtot", Cause::subtotal_adjustment);
  sale.subtotal_surcharge = optional_amount(*adjustment, "vAcresSubtot", Cause::subtotal_adjustment);
  if (sale.subtotal_discount > sum || (sum == 0 && sale.subtotal_surcharge > 0)) {
    adjustment->reject(Cause::subtotal_adjustment);
  }
}

void read_items(const Element& group, Sale& sale) {
  Cents sum = 0;
  for (const Element& element : group.children("det", kMostItems)) {
    sale.items.push_back(read_item(element, sale.items.size() + 1));
    sum += sale.items.back().net;
    if (sum > kLargestAmount) element.reject(Cause::total_value);
  }
  read_subtotal_adjustment(group, sale, sum);
  share_out(sale.subtotal_discount, &SaleItem::shared_discount, sum, sale.items);
  share_out(sale.subtotal_surcharge, &SaleItem::shared_surcharge, sum, sale.items);
  for (SaleItem& item : sale.items) item.net += item.shared_surcharge - item.shared_discount;
  sale.total = sum - sale.subtotal_discount + sale.subtotal_surcharge;
  if (sale.total > kLargestAmount) throw Rejected(Cause::total_value, "total");
}

void set_child(pugi::xml_node parent, const char* name, const std::string& value) {
  parent.remove_child(name);
  parent.append_child(name).text().set(value.c_str());
}

// Completes one tax of one item with its value and adds it to the totals. Groups without a rate (exempt,
// other regimes) have no value to compute.
void compute_tax(const RatedTax& tax, const Element& group, Cents item_value, TaxTotals& totals) {
  const auto kind = group.first_child();
  if (!kind) group.reject(Cause::taxes);
  const Element holder = group.find(tax.rate) ? group : *kind;
  const auto rate_field = holder.find(tax.rate);
  if (!rate_field) return;
  const auto rate = parse_decimal(rate_field->text(), kRatePlaces);
  if (!rate) rate_field->reject(Cause::taxes);
  const Cents base = holder.find("vBC") ? optional_amount(holder, "vBC", Cause::taxes) : item_value;
  const auto value = multiply(base, *rate, kRatePlaces + tax.extra_places, Rounding::half_to_even);
  if (!value || totals.*tax.total + *value > kLargestAmount) rate_field->reject(Cause::taxes);
  set_child(holder.node(), tax.value, format_amount(*value));
  totals.*tax.total += *value;
}

void compute_taxes(const Element& group, Sale& sale) {
  const auto elements = group.children("det", kMostItems);
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const Element taxes = elements[i].child("imposto");
    for (const RatedTax& tax : kRatedTaxes) {
      if (const auto found = taxes.find(tax.group); found) {
        compute_tax(tax, *found, sale.items[i].net, sale.taxes);
      }
    }
  }
}

void read_payments(const Element& group, Sale& sale) {
  const Element payments = group.child("pgto");
  for (const Element& payment : payments.children("MP", kMostPayments)) {
    const Element method = payment.child("cMP");
    if (std::find(kPaymentMethods.begin(), kPaymentMethods.end(), method.text()) == kPaymentMethods.end()) {
      method.reject(Cause::payment_method);
    }
    const Element value = payment.child("vMP");
    const auto amount = parse_amount(value.text());
    if (!amount) value.reject(Cause::payment_value);
    sale.paid += *amount;
  }
  if (sale.paid > kLargestAmount) payments.reject(Cause::payment_value);
  if (sale.paid < sale.total) payments.reject(Cause::payments_below_total);
}

void reckon(const Element& group, Sale& sale) {
  read_items(group, sale);
  compute_taxes(group, sale);
  read_payments(group, sale);
}

}  // namespace

void check_amounts(const Element& group) {
  Sale sale;
  reckon(group, sale);
}

std::unique_ptr<Sale> read_sale(std::string_view xml) {
  auto sale = std::make_unique<Sale>();
  const Element group = parse_group(sale->document, xml, "CFe", "infCFe");
  sale->content = group.node();
  sale->signature = read_software_house(group);
  const Element issuer = group.child("emit").child("CNPJ");
  sale->issuer_cnpj = issuer.text();
  if (!valid_cnpj(sale->issuer_cnpj)) issuer.reject(Cause::issuer_cnpj);
  sale->buyer = read_buyer(group);
  reckon(group, *sale);
  return sale;
}

std::unique_ptr<Cancellation> read_cancellation(std::string_view xml) {
  auto cancellation = std::make_unique<Cancellation>();
  const Element group = parse_group(cancellation->document, xml, "CFeCanc", "infCFe");
  cancellation->content = group.node();
  cancellation->key = group.node().attribute("chCanc").value();
  if (!valid_access_key(cancellation->key)) throw Rejected(Cause::key_check_digit, "infCFe@chCanc");
  cancellation->signature = read_software_house(group);
  return cancellation;
}

}  // namespace emulator
