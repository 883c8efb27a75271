// The till's sale data: checked field by field, with every amount computed.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "documents/decimal.h"

namespace emulator {

class Element;

struct SaleItem {
  pugi::xml_node node;         // det
  Cents gross = 0;             // vProd
  Cents discount = 0;          // vDesc
  Cents other = 0;             // vOutro
  Cents shared_discount = 0;   // vRatDesc: its part of the discount on the subtotal
  Cents shared_surcharge = 0;  // vRatAcr
  Cents net = 0;               // vItem
};

struct TaxTotals {
  Cents icms = 0, pis = 0, cofins = 0, pis_st = 0, cofins_st = 0;
};

struct Sale {
  pugi::xml_document document;
  pugi::xml_node content;  // infCFe
  std::string issuer_cnpj;
  std::string buyer;      // CPF or CNPJ, or empty
  std::string signature;  // signAC
  std::vector<SaleItem> items;
  TaxTotals taxes;
  Cents subtotal_discount = 0;
  Cents subtotal_surcharge = 0;
  Cents total = 0;  // vCFe
  Cents paid = 0;
};

// Only what is reckoned with: items, taxes and payments. Fills in the taxes, as read_sale does. Throws
// Rejected.
void check_amounts(const Element& group);

// Throws Rejected.
std::unique_ptr<Sale> read_sale(std::string_view xml);

struct Cancellation {
  pugi::xml_document document;
  pugi::xml_node content;
  std::string key;  // chCanc
  std::string signature;
};

// Throws Rejected.
std::unique_ptr<Cancellation> read_cancellation(std::string_view xml);

}  // namespace emulator
