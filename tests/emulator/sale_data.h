// Sale data for tests: a right sale whose parts can be replaced.
#pragma once

#include <string>

struct SaleData {
  std::string house = "<CNPJ>12345678000195</CNPJ><signAC>assinatura</signAC><numeroCaixa>001</numeroCaixa>";
  std::string issuer = "<CNPJ>11222333000181</CNPJ><IE>111222333444</IE>";
  std::string buyer;
  std::string items = item(1, "1.0000", "10.00");
  std::string total = "<total/>";
  std::string payments = payment("01", "10.00");

  static std::string product(const std::string& quantity, const std::string& price,
                             const std::string& rule = "A", const std::string& more = "") {
    return "<cProd>1</cProd><xProd>Artigo</xProd><CFOP>5102</CFOP><uCom>UN</uCom><qCom>" + quantity +
           "</qCom><vUnCom>" + price + "</vUnCom><indRegra>" + rule + "</indRegra>" + more;
  }
  static std::string item_of(int number, const std::string& product, const std::string& taxes = "") {
    return "<det nItem=\"" + std::to_string(number) + "\"><prod>" + product + "</prod><imposto>" + taxes +
           "</imposto></det>";
  }
  static std::string item(int number, const std::string& quantity, const std::string& price,
                          const std::string& rule = "A", const std::string& more = "") {
    return item_of(number, product(quantity, price, rule, more));
  }
  static std::string payment(const std::string& method, const std::string& value) {
    return "<MP><cMP>" + method + "</cMP><vMP>" + value + "</vMP></MP>";
  }

  std::string xml() const {
    return "<CFe><infCFe versaoDadosEnt=\"0.07\"><ide>" + house + "</ide><emit>" + issuer + "</emit><dest>" +
           buyer + "</dest>" + items + total + "<pgto>" + payments + "</pgto></infCFe></CFe>";
  }
};

inline std::string cancellation_xml(const std::string& key, const std::string& signature = "assinatura") {
  return "<CFeCanc><infCFe chCanc=\"" + key + "\"><ide><CNPJ>12345678000195</CNPJ><signAC>" + signature +
         "</signAC><numeroCaixa>001</numeroCaixa></ide><emit/><dest/><total/></infCFe></CFeCanc>";
}
