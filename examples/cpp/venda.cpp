// A till in C++17, linked against the library: asks the device how it is and sells.
//
//   venda ACTIVATION_CODE SALE_FILE
#include <talvex/talvex.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Names = std::vector<std::string_view>;

const Names kStatusNames = {"numeroSessao",    "EEEEE",         "mensagem",        "cod",
                            "mensagemSEFAZ",   "NSERIE",        "TIPO_LAN",        "LAN_IP",
                            "LAN_MAC",         "LAN_MASK",      "LAN_GW",          "LAN_DNS_1",
                            "LAN_DNS_2",       "STATUS_LAN",    "NIVEL_BATERIA",   "MT_TOTAL",
                            "MT_USADA",        "DH_ATUAL",      "VER_SB",          "VER_LAYOUT",
                            "ULTIMO_CF_E_SAT", "LISTA_INICIAL", "LISTA_FINAL",     "DH_CFE",
                            "DH_ULTIMA",       "CERT_EMISSAO",  "CERT_VENCIMENTO", "ESTADO_OPERACAO"};

const Names kSaleNames = {
    "numeroSessao",     "EEEEE",     "CCCC",          "mensagem",      "cod",          "mensagemSEFAZ",
    "arquivoCFeBase64", "timeStamp", "chaveConsulta", "valorTotalCFe", "CPFCNPJValue", "assinaturaQRCODE"};

// The library overwrites its reply at the next call, so this keeps a copy, cut into its fields.
class Reply {
 public:
  explicit Reply(const char* text) {
    const std::string_view whole = text;
    // A failure text may hold anything; it is one piece.
    const bool failed =
        whole.substr(0, std::string_view(TALVEX_FAILURE_PREFIX).size()) == TALVEX_FAILURE_PREFIX;
    for (std::size_t start = 0; start <= whole.size();) {
      const std::size_t end = failed ? whole.size() : std::min(whole.find('|', start), whole.size());
      fields_.emplace_back(whole.substr(start, end - start));
      start = end + 1;
    }
  }

  bool answers(int session, std::string_view code) const {
    return fields_.size() > 1 && std::atoi(fields_[0].c_str()) == session && fields_[1] == code;
  }

  void show(std::string_view function, const Names& names) const {
    std::cout << function << '\n';
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      const std::string& field = fields_[i];
      std::cout << "  " << std::left << std::setw(18) << (i < names.size() ? names[i] : "?")
                << field.substr(0, 60) << (field.size() > 60 ? "..." : "") << '\n';
    }
  }

 private:
  std::vector<std::string> fields_;
};

int draw_session() {
  return static_cast<int>(SAT_APP_GenRndNum(1000000));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: venda ACTIVATION_CODE SALE_FILE\n";
    return 2;
  }
  std::ifstream file(argv[2], std::ios::binary);
  const std::string sale_xml{std::istreambuf_iterator<char>(file), {}};

  int session = draw_session();
  const Reply status(ConsultarStatusOperacional(session, argv[1]));
  status.show("ConsultarStatusOperacional", kStatusNames);
  if (!status.answers(session, "10000")) return 1;

  // The session number must differ from the last one.
  session = (session + 1) % 1000000;
  const Reply sale(EnviarDadosVenda(session, argv[1], sale_xml.c_str()));
  sale.show("EnviarDadosVenda", kSaleNames);
  return sale.answers(session, "06000") ? 0 : 1;
}
