#include "olk_sat_utils/return_codes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/configuration.h"
#include "olk_utils/trace_log.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

namespace {

using testing::ElementsAre;

struct CodeAndMessage {
  std::string function;
  int code;
  std::string message;
};

const std::vector<CodeAndMessage> kReturnCodes = {
    {"AtivarSAT", 4000, "SAT Ativado Corretamente"},
    {"AtivarSAT", 4001, "Erro na criacao do certificado"},
    {"AtivarSAT", 4002, "SEFAZ não reconhece este SAT (CNPJ inválido)"},
    {"AtivarSAT", 4003, "SAT ja ativado ou pendente de Vinculacaoo do AC"},
    {"AtivarSAT", 4004, "SAT com uso cessado"},
    {"AtivarSAT", 4005, "Erro de comunicação com a SEFAZ"},
    {"AtivarSAT", 4006, "CSR  ICP-BRASIL criado com sucesso"},
    {"AtivarSAT", 4007, "Erro na criacao do CSR ICP-BRASIL"},
    {"AtivarSAT", 4097, "Número de sessão inválido"},
    {"AtivarSAT", 4098, "SAT em processamento. Tente novamente"},
    {"AtivarSAT", 4099, "Erro desconhecido na ativacao"},
    {"AtivarSAT", 4129, "Rejeição: Solicitações de emissão de certificados excedidas"},
    {"AtivarSAT", 4200, "Rejeição: Status do Equipamento SAT difere do esperado"},
    {"AtivarSAT", 4219, "Rejeicao: CNPJ nao corresponde ao informado no processo de declaracao de posse"},
    {"AtivarSAT", 4239, "Rejeicao: Versao do arquivo XML nao suportada"},
    {"AtivarSAT", 4241, "Rejeicao: Diferenca de transmissao e recebimento da mensagem superior a 5"},
    {"AtivarSAT", 4250, "Rejeicao: UF informada pelo SAT nao eh atendida pelo Web Service"},
    {"AtivarSAT", 4251, "Rejeicao: Certificado enviado não confere com o escolhido na declaracao de posse"},
    {"AtivarSAT", 4255, "Rejeicao: CSR enviado invalido"},
    {"ComunicarCertificadoICPBRASIL", 5000, "Certificado transmitido com Sucesso"},
    {"ComunicarCertificadoICPBRASIL", 5001, "Código de ativação inválido"},
    {"ComunicarCertificadoICPBRASIL", 5002, "Erro de comunicação com a SEFAZ"},
    {"ComunicarCertificadoICPBRASIL", 5003, "Certificado Inválido"},
    {"ComunicarCertificadoICPBRASIL", 5097, "Número de sessao inválido"},
    {"ComunicarCertificadoICPBRASIL", 5098, "SAT em processamento. Tente novamente"},
    {"ComunicarCertificadoICPBRASIL", 5099, "Erro desconhecido"},
    {"EnviarDadosVenda", 6000, "Emitido com sucesso + conteudo notas"},
    {"EnviarDadosVenda", 6001, "Codigo de ativacao invalido"},
    {"EnviarDadosVenda", 6002, "SAT ainda nao ativado"},
    {"EnviarDadosVenda", 6003, "SAT nao vinculado ao AC"},
    {"EnviarDadosVenda", 6004, "Vinculacao do AC nao confere"},
    {"EnviarDadosVenda", 6005, "Tamanho do CF-e-SAT superior a 1.500KB"},
    {"EnviarDadosVenda", 6006, "SAT bloqueado pelo contribuinte"},
    {"EnviarDadosVenda", 6007, "SAT bloqueado pela SEFAZ"},
    {"EnviarDadosVenda", 6008, "SAT bloqueado por falta de comunicacao"},
    {"EnviarDadosVenda", 6009, "SAT bloqueado, código de ativacao incorreto"},
    {"EnviarDadosVenda", 6010, "Erro de validacao do conteudo"},
    {"EnviarDadosVenda", 6011, "SAT bloqueado por vencimento do certificado digital."},
    {"EnviarDadosVenda", 6097, "Número de sessao invalido"},
    {"EnviarDadosVenda", 6098, "SAT em processamento. Tente novamente"},
    {"EnviarDadosVenda", 6099, "Erro desconhecido"},
    {"CancelaUltimaVenda", 7000, "Cupom cancelado com sucesso + conteúdo CFe-SAT cancelado"},
    {"CancelaUltimaVenda", 7001, "Codigo ativacao invalido"},
    {"CancelaUltimaVenda", 7002, "Cupom invalido"},
    {"CancelaUltimaVenda", 7004, "Vinculacao do AC nao confere"},
    {"CancelaUltimaVenda", 7006, "SAT bloqueado pelo contribuinte"},
    {"CancelaUltimaVenda", 7007, "SAT bloqueado pela SEFAZ"},
    {"CancelaUltimaVenda", 7008, "SAT bloqueado por falta de comunicacao"},
    {"CancelaUltimaVenda", 7009, "SAT bloqueado, codigo de ativacao incorreto"},
    {"CancelaUltimaVenda", 7010, "Erro de validação do conteúdo"},
    {"CancelaUltimaVenda", 7011, "SAT bloqueado por vencimento do certificado digital"},
    {"CancelaUltimaVenda", 7097, "numero de sessao invalido"},
    {"CancelaUltimaVenda", 7098, "SAT em processamento. Tente novamente"},
    {"CancelaUltimaVenda", 7099, "Erro desconhecido"},
    {"ConsultarSAT", 8000, "SAT em operacao"},
    {"ConsultarSAT", 8097, "numero de sessao invalido"},
    {"ConsultarSAT", 8098, "SAT em processamento. Tente novamente"},
    {"ConsultarSAT", 8099, "Erro desconhecido"},
    {"TesteFimAFim", 9000, "Emitido com sucesso"},
    {"TesteFimAFim", 9001, "código ativação inválido"},
    {"TesteFimAFim", 9002, "SAT ainda não ativado"},
    {"TesteFimAFim", 9097, "numero de sessao invalido"},
    {"TesteFimAFim", 9098, "SAT em processamento. Tente novamente"},
    {"TesteFimAFim", 9099, "Erro desconhecido"},
    {"ConsultarStatusOperacional", 10000, "Resposta com Sucesso"},
    {"ConsultarStatusOperacional", 10001, "Codigo de Ativacao Invalido"},
    {"ConsultarStatusOperacional", 10097, "numero de sessao invalido"},
    {"ConsultarStatusOperacional", 10098, "SAT em processamento. Tente novamente"},
    {"ConsultarStatusOperacional", 10099, "Erro desconhecido"},
    {"ConsultarNumeroSessao", 11000, "etorno da sessao processada ***cod especifico"},
    {"ConsultarNumeroSessao", 11001, "Codigo ativacao invalido"},
    {"ConsultarNumeroSessao", 11002, "SAT ainda nao ativado"},
    {"ConsultarNumeroSessao", 11003, "Sessao não existe"},
    {"ConsultarNumeroSessao", 11097, "numero de sessao invalido"},
    {"ConsultarNumeroSessao", 11098, "SAT em processamento. Tente novamente"},
    {"ConsultarNumeroSessao", 11099, "Erro desconhecido"},
    {"ConfigurarInterfaceDeRede", 12000, "Rede Configurada com Sucesso"},
    {"ConfigurarInterfaceDeRede", 12001, "Codigo ativacao invalido"},
    {"ConfigurarInterfaceDeRede", 12002, "Dados fora do padrao a ser informado"},
    {"ConfigurarInterfaceDeRede", 12097, "numero de sessao invalido"},
    {"ConfigurarInterfaceDeRede", 12098, "SAT em processamento. Tente novamente"},
    {"ConfigurarInterfaceDeRede", 12099, "Erro desconhecido"},
    {"AssociarAssinatura", 13000, "Assinatura do AC Registrada"},
    {"AssociarAssinatura", 13001, "Codigo ativacao invalido"},
    {"AssociarAssinatura", 13002, "Erro de comunicacao  com a SEFAZ"},
    {"AssociarAssinatura", 13003, "Assinatura fora do padrao especificado"},
    {"AssociarAssinatura", 13004, "Erro de validacao do conteudo"},
    {"AssociarAssinatura", 13005, "Assinatura nao reconhecida pela SEFAZ"},
    {"AssociarAssinatura", 13007, "CNPJ do contribuinte difere daquele constante da parametrizacao de uso"},
    {"AssociarAssinatura", 13097, "numero de sessao invalido"},
    {"AssociarAssinatura", 13098, "SAT em processamento. Tente novamente"},
    {"AssociarAssinatura", 13099, "Erro desconhecido"},
    {"AtualizarSoftwareSAT", 14000, "Software Atualizado com Sucesso"},
    {"AtualizarSoftwareSAT", 14001, "Codigo ativacao invalido"},
    {"AtualizarSoftwareSAT", 14002, "Atualizacao em Andamento"},
    {"AtualizarSoftwareSAT", 14003, "Erro na atualizacao"},
    {"AtualizarSoftwareSAT", 14004, "Arquivo de atualizacao inválido"},
    {"AtualizarSoftwareSAT", 14098, "SAT em processamento. Tente novamente"},
    {"AtualizarSoftwareSAT", 14099, "Erro desconhecido"},
    {"ExtrairLogs", 15000, "Transferencia completa"},
    {"ExtrairLogs", 15001, "Codigo ativacao invalido"},
    {"ExtrairLogs", 15002, "Transferencia em andamento"},
    {"ExtrairLogs", 15097, "numero de sessao invalido"},
    {"ExtrairLogs", 15098, "SAT em processamento. Tente novamente"},
    {"ExtrairLogs", 15099, "Erro desconhecido"},
    {"BloquearSAT", 16000, "Equipamento SAT bloqueado com sucesso"},
    {"BloquearSAT", 16001, "Codigo ativacao invalido"},
    {"BloquearSAT", 16002, "Equipamento SAT ja esta bloqueado"},
    {"BloquearSAT", 16003, "Erro de comunicacao  com a SEFAZ"},
    {"BloquearSAT", 16004,
     "Nao existe parametrizacao de bloqueio disponível. Verifique configuracoes na SEFAZ"},
    {"BloquearSAT", 16097, "numero de sessao invalido"},
    {"BloquearSAT", 16098, "SAT em processamento. Tente novamente"},
    {"BloquearSAT", 16099, "Erro desconhecido"},
    {"DesbloquearSAT", 17000, "Equipamento SAT desbloqueado com sucesso"},
    {"DesbloquearSAT", 17001, "Codigo ativacao invalido"},
    {"DesbloquearSAT", 17002, "SAT bloqueado pelo contribuinte. Verifique configuracies na SEFAZ "},
    {"DesbloquearSAT", 17003, "SAT bloqueado pela SEFAZ"},
    {"DesbloquearSAT", 17004, "Erro de comunicacao com a SEFAZ"},
    {"DesbloquearSAT", 17005, "SAT ja desbloqueado"},
    {"DesbloquearSAT", 17006, "SAT com bloqueio autonomo"},
    {"DesbloquearSAT", 17007, "SAT bloqueado para desativacao"},
    {"DesbloquearSAT", 17097, "numero de sessao invalido"},
    {"DesbloquearSAT", 17098, "SAT em processamento. Tente novamente"},
    {"DesbloquearSAT", 17099, "Erro desconhecido"},
    {"TrocarCodigoDeAtivacao", 18000, "Ccdigo de ativacao alterado com sucesso"},
    {"TrocarCodigoDeAtivacao", 18001, "Codigo ativacao invalido"},
    {"TrocarCodigoDeAtivacao", 18002, "Código de ativacao de emergencia Incorreto"},
    {"TrocarCodigoDeAtivacao", 18097, "numero de sessao invalido"},
    {"TrocarCodigoDeAtivacao", 18098, "SAT em processamento. Tente novamente"},
    {"TrocarCodigoDeAtivacao", 18099, "Erro desconhecido"},
    {"ConsultarUltimaSessaoFiscal", 19000, "Retorno da sessão processada ***codigo especifico"},
    {"ConsultarUltimaSessaoFiscal", 19001, "Codigo ativacao invalido"},
    {"ConsultarUltimaSessaoFiscal", 19002, "SAT ainda nao ativado"},
    {"ConsultarUltimaSessaoFiscal", 19003, "Nao existe sessao fiscal"},
    {"ConsultarUltimaSessaoFiscal", 19097, "numero de sessao invalido"},
    {"ConsultarUltimaSessaoFiscal", 19098, "SAT em processamento. Tente novamente"},
    {"ConsultarUltimaSessaoFiscal", 19099, "Erro desconhecido"},
    {"ConsultarUltimaSessaoFiscal", 19100, "Nao Existe esse erro"},
};

struct Function {
  std::string name;
  std::string busy_code;
  uint32_t timeout_seconds;
};

const std::vector<Function> kFunctions = {
    {"AtivarSAT", "04098", 1800},
    {"ComunicarCertificadoICPBRASIL", "05098", 300},
    {"EnviarDadosVenda", "06098", 30},
    {"CancelarUltimaVenda", "07098", 30},
    {"ConsultarSAT", "08098", 10},
    {"TesteFimAFim", "09098", 20},
    {"ConsultarStatusOperacional", "10098", 10},
    {"ConsultarNumeroSessao", "11098", 20},
    {"ConfigurarInterfaceDeRede", "12098", 20},
    {"AssociarAssinatura", "13098", 1800},
    {"AtualizarSoftwareSAT", "14098", 1800},
    {"ExtrairLogs", "15098", 30},
    {"BloquearSAT", "16098", 300},
    {"DesbloquearSAT", "17098", 20},
    {"TrocarCodigoDeAtivacao", "18098", 30},
    {"ConsultarUltimaSessaoFiscal", "19098", 20},
};

// The reply and, in front of the guard bytes, nothing behind it.
struct BusyReply {
  int result;
  std::string text;
};

BusyReply busy_reply(int session, uint32_t function) {
  const auto out = std::make_unique<char[]>(kBusyReplySize);
  std::memset(out.get(), '#', kBusyReplySize);
  const int result = generate_98_return(out.get(), session, kSatFunctions[function]);
  return {result, out.get()};
}

const std::string kTracePrefix = "[] [../src/olk_sat_utils/olk_sat_utils] [generate_98_return]";

class BusyReplies : public testing::Test {
 protected:
  BusyReplies() { bTraceLogsEnabled = 1; }
  ScratchDirectory directory_;
};

TEST(ReturnCodeTable, HoldsEveryRowInOrder) {
  ASSERT_EQ(kReturnCodes.size(), 138U);
  for (size_t i = 0; i < kReturnCodes.size(); ++i) {
    SCOPED_TRACE(kReturnCodes[i].code);
    EXPECT_EQ(tCodRetSAT[i].function, kReturnCodes[i].function);
    EXPECT_EQ(tCodRetSAT[i].code, kReturnCodes[i].code);
    EXPECT_STREQ(tCodRetSAT[i].direction, "SAT->AC");
    EXPECT_EQ(tCodRetSAT[i].message, kReturnCodes[i].message);
  }
}

TEST(ReturnCodeTable, EndsWithTheSentinelAndIsZeroBehindIt) {
  EXPECT_EQ(tCodRetSAT[138].function, nullptr);
  EXPECT_EQ(tCodRetSAT[138].code, 99999);
  EXPECT_EQ(tCodRetSAT[138].message, nullptr);
  EXPECT_EQ(std::size(tCodRetSAT), 200U);
  for (size_t i = 139; i < 200; ++i) {
    EXPECT_EQ(tCodRetSAT[i].function, nullptr);
    EXPECT_EQ(tCodRetSAT[i].code, 0);
    EXPECT_EQ(tCodRetSAT[i].direction, nullptr);
    EXPECT_EQ(tCodRetSAT[i].message, nullptr);
  }
}

TEST(SatFunctions, HoldEveryRow) {
  ASSERT_EQ(std::size(kSatFunctions), kFunctions.size());
  for (size_t i = 0; i < kFunctions.size(); ++i) {
    SCOPED_TRACE(kFunctions[i].name);
    EXPECT_EQ(kSatFunctions[i].name, kFunctions[i].name);
    EXPECT_EQ(kSatFunctions[i].code_prefix + std::string("98"), kFunctions[i].busy_code);
    EXPECT_EQ(kSatFunctions[i].default_timeout_s, kFunctions[i].timeout_seconds);
  }
}

// The names of the functions of which this is true, in order.
std::vector<std::string> functions_that(bool (*is_true)(const SatFunction&)) {
  std::vector<std::string> names;
  for (const SatFunction& function : kSatFunctions) {
    if (is_true(function)) names.emplace_back(function.name);
  }
  return names;
}

TEST(SatFunctions, DifferInWhatTheLibraryDoes) {
  EXPECT_THAT(
      functions_that([](const SatFunction& f) { return f.takes_timeout; }),
      ElementsAre("AtivarSAT", "ComunicarCertificadoICPBRASIL", "EnviarDadosVenda", "CancelarUltimaVenda",
                  "ConsultarSAT", "TesteFimAFim", "ConsultarStatusOperacional"));
  EXPECT_THAT(functions_that([](const SatFunction& f) { return f.waits_long; }),
              ElementsAre("AtivarSAT", "AtualizarSoftwareSAT", "BloquearSAT"));
  EXPECT_THAT(functions_that([](const SatFunction& f) { return f.holds_back_size_control; }),
              ElementsAre("AtivarSAT", "EnviarDadosVenda", "CancelarUltimaVenda", "TesteFimAFim",
                          "AtualizarSoftwareSAT", "ExtrairLogs"));
  EXPECT_THAT(functions_that([](const SatFunction& f) { return f.sells; }),
              ElementsAre("EnviarDadosVenda", "CancelarUltimaVenda", "TesteFimAFim"));
  EXPECT_THAT(functions_that([](const SatFunction& f) { return f.result_file != nullptr; }),
              ElementsAre("EnviarDadosVenda", "CancelarUltimaVenda"));
  EXPECT_THAT(functions_that([](const SatFunction& f) { return f.busy_reply_fields == 6; }),
              ElementsAre("EnviarDadosVenda", "CancelarUltimaVenda"));
  EXPECT_THAT(functions_that([](const SatFunction& f) { return f.busy_reply_fields == 0; }),
              ElementsAre("ConsultarUltimaSessaoFiscal"));
}

TEST(SatFunctions, AreFoundByTheirWholeName) {
  for (const SatFunction& function : kSatFunctions) EXPECT_EQ(find_sat_function(function.name), &function);
  for (const char* name : {"", "ConsultarSA", "ConsultarSATX", "consultarsat", "VersaoDllTalvex"}) {
    EXPECT_EQ(find_sat_function(name), nullptr) << name;
  }
}

TEST(SefazNotices, HoldEveryRow) {
  const std::vector<std::pair<int, std::string>> notices = {
      {1, "Emu:Existem atualizacoes pendentes para o SAT"},
      {2, "Emu:O SAT precisa ser atualizado em 5 dias"},
      {3, "Emu:O SAT precisa ser atualizado em 24 horas"},
      {4, "Emu:Acionar suporte tecnico para verificação dos logs operacionais"},
      {5, "Emu:Acionar suporte tecnico para verificação dos logs operacionais"},
      {999, "Emu:A SEFAZ informa que a rede SAT sofrera manutencao no dia 19/03/2020 das 22:00 às 23:00."},
  };
  for (size_t i = 0; i < notices.size(); ++i) {
    EXPECT_EQ(tMensagemSEFAZ[i].code, notices[i].first);
    EXPECT_EQ(tMensagemSEFAZ[i].text, notices[i].second);
  }
  EXPECT_EQ(tMensagemSEFAZ[notices.size()].code, 9999);
  EXPECT_EQ(tMensagemSEFAZ[notices.size()].text, nullptr);
}

TEST_F(BusyReplies, SaleOfSession42) {
  const BusyReply reply = busy_reply(42, kEnviarDadosVenda);
  EXPECT_EQ(reply.text, "42|06098|0000|SAT em processamento, tente novamente.||");
  EXPECT_EQ(reply.result, 54);
}

TEST_F(BusyReplies, ConsultationOfSession7) {
  const BusyReply reply = busy_reply(7, kConsultarSAT);
  EXPECT_EQ(reply.text, "7|08098|SAT em processamento, tente novamente.||");
  EXPECT_EQ(reply.result, 48);
}

TEST_F(BusyReplies, EveryFunction) {
  for (uint32_t function = 0; function <= kTrocarCodigoDeAtivacao; ++function) {
    SCOPED_TRACE(kFunctions[function].name);
    const bool sells = function == kEnviarDadosVenda || function == kCancelarUltimaVenda;
    const BusyReply reply = busy_reply(123456, function);
    EXPECT_EQ(reply.text, "123456|" + kFunctions[function].busy_code + (sells ? "|0000" : "") +
                              "|SAT em processamento, tente novamente.||");
    EXPECT_EQ(reply.result, static_cast<int>(reply.text.size()));
  }
}

TEST_F(BusyReplies, SessionIsPrintedSignedAndWithoutZeros) {
  EXPECT_EQ(busy_reply(-42, kConsultarSAT).text, "-42|08098|SAT em processamento, tente novamente.||");
  EXPECT_EQ(busy_reply(0, kConsultarSAT).text, "0|08098|SAT em processamento, tente novamente.||");
  EXPECT_EQ(busy_reply(INT_MIN, kConsultarSAT).text,
            "-2147483648|08098|SAT em processamento, tente novamente.||");
}

TEST_F(BusyReplies, AreTraced) {
  busy_reply(42, kEnviarDadosVenda);
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre("INF " + kTracePrefix +
                          "All rc[00000]OK:All Gen 98Return \n\t << "
                          "API->PC[00054:42|06098|0000|SAT em processamento, tente novamente.||]\n"));
}

TEST_F(BusyReplies, LastFunctionGetsTheErrorText) {
  const BusyReply reply = busy_reply(42, kConsultarUltimaSessaoFiscal);
  EXPECT_EQ(reply.result, -3000);
  EXPECT_EQ(reply.text, "SAT Erro[-03000] Parametro Invalido  SAT L[3149] F[generate_98_return] ");
  EXPECT_THAT(trace_messages("SAT_api.log"),
              ElementsAre("ERR " + kTracePrefix + " rc[-03000]ER:All All Error!!!!!!\n"));
}

TEST_F(BusyReplies, LeaveErrnoAsItWas) {
  errno = EAGAIN;
  busy_reply(42, kEnviarDadosVenda);
  EXPECT_EQ(errno, EAGAIN);
  busy_reply(42, kConsultarUltimaSessaoFiscal);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(ReturnCodeMessages, KnownCodes) {
  EXPECT_STREQ(SAT_GetRetCodeMsg(6000, nullptr), "Emitido com sucesso + conteudo notas");
  EXPECT_STREQ(SAT_GetRetCodeMsg(6098, nullptr), "SAT em processamento. Tente novamente");
}

TEST(ReturnCodeMessages, EveryCodeUpTo100000) {
  std::map<int, std::string> messages;
  for (const CodeAndMessage& row : kReturnCodes) messages[row.code] = row.message;
  messages[0] = "SAT Codigo Retorno[00000] Ignorar.....";
  messages[55555] = "";
  for (int code = 0; code <= 100000; ++code) {
    SCOPED_TRACE(code);
    const char* message = SAT_GetRetCodeMsg(code, nullptr);
    if (code == 99999) {
      ASSERT_EQ(message, nullptr);
    } else if (const auto known = messages.find(code); known != messages.end()) {
      ASSERT_EQ(message, known->second);
    } else {
      char expected[64];
      std::snprintf(expected, sizeof expected, "SAT Codigo Retorno[%05d] Desconhecido", code);
      ASSERT_STREQ(message, expected);
    }
  }
}

TEST(ReturnCodeMessages, ZeroIsToBeIgnored) {
  EXPECT_STREQ(SAT_GetRetCodeMsg(0, nullptr), "SAT Codigo Retorno[00000] Ignorar.....");
}

TEST(ReturnCodeMessages, UnknownCodes) {
  EXPECT_STREQ(SAT_GetRetCodeMsg(12345, nullptr), "SAT Codigo Retorno[12345] Desconhecido");
  EXPECT_STREQ(SAT_GetRetCodeMsg(7, nullptr), "SAT Codigo Retorno[00007] Desconhecido");
  EXPECT_STREQ(SAT_GetRetCodeMsg(INT_MAX, nullptr), "SAT Codigo Retorno[2147483647] Desconhecido");
}

TEST(ReturnCodeMessages, Code55555IsEmpty) {
  EXPECT_STREQ(SAT_GetRetCodeMsg(55555, nullptr), "");
}

TEST(ReturnCodeMessages, Code99999IsTheSentinelAndGivesNull) {
  EXPECT_EQ(SAT_GetRetCodeMsg(99999, nullptr), nullptr);
}

TEST(ReturnCodeMessages, SecondCallOverwritesTheResultOfTheFirst) {
  const char* first = SAT_GetRetCodeMsg(12345, nullptr);
  const char* second = SAT_GetRetCodeMsg(0, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "SAT Codigo Retorno[00000] Ignorar.....");
}

TEST(ReturnCodeMessages, PositiveCodesLeaveTheTextAlone) {
  std::string text(150, 'x');
  EXPECT_STREQ(SAT_GetRetCodeMsg(8000, text.data()), "SAT em operacao");
  SAT_GetRetCodeMsg(0, text.data());
  SAT_GetRetCodeMsg(12345, text.data());
  EXPECT_EQ(text, std::string(150, 'x'));
}

// Heap memory of exactly the text's size, so that a sanitizer sees every byte outside.
std::unique_ptr<char[]> exact_copy(const std::string& text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

TEST(FailureTexts, Of150CharactersAreCutTo100) {
  const std::string text = "SAT Erro[-02000] " + std::string(133, 'x');
  const auto copy = exact_copy(text);
  const char* shortened = SAT_GetRetCodeMsg(-2000, copy.get());
  EXPECT_EQ(shortened, copy.get());
  EXPECT_EQ(std::string(shortened), text.substr(0, 97) + "..>");
  EXPECT_EQ(std::string(copy.get() + 101, copy.get() + 151), text.substr(101) + '\0');
}

TEST(FailureTexts, Of100CharactersStay) {
  const auto copy = exact_copy(std::string(100, 'x'));
  EXPECT_EQ(SAT_GetRetCodeMsg(-1, copy.get()), copy.get());
  EXPECT_EQ(std::string(copy.get()), std::string(100, 'x'));
}

TEST(FailureTexts, Of101CharactersAreCut) {
  const auto copy = exact_copy(std::string(101, 'x'));
  EXPECT_EQ(SAT_GetRetCodeMsg(INT_MIN, copy.get()), copy.get());
  EXPECT_EQ(std::string(copy.get()), std::string(97, 'x') + "..>");
}

TEST(FailureTexts, NullStaysNull) {
  EXPECT_EQ(SAT_GetRetCodeMsg(-1, nullptr), nullptr);
}

TEST(FailureTexts, EmptyStaysEmpty) {
  char empty[1] = "";
  EXPECT_EQ(SAT_GetRetCodeMsg(-1, empty), empty);
  EXPECT_EQ(empty[0], '\0');
}

TEST(FailureTexts, Of10000CharactersAndEveryByteValue) {
  std::string text;
  while (text.size() < 10000) text += static_cast<char>(1 + text.size() % 255);
  const auto copy = exact_copy(text);
  EXPECT_EQ(SAT_GetRetCodeMsg(-2010, copy.get()), copy.get());
  EXPECT_EQ(std::string(copy.get()), text.substr(0, 97) + "..>");
}

}  // namespace
