// What a SAT function can answer: its busy reply, and the messages of the return codes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "olk_sat_utils/sat_functions.h"
#include "talvex/talvex.h"

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
// kBusyReplyError, with an error text in out, for a function that has none.
inline constexpr size_t kBusyReplySize = 128;
int generate_98_return(char* out, int32_t session, const SatFunction& function);
