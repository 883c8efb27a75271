#include "api/accepted_frame.h"

#include <stdio.h>
#include <string.h>

#include "api/acknowledgement.h"
#include "api/api_trace.h"
#include "api/protocol_log.h"
#include "olk_sat_utils/dissectors.h"

namespace {

constexpr char kReadBuf[] = "cSerialReadBufW";

constexpr uint32_t kLargeTraceSize = 1000;  // frames beyond it are traced by an excerpt
constexpr int kExcerptHead = 900;
constexpr int kExcerptTail = 100;

// Head, mark and tail, checksum and ETX included. Both records of a frame show the same.
struct Excerpt {
  char text[kExcerptHead + kExcerptTail + 64];
};

Excerpt excerpt_of(const char* frame, uint32_t etx) {
  Excerpt excerpt;
  snprintf(excerpt.text, sizeof excerpt.text, "%.*s....***BIG_RSP_PKT***....%.*s", kExcerptHead, frame,
           kExcerptTail + 1, frame + etx - kExcerptTail);
  return excerpt;
}

// Kept: behind a short frame the line goes on with what a refused reception of the same call left in the
// buffer.
void trace_frame(const char* frame, uint32_t etx, const Excerpt& excerpt) {
  if (etx <= kLargeTraceSize) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd\n\t << SAT->SO  Recv[%04d:<STX>%s]\n",
                 length_field(strlen(frame)), frame);
  } else {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd BIG_RSP_PKT[%04d]\n\t << SAT->SO  Recv[%04d:<STX>%s]\n",
                 length_field(etx), length_field(strlen(excerpt.text)), excerpt.text);
  }
}

void trace_reply(const char* reply, uint32_t etx, const Excerpt& excerpt) {
  if (etx <= kLargeTraceSize) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd\n\t <<  SO->PC   Rsp[%05d:%s]\n", length_field(strlen(reply)),
                 reply);
  } else {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd BIG_RSP_PKT[%05d]\n\t <<  SO->PC   Rsp[%05d:%s]\n",
                 length_field(etx), length_field(strlen(excerpt.text)), excerpt.text);
  }
}

}  // namespace

int32_t accept_frame(Call& call, uint32_t etx) {
  char* const frame = call.packet.bytes;
  const Excerpt excerpt = etx > kLargeTraceSize && trace_passes(kInfo) ? excerpt_of(frame, etx) : Excerpt{};
  trace_frame(frame, etx, excerpt);
  trace_response_frame(frame, static_cast<int>(etx));
  frame[etx - 1] = '\0';
  LogSATProtocolMsg(frame, true);
  trace_reply(frame, etx, excerpt);
  lSerialWriteAck(call.port, true);
  return static_cast<int32_t>(etx - 1);
}
