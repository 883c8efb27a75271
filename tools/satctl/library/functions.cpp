#include "library/functions.h"

#include <algorithm>
#include <array>
#include <utility>

#include "talvex/talvex.h"

namespace satctl {

namespace {

using enum ParameterKind;

// Calls a function of the library with the types that its header gives it.
template <typename Signature>
struct Call;

template <typename... P>
struct Call<char*(int, P...)> {
  static std::string with(void* address, int session, const std::vector<std::string>& values) {
    return with(address, session, values, std::index_sequence_for<P...>{});
  }

 private:
  template <std::size_t... I>
  static std::string with(void* address, int session, const std::vector<std::string>& values,
                          std::index_sequence<I...>) {
    const auto function = reinterpret_cast<char* (*)(int, P...)>(address);
    const char* reply = function(session, converted<P>(values.at(I))...);
    return reply == nullptr ? std::string() : std::string(reply);
  }

  template <typename To>
  static To converted(const std::string& value) {
    if constexpr (std::is_same_v<To, int>)
      return std::stoi(value);
    else
      return value.c_str();
  }
};

constexpr Parameter kCode{"codigo",
                          "codigoDeAtivacao",
                          activation_code,
                          {"activation code: a value, @FILE, - (standard input), or in SAT_CODIGO",
                           "código de ativação: valor, @ARQUIVO, - (entrada padrão), ou em SAT_CODIGO"}};
constexpr Parameter kSale{"dados",
                          "dadosVenda",
                          xml,
                          {"XML of the sale: @FILE, - (standard input) or the text itself",
                           "XML da venda: @ARQUIVO, - (entrada padrão) ou o próprio texto"}};

constexpr std::array kCodeOnly{kCode};
constexpr std::array kActivation{
    Parameter{"subcomando",
              "subComando",
              number,
              {"1 SEFAZ certificate, 2 ICP-Brasil certificate, 3 renewal",
               "1 certificado da SEFAZ, 2 certificado ICP-Brasil, 3 renovação"}},
    kCode,
    Parameter{"cnpj", "CNPJ", taxpayer, {"CNPJ of the shop, 14 digits", "CNPJ do contribuinte, 14 dígitos"}},
    Parameter{"uf",
              "cUF",
              state,
              {"state: IBGE code or two letters (35, SP)", "UF: código do IBGE ou sigla (35, SP)"}}};
constexpr std::array kCertificate{kCode,
                                  Parameter{"certificado",
                                            "certificado",
                                            certificate,
                                            {"ICP-Brasil certificate: @FILE, - or the text itself",
                                             "certificado ICP-Brasil: @ARQUIVO, - ou o próprio texto"}}};
constexpr std::array kSaleOnly{kCode, kSale};
constexpr std::array kCancellation{
    kCode,
    Parameter{"chave",
              "chave",
              text,
              {"access key of the receipt: CFe and 44 digits", "chave de acesso do cupom: CFe e 44 dígitos"}},
    Parameter{"dados",
              "dadosCancelamento",
              xml,
              {"XML of the cancellation: @FILE, - or the text itself",
               "XML do cancelamento: @ARQUIVO, - ou o próprio texto"}}};
constexpr std::array kSessionQuery{kCode,
                                   Parameter{"numero",
                                             "cNumeroDeSessao",
                                             ParameterKind::session,
                                             {"session number to look up", "número de sessão a consultar"}}};
constexpr std::array kNetwork{kCode,
                              Parameter{"configuracao",
                                        "dadosConfiguracao",
                                        xml,
                                        {"XML of the network settings: @FILE, - or the text itself",
                                         "XML da configuração de rede: @ARQUIVO, - ou o próprio texto"}}};
constexpr std::array kAssociation{
    kCode,
    Parameter{"cnpj",
              "CNPJvalue",
              taxpayer,
              {"CNPJ of the software house and CNPJ of the shop, 28 digits in one",
               "CNPJ da software house e CNPJ do contribuinte, 28 dígitos seguidos"}},
    Parameter{"assinatura",
              "assinaturaCNPJs",
              signature,
              {"signature in base64: @FILE, - or the text itself",
               "assinatura em base64: @ARQUIVO, - ou o próprio texto"}}};
constexpr std::array kCodeChange{
    kCode,
    Parameter{"opcao",
              "opcao",
              number,
              {"1 by activation code, 2 by emergency code",
               "1 pelo código de ativação, 2 pelo código de emergência"}},
    Parameter{"novo-codigo",
              "novoCodigo",
              secret,
              {"new activation code: a value, @FILE or -", "novo código de ativação: valor, @ARQUIVO ou -"}},
    Parameter{
        "confirmacao", "confNovoCodigo", secret, {"the new code once more", "o novo código mais uma vez"}}};

constexpr std::array kReply{Field{"numeroSessao"}, Field{"EEEEE"}, Field{"mensagem"}, Field{"cod"},
                            Field{"mensagemSEFAZ"}};
constexpr std::array kActivationReply{Field{"numeroSessao"},  Field{"EEEEE"},
                                      Field{"mensagem"},      Field{"cod"},
                                      Field{"mensagemSEFAZ"}, Field{"CSR", FieldKind::document}};
constexpr std::array kSaleReply{Field{"numeroSessao"},
                                Field{"EEEEE"},
                                Field{"CCCC"},
                                Field{"mensagem"},
                                Field{"cod"},
                                Field{"mensagemSEFAZ"},
                                Field{"arquivoCFeBase64", FieldKind::document},
                                Field{"timeStamp"},
                                Field{"chaveConsulta"},
                                Field{"valorTotalCFe"},
                                Field{"CPFCNPJValue", FieldKind::taxpayer},
                                Field{"assinaturaQRCODE", FieldKind::long_text}};
constexpr std::array kTestReply{
    Field{"numeroSessao"}, Field{"EEEEE"},         Field{"mensagem"},
    Field{"cod"},          Field{"mensagemSEFAZ"}, Field{"arquivoCFeBase64", FieldKind::document},
    Field{"timeStamp"},    Field{"numDocFiscal"},  Field{"chaveConsulta"}};
constexpr std::array kStatusReply{
    Field{"numeroSessao"},    Field{"EEEEE"},         Field{"mensagem"},        Field{"cod"},
    Field{"mensagemSEFAZ"},   Field{"NSERIE"},        Field{"TIPO_LAN"},        Field{"LAN_IP"},
    Field{"LAN_MAC"},         Field{"LAN_MASK"},      Field{"LAN_GW"},          Field{"LAN_DNS_1"},
    Field{"LAN_DNS_2"},       Field{"STATUS_LAN"},    Field{"NIVEL_BATERIA"},   Field{"MT_TOTAL"},
    Field{"MT_USADA"},        Field{"DH_ATUAL"},      Field{"VER_SB"},          Field{"VER_LAYOUT"},
    Field{"ULTIMO_CF_E_SAT"}, Field{"LISTA_INICIAL"}, Field{"LISTA_FINAL"},     Field{"DH_CFE"},
    Field{"DH_ULTIMA"},       Field{"CERT_EMISSAO"},  Field{"CERT_VENCIMENTO"}, Field{"ESTADO_OPERACAO"}};
constexpr std::array kLogsReply{Field{"numeroSessao"},  Field{"EEEEE"},
                                Field{"mensagem"},      Field{"cod"},
                                Field{"mensagemSEFAZ"}, Field{"arquivoLog", FieldKind::document}};

constexpr std::span<const Parameter> kNoParameters{};

#define CALLED(name) #name, &Call < decltype(name)> ::with

constexpr auto kOwn = ReplySession::own;

const std::array kFunctions{
    Function{CALLED(AtivarSAT),
             "ativar-sat",
             40,
             kActivation,
             kActivationReply,
             1800,
             true,
             Effect::change,
             kOwn,
             {"activate the device", "ativar o equipamento"}},
    Function{CALLED(ComunicarCertificadoICPBRASIL),
             "comunicar-certificado-icp-brasil",
             50,
             kCertificate,
             kReply,
             300,
             true,
             Effect::change,
             kOwn,
             {"hand over an ICP-Brasil certificate", "comunicar o certificado ICP-Brasil"}},
    Function{CALLED(EnviarDadosVenda),
             "enviar-dados-venda",
             60,
             kSaleOnly,
             kSaleReply,
             30,
             true,
             Effect::fiscal,
             kOwn,
             {"make a sale", "emitir uma venda"}},
    Function{CALLED(CancelarUltimaVenda),
             "cancelar-ultima-venda",
             70,
             kCancellation,
             kSaleReply,
             30,
             true,
             Effect::fiscal,
             kOwn,
             {"cancel a sale", "cancelar uma venda"}},
    Function{CALLED(ConsultarSAT),
             "consultar-sat",
             80,
             kNoParameters,
             kReply,
             10,
             true,
             Effect::none,
             kOwn,
             {"ask whether the device works", "consultar se o equipamento opera"}},
    Function{CALLED(TesteFimAFim),
             "teste-fim-a-fim",
             90,
             kSaleOnly,
             kTestReply,
             20,
             true,
             Effect::none,
             kOwn,
             {"make a sale without fiscal value", "emitir uma venda de teste, sem valor fiscal"}},
    Function{CALLED(ConsultarStatusOperacional),
             "consultar-status-operacional",
             100,
             kCodeOnly,
             kStatusReply,
             10,
             true,
             Effect::none,
             kOwn,
             {"show state, network, clock, certificate", "mostrar estado, rede, relógio, certificado"}},
    Function{CALLED(ConsultarNumeroSessao),
             "consultar-numero-sessao",
             110,
             kSessionQuery,
             kReply,
             20,
             false,
             Effect::none,
             ReplySession::asked,
             {"ask for the reply of a session", "consultar a resposta de uma sessão"}},
    Function{CALLED(ConfigurarInterfaceDeRede),
             "configurar-interface-de-rede",
             120,
             kNetwork,
             kReply,
             20,
             false,
             Effect::change,
             kOwn,
             {"set the device's network", "configurar a rede do equipamento"}},
    Function{CALLED(AssociarAssinatura),
             "associar-assinatura",
             130,
             kAssociation,
             kReply,
             1800,
             false,
             Effect::change,
             kOwn,
             {"associate the signature of the till", "vincular a assinatura do aplicativo comercial"}},
    Function{CALLED(AtualizarSoftwareSAT),
             "atualizar-software-sat",
             140,
             kCodeOnly,
             kReply,
             1800,
             false,
             Effect::change,
             kOwn,
             {"update the device's software", "atualizar o software do equipamento"}},
    Function{CALLED(ExtrairLogs),
             "extrair-logs",
             150,
             kCodeOnly,
             kLogsReply,
             30,
             false,
             Effect::none,
             kOwn,
             {"fetch the device's own log", "extrair o log do equipamento"}},
    Function{CALLED(BloquearSAT),
             "bloquear-sat",
             160,
             kCodeOnly,
             kReply,
             300,
             false,
             Effect::change,
             kOwn,
             {"block the device", "bloquear o equipamento"}},
    Function{CALLED(DesbloquearSAT),
             "desbloquear-sat",
             170,
             kCodeOnly,
             kReply,
             20,
             false,
             Effect::change,
             kOwn,
             {"unblock the device", "desbloquear o equipamento"}},
    Function{CALLED(TrocarCodigoDeAtivacao),
             "trocar-codigo-de-ativacao",
             180,
             kCodeChange,
             kReply,
             30,
             false,
             Effect::change,
             kOwn,
             {"change the activation code", "trocar o código de ativação"}},
    Function{
        CALLED(ConsultarUltimaSessaoFiscal),
        "consultar-ultima-sessao-fiscal",
        190,
        kCodeOnly,
        kReply,
        20,
        false,
        Effect::none,
        ReplySession::any,
        {"ask for the reply of the last sale or cancellation", "consultar a última venda ou cancelamento"}},
};

#undef CALLED

// The first row that fits decides.
constexpr std::array kRefusalClasses{
    RefusalClass{
        "06009", "blocked", {"blocked after wrong activation codes", "bloqueado por código incorreto"}},
    RefusalClass{
        "07009", "blocked", {"blocked after wrong activation codes", "bloqueado por código incorreto"}},
    RefusalClass{"04001", "certificate", {"certificate not made", "certificado não criado"}},
    RefusalClass{"xx001", "activation-code", {"wrong activation code", "código de ativação incorreto"}},
    RefusalClass{"18002", "activation-code", {"wrong emergency code", "código de emergência incorreto"}},
    RefusalClass{"xx097", "session", {"session number not accepted", "número de sessão não aceito"}},
    RefusalClass{"06002", "not-activated", {"device not activated", "equipamento não ativado"}},
    RefusalClass{"09002", "not-activated", {"device not activated", "equipamento não ativado"}},
    RefusalClass{"11002", "not-activated", {"device not activated", "equipamento não ativado"}},
    RefusalClass{"19002", "not-activated", {"device not activated", "equipamento não ativado"}},
    RefusalClass{"06003", "association", {"till's signature not associated", "aplicativo não vinculado"}},
    RefusalClass{"06004", "association", {"till's signature differs", "vinculação não confere"}},
    RefusalClass{"07004", "association", {"till's signature differs", "vinculação não confere"}},
    RefusalClass{
        "06011", "certificate", {"device certificate expired", "certificado do equipamento vencido"}},
    RefusalClass{
        "07011", "certificate", {"device certificate expired", "certificado do equipamento vencido"}},
    RefusalClass{
        "04007", "certificate", {"certificate request not made", "pedido de certificado não criado"}},
    RefusalClass{"05003", "certificate", {"certificate not valid", "certificado inválido"}},
    RefusalClass{"06006", "blocked", {"blocked by the contributor", "bloqueado pelo contribuinte"}},
    RefusalClass{"07006", "blocked", {"blocked by the contributor", "bloqueado pelo contribuinte"}},
    RefusalClass{"06007", "blocked", {"blocked by SEFAZ", "bloqueado pela SEFAZ"}},
    RefusalClass{"07007", "blocked", {"blocked by SEFAZ", "bloqueado pela SEFAZ"}},
    RefusalClass{
        "06008", "blocked", {"blocked: too long without contact", "bloqueado por falta de comunicação"}},
    RefusalClass{
        "07008", "blocked", {"blocked: too long without contact", "bloqueado por falta de comunicação"}},
    RefusalClass{"16002", "state", {"already blocked", "já está bloqueado"}},
    RefusalClass{"17002", "blocked", {"blocked by the contributor", "bloqueado pelo contribuinte"}},
    RefusalClass{"17003", "blocked", {"blocked by SEFAZ", "bloqueado pela SEFAZ"}},
    RefusalClass{"17006", "blocked", {"blocked by itself", "bloqueio autônomo"}},
    RefusalClass{"17007", "blocked", {"blocked for deactivation", "bloqueado para desativação"}},
    RefusalClass{"06010", "content", {"content not valid; see CCCC", "conteúdo inválido; veja CCCC"}},
    RefusalClass{"07010", "content", {"content not valid; see CCCC", "conteúdo inválido; veja CCCC"}},
    RefusalClass{"06005", "content", {"receipt too large", "cupom grande demais"}},
    RefusalClass{"07002",
                 "content",
                 {"receipt cannot be cancelled; see CCCC", "cupom não pode ser cancelado; veja CCCC"}},
    RefusalClass{"12002", "content", {"network settings not valid", "configuração de rede inválida"}},
    RefusalClass{"13003", "content", {"signature not valid", "assinatura inválida"}},
    RefusalClass{"13004", "content", {"content not valid", "conteúdo inválido"}},
    RefusalClass{"13007", "content", {"CNPJ differs", "CNPJ difere"}},
    RefusalClass{"14004", "content", {"update file not valid", "arquivo de atualização inválido"}},
    RefusalClass{"04005", "sefaz", {"SEFAZ not reached", "sem comunicação com a SEFAZ"}},
    RefusalClass{"05002", "sefaz", {"SEFAZ not reached", "sem comunicação com a SEFAZ"}},
    RefusalClass{"13002", "sefaz", {"SEFAZ not reached", "sem comunicação com a SEFAZ"}},
    RefusalClass{"13005", "sefaz", {"refused by SEFAZ", "recusado pela SEFAZ"}},
    RefusalClass{"16003", "sefaz", {"SEFAZ not reached", "sem comunicação com a SEFAZ"}},
    RefusalClass{"16004", "sefaz", {"nothing arranged at SEFAZ", "nada parametrizado na SEFAZ"}},
    RefusalClass{"17004", "sefaz", {"SEFAZ not reached", "sem comunicação com a SEFAZ"}},
    RefusalClass{"04002", "sefaz", {"refused by SEFAZ", "recusado pela SEFAZ"}},
    RefusalClass{"041xx", "sefaz", {"refused by SEFAZ", "recusado pela SEFAZ"}},
    RefusalClass{"042xx", "sefaz", {"refused by SEFAZ", "recusado pela SEFAZ"}},
    RefusalClass{"04003", "state", {"already activated", "já ativado"}},
    RefusalClass{"04004", "state", {"out of use for good", "uso cessado"}},
    RefusalClass{"17005", "state", {"already unblocked", "já desbloqueado"}},
    RefusalClass{"11003",
                 "not-found",
                 {"the device does not know this session", "o equipamento não conhece essa sessão"}},
    RefusalClass{
        "19003", "not-found", {"no sale or cancellation yet", "ainda não houve venda nem cancelamento"}},
    RefusalClass{"14002", "in-progress", {"in progress", "em andamento"}},
    RefusalClass{"15002", "in-progress", {"in progress", "em andamento"}},
    RefusalClass{"xxxxx", "unknown", {"error without a class of its own", "erro sem classe própria"}},
};

bool fits(std::string_view code, std::string_view pattern) {
  return code.size() == pattern.size() && std::equal(code.begin(), code.end(), pattern.begin(),
                                                     [](char c, char p) { return p == 'x' || p == c; });
}

}  // namespace

std::span<const Function> functions() {
  return kFunctions;
}

const Function* find_function(std::string_view name) {
  const std::string wanted = lower_case(name);
  const auto table = functions();
  const auto found = std::find_if(table.begin(), table.end(), [&wanted](const Function& function) {
    return lower_case(function.name) == wanted || function.command == wanted;
  });
  return found == table.end() ? nullptr : &*found;
}

const Function* find_function_by_code(std::string_view code) {
  if (code.size() != 5 || !all_digits(code)) return nullptr;
  const int prefix = std::stoi(std::string(code.substr(0, 3)));
  const auto table = functions();
  // Codes such as 04129 belong to the function of 04000.
  const auto found = std::find_if(table.begin(), table.end(), [prefix](const Function& function) {
    return function.code_prefix / 10 == prefix / 10;
  });
  return found == table.end() ? nullptr : &*found;
}

bool is_success_code(int code) {
  constexpr int kCertificateRequestMade = 4006;
  return code % 1000 == 0 || code == kCertificateRequestMade;
}

const RefusalClass& refusal_class(std::string_view code) {
  const auto found = std::find_if(kRefusalClasses.begin(), kRefusalClasses.end(),
                                  [code](const RefusalClass& row) { return fits(code, row.pattern); });
  return found == kRefusalClasses.end() ? kRefusalClasses.back() : *found;
}

}  // namespace satctl
