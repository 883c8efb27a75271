// A till in C++17, linked against the library: asks the device how it is, sells, and finds out what became of
// the sale if its reply does not say.
//
//   venda ACTIVATION_CODE SALE_FILE
//
// Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again before you know.
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

enum class Outcome { issued, refused, not_sent, not_issued, unknown };

const char* text_of(Outcome outcome) {
  switch (outcome) {
    case Outcome::issued:
      return "issued";
    case Outcome::refused:
      return "refused";
    case Outcome::not_sent:
      return "not sent";
    case Outcome::not_issued:
      return "not issued";
    default:
      return "unknown";
  }
}

// Session numbers stay below this: devices pad theirs to six digits, the library's own busy reply does not.
constexpr int kSessions = 100000;

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

  std::string field(std::size_t index) const { return index < fields_.size() ? fields_[index] : ""; }
  std::string code() const { return field(1); }
  std::string key() const { return field(8); }

  bool is_of(int session) const {
    const std::string digits = field(0);
    return !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos &&
           std::atoi(digits.c_str()) == session;
  }

  // What this reply settles of the sale with that session number. 06097 to 06099 are no refusals: where the
  // line spoils an acknowledgement, the library sends the command again, and they are the device's answers to
  // a repetition of what it has carried out. Only the library's own busy reply has no leading zeros: nothing
  // was sent.
  Outcome settles_sale(int session) const {
    const std::string code = this->code();
    if (!is_of(session) || code.size() != 5 || code.substr(0, 2) != "06") return Outcome::unknown;
    if (code == "06000") return Outcome::issued;
    if (code == "06098" && field(0) == std::to_string(session)) return Outcome::not_sent;
    const bool settles_nothing = code == "06097" || code == "06098" || code == "06099";
    return settles_nothing ? Outcome::unknown : Outcome::refused;
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

// The session number must differ from the last one.
int next_session(int session) {
  return (session + 1) % kSessions;
}

// What became of the sale with that session number. key_before: access key of the last receipt that was known
// before the sale, empty if there was none.
Outcome find_out(int session, const char* activation_code, const std::string& key_before) {
  const auto is_sold = [&](const Reply& reply) {
    return reply.settles_sale(session) == Outcome::issued && reply.key() != key_before;
  };
  const int query = next_session(session);
  const Reply stored(ConsultarNumeroSessao(query, activation_code, session));
  stored.show("ConsultarNumeroSessao", kSaleNames);
  if (is_sold(stored)) return Outcome::issued;
  if (stored.settles_sale(session) == Outcome::refused) return Outcome::refused;
  // Only a device that was asked, and knows nothing of the sale, is asked for its last receipt.
  if (!stored.is_of(session) && stored.code() != "11003" && stored.code() != "11099") return Outcome::unknown;

  const Reply last(ConsultarUltimaSessaoFiscal(next_session(query), activation_code));
  last.show("ConsultarUltimaSessaoFiscal", kSaleNames);
  if (is_sold(last)) return Outcome::issued;
  if (last.settles_sale(session) == Outcome::refused) return Outcome::refused;
  const bool unchanged = key_before.empty() ? last.code() == "19003" : last.key() == key_before;
  return unchanged ? Outcome::not_issued : Outcome::unknown;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: venda ACTIVATION_CODE SALE_FILE\n";
    return 2;
  }
  std::ifstream file(argv[2], std::ios::binary);
  const std::string sale_xml{std::istreambuf_iterator<char>(file), {}};

  int session = static_cast<int>(SAT_APP_GenRndNum(kSessions));
  const Reply status(ConsultarStatusOperacional(session, argv[1]));
  status.show("ConsultarStatusOperacional", kStatusNames);
  if (!status.is_of(session) || status.code() != "10000") return 1;

  // A till writes both down before it sells, where a power failure does not reach them.
  session = next_session(session);
  const std::string key_before = status.field(20);  // ULTIMO_CF_E_SAT
  const Reply sale(EnviarDadosVenda(session, argv[1], sale_xml.c_str()));
  sale.show("EnviarDadosVenda", kSaleNames);
  Outcome outcome = sale.settles_sale(session);
  if (outcome == Outcome::unknown) outcome = find_out(session, argv[1], key_before);
  std::cout << "=> " << text_of(outcome) << '\n';
  return outcome == Outcome::issued ? 0 : outcome == Outcome::unknown ? 3 : 1;
}
