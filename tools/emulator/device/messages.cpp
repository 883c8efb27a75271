#include "device/messages.h"

#include <algorithm>
#include <array>

namespace emulator {

namespace {

struct Message {
  int code;
  std::string_view text;
};

// In ascending order of code. Kept: the misspelt texts; tills compare them.
constexpr std::array kMessages{
    Message{4000, "SAT Ativado Corretamente"},
    Message{4001, "Erro na criacao do certificado"},
    Message{4002, "SEFAZ não reconhece este SAT (CNPJ inválido)"},
    Message{4003, "SAT ja ativado ou pendente de Vinculacaoo do AC"},
    Message{4004, "SAT com uso cessado"},
    Message{4005, "Erro de comunicação com a SEFAZ"},
    Message{4006, "CSR  ICP-BRASIL criado com sucesso"},
    Message{4007, "Erro na criacao do CSR ICP-BRASIL"},
    Message{4097, "Número de sessão inválido"},
    Message{4098, "SAT em processamento. Tente novamente"},
    Message{4099, "Erro desconhecido na ativacao"},
    Message{4129, "Rejeição: Solicitações de emissão de certificados excedidas"},
    Message{4200, "Rejeição: Status do Equipamento SAT difere do esperado"},
    Message{4219, "Rejeicao: CNPJ nao corresponde ao informado no processo de declaracao de posse"},
    Message{4239, "Rejeicao: Versao do arquivo XML nao suportada"},
    Message{4241, "Rejeicao: Diferenca de transmissao e recebimento da mensagem superior a 5"},
    Message{4250, "Rejeicao: UF informada pelo SAT nao eh atendida pelo Web Service"},
    Message{4251, "Rejeicao: Certificado enviado não confere com o escolhido na declaracao de posse"},
    Message{4255, "Rejeicao: CSR enviado invalido"},
    Message{5000, "Certificado transmitido com Sucesso"},
    Message{5001, "Código de ativação inválido"},
    Message{5002, "Erro de comunicação com a SEFAZ"},
    Message{5003, "Certificado Inválido"},
    Message{5097, "Número de sessao inválido"},
    Message{5098, "SAT em processamento. Tente novamente"},
    Message{5099, "Erro desconhecido"},
    Message{6000, "Emitido com sucesso + conteudo notas"},
    Message{6001, "Codigo de ativacao invalido"},
    Message{6002, "SAT ainda nao ativado"},
    Message{6003, "SAT nao vinculado ao AC"},
    Message{6004, "Vinculacao do AC nao confere"},
    Message{6005, "Tamanho do CF-e-SAT superior a 1.500KB"},
    Message{6006, "SAT bloqueado pelo contribuinte"},
    Message{6007, "SAT bloqueado pela SEFAZ"},
    Message{6008, "SAT bloqueado por falta de comunicacao"},
    Message{6009, "SAT bloqueado, código de ativacao incorreto"},
    Message{6010, "Erro de validacao do conteudo"},
    Message{6011, "SAT bloqueado por vencimento do certificado digital."},
    Message{6097, "Número de sessao invalido"},
    Message{6098, "SAT em processamento. Tente novamente"},
    Message{6099, "Erro desconhecido"},
    Message{7000, "Cupom cancelado com sucesso + conteúdo CFe-SAT cancelado"},
    Message{7001, "Codigo ativacao invalido"},
    Message{7002, "Cupom invalido"},
    Message{7004, "Vinculacao do AC nao confere"},
    Message{7006, "SAT bloqueado pelo contribuinte"},
    Message{7007, "SAT bloqueado pela SEFAZ"},
    Message{7008, "SAT bloqueado por falta de comunicacao"},
    Message{7009, "SAT bloqueado, codigo de ativacao incorreto"},
    Message{7010, "Erro de validação do conteúdo"},
    Message{7011, "SAT bloqueado por vencimento do certificado digital"},
    Message{7097, "numero de sessao invalido"},
    Message{7098, "SAT em processamento. Tente novamente"},
    Message{7099, "Erro desconhecido"},
    Message{8000, "SAT em operacao"},
    Message{8097, "numero de sessao invalido"},
    Message{8098, "SAT em processamento. Tente novamente"},
    Message{8099, "Erro desconhecido"},
    Message{9000, "Emitido com sucesso"},
    Message{9001, "código ativação inválido"},
    Message{9002, "SAT ainda não ativado"},
    Message{9097, "numero de sessao invalido"},
    Message{9098, "SAT em processamento. Tente novamente"},
    Message{9099, "Erro desconhecido"},
    Message{10000, "Resposta com Sucesso"},
    Message{10001, "Codigo de Ativacao Invalido"},
    Message{10097, "numero de sessao invalido"},
    Message{10098, "SAT em processamento. Tente novamente"},
    Message{10099, "Erro desconhecido"},
    Message{11000, "etorno da sessao processada ***cod especifico"},
    Message{11001, "Codigo ativacao invalido"},
    Message{11002, "SAT ainda nao ativado"},
    Message{11003, "Sessao não existe"},
    Message{11097, "numero de sessao invalido"},
    Message{11098, "SAT em processamento. Tente novamente"},
    Message{11099, "Erro desconhecido"},
    Message{12000, "Rede Configurada com Sucesso"},
    Message{12001, "Codigo ativacao invalido"},
    Message{12002, "Dados fora do padrao a ser informado"},
    Message{12097, "numero de sessao invalido"},
    Message{12098, "SAT em processamento. Tente novamente"},
    Message{12099, "Erro desconhecido"},
    Message{13000, "Assinatura do AC Registrada"},
    Message{13001, "Codigo ativacao invalido"},
    Message{13002, "Erro de comunicacao  com a SEFAZ"},
    Message{13003, "Assinatura fora do padrao especificado"},
    Message{13004, "Erro de validacao do conteudo"},
    Message{13005, "Assinatura nao reconhecida pela SEFAZ"},
    Message{13007, "CNPJ do contribuinte difere daquele constante da parametrizacao de uso"},
    Message{13097, "numero de sessao invalido"},
    Message{13098, "SAT em processamento. Tente novamente"},
    Message{13099, "Erro desconhecido"},
    Message{14000, "Software Atualizado com Sucesso"},
    Message{14001, "Codigo ativacao invalido"},
    Message{14002, "Atualizacao em Andamento"},
    Message{14003, "Erro na atualizacao"},
    Message{14004, "Arquivo de atualizacao inválido"},
    Message{14097, "numero de sessao invalido"},
    Message{14098, "SAT em processamento. Tente novamente"},
    Message{14099, "Erro desconhecido"},
    Message{15000, "Transferencia completa"},
    Message{15001, "Codigo ativacao invalido"},
    Message{15002, "Transferencia em andamento"},
    Message{15097, "numero de sessao invalido"},
    Message{15098, "SAT em processamento. Tente novamente"},
    Message{15099, "Erro desconhecido"},
    Message{16000, "Equipamento SAT bloqueado com sucesso"},
    Message{16001, "Codigo ativacao invalido"},
    Message{16002, "Equipamento SAT ja esta bloqueado"},
    Message{16003, "Erro de comunicacao  com a SEFAZ"},
    Message{16004, "Nao existe parametrizacao de bloqueio disponível. Verifique configuracoes na SEFAZ"},
    Message{16097, "numero de sessao invalido"},
    Message{16098, "SAT em processamento. Tente novamente"},
    Message{16099, "Erro desconhecido"},
    Message{17000, "Equipamento SAT desbloqueado com sucesso"},
    Message{17001, "Codigo ativacao invalido"},
    Message{17002, "SAT bloqueado pelo contribuinte. Verifique configuracies na SEFAZ "},
    Message{17003, "SAT bloqueado pela SEFAZ"},
    Message{17004, "Erro de comunicacao com a SEFAZ"},
    Message{17005, "SAT ja desbloqueado"},
    Message{17006, "SAT com bloqueio autonomo"},
    Message{17007, "SAT bloqueado para desativacao"},
    Message{17097, "numero de sessao invalido"},
    Message{17098, "SAT em processamento. Tente novamente"},
    Message{17099, "Erro desconhecido"},
    Message{18000, "Ccdigo de ativacao alterado com sucesso"},
    Message{18001, "Codigo ativacao invalido"},
    Message{18002, "Código de ativacao de emergencia Incorreto"},
    Message{18097, "numero de sessao invalido"},
    Message{18098, "SAT em processamento. Tente novamente"},
    Message{18099, "Erro desconhecido"},
    Message{19000, "Retorno da sessão processada ***codigo especifico"},
    Message{19001, "Codigo ativacao invalido"},
    Message{19002, "SAT ainda nao ativado"},
    Message{19003, "Nao existe sessao fiscal"},
    Message{19097, "numero de sessao invalido"},
    Message{19098, "SAT em processamento. Tente novamente"},
    Message{19099, "Erro desconhecido"},
    Message{19100, "Nao Existe esse erro"},
};

constexpr std::array kSefazNotices{
    Message{1, "Emu:Existem atualizacoes pendentes para o SAT"},
    Message{2, "Emu:O SAT precisa ser atualizado em 5 dias"},
    Message{3, "Emu:O SAT precisa ser atualizado em 24 horas"},
    Message{4, "Emu:Acionar suporte tecnico para verificação dos logs operacionais"},
    Message{5, "Emu:Acionar suporte tecnico para verificação dos logs operacionais"},
    Message{999,
            "Emu:A SEFAZ informa que a rede SAT sofrera manutencao no dia 19/03/2020 das 22:00 às 23:00."},
};

template <typename Table>
std::optional<std::string_view> find(const Table& table, int code) {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [code](const Message& message) { return message.code == code; });
  if (found == table.end()) return std::nullopt;
  return found->text;
}

}  // namespace

std::string_view return_code_message(int code) {
  return find(kMessages, code).value_or("Codigo de retorno desconhecido");
}

std::optional<std::string_view> sefaz_notice(int code) {
  return find(kSefazNotices, code);
}

}  // namespace emulator
