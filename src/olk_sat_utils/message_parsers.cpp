// The exported parsers of the commercial application: they account for a message text, without STX, checksum
// and ETX, in the trace log and read session number and result code out of a response.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "olk_sat_utils/frames.h"
#include "olk_sat_utils/sat_functions.h"
#include "olk_sat_utils/sat_utils_trace.h"
#include "olk_sat_utils/split_text.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/system_clock.h"

#define COMMAND_TRACE(...) SAT_UTILS_TRACE_IN("SAT_APP_CmdParcer", kInfo, __VA_ARGS__)
#define RESPONSE_TRACE(level, ...) SAT_UTILS_TRACE_IN("SAT_APP_RspParcer", level, __VA_ARGS__)

namespace {

constexpr size_t kCommandCopySlack = 10;
constexpr size_t kResponseCopySlack = 5000;

// What VersaoDllTalvex answers begins with this, and no device's response does.
constexpr char kVersionStart[] = "TALVEX ";

// Commands have no more arguments than this; further fields are marked.
constexpr int kKnownCommandFields = 6;

// The command that a response belongs to, and where the caller wants what is read out of it.
struct Inquiry {
  const char* command_name;
  uint32_t session;
  uint32_t* last_sale_session;
  uint32_t* response_session;
  uint32_t* result_code;
};

void store(uint32_t* destination, uint32_t value) {
  if (destination != nullptr) *destination = value;
}

uint32_t unsigned_value(const char* text) {
  return static_cast<uint32_t>(decimal_value(text));
}

bool records_sales(const char* command_name) {
  const SatFunction* function = find_sat_function(command_name);
  return function != nullptr && function->sells;
}

// That query is answered with the session of the last sale or cancellation, so another number is no error.
bool answers_with_other_session(const char* command_name) {
  return find_sat_function(command_name) == &kSatFunctions[kConsultarUltimaSessaoFiscal];
}

// R01. False ends the parse: the response belongs to another command.
bool take_session(const Inquiry& inquiry, int number, const char* token) {
  const uint32_t session = unsigned_value(token);
  store(inquiry.response_session, session);
  const int length = length_field(strlen(token));
  const int asked = static_cast<int>(inquiry.session);
  const int answered = static_cast<int>(session);

  if (session == inquiry.session) {
    RESPONSE_TRACE(kInfo, "--- << R%02d  numeroSessao[%08d:%s] Cmd:Rsp[%06d:%06d]OK:Match\n", number, length,
                   token, asked, answered);
  } else if (answers_with_other_session(inquiry.command_name)) {
    RESPONSE_TRACE(kWarning,
                   "--- << R%02d  numeroSessao[%08d:%s] Cmd:Rsp[%06d:%06d]WR:UltimaVenda/Cancelamento!!!\n",
                   number, length, token, asked, answered);
  } else {
    RESPONSE_TRACE(kInfo, "--- << R%02d  numeroSessao[%08d:%s] Cmd:Rsp[%06d:%06d]WR:MissMatch!!!\n", number,
                   length, token, asked, answered);
    return false;
  }
  if (records_sales(inquiry.command_name)) store(inquiry.last_sale_session, inquiry.session);
  return true;
}

void trace_response_field(int number, const char* token) {
  const int length = length_field(strlen(token));
  switch (number) {
    case 2:
      RESPONSE_TRACE(kInfo, "--- << R%02d         EEEEE[%08d:%s]\n", number, length, token);
      break;
    case 3:
      RESPONSE_TRACE(kInfo, "--- << R%02d      mensagem[%08d:%s]\n", number, length, token);
      break;
    case 4:
      RESPONSE_TRACE(kInfo, "--- << R%02d           cod[%08d:%s]\n", number, length, token);
      break;
    case 5:
      RESPONSE_TRACE(kInfo, "--- << R%02d mensagemSEFAZ[%08d:%s]\n", number, length, token);
      break;
    case 6:
      RESPONSE_TRACE(kInfo, "--- << R%02d           CSR[%08d:%s] TipoCertificado(1 ou 2)ICP-BRASIL\n", number,
                     length, token);
      break;
    default:
      RESPONSE_TRACE(kInfo, "--- << R%02d           ---[%08d:%s]UNKNOWN\n", number, length, token);
      break;
  }
}

// The tokenizer skips runs of separators: counts and traces the empty fields behind a token, the one
// between the last separator and the end of the text included. Returns the number of the last of them.
int trace_empty_response_fields(int number, const char* behind_separator) {
  for (const char* separator = behind_separator; *separator == kFieldSeparator; ++separator) {
    const int fields = separator[1] == '\0' ? 2 : 1;
    for (int field = 0; field < fields; ++field) {
      ++number;
      RESPONSE_TRACE(kInfo, "--- << R%02d              [NULL]\n", number);
    }
  }
  return number;
}

int parse_response(const Inquiry& inquiry, const char* text, size_t text_length, char* copy) {
  char* rest = nullptr;
  char* token = strtok_r(copy, kSeparators, &rest);
  if (token == nullptr) {
    RESPONSE_TRACE(kInfo,
                   "--- argc[%02d] SatArgs=[%08d:%s]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n", 0,
                   length_field(text_length), text);
    return 0;
  }
  int number = 1;
  for (int index = 0; text[index] == kFieldSeparator; ++index) {
    RESPONSE_TRACE(kInfo, "--- << R%02d  ------------[0000:NULL] pAllocedArgs[%d]=[%02Xh]\n", number, index,
                   text[index]);
    ++number;
  }

  int result = 0;
  for (; token != nullptr; token = strtok_r(nullptr, kSeparators, &rest)) {
    if (number == 1) {
      if (!take_session(inquiry, number, token)) return 0;
    } else {
      trace_response_field(number, token);
    }
    if (number == 2) {
      result = decimal_value(token);
      store(inquiry.result_code, static_cast<uint32_t>(result));
    }
    number = trace_empty_response_fields(number, token + strlen(token) + 1) + 1;
  }
  return result;
}

void trace_command_field(int number, const char* token) {
  const int length = length_field(strlen(token));
  if (number > kKnownCommandFields) {
    COMMAND_TRACE("--- >> P%02d  ------------[%08d:%s]UNKNOWN\n", number, length, token);
  } else {
    COMMAND_TRACE("--- >> P%02d  ------------[%08d:%s]\n", number, length, token);
  }
}

// Kept: looks at the token's third byte, so empty fields are seen behind tokens of one character only.
int trace_empty_command_fields(int number, const char* token) {
  for (int index = 2; token[index] == kFieldSeparator; ++index) {
    ++number;
    COMMAND_TRACE("--- >> P%02d  ------------[0000:NULL] pSatArg[%d]=[%02Xh]\n", number, index, token[index]);
  }
  return number;
}

unsigned parse_command(const char* text, size_t text_length, char* copy) {
  char* rest = nullptr;
  char* token = strtok_r(copy, kSeparators, &rest);
  if (token == nullptr) {
    COMMAND_TRACE("--- argc[%02d] SatArgs=[%08d:%s]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n", 0,
                  length_field(text_length), text);
    return 0;
  }
  int number = 1;
  for (int index = 0; text[index] == kFieldSeparator; ++index) {
    COMMAND_TRACE("--- >> P%02d  ------------[0000:NULL] pAllocedArgs[%d]=[%02Xh]\n", number, index,
                  text[index]);
    ++number;
  }
  for (; token != nullptr; token = strtok_r(nullptr, kSeparators, &rest)) {
    trace_command_field(number, token);
    number = trace_empty_command_fields(number, token) + 1;
  }
  return static_cast<unsigned>(number);
}

}  // namespace

unsigned int SAT_APP_CmdParcer(const void* /*pUnused*/, const char* SatArgs) {
  if (SatArgs == nullptr) {
    SAT_UTILS_TRACE(kInfo, "--- argc[%02d] SatArgs=NULL\n", 0);
    return 0;
  }
  const size_t length = strlen(SatArgs);
  char* const copy = copy_to_split(SatArgs, length, kCommandCopySlack);
  if (copy == nullptr) {
    SAT_UTILS_TRACE(kInfo, "--- argc[%02d] SatArgs=[%08d:%s]CALLOC FAIL!!!\n", 0, length_field(length),
                    SatArgs);
    return 0;
  }
  const unsigned field_number = parse_command(SatArgs, length, copy);
  free(copy);
  return field_number;
}

int SAT_APP_RspParcer(const char* pSatCmdName, uint32_t uiCmdSession, uint32_t* puiLastSaleSession,
                      uint32_t* puiRspSession, uint32_t* puiEEEEE, const char* pSatResult) {
  if (pSatResult == nullptr) {
    SAT_UTILS_TRACE(kInfo, "--- rc[%05d]WR:pSatResult=NULL\n", 0);
    return 0;
  }
  if (pSatResult[0] == '\0') {
    SAT_UTILS_TRACE(kInfo, "--- rc[%05d]WR:pSatResult Len=0\n", 0);
    return 0;
  }
  const size_t length = strlen(pSatResult);
  if (strncmp(pSatResult, kVersionStart, strlen(kVersionStart)) == 0) {
    SAT_UTILS_TRACE(kInfo, "--- << R%02d << R01  VerDllTalvex[%08d:%s] rc[%05d]OK\n", 1, length_field(length),
                    pSatResult, 0);
    return 0;
  }
  // Such a text is an error message of the library itself.
  if (strchr(pSatResult, kFieldSeparator) == nullptr) {
    SAT_UTILS_TRACE(kError, "--- rc[%06d]APP:ER\n\t << E%02d << API_ERR_MSG[%08d:%s]\n",
                    TALVEX_APP_NO_SEPARATOR, 1, length_field(length), pSatResult);
    return TALVEX_APP_NO_SEPARATOR;
  }
  char* const copy = copy_to_split(pSatResult, length, kResponseCopySlack);
  if (copy == nullptr) {
    SAT_UTILS_TRACE(kError, "--- rc[%05d]ER SatArgs=[%08d:%s]CALLOC FAIL!!!\n", TALVEX_APP_NO_MEMORY,
                    length_field(length), pSatResult);
    return TALVEX_APP_NO_MEMORY;
  }
  const Inquiry inquiry{text_or_empty(pSatCmdName), uiCmdSession, puiLastSaleSession, puiRspSession,
                        puiEEEEE};
  const int result = parse_response(inquiry, pSatResult, length, copy);
  free(copy);
  return result;
}

// Seeded anew on every call: two calls within a millisecond draw the same number.
uint32_t SAT_APP_GenRndNum(uint32_t n) {
  srand(static_cast<unsigned>(GetCurrentMilliTime()));
  return static_cast<uint32_t>(rand()) % n;
}

int SAT_Free_AllocedMsg(void* /*pMsg*/) {
  constexpr int kNothingReleased = -1;
  SAT_UTILS_TRACE(kWarning, "--- rc[%04d]\n", kNothingReleased);
  return kNothingReleased;
}
