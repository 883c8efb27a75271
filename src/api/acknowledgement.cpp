#include "api/acknowledgement.h"

#include <errno.h>
#include <string.h>

#include "api/api_trace.h"
#include "api/errno_trace.h"
#include "api/port_io.h"
#include "api/time_limits.h"
#include "olk_sat_utils/frames.h"
#include "olk_utils/system_clock.h"

namespace {

constexpr char kReadAck[] = "cSerialReadAck";

// No answer yet.
constexpr int32_t kNothingYet = -1;

// In the lines of the answer to a reply, whatever the limit.
constexpr int kShownTimeoutMs = 2000;

// One wait for an answer. False once the waits of the call are used up or nothing else is to be waited for:
// then it is time to look at the port.
bool waited_in_vain(const SerialPort& port, int& retries) {
  if (wait_readable(port.descriptor, kAckWaitMs) != kTimedOut) return false;
  const bool any_left = retries != 0;
  --retries;
  if (any_left) return true;
  API_TRACE_IN(kReadAck, kWarning,
               " rc[%05d]WR: Lnx:FAIL select Trying Read\n\t       hComm[%08Xh] \n\t selectRetry[%02d]\n",
               kNothingYet, hex32(port.descriptor), retries);
  return false;
}

// Kept: behind a stray STX the meanings are crossed, an ACK is answered by a retransmission and a NAK passes
// for an ACK. The bytes must already be there; nothing is waited for.
int32_t read_behind_stray_stx(Call& call, const timespec& start) {
  char byte = kStx;
  for (;;) {
    const ssize_t count = read_port(call.port, &byte, 1);
    if (count == 1 && byte == kAck) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]ACK Expected ETX\n", static_cast<uint8_t>(byte));
      return kAnswerRefused;
    }
    if (count == 1 && byte == kNak) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]NAK Expected ETX\n", static_cast<uint8_t>(byte));
      return kAnswerAcknowledged;
    }
    if (count == 1 && byte == kEtx) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]ETX\n", static_cast<uint8_t>(byte));
      return kAnswerEtxAfterStx;
    }
    const bool over = count == -1 || (count == 0 && wait_readable(call.port.descriptor, 0) == kHungUp) ||
                      elapsed_ms(start, monotonic_now()) > longest_wait_ms(call.reply_timeout_s);
    if (over) {
      API_TRACE_IN(kReadAck, kWarning, " rc[%06d]ER SAT->PC Rcvd[%02Xh]Exiting\n", kAnswerNone,
                   static_cast<uint8_t>(byte));
      return kAnswerNone;
    }
    if (count == 1) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]---\n", static_cast<uint8_t>(byte));
    } else {
      pace();
    }
  }
}

void trace_no_answer(const SerialPort& port, int32_t rc, int error, int64_t elapsed) {
  API_TRACE_IN(kReadAck, kError, "  rc[%05d]ER:Lnx hComm[%08Xh] Timeout[%s] t[%d]ms\n", rc,
               hex32(port.descriptor), strerror(error), static_cast<int>(elapsed));
}

// The byte that was read decides, unless it is garbage: kNothingYet.
int32_t judge_answer(Call& call, char byte, const timespec& start) {
  const auto shown = static_cast<uint8_t>(byte);
  switch (byte) {
    case kAck:
      API_TRACE_IN(kReadAck, kInfo, "  rc[%05d]WR:Lnx\n\t << SAT->PC Rcvd[%02Xh]ACK\n", kAnswerAcknowledged,
                   shown);
      return kAnswerAcknowledged;
    case kNak:
      API_TRACE_IN(kReadAck, kInfo, "  rc[%05d]WR:Lnx\n\t << SAT->PC Rcvd[%02Xh]NAK\n", kAnswerRefused,
                   shown);
      return kAnswerRefused;
    case kStx:
      API_TRACE_IN(kReadAck, kWarning, "  rc[%05d]WR:Lnx\n\t << SAT->PC Rcvd[%02Xh]STX Expected ACK or NAK\n",
                   kAnswerStrayStx, shown);
      return read_behind_stray_stx(call, start);
    default:
      API_TRACE_IN(kReadAck, kError, "  rc[%05d]ER:Lnx\n\t << SAT->PC Rcvd[%02Xh]--- Expected ACK or NAK\n",
                   kNothingYet, shown);
      return kNothingYet;
  }
}

// Nothing was read: kNothingYet while the wait may go on.
int32_t judge_silence(const SerialPort& port, ssize_t count, int error, int64_t elapsed) {
  if (count == -1 && error != 0 && error != EAGAIN) {
    if (error == EBADF && elapsed <= kBadDescriptorGraceMs) return kNothingYet;
    const int32_t rc = error == EBADF ? kAnswerPortLost : kAnswerReadFailed;
    trace_no_answer(port, rc, error, elapsed);
    trace_no_answer(port, rc, error, elapsed);  // kept: the line stands twice
    return rc;
  }
  if (count == -1 && error == EBADF) {
    API_TRACE_IN(kReadAck, kError,
                 "Win: BytesRead[%08d] errno[%08d]EBADF              diff[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(elapsed), kAckEmptyReadsMs);
  } else if (count == -1 && error != EAGAIN) {
    API_TRACE_IN(kReadAck, kError,
                 "Win: BytesRead[%08d] errno[%08d]OTHER              diff[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(elapsed), kAckEmptyReadsMs);
  }
  if (elapsed <= kAckEmptyReadsMs) return kNothingYet;
  trace_no_answer(port, kAnswerNone, error, elapsed);
  return kAnswerNone;
}

}  // namespace

int32_t cSerialReadAck(Call& call) {
  SerialPort& port = call.port;
  int retries = kAckWaits - 1;
  const timespec start = monotonic_now();
  for (;;) {
    const bool in_vain = waited_in_vain(port, retries);
    char byte = 0;
    const ssize_t count = in_vain ? 0 : read_port(port, &byte, 1);
    const int error = errno;
    const int64_t elapsed = elapsed_ms(start, monotonic_now());

    int32_t rc = kNothingYet;
    if (count == 1) {
      rc = judge_answer(call, byte, start);
    } else if (!in_vain) {
      rc = judge_silence(port, count, error, elapsed);
      if (rc == kNothingYet) pace();
    }
    if (rc == kNothingYet && elapsed > longest_wait_ms(call.reply_timeout_s)) {
      rc = kAnswerNone;
      trace_no_answer(port, rc, error, elapsed);
    }
    if (rc != kNothingYet) return rc;
  }
}

int32_t lSerialWriteAck(SerialPort& port, bool acknowledge) {
  const char byte = acknowledge ? kAck : kNak;
  const timespec start = monotonic_now();
  for (;;) {
    const ssize_t written = write_port(port, &byte, 1);
    if (written == 1) {
      // Kept: the word is ACK for a NAK too; the value tells them apart.
      API_TRACE(kInfo, "Lnx \n\t >> PC->SAT Sent[%02Xh]ACK\n", static_cast<uint8_t>(byte));
      return 0;
    }
    const int error = errno;
    if (is_failure(written) && error != EBADF) {
      API_TRACE(kError, "Lnx Error writing ACK [%s]\n", strerror(error));
      return -1;
    }
    const int64_t elapsed = elapsed_ms(start, monotonic_now());
    if (written == -1) {
      TRACE_BY_ERRNO(__func__, kError, error,
                     "Win: lBytesWritten[%08d] errno[%08d]EBADF              diff[%d] iTimeout[%d]\n",
                     "Win: lBytesWritten[%08d] errno[%08d]EAGAIN:EWOULDBLOCK diff[%d] iTimeout[%d]\n",
                     "Win: lBytesWritten[%08d] errno[%08d]OTHER              diff[%d] iTimeout[%d]\n",
                     static_cast<int>(written), error, static_cast<int>(elapsed), kShownTimeoutMs);
    }
    if (elapsed > kAckWriteLimitMs) {
      API_TRACE(kError, "Lnx Error writing ACK TO \n");
      return -1;
    }
    pace();
  }
}
