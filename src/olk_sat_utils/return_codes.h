// What a SAT function can answer: busy codes and time-outs per function, and the messages of the codes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "talvex/talvex.h"

// Row numbers of tRetCode98, in the order of the SAT standard.
enum SatFunction : uint32_t {
  kAtivarSAT,
  kComunicarCertificadoICPBRASIL,
  kEnviarDadosVenda,
  kCancelarUltimaVenda,
  kConsultarSAT,
  kTesteFimAFim,
  kConsultarStatusOperacional,
  kConsultarNumeroSessao,
  kConfigurarInterfaceDeRede,
  kAssociarAssinatura,
  kAtualizarSoftwareSAT,
  kExtrairLogs,
  kBloquearSAT,
  kDesbloquearSAT,
  kTrocarCodigoDeAtivacao,
  kConsultarUltimaSessaoFiscal,
  kSatFunctionCount,
};

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the order of the table's columns.
struct BusyReplyRow {
  int32_t index;
  const char* codePrefix;   // "98" behind it makes the function's busy code
  uint32_t timeoutSeconds;  // reception time-out; the configuration can replace it
};
extern BusyReplyRow tRetCode98[kSatFunctionCount];

struct ReturnCodeRow {
  const char* function;   // the SAT function that the code belongs to; null in the last row
  int32_t code;           // 4000 stands for "04000" in a reply
  const char* direction;  // "SAT->AC": from the device to the commercial application
  const char* message;    // null in the last row
};
// Ends with the row of code 99999; the room behind it is zero.
inline constexpr size_t kReturnCodeRoom = 200;
extern const ReturnCodeRow tCodRetSAT[kReturnCodeRoom];

// Notices of an emulated device. Ends with the row of code 9999, whose text is null.
struct SefazNotice {
  int32_t code;
  const char* text;
};
extern const SefazNotice tMensagemSEFAZ[];

inline constexpr int32_t kBusyReplyError = -3000;

// Writes the busy reply into out, which has room for kBusyReplySize bytes. Returns its length, or
// kBusyReplyError, with an error text in out, for an index outside 0 to 14. errno is left alone.
inline constexpr size_t kBusyReplySize = 128;
int generate_98_return(char* out, uint32_t session, uint32_t functionIndex, uint32_t replyLayout);
