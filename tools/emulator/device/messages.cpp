#include "device/messages.h"

#include <algorithm>
#include <array>

namespace emulator {

namespace {

struct Message {
  int code;
  std::string_view text;
};

// In ascending order of code, spelt as devices spell them.
constexpr std::array kMessages{
    Message{4000, "SAT Ativado Corretamente"},
    Message{4001, "Erro na criação do certificado"},
    Message{4002, "SEFAZ não reconhece este SAT (CNPJ inválido)"},
    Message{4003, "SAT já ativado ou pendente de vinculação do AC"},
    Message{4004, "SAT com uso cessado"},
    Message{4005, "Erro de comunicação com a SEFAZ"},
    Message{4006, "CSR ICP-BRASIL criado com sucesso"},
    Message{4007, "Erro na criação do CSR ICP-BRASIL"},
    Message{4097, "Número de sessão inválido"},
    Message{4098, "SAT em processamento. Tente novamente"},
    Message{4099, "Erro desconhecido na ativação"},
    Message{4129, "Rejeição: Solicitações de emissão de certificados excedidas"},
    Message{4200, "Rejeição: Status do Equipamento SAT difere do esperado"},
    Message{4219, "Rejeição: CNPJ não corresponde ao informado no processo de declaração de posse"},
    Message{4239, "Rejeição: Versão do arquivo XML não suportada"},
    Message{4241, "Rejeição: Diferença de transmissão e recebimento da mensagem superior a 5 minutos"},
    Message{4250, "Rejeição: UF informada pelo SAT não é atendida pelo Web Service"},
    Message{4251, "Rejeição: Certificado enviado não confere com o escolhido na declaração de posse"},
    Message{4255, "Rejeição: CSR enviado inválido"},
    Message{5000, "Certificado transmitido com Sucesso"},
    Message{5001, "Código de ativação inválido"},
    Message{5002, "Erro de comunicação com a SEFAZ"},
    Message{5003, "Certificado Inválido"},
    Message{5097, "Número de sessão inválido"},
    Message{5098, "SAT em processamento. Tente novamente"},
    Message{5099, "Erro desconhecido"},
    Message{6000, "Emitido com sucesso + conteúdo notas"},
    Message{6001, "Código de ativação inválido"},
    Message{6002, "SAT ainda não ativado"},
    Message{6003, "SAT não vinculado ao AC"},
    Message{6004, "Vinculação do AC não confere"},
    Message{6005, "Tamanho do CF-e-SAT superior a 1.500KB"},
    Message{6006, "SAT bloqueado pelo contribuinte"},
    Message{6007, "SAT bloqueado pela SEFAZ"},
    Message{6008, "SAT bloqueado por falta de comunicação"},
    Message{6009, "SAT bloqueado, código de ativação incorreto"},
    Message{6010, "Erro de validação do conteúdo"},
    Message{6011, "SAT bloqueado por vencimento do certificado digital."},
    Message{6097, "Número de sessão inválido"},
    Message{6098, "SAT em processamento. Tente novamente"},
    Message{6099, "Erro desconhecido"},
    Message{7000, "Cupom cancelado com sucesso + conteúdo CFe-SAT cancelado"},
    Message{7001, "Código de ativação inválido"},
    Message{7002, "Cupom inválido"},
    Message{7004, "Vinculação do AC não confere"},
    Message{7006, "SAT bloqueado pelo contribuinte"},
    Message{7007, "SAT bloqueado pela SEFAZ"},
    Message{7008, "SAT bloqueado por falta de comunicação"},
    Message{7009, "SAT bloqueado, código de ativação incorreto"},
    Message{7010, "Erro de validação do conteúdo"},
    Message{7011, "SAT bloqueado por vencimento do certificado digital"},
    Message{7097, "Número de sessão inválido"},
    Message{7098, "SAT em processamento. Tente novamente"},
    Message{7099, "Erro desconhecido"},
    Message{8000, "SAT em operação"},
    Message{8097, "Número de sessão inválido"},
    Message{8098, "SAT em processamento. Tente novamente"},
    Message{8099, "Erro desconhecido"},
    Message{9000, "Emitido com sucesso"},
    Message{9001, "Código de ativação inválido"},
    Message{9002, "SAT ainda não ativado"},
    Message{9097, "Número de sessão inválido"},
    Message{9098, "SAT em processamento. Tente novamente"},
    Message{9099, "Erro desconhecido"},
    Message{10000, "Resposta com Sucesso"},
    Message{10001, "Código de ativação inválido"},
    Message{10097, "Número de sessão inválido"},
    Message{10098, "SAT em processamento. Tente novamente"},
    Message{10099, "Erro desconhecido"},
    Message{11000, "Retorno da sessão processada"},
    Message{11001, "Código de ativação inválido"},
    Message{11002, "SAT ainda não ativado"},
    Message{11003, "Sessão não existe"},
    Message{11097, "Número de sessão inválido"},
    Message{11098, "SAT em processamento. Tente novamente"},
    Message{11099, "Erro desconhecido"},
    Message{12000, "Rede Configurada com Sucesso"},
    Message{12001, "Código de ativação inválido"},
    Message{12002, "Dados fora do padrão a ser informado"},
    Message{12097, "Número de sessão inválido"},
    Message{12098, "SAT em processamento. Tente novamente"},
    Message{12099, "Erro desconhecido"},
    Message{13000, "Assinatura do AC Registrada"},
    Message{13001, "Código de ativação inválido"},
    Message{13002, "Erro de comunicação com a SEFAZ"},
    Message{13003, "Assinatura fora do padrão especificado"},
    Message{13004, "Erro de validação do conteúdo"},
    Message{13005, "Assinatura não reconhecida pela SEFAZ"},
    Message{13007, "CNPJ do contribuinte difere daquele constante da parametrização de uso"},
    Message{13097, "Número de sessão inválido"},
    Message{13098, "SAT em processamento. Tente novamente"},
    Message{13099, "Erro desconhecido"},
    Message{14000, "Software Atualizado com Sucesso"},
    Message{14001, "Código de ativação inválido"},
    Message{14002, "Atualização em Andamento"},
    Message{14003, "Erro na atualização"},
    Message{14004, "Arquivo de atualização inválido"},
    Message{14097, "Número de sessão inválido"},
    Message{14098, "SAT em processamento. Tente novamente"},
    Message{14099, "Erro desconhecido"},
    Message{15000, "Transferência completa"},
    Message{15001, "Código de ativação inválido"},
    Message{15002, "Transferência em andamento"},
    Message{15097, "Número de sessão inválido"},
    Message{15098, "SAT em processamento. Tente novamente"},
    Message{15099, "Erro desconhecido"},
    Message{16000, "Equipamento SAT bloqueado com sucesso"},
    Message{16001, "Código de ativação inválido"},
    Message{16002, "Equipamento SAT já está bloqueado"},
    Message{16003, "Erro de comunicação com a SEFAZ"},
    Message{16004, "Não existe parametrização de bloqueio disponível. Verifique configurações na SEFAZ"},
    Message{16097, "Número de sessão inválido"},
    Message{16098, "SAT em processamento. Tente novamente"},
    Message{16099, "Erro desconhecido"},
    Message{17000, "Equipamento SAT desbloqueado com sucesso"},
    Message{17001, "Código de ativação inválido"},
    Message{17002, "SAT bloqueado pelo contribuinte. Verifique configurações na SEFAZ"},
    Message{17003, "SAT bloqueado pela SEFAZ"},
    Message{17004, "Erro de comunicação com a SEFAZ"},
    Message{17005, "SAT já desbloqueado"},
    Message{17006, "SAT com bloqueio autônomo"},
    Message{17007, "SAT bloqueado para desativação"},
    Message{17097, "Número de sessão inválido"},
    Message{17098, "SAT em processamento. Tente novamente"},
    Message{17099, "Erro desconhecido"},
    Message{18000, "Código de ativação alterado com sucesso"},
    Message{18001, "Código de ativação inválido"},
    Message{18002, "Código de ativação de emergência incorreto"},
    Message{18097, "Número de sessão inválido"},
    Message{18098, "SAT em processamento. Tente novamente"},
    Message{18099, "Erro desconhecido"},
    Message{19000, "Retorno da sessão processada"},
    Message{19001, "Código de ativação inválido"},
    Message{19002, "SAT ainda não ativado"},
    Message{19003, "Não existe sessão fiscal"},
    Message{19097, "Número de sessão inválido"},
    Message{19098, "SAT em processamento. Tente novamente"},
    Message{19099, "Erro desconhecido"},
    Message{19100, "Não existe esse erro"},
};

constexpr std::array kSefazNotices{
    Message{1, "Emu:Existem atualizações pendentes para o SAT"},
    Message{2, "Emu:O SAT precisa ser atualizado em 5 dias"},
    Message{3, "Emu:O SAT precisa ser atualizado em 24 horas"},
    Message{4, "Emu:Acionar suporte técnico para verificação dos logs operacionais"},
    Message{5, "Emu:Acionar suporte técnico para verificação dos logs operacionais"},
    Message{999,
            "Emu:A SEFAZ informa que a rede SAT sofrerá manutenção no dia 19/03/2020 das 22:00 às 23:00."},
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
  return find(kMessages, code).value_or("Código de retorno desconhecido");
}

std::optional<std::string_view> sefaz_notice(int code) {
  return find(kSefazNotices, code);
}

}  // namespace emulator
