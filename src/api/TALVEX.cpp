// The exported SAT functions. Each one initialises the library, clears the packet buffer, formats its
// command, carries it to the device and returns the packet buffer, which then holds the reply.
//
//   SAT function -> Communicate -> findSat, port, lSerialWriteBufL, cSerialReadBufW -> frames, logs
#include "talvex/talvex.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "api/communicate.h"
#include "api/context.h"
#include "api/link_codes.h"
#include "api/result_files.h"
#include "api/version.h"
#include "olk_sat_utils/frames.h"
#include "olk_sat_utils/return_codes.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/trace_log.h"

namespace {

constexpr int kSessionModulus = 1000000;

// Fields of a generated busy reply: six where the reply carries an alert code, five elsewhere.
constexpr uint32_t kFiveFields = 5;
constexpr uint32_t kSixFields = 6;

// A command needs room behind it for the ETX that follows the checksum, and for a NUL.
constexpr size_t kLongestCommand = kPacketBufferSize - 2;

void clear_for(const char* function) {
  init_global_sat_struct();
  packet_buffer_ends_at(kPacketBufferSize);  // the host may have written anywhere
  clear_buffer(gl_sSatPkt, kPacketBufferSize);
  copy_text(gl_tSat.CurSatCmdInProc, function);
}

// Returns the session number as it is sent.
int begin_call(const char* function, int session) {
  clear_for(function);
  return session % kSessionModulus;
}

int refuse_command() {
  const int rc = kLinkWrite;
  const int limit = static_cast<int>(kLongestCommand);
  write_failure_text(gl_sSatPkt, "SAT Erro[%06d]Lnx Comando excede o limite de %d bytes F[%s] LibVer[%s]", rc,
                     limit, gl_tSat.CurSatCmdInProc, kLibraryDate);
  API_TRACE_IN(gl_tSat.CurSatCmdInProc, kError, " rc[%06d]ER Command exceeds %d bytes, not sent\n", rc,
               limit);
  return rc;
}

// Formats the command into the packet buffer. A command that does not fit is never cut: it is refused, with
// a failure text in its place and a negative result.
__attribute__((format(printf, 1, 0))) int vformat_command(const char* format, va_list arguments) {
  const int length = vsnprintf(gl_sSatPkt, kPacketBufferSize, format, arguments);
  if (length < 0 || static_cast<size_t>(length) > kLongestCommand) return refuse_command();
  packet_buffer_ends_at(static_cast<size_t>(length) + 1);  // ETX follows the checksum
  return length;
}

__attribute__((format(printf, 1, 2))) int format_command(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int rc = vformat_command(format, arguments);
  va_end(arguments);
  return rc;
}

int communicate(SatFunction function, int session, uint32_t layout) {
  return Communicate(gl_sSatPkt, tRetCode98[function].timeoutSeconds, static_cast<uint32_t>(session),
                     function, layout);
}

__attribute__((format(printf, 4, 5))) int transact(SatFunction function, int session, uint32_t layout,
                                                   const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int rc = vformat_command(format, arguments);
  va_end(arguments);
  return rc < 0 ? rc : communicate(function, session, layout);
}

uint32_t text_length() {
  return static_cast<uint32_t>(strlen(gl_sSatPkt));
}

char* end_call(const char* function, int rc) {
  if (rc < 0) {
    API_TRACE_IN(function, kError, " rc[%06d]ER\n\t << SAT_Rsp[%05d:%s]\n", rc, length_field(text_length()),
                 gl_sSatPkt);
  }
  return gl_sSatPkt;
}

}  // namespace

char* AtivarSAT(int numeroSessao, int subComando, const char* codigoDeAtivacao, const char* CNPJ, int cUF) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kAtivarSAT, session, kFiveFields, "%cAtivarSAT|%06d|%d|%s|%s|%d%c", kStx, session,
                          subComando, text_or_empty(codigoDeAtivacao), text_or_empty(CNPJ), cUF, kEtx);
  return end_call(__func__, rc);
}

char* ComunicarCertificadoICPBRASIL(int numeroSessao, const char* codigoDeAtivacao, const char* certificado) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kComunicarCertificadoICPBRASIL, session, kFiveFields,
                          "%cComunicarCertificadoICPBRASIL|%06d|%s|%s%c", kStx, session,
                          text_or_empty(codigoDeAtivacao), text_or_empty(certificado), kEtx);
  return end_call(__func__, rc);
}

char* EnviarDadosVenda(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kEnviarDadosVenda, session, kSixFields, "%cEnviarDadosVenda|%06d|%s|%s%c", kStx,
                          session, text_or_empty(codigoDeAtivacao), text_or_empty(dadosVenda), kEtx);
  write_operation_result(gl_sSatPkt, static_cast<uint32_t>(session), text_length(), "venda-cprx-", nullptr,
                         0);
  return end_call(__func__, rc);
}

char* CancelarUltimaVenda(int numeroSessao, const char* codigoDeAtivacao, const char* chave,
                          const char* dadosCancelamento) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kCancelarUltimaVenda, session, kSixFields, "%cCancelarUltimaVenda|%06d|%s|%s|%s%c",
                          kStx, session, text_or_empty(codigoDeAtivacao), text_or_empty(chave),
                          text_or_empty(dadosCancelamento), kEtx);
  write_operation_result(gl_sSatPkt, static_cast<uint32_t>(session), text_length(), "canc-cprx-",
                         dadosCancelamento, length_field(strlen(text_or_empty(dadosCancelamento))));
  return end_call(__func__, rc);
}

char* ConsultarSAT(int numeroSessao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kConsultarSAT, session, kFiveFields, "%cConsultarSAT|%06d%c", kStx, session, kEtx);
  return end_call(__func__, rc);
}

char* TesteFimAFim(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kTesteFimAFim, session, kFiveFields, "%cTesteFimAFim|%06d|%s|%s%c", kStx, session,
                          text_or_empty(codigoDeAtivacao), text_or_empty(dadosVenda), kEtx);
  return end_call(__func__, rc);
}

char* ConsultarStatusOperacional(int numeroSessao, const char* codigoDeAtivacao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc =
      transact(kConsultarStatusOperacional, session, kFiveFields, "%cConsultarStatusOperacional|%06d|%s%c",
               kStx, session, text_or_empty(codigoDeAtivacao), kEtx);
  return end_call(__func__, rc);
}

char* ConsultarNumeroSessao(int numeroSessao, const char* codigoDeAtivacao, int cNumeroDeSessao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc =
      transact(kConsultarNumeroSessao, session, kFiveFields, "%cConsultarNumeroSessao|%06d|%s|%06d%c", kStx,
               session, text_or_empty(codigoDeAtivacao), cNumeroDeSessao, kEtx);
  return end_call(__func__, rc);
}

char* ConfigurarInterfaceDeRede(int numeroSessao, const char* codigoDeAtivacao,
                                const char* dadosConfiguracao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc =
      transact(kConfigurarInterfaceDeRede, session, kFiveFields, "%cConfigurarInterfaceDeRede|%06d|%s|%s%c",
               kStx, session, text_or_empty(codigoDeAtivacao), text_or_empty(dadosConfiguracao), kEtx);
  return end_call(__func__, rc);
}

char* AssociarAssinatura(int numeroSessao, const char* codigoDeAtivacao, const char* CNPJvalue,
                         const char* assinaturaCNPJs) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kAssociarAssinatura, session, kFiveFields, "%cAssociarAssinatura|%06d|%s|%s|%s%c",
                          kStx, session, text_or_empty(codigoDeAtivacao), text_or_empty(CNPJvalue),
                          text_or_empty(assinaturaCNPJs), kEtx);
  return end_call(__func__, rc);
}

char* AtualizarSoftwareSAT(int numeroSessao, const char* codigoDeAtivacao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kAtualizarSoftwareSAT, session, kFiveFields, "%cAtualizarSoftwareSAT|%06d|%s%c",
                          kStx, session, text_or_empty(codigoDeAtivacao), kEtx);
  return end_call(__func__, rc);
}

char* ExtrairLogs(int numeroSessao, const char* codigoDeAtivacao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kExtrairLogs, session, kFiveFields, "%cExtrairLogs|%06d|%s%c", kStx, session,
                          text_or_empty(codigoDeAtivacao), kEtx);
  return end_call(__func__, rc);
}

char* BloquearSAT(int numeroSessao, const char* codigoDeAtivacao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kBloquearSAT, session, kFiveFields, "%cBloquearSAT|%06d|%s%c", kStx, session,
                          text_or_empty(codigoDeAtivacao), kEtx);
  return end_call(__func__, rc);
}

char* DesbloquearSAT(int numeroSessao, const char* codigoDeAtivacao) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc = transact(kDesbloquearSAT, session, kFiveFields, "%cDesbloquearSAT|%06d|%s%c", kStx, session,
                          text_or_empty(codigoDeAtivacao), kEtx);
  return end_call(__func__, rc);
}

char* TrocarCodigoDeAtivacao(int numeroSessao, const char* codigoDeAtivacao, int opcao,
                             const char* novoCodigo, const char* confNovoCodigo) {
  const int session = begin_call(__func__, numeroSessao);
  const int rc =
      transact(kTrocarCodigoDeAtivacao, session, kFiveFields, "%cTrocarCodigoDeAtivacao|%06d|%s|%d|%s|%s%c",
               kStx, session, text_or_empty(codigoDeAtivacao), opcao, text_or_empty(novoCodigo),
               text_or_empty(confNovoCodigo), kEtx);
  return end_call(__func__, rc);
}

// The only one that traces its command and its reply.
char* ConsultarUltimaSessaoFiscal(int numeroSessao, const char* codigoDeAtivacao) {
  const int session = begin_call(__func__, numeroSessao);
  int rc = format_command("%cConsultarUltimaSessaoFiscal|%06d|%s%c", kStx, session,
                          text_or_empty(codigoDeAtivacao), kEtx);
  if (rc >= 0) {
    API_TRACE(kInfo, " rc[%06d]WR\n\t >> SAT_Cmd[%05d:%s]\n", 0, length_field(text_length()), gl_sSatPkt);
    rc = communicate(kConsultarUltimaSessaoFiscal, session, kFiveFields);
  }
  if (rc < 0) {
    API_TRACE(kError, " rc[%06d]ER\n\tSAT->PC <<    SAT_Rsp[%05d:%s]\n", rc, length_field(text_length()),
              gl_sSatPkt);
  } else {
    API_TRACE(kInfo, " rc[%06d]OK\n\tSAT->PC <<    SAT_Rsp[%05d:%s]\n", rc, length_field(text_length()),
              gl_sSatPkt);
  }
  return end_call(__func__, rc);
}

char* VersaoDllTalvex(void) {
  clear_for(__func__);
  copy_text(gl_sSatPkt, kVersionText);
  return gl_sSatPkt;
}
