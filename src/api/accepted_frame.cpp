#include "api/accepted_frame.h"

#include <stdio.h>
#include <string.h>

#include "api/acknowledgement.h"
#include "api/api_trace.h"
#include "api/protocol_log.h"
#include "olk_sat_utils/dissectors.h"

namespace {

constexpr char kReadBuf[] = "cSerialReadBufW";

constexpr int kExcerptHead = 900;
constexpr uint32_t kExcerptTail = 100;

char excerpt[kPacketBufferSize];

// Head, mark and tail, checksum and ETX included. Both records of a frame show the same one.
void build_excerpt(const char* frame, uint32_t etx) {
  snprintf(excerpt, sizeof excerpt, "%.*s....***BIG_RSP_PKT***....%s", kExcerptHead, frame,
           frame + etx - kExcerptTail);
}

// Kept: behind the frame this line and the excerpt go on with what a refused reception of the same call left
// in the buffer.
void trace_frame(const char* frame, uint32_t etx) {
  if (etx <= kLargeTraceSize) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd\n\t << SAT->SO  Recv[%04d:<STX>%s]\n",
                 length_field(strlen(frame)), frame);
  } else {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd BIG_RSP_PKT[%04d]\n\t << SAT->SO  Recv[%04d:<STX>%s]\n",
                 length_field(etx), length_field(strlen(excerpt)), excerpt);
  }
}

void trace_reply(const char* reply, uint32_t etx) {
  if (etx <= kLargeTraceSize) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd\n\t <<  SO->PC   Rsp[%05d:%s]\n", length_field(strlen(reply)),
                 reply);
  } else {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd BIG_RSP_PKT[%05d]\n\t <<  SO->PC   Rsp[%05d:%s]\n",
                 length_field(etx), length_field(strlen(excerpt)), excerpt);
  }
}

}  // namespace

int32_t accept_frame(Call& call, uint32_t etx) {
  char* const frame = call.packet.bytes;
  if (etx > kLargeTraceSize && trace_passes(kInfo)) build_excerpt(frame, etx);
  trace_frame(frame, etx);
  trace_response_frame(frame, static_cast<int>(etx));
  frame[etx - 1] = '\0';
  LogSATProtocolMsg(frame, true);
  trace_reply(frame, etx);
  memset(excerpt, 0, strlen(excerpt));
  lSerialWriteAck(call.port, true);
  return static_cast<int32_t>(etx - 1);
}
