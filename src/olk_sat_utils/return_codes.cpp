#include "olk_sat_utils/return_codes.h"

#include <stdio.h>
#include <string.h>

#include "olk_sat_utils/sat_utils_trace.h"

namespace {

constexpr char kDeviceToHost[] = "SAT->AC";

constexpr int kEmptyMessageCode = 55555;
constexpr int32_t kLastReturnCode = 99999;
constexpr int32_t kLastNotice = 9999;

constexpr int kFieldsWithoutAlert = 5;

// The source line that the error text has always named; support finds the cause by it.
constexpr int kBadFunctionLine = 3149;

constexpr size_t kLongestFailureText = 100;

char stResult[64];

}  // namespace

// Kept: names and messages are misspelt in places; hosts and manuals know them so.
const ReturnCodeRow tCodRetSAT[kReturnCodeRoom] = {
    {"AtivarSAT", 4000, kDeviceToHost, "SAT Ativado Corretamente"},
    {"AtivarSAT", 4001, kDeviceToHost, "Erro na criacao do certificado"},
    {"AtivarSAT", 4002, kDeviceToHost, "SEFAZ não reconhece este SAT (CNPJ inválido)"},
    {"AtivarSAT", 4003, kDeviceToHost, "SAT ja ativado ou pendente de Vinculacaoo do AC"},
    {"AtivarSAT", 4004, kDeviceToHost, "SAT com uso cessado"},
    {"AtivarSAT", 4005, kDeviceToHost, "Erro de comunicação com a SEFAZ"},
    {"AtivarSAT", 4006, kDeviceToHost, "CSR  ICP-BRASIL criado com sucesso"},
    {"AtivarSAT", 4007, kDeviceToHost, "Erro na criacao do CSR ICP-BRASIL"},
    {"AtivarSAT", 4097, kDeviceToHost, "Número de sessão inválido"},
    {"AtivarSAT", 4098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"AtivarSAT", 4099, kDeviceToHost, "Erro desconhecido na ativacao"},
    {"AtivarSAT", 4129, kDeviceToHost, "Rejeição: Solicitações de emissão de certificados excedidas"},
    {"AtivarSAT", 4200, kDeviceToHost, "Rejeição: Status do Equipamento SAT difere do esperado"},
    {"AtivarSAT", 4219, kDeviceToHost,
     "Rejeicao: CNPJ nao corresponde ao informado no processo de declaracao de posse"},
    {"AtivarSAT", 4239, kDeviceToHost, "Rejeicao: Versao do arquivo XML nao suportada"},
    {"AtivarSAT", 4241, kDeviceToHost,
     "Rejeicao: Diferenca de transmissao e recebimento da mensagem superior a 5"},
    {"AtivarSAT", 4250, kDeviceToHost, "Rejeicao: UF informada pelo SAT nao eh atendida pelo Web Service"},
    {"AtivarSAT", 4251, kDeviceToHost,
     "Rejeicao: Certificado enviado não confere com o escolhido na declaracao de posse"},
    {"AtivarSAT", 4255, kDeviceToHost, "Rejeicao: CSR enviado invalido"},
    {"ComunicarCertificadoICPBRASIL", 5000, kDeviceToHost, "Certificado transmitido com Sucesso"},
    {"ComunicarCertificadoICPBRASIL", 5001, kDeviceToHost, "Código de ativação inválido"},
    {"ComunicarCertificadoICPBRASIL", 5002, kDeviceToHost, "Erro de comunicação com a SEFAZ"},
    {"ComunicarCertificadoICPBRASIL", 5003, kDeviceToHost, "Certificado Inválido"},
    {"ComunicarCertificadoICPBRASIL", 5097, kDeviceToHost, "Número de sessao inválido"},
    {"ComunicarCertificadoICPBRASIL", 5098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"ComunicarCertificadoICPBRASIL", 5099, kDeviceToHost, "Erro desconhecido"},
    {"EnviarDadosVenda", 6000, kDeviceToHost, "Emitido com sucesso + conteudo notas"},
    {"EnviarDadosVenda", 6001, kDeviceToHost, "Codigo de ativacao invalido"},
    {"EnviarDadosVenda", 6002, kDeviceToHost, "SAT ainda nao ativado"},
    {"EnviarDadosVenda", 6003, kDeviceToHost, "SAT nao vinculado ao AC"},
    {"EnviarDadosVenda", 6004, kDeviceToHost, "Vinculacao do AC nao confere"},
    {"EnviarDadosVenda", 6005, kDeviceToHost, "Tamanho do CF-e-SAT superior a 1.500KB"},
    {"EnviarDadosVenda", 6006, kDeviceToHost, "SAT bloqueado pelo contribuinte"},
    {"EnviarDadosVenda", 6007, kDeviceToHost, "SAT bloqueado pela SEFAZ"},
    {"EnviarDadosVenda", 6008, kDeviceToHost, "SAT bloqueado por falta de comunicacao"},
    {"EnviarDadosVenda", 6009, kDeviceToHost, "SAT bloqueado, código de ativacao incorreto"},
    {"EnviarDadosVenda", 6010, kDeviceToHost, "Erro de validacao do conteudo"},
    {"EnviarDadosVenda", 6011, kDeviceToHost, "SAT bloqueado por vencimento do certificado digital."},
    {"EnviarDadosVenda", 6097, kDeviceToHost, "Número de sessao invalido"},
    {"EnviarDadosVenda", 6098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"EnviarDadosVenda", 6099, kDeviceToHost, "Erro desconhecido"},
    {"CancelaUltimaVenda", 7000, kDeviceToHost, "Cupom cancelado com sucesso + conteúdo CFe-SAT cancelado"},
    {"CancelaUltimaVenda", 7001, kDeviceToHost, "Codigo ativacao invalido"},
    {"CancelaUltimaVenda", 7002, kDeviceToHost, "Cupom invalido"},
    {"CancelaUltimaVenda", 7004, kDeviceToHost, "Vinculacao do AC nao confere"},
    {"CancelaUltimaVenda", 7006, kDeviceToHost, "SAT bloqueado pelo contribuinte"},
    {"CancelaUltimaVenda", 7007, kDeviceToHost, "SAT bloqueado pela SEFAZ"},
    {"CancelaUltimaVenda", 7008, kDeviceToHost, "SAT bloqueado por falta de comunicacao"},
    {"CancelaUltimaVenda", 7009, kDeviceToHost, "SAT bloqueado, codigo de ativacao incorreto"},
    {"CancelaUltimaVenda", 7010, kDeviceToHost, "Erro de validação do conteúdo"},
    {"CancelaUltimaVenda", 7011, kDeviceToHost, "SAT bloqueado por vencimento do certificado digital"},
    {"CancelaUltimaVenda", 7097, kDeviceToHost, "numero de sessao invalido"},
    {"CancelaUltimaVenda", 7098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"CancelaUltimaVenda", 7099, kDeviceToHost, "Erro desconhecido"},
    {"ConsultarSAT", 8000, kDeviceToHost, "SAT em operacao"},
    {"ConsultarSAT", 8097, kDeviceToHost, "numero de sessao invalido"},
    {"ConsultarSAT", 8098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"ConsultarSAT", 8099, kDeviceToHost, "Erro desconhecido"},
    {"TesteFimAFim", 9000, kDeviceToHost, "Emitido com sucesso"},
    {"TesteFimAFim", 9001, kDeviceToHost, "código ativação inválido"},
    {"TesteFimAFim", 9002, kDeviceToHost, "SAT ainda não ativado"},
    {"TesteFimAFim", 9097, kDeviceToHost, "numero de sessao invalido"},
    {"TesteFimAFim", 9098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"TesteFimAFim", 9099, kDeviceToHost, "Erro desconhecido"},
    {"ConsultarStatusOperacional", 10000, kDeviceToHost, "Resposta com Sucesso"},
    {"ConsultarStatusOperacional", 10001, kDeviceToHost, "Codigo de Ativacao Invalido"},
    {"ConsultarStatusOperacional", 10097, kDeviceToHost, "numero de sessao invalido"},
    {"ConsultarStatusOperacional", 10098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"ConsultarStatusOperacional", 10099, kDeviceToHost, "Erro desconhecido"},
    {"ConsultarNumeroSessao", 11000, kDeviceToHost, "etorno da sessao processada ***cod especifico"},
    {"ConsultarNumeroSessao", 11001, kDeviceToHost, "Codigo ativacao invalido"},
    {"ConsultarNumeroSessao", 11002, kDeviceToHost, "SAT ainda nao ativado"},
    {"ConsultarNumeroSessao", 11003, kDeviceToHost, "Sessao não existe"},
    {"ConsultarNumeroSessao", 11097, kDeviceToHost, "numero de sessao invalido"},
    {"ConsultarNumeroSessao", 11098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"ConsultarNumeroSessao", 11099, kDeviceToHost, "Erro desconhecido"},
    {"ConfigurarInterfaceDeRede", 12000, kDeviceToHost, "Rede Configurada com Sucesso"},
    {"ConfigurarInterfaceDeRede", 12001, kDeviceToHost, "Codigo ativacao invalido"},
    {"ConfigurarInterfaceDeRede", 12002, kDeviceToHost, "Dados fora do padrao a ser informado"},
    {"ConfigurarInterfaceDeRede", 12097, kDeviceToHost, "numero de sessao invalido"},
    {"ConfigurarInterfaceDeRede", 12098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"ConfigurarInterfaceDeRede", 12099, kDeviceToHost, "Erro desconhecido"},
    {"AssociarAssinatura", 13000, kDeviceToHost, "Assinatura do AC Registrada"},
    {"AssociarAssinatura", 13001, kDeviceToHost, "Codigo ativacao invalido"},
    {"AssociarAssinatura", 13002, kDeviceToHost, "Erro de comunicacao  com a SEFAZ"},
    {"AssociarAssinatura", 13003, kDeviceToHost, "Assinatura fora do padrao especificado"},
    {"AssociarAssinatura", 13004, kDeviceToHost, "Erro de validacao do conteudo"},
    {"AssociarAssinatura", 13005, kDeviceToHost, "Assinatura nao reconhecida pela SEFAZ"},
    {"AssociarAssinatura", 13007, kDeviceToHost,
     "CNPJ do contribuinte difere daquele constante da parametrizacao de uso"},
    {"AssociarAssinatura", 13097, kDeviceToHost, "numero de sessao invalido"},
    {"AssociarAssinatura", 13098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"AssociarAssinatura", 13099, kDeviceToHost, "Erro desconhecido"},
    {"AtualizarSoftwareSAT", 14000, kDeviceToHost, "Software Atualizado com Sucesso"},
    {"AtualizarSoftwareSAT", 14001, kDeviceToHost, "Codigo ativacao invalido"},
    {"AtualizarSoftwareSAT", 14002, kDeviceToHost, "Atualizacao em Andamento"},
    {"AtualizarSoftwareSAT", 14003, kDeviceToHost, "Erro na atualizacao"},
    {"AtualizarSoftwareSAT", 14004, kDeviceToHost, "Arquivo de atualizacao inválido"},
    {"AtualizarSoftwareSAT", 14098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"AtualizarSoftwareSAT", 14099, kDeviceToHost, "Erro desconhecido"},
    {"ExtrairLogs", 15000, kDeviceToHost, "Transferencia completa"},
    {"ExtrairLogs", 15001, kDeviceToHost, "Codigo ativacao invalido"},
    {"ExtrairLogs", 15002, kDeviceToHost, "Transferencia em andamento"},
    {"ExtrairLogs", 15097, kDeviceToHost, "numero de sessao invalido"},
    {"ExtrairLogs", 15098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"ExtrairLogs", 15099, kDeviceToHost, "Erro desconhecido"},
    {"BloquearSAT", 16000, kDeviceToHost, "Equipamento SAT bloqueado com sucesso"},
    {"BloquearSAT", 16001, kDeviceToHost, "Codigo ativacao invalido"},
    {"BloquearSAT", 16002, kDeviceToHost, "Equipamento SAT ja esta bloqueado"},
    {"BloquearSAT", 16003, kDeviceToHost, "Erro de comunicacao  com a SEFAZ"},
    {"BloquearSAT", 16004, kDeviceToHost,
     "Nao existe parametrizacao de bloqueio disponível. Verifique configuracoes na SEFAZ"},
    {"BloquearSAT", 16097, kDeviceToHost, "numero de sessao invalido"},
    {"BloquearSAT", 16098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"BloquearSAT", 16099, kDeviceToHost, "Erro desconhecido"},
    {"DesbloquearSAT", 17000, kDeviceToHost, "Equipamento SAT desbloqueado com sucesso"},
    {"DesbloquearSAT", 17001, kDeviceToHost, "Codigo ativacao invalido"},
    {"DesbloquearSAT", 17002, kDeviceToHost,
     "SAT bloqueado pelo contribuinte. Verifique configuracies na SEFAZ "},
    {"DesbloquearSAT", 17003, kDeviceToHost, "SAT bloqueado pela SEFAZ"},
    {"DesbloquearSAT", 17004, kDeviceToHost, "Erro de comunicacao com a SEFAZ"},
    {"DesbloquearSAT", 17005, kDeviceToHost, "SAT ja desbloqueado"},
    {"DesbloquearSAT", 17006, kDeviceToHost, "SAT com bloqueio autonomo"},
    {"DesbloquearSAT", 17007, kDeviceToHost, "SAT bloqueado para desativacao"},
    {"DesbloquearSAT", 17097, kDeviceToHost, "numero de sessao invalido"},
    {"DesbloquearSAT", 17098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"DesbloquearSAT", 17099, kDeviceToHost, "Erro desconhecido"},
    {"TrocarCodigoDeAtivacao", 18000, kDeviceToHost, "Ccdigo de ativacao alterado com sucesso"},
    {"TrocarCodigoDeAtivacao", 18001, kDeviceToHost, "Codigo ativacao invalido"},
    {"TrocarCodigoDeAtivacao", 18002, kDeviceToHost, "Código de ativacao de emergencia Incorreto"},
    {"TrocarCodigoDeAtivacao", 18097, kDeviceToHost, "numero de sessao invalido"},
    {"TrocarCodigoDeAtivacao", 18098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"TrocarCodigoDeAtivacao", 18099, kDeviceToHost, "Erro desconhecido"},
    {"ConsultarUltimaSessaoFiscal", 19000, kDeviceToHost,
     "Retorno da sessão processada ***codigo especifico"},
    {"ConsultarUltimaSessaoFiscal", 19001, kDeviceToHost, "Codigo ativacao invalido"},
    {"ConsultarUltimaSessaoFiscal", 19002, kDeviceToHost, "SAT ainda nao ativado"},
    {"ConsultarUltimaSessaoFiscal", 19003, kDeviceToHost, "Nao existe sessao fiscal"},
    {"ConsultarUltimaSessaoFiscal", 19097, kDeviceToHost, "numero de sessao invalido"},
    {"ConsultarUltimaSessaoFiscal", 19098, kDeviceToHost, "SAT em processamento. Tente novamente"},
    {"ConsultarUltimaSessaoFiscal", 19099, kDeviceToHost, "Erro desconhecido"},
    {"ConsultarUltimaSessaoFiscal", 19100, kDeviceToHost, "Nao Existe esse erro"},
    {nullptr, kLastReturnCode, kDeviceToHost, nullptr},
};

const SefazNotice tMensagemSEFAZ[] = {
    {1, "Emu:Existem atualizacoes pendentes para o SAT"},
    {2, "Emu:O SAT precisa ser atualizado em 5 dias"},
    {3, "Emu:O SAT precisa ser atualizado em 24 horas"},
    {4, "Emu:Acionar suporte tecnico para verificação dos logs operacionais"},
    {5, "Emu:Acionar suporte tecnico para verificação dos logs operacionais"},
    {999, "Emu:A SEFAZ informa que a rede SAT sofrera manutencao no dia 19/03/2020 das 22:00 às 23:00."},
    {kLastNotice, nullptr},
};

int generate_98_return(char* out, int32_t session, const SatFunction& function) {
  if (function.busy_reply_fields == 0) {
    snprintf(out, kBusyReplySize, "SAT Erro[%06d] Parametro Invalido  SAT L[%04d] F[%s] ", kBusyReplyError,
             kBadFunctionLine, __func__);
    SAT_UTILS_TRACE(kError, " rc[%06d]ER:All All Error!!!!!!\n", kBusyReplyError);
    return kBusyReplyError;
  }
  char busy_code[6];
  snprintf(busy_code, sizeof busy_code, "%s98", function.code_prefix);

  int length = 0;
  if (function.busy_reply_fields == kFieldsWithoutAlert) {
    length =
        snprintf(out, kBusyReplySize, "%d|%s|SAT em processamento, tente novamente.||", session, busy_code);
  } else {
    length = snprintf(out, kBusyReplySize, "%d|%s|0000|SAT em processamento, tente novamente.||", session,
                      busy_code);
  }
  SAT_UTILS_TRACE(kInfo, "All rc[%05d]OK:All Gen 98Return \n\t << API->PC[%05d:%s]\n", 0, length, out);
  return length;
}

namespace {

// Cuts a long failure text in its place and marks the cut.
char* shortened_failure_text(char* text) {
  if (text == nullptr || strnlen(text, kLongestFailureText + 1) <= kLongestFailureText) return text;
  memcpy(text + kLongestFailureText - 3, "..>", sizeof "..>");
  return text;
}

// The last row is compared before it ends the walk: its own code finds its null message.
const ReturnCodeRow* find_return_code(int code) {
  for (const ReturnCodeRow* row = tCodRetSAT;; ++row) {
    if (row->code == code) return row;
    if (row->function == nullptr) return nullptr;
  }
}

}  // namespace

const char* SAT_GetRetCodeMsg(int code, char* text) {
  if (code < 0) return shortened_failure_text(text);
  if (code == kEmptyMessageCode) return "";
  if (const ReturnCodeRow* row = find_return_code(code)) return row->message;

  if (code == 0) {
    snprintf(stResult, sizeof stResult, "SAT Codigo Retorno[%05d] Ignorar.....", code);
  } else {
    snprintf(stResult, sizeof stResult, "SAT Codigo Retorno[%05d] Desconhecido", code);
  }
  return stResult;
}
