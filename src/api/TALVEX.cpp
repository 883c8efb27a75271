// The exported SAT functions. Each one makes a call record, formats its command into the packet buffer, has
// it carried to the device and returns the packet buffer, which then holds the reply.
//
//   SAT function -> Communicate -> findSat, port, lSerialWriteBufL, cSerialReadBufW -> frames, logs
#include "talvex/talvex.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "api/api_trace.h"
#include "api/call.h"
#include "api/communicate.h"
#include "api/context.h"
#include "api/link_codes.h"
#include "api/result_files.h"
#include "api/version.h"
#include "olk_sat_utils/frames.h"
#include "olk_utils/bounded_text.h"

namespace {

constexpr int kSessionModulus = 1000000;

// A command needs room behind it for the ETX that follows the checksum, and for a NUL.
constexpr size_t kLongestCommand = kPacketBufferSize - 2;

PacketBuffer begin(const char* function) {
  init_global_sat_struct();
  PacketBuffer packet = packet_buffer();
  clear(packet, packet.capacity);
  copy_text(gl_tSat.CurSatCmdInProc, function);
  return packet;
}

Call begin_call(SatFunctionIndex index, int session) {
  const SatFunction& function = kSatFunctions[index];
  const PacketBuffer packet = begin(function.name);
  return {.function = function,
          .session = session % kSessionModulus,
          .reply_timeout_s = reply_timeout_s(gl_tSat.settings, index),
          .settings = gl_tSat.settings,
          .packet = packet};
}

int text_length(const Call& call) {
  return length_field(strlen(call.packet.bytes));
}

void refuse_command(Call& call) {
  const char* function = call.function.name;
  const int limit = static_cast<int>(kLongestCommand);
  replace_text(call.packet, "SAT Erro[%06d]Lnx Comando excede o limite de %d bytes F[%s] LibVer[%s]",
               kLinkCommandTooLong, limit, function, kLibraryDate);
  API_TRACE_IN(function, kError, " rc[%06d]ER Command exceeds %d bytes, not sent\n", kLinkCommandTooLong,
               limit);
}

// A command that does not fit is never cut: false, with a failure text in its place.
__attribute__((format(printf, 2, 3))) bool format_command(Call& call, const char* format, ...) {
  PacketBuffer& packet = call.packet;
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(packet.bytes, packet.capacity, format, arguments);
  va_end(arguments);
  if (length < 0 || static_cast<size_t>(length) > kLongestCommand) {
    mark_written(packet, packet.capacity);
    refuse_command(call);
    return false;
  }
  mark_written(packet, static_cast<size_t>(length) + 1);  // ETX follows the checksum
  return true;
}

char* end_call(const Call& call, int rc) {
  char* const reply = call.packet.bytes;
  if (rc < 0) {
    API_TRACE_IN(call.function.name, kError, " rc[%06d]ER\n\t << SAT_Rsp[%05d:%s]\n", rc, text_length(call),
                 reply);
  }
  return reply;
}

// Result files are written for failure and busy texts too.
char* complete_call(Call& call, bool formatted) {
  const int rc = formatted ? Communicate(call) : kLinkCommandTooLong;
  if (call.function.result_file != nullptr) write_operation_result(call);
  return end_call(call, rc);
}

}  // namespace

char* AtivarSAT(int numeroSessao, int subComando, const char* codigoDeAtivacao, const char* CNPJ, int cUF) {
  Call call = begin_call(kAtivarSAT, numeroSessao);
  return complete_call(call,
                       format_command(call, "%cAtivarSAT|%06d|%d|%s|%s|%d%c", kStx, call.session, subComando,
                                      text_or_empty(codigoDeAtivacao), text_or_empty(CNPJ), cUF, kEtx));
}

char* ComunicarCertificadoICPBRASIL(int numeroSessao, const char* codigoDeAtivacao, const char* certificado) {
  Call call = begin_call(kComunicarCertificadoICPBRASIL, numeroSessao);
  return complete_call(
      call, format_command(call, "%cComunicarCertificadoICPBRASIL|%06d|%s|%s%c", kStx, call.session,
                           text_or_empty(codigoDeAtivacao), text_or_empty(certificado), kEtx));
}

char* EnviarDadosVenda(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda) {
  Call call = begin_call(kEnviarDadosVenda, numeroSessao);
  return complete_call(call,
                       format_command(call, "%cEnviarDadosVenda|%06d|%s|%s%c", kStx, call.session,
                                      text_or_empty(codigoDeAtivacao), text_or_empty(dadosVenda), kEtx));
}

char* CancelarUltimaVenda(int numeroSessao, const char* codigoDeAtivacao, const char* chave,
                          const char* dadosCancelamento) {
  Call call = begin_call(kCancelarUltimaVenda, numeroSessao);
  return complete_call(call, format_command(call, "%cCancelarUltimaVenda|%06d|%s|%s|%s%c", kStx, call.session,
                                            text_or_empty(codigoDeAtivacao), text_or_empty(chave),
                                            text_or_empty(dadosCancelamento), kEtx));
}

char* ConsultarSAT(int numeroSessao) {
  Call call = begin_call(kConsultarSAT, numeroSessao);
  return complete_call(call, format_command(call, "%cConsultarSAT|%06d%c", kStx, call.session, kEtx));
}

char* TesteFimAFim(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda) {
  Call call = begin_call(kTesteFimAFim, numeroSessao);
  return complete_call(call,
                       format_command(call, "%cTesteFimAFim|%06d|%s|%s%c", kStx, call.session,
                                      text_or_empty(codigoDeAtivacao), text_or_empty(dadosVenda), kEtx));
}

char* ConsultarStatusOperacional(int numeroSessao, const char* codigoDeAtivacao) {
  Call call = begin_call(kConsultarStatusOperacional, numeroSessao);
  return complete_call(call, format_command(call, "%cConsultarStatusOperacional|%06d|%s%c", kStx,
                                            call.session, text_or_empty(codigoDeAtivacao), kEtx));
}

char* ConsultarNumeroSessao(int numeroSessao, const char* codigoDeAtivacao, int cNumeroDeSessao) {
  Call call = begin_call(kConsultarNumeroSessao, numeroSessao);
  return complete_call(call,
                       format_command(call, "%cConsultarNumeroSessao|%06d|%s|%06d%c", kStx, call.session,
                                      text_or_empty(codigoDeAtivacao), cNumeroDeSessao, kEtx));
}

char* ConfigurarInterfaceDeRede(int numeroSessao, const char* codigoDeAtivacao,
                                const char* dadosConfiguracao) {
  Call call = begin_call(kConfigurarInterfaceDeRede, numeroSessao);
  return complete_call(
      call, format_command(call, "%cConfigurarInterfaceDeRede|%06d|%s|%s%c", kStx, call.session,
                           text_or_empty(codigoDeAtivacao), text_or_empty(dadosConfiguracao), kEtx));
}

char* AssociarAssinatura(int numeroSessao, const char* codigoDeAtivacao, const char* CNPJvalue,
                         const char* assinaturaCNPJs) {
  Call call = begin_call(kAssociarAssinatura, numeroSessao);
  return complete_call(call, format_command(call, "%cAssociarAssinatura|%06d|%s|%s|%s%c", kStx, call.session,
                                            text_or_empty(codigoDeAtivacao), text_or_empty(CNPJvalue),
                                            text_or_empty(assinaturaCNPJs), kEtx));
}

char* AtualizarSoftwareSAT(int numeroSessao, const char* codigoDeAtivacao) {
  Call call = begin_call(kAtualizarSoftwareSAT, numeroSessao);
  return complete_call(call, format_command(call, "%cAtualizarSoftwareSAT|%06d|%s%c", kStx, call.session,
                                            text_or_empty(codigoDeAtivacao), kEtx));
}

char* ExtrairLogs(int numeroSessao, const char* codigoDeAtivacao) {
  Call call = begin_call(kExtrairLogs, numeroSessao);
  return complete_call(call, format_command(call, "%cExtrairLogs|%06d|%s%c", kStx, call.session,
                                            text_or_empty(codigoDeAtivacao), kEtx));
}

char* BloquearSAT(int numeroSessao, const char* codigoDeAtivacao) {
  Call call = begin_call(kBloquearSAT, numeroSessao);
  return complete_call(call, format_command(call, "%cBloquearSAT|%06d|%s%c", kStx, call.session,
                                            text_or_empty(codigoDeAtivacao), kEtx));
}

char* DesbloquearSAT(int numeroSessao, const char* codigoDeAtivacao) {
  Call call = begin_call(kDesbloquearSAT, numeroSessao);
  return complete_call(call, format_command(call, "%cDesbloquearSAT|%06d|%s%c", kStx, call.session,
                                            text_or_empty(codigoDeAtivacao), kEtx));
}

char* TrocarCodigoDeAtivacao(int numeroSessao, const char* codigoDeAtivacao, int opcao,
                             const char* novoCodigo, const char* confNovoCodigo) {
  Call call = begin_call(kTrocarCodigoDeAtivacao, numeroSessao);
  return complete_call(call, format_command(call, "%cTrocarCodigoDeAtivacao|%06d|%s|%d|%s|%s%c", kStx,
                                            call.session, text_or_empty(codigoDeAtivacao), opcao,
                                            text_or_empty(novoCodigo), text_or_empty(confNovoCodigo), kEtx));
}

// The only one that traces its command and its reply.
char* ConsultarUltimaSessaoFiscal(int numeroSessao, const char* codigoDeAtivacao) {
  Call call = begin_call(kConsultarUltimaSessaoFiscal, numeroSessao);
  char* const text = call.packet.bytes;
  int rc = kLinkCommandTooLong;
  if (format_command(call, "%cConsultarUltimaSessaoFiscal|%06d|%s%c", kStx, call.session,
                     text_or_empty(codigoDeAtivacao), kEtx)) {
    API_TRACE(kInfo, " rc[%06d]WR\n\t >> SAT_Cmd[%05d:%s]\n", 0, text_length(call), text);
    rc = Communicate(call);
  }
  if (rc < 0) {
    API_TRACE(kError, " rc[%06d]ER\n\tSAT->PC <<    SAT_Rsp[%05d:%s]\n", rc, text_length(call), text);
  } else {
    API_TRACE(kInfo, " rc[%06d]OK\n\tSAT->PC <<    SAT_Rsp[%05d:%s]\n", rc, text_length(call), text);
  }
  return end_call(call, rc);
}

char* VersaoDllTalvex(void) {
  PacketBuffer packet = begin(__func__);
  copy_text(packet.bytes, packet.capacity, kVersionText);
  return packet.bytes;
}
