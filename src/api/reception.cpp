#include "api/reception.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "api/context.h"
#include "api/link_codes.h"
#include "api/link_io.h"
#include "api/protocol_log.h"
#include "api/serial_port.h"
#include "olk_sat_utils/dissectors.h"
#include "olk_sat_utils/frames.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/trace_log.h"

namespace {

constexpr char kReadBuf[] = "cSerialReadBufW";

constexpr int64_t kWaitMs = 3000;
constexpr int64_t kLongWaitMs = 120000;
constexpr int kWaitRetries = 2;
constexpr int kAttempts = 3;
constexpr int kGapLimitMs = 100;
constexpr int kLimitAfterGapMs = 300;
constexpr int kAckWriteLimitMs = 100;
constexpr int kShownTimeoutMs = 2000;  // in the lines of the STX and ACK stages, whatever their limit

constexpr int kExcerptHead = 900;
constexpr uint32_t kExcerptTail = 100;

// State of one call; "position" to "start" belong to the attempt in progress.
struct Reception {
  char* buffer;
  uint32_t capacity;  // bytes that a reply, its checksum and ETX included, may take
  int descriptor;
  bool is_long;  // AtivarSAT, AtualizarSoftwareSAT, BloquearSAT

  int32_t rc = kLinkPortClosed;
  int wait_retries = kWaitRetries;
  int attempts = kAttempts;
  int32_t time_limit;  // ms; set by the stages, not reset by an attempt
  int last_errno = 0;
  int64_t elapsed = 0;  // ms since the start, as last measured

  int32_t position;  // frame bytes held, STX included; the next byte goes to index position - 1
  uint32_t block_end;
  uint8_t sum;
  uint32_t etx;         // index of the accepted frame's ETX
  timespec start;       // of the current wait
  timespec wait_start;  // as start, but not renewed when a wait times out
};

enum class Step { kGoOn, kAgain, kEndAttempt, kEndCall };

bool is_long_function(const char* name) {
  static constexpr const char* kLongFunctions[] = {"AtivarSAT", "AtualizarSoftwareSAT", "BloquearSAT"};
  return is_one_of(name, kLongFunctions);
}

int64_t elapsed_since(const timespec& since) {
  return elapsed_ms(since, monotonic_now());
}

// Traces the errno of an empty read once, until it changes.
void trace_empty_read(Reception& r, ssize_t count, int shown_limit) {
  const int error = errno;
  if (count != -1 || error == r.last_errno) return;
  r.last_errno = error;
  if (error == EBADF) {
    API_TRACE_IN(kReadBuf, kInfo,
                 "Win: iBytesRead[%08d] errno[%08d]EBADF              liDiffTime[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(r.elapsed), shown_limit);
  } else if (error == EAGAIN) {
    API_TRACE_IN(kReadBuf, kInfo,
                 "Win: iBytesRead[%08d] errno[%08d]EAGAIN:EWOULDBLOCK liDiffTime[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(r.elapsed), shown_limit);
  } else {
    API_TRACE_IN(kReadBuf, kInfo,
                 "Win: ulTxPktSz[%08d] errno[%08d]OTHER              liDiffTime[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(r.elapsed), shown_limit);
  }
}

// EBADF is waited out like an empty read; other errors are not.
bool is_read_failure(ssize_t count) {
  return is_failure(count) && errno != EBADF;
}

// The elapsed time becomes that of the last look at an empty port.
void wait_within_limit(Reception& r) {
  wait_for_bytes(r.descriptor, r.time_limit - r.elapsed + 1);
  r.elapsed = elapsed_since(r.start);
}

// ---- Waiting for the frame --------------------------------------------------------------------------

Step no_reply(Reception& r) {
  r.rc = kLinkNoReply;
  API_TRACE_IN(kReadBuf, kError, "Lnx rc[%06d]ER iSelectRetries[%02d] SatCmd[%s]Fail!!!\n", r.rc,
               r.wait_retries, gl_tSat.CurSatCmdInProc);
  return Step::kEndCall;
}

// The wait counter belongs to the whole call; a time-out begins the attempt again without using it up.
Step wait_for_reply(Reception& r) {
  if (wait_readable(r.descriptor, r.is_long ? kLongWaitMs : kWaitMs) != kTimedOut) return Step::kGoOn;
  const bool ran_out_before = r.wait_retries < 0;
  if (ran_out_before && is_endless_wait(elapsed_since(r.wait_start))) return no_reply(r);
  const bool any_left = r.wait_retries != 0;
  --r.wait_retries;
  if (any_left) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx iSelectRetries[%02d] Waiting Data from SAT!!!\n", r.wait_retries);
    return Step::kAgain;
  }
  if (!r.is_long) return no_reply(r);
  API_TRACE_IN(kReadBuf, kWarning, "Lnx rc[%06d]WR iSelectRetries[%02d SarCmd[%s]Skipped...!!!\n", r.rc,
               r.wait_retries, gl_tSat.CurSatCmdInProc);
  return Step::kGoOn;
}

Step no_stx(Reception& r, int64_t lasting) {
  r.rc = kLinkNoStx;
  API_TRACE_IN(kReadBuf, kError, "Lnx rc[%06d]ER Read Error iCurPos[%d] liDiffTime[%lu]\n", r.rc, r.position,
               static_cast<unsigned long>(lasting));
  return Step::kEndCall;
}

// The clock is looked at only where nothing was read: a reply that arrives within the waits is taken,
// however short the configured limit.
Step wait_for_stx(Reception& r) {
  for (;;) {
    const ssize_t count = read_port(r.descriptor, r.buffer, 1);
    if (count == 1 && r.buffer[0] == kStx) return Step::kGoOn;
    if (count == 1) {
      API_TRACE_IN(kReadBuf, kWarning, "Lnx << SAT->PC Rcvd[%02Xh]Expected STX  iCurPos[%d] liDiffTime[%lu\n",
                   static_cast<uint8_t>(r.buffer[0]), r.position, static_cast<unsigned long>(r.elapsed));
      const int64_t lasting = elapsed_since(r.start);
      if (is_endless_wait(lasting)) return no_stx(r, lasting);
      continue;
    }
    const bool failed = is_read_failure(count);
    r.elapsed = elapsed_since(r.start);
    if (!failed) trace_empty_read(r, count, kShownTimeoutMs);
    if (r.elapsed > r.time_limit) return no_stx(r, r.elapsed);
    if (failed) {
      pace();
    } else {
      wait_within_limit(r);
    }
  }
}

// ---- The frame --------------------------------------------------------------------------------------

Step frame_stopped(Reception& r) {
  r.rc = kLinkReplyGap;
  lSerialWriteAck(false);
  API_TRACE_IN(kReadBuf, kError, "Lnx: rc[%06d]ER Send NAK  (%d)[%d]{%d}Timeout\n", r.rc, r.attempts,
               r.position, static_cast<int>(r.block_end));
  r.time_limit = kLimitAfterGapMs;
  return Step::kEndAttempt;
}

Step nothing_read(Reception& r, ssize_t count) {
  r.elapsed = elapsed_since(r.start);
  trace_empty_read(r, count, r.time_limit);
  if (r.elapsed > r.time_limit) return frame_stopped(r);
  wait_within_limit(r);
  return Step::kAgain;
}

// The checksum byte was added as an ordinary byte when it was examined, so it is taken off again.
Step judge_frame(Reception& r, uint32_t etx) {
  const auto received = static_cast<uint8_t>(etx > 0 ? r.buffer[etx - 1] : kEtx);
  const uint8_t computed = etx > 0 ? checksum_of_sum(static_cast<uint8_t>(r.sum - received)) : 0;
  if (computed == received) {
    r.etx = etx;
    return Step::kGoOn;
  }
  r.rc = kLinkChecksum;
  API_TRACE_IN(kReadBuf, kWarning, "Lnx rc[%06d]ER ERRO CHECKSUM %02x!=%02x [%d|%d]!!!!!!!! Send NAK\n", r.rc,
               computed, received, r.position, static_cast<int>(etx));
  lSerialWriteAck(false);
  return Step::kEndAttempt;
}

// Looks for ETX among the new bytes only, so that a frame costs what it is long.
Step examine_new_bytes(Reception& r, uint32_t count) {
  const uint32_t first = static_cast<uint32_t>(r.position) - 1;
  r.position += static_cast<int32_t>(count);
  const auto* etx = static_cast<const char*>(memchr(r.buffer + first, kEtx, count));
  const char* end = etx != nullptr ? etx : r.buffer + first + count;
  for (const char* byte = r.buffer + first; byte < end; ++byte) {
    r.sum = static_cast<uint8_t>(r.sum + static_cast<uint8_t>(*byte));
  }
  if (etx != nullptr) return judge_frame(r, static_cast<uint32_t>(etx - r.buffer));

  if (static_cast<uint32_t>(r.position) % kBlockSize == 0) {
    lSerialWriteAck(true);
    r.block_end += kBlockSize;
  }
  r.start = monotonic_now();
  return Step::kAgain;
}

// The STX is in. Reads never pass the block's end: a device that sends on unasked still gets its ACK.
Step read_frame(Reception& r) {
  r.start = monotonic_now();
  r.position = 1;
  r.time_limit = kGapLimitMs;
  for (;;) {
    const auto held = static_cast<uint32_t>(r.position) - 1;
    if (held >= r.capacity) return frame_stopped(r);
    const uint32_t wanted = std::min(r.block_end - static_cast<uint32_t>(r.position), r.capacity - held);
    const ssize_t count = read_port(r.descriptor, r.buffer + held, wanted);
    if (is_read_failure(count)) {
      r.rc = kLinkRead;
      API_TRACE_IN(kReadBuf, kError, "Lnx rc[%06d]ER Read Error %s\n", r.rc, strerror(errno));
      return Step::kEndCall;
    }
    const Step step = count > 0 ? examine_new_bytes(r, static_cast<uint32_t>(count)) : nothing_read(r, count);
    if (step != Step::kAgain) return step;
  }
}

Step receive_once(Reception& r) {
  r.wait_start = monotonic_now();
  Step step;
  do {
    r.position = 0;
    r.start = monotonic_now();
    r.block_end = kBlockSize;
    r.sum = 0;
    step = wait_for_reply(r);
  } while (step == Step::kAgain);
  if (step == Step::kGoOn) step = wait_for_stx(r);
  if (step == Step::kGoOn) step = read_frame(r);
  return step;
}

// ---- The accepted frame -----------------------------------------------------------------------------

// Head and tail of a large reply, checksum and ETX included, in the scratch buffer. Both records show the
// same, so the second one needs the checksum put back for this moment.
void build_excerpt(char* buffer, uint32_t etx, char checksum) {
  const char in_its_place = buffer[etx - 1];
  buffer[etx - 1] = checksum;
  snprintf(gl_TmpBuf, sizeof gl_TmpBuf, "%.*s....***BIG_RSP_PKT***....%s", kExcerptHead, buffer,
           buffer + etx - kExcerptTail);
  buffer[etx - 1] = in_its_place;
}

void trace_frame(char* buffer, uint32_t etx, char checksum) {
  if (!trace_passes(kInfo)) return;
  if (etx <= kLargeTraceSize) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd\n\t << SAT->SO  Recv[%04d:<STX>%s]\n",
                 length_field(strlen(buffer)), buffer);
    return;
  }
  build_excerpt(buffer, etx, checksum);
  API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd BIG_RSP_PKT[%04d]\n\t << SAT->SO  Recv[%04d:<STX>%s]\n",
               length_field(etx), length_field(strlen(gl_TmpBuf)), gl_TmpBuf);
}

void trace_reply(char* buffer, uint32_t etx, char checksum) {
  if (!trace_passes(kInfo)) return;
  if (etx <= kLargeTraceSize) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd\n\t <<  SO->PC   Rsp[%05d:%s]\n", length_field(strlen(buffer)),
                 buffer);
    return;
  }
  build_excerpt(buffer, etx, checksum);
  API_TRACE_IN(kReadBuf, kInfo, "Lnx Rcvd BIG_RSP_PKT[%05d]\n\t <<  SO->PC   Rsp[%05d:%s]\n",
               length_field(etx), length_field(strlen(gl_TmpBuf)), gl_TmpBuf);
}

// etx is the index of ETX; the checksum stands before it, the text before that. Returns the text's length.
int32_t accept_frame(char* buffer, uint32_t etx) {
  const char checksum = buffer[etx - 1];
  trace_frame(buffer, etx, checksum);
  trace_response_frame(buffer, static_cast<int>(etx));
  buffer[etx - 1] = '\0';
  LogSATProtocolMsg(buffer, true);
  trace_reply(buffer, etx, checksum);
  lSerialWriteAck(true);
  return static_cast<int32_t>(etx - 1);
}

// The packet buffer is larger than the limit it is cleared with; any other buffer ends where it is said to.
uint32_t capacity_of(const char* buffer, uint32_t size) {
  if (buffer == gl_sSatPkt) size = kPacketBufferSize;
  return size > 0 ? size - 1 : 0;
}

}  // namespace

int32_t cSerialReadBufW(char* pSatRspBuf, uint32_t uiBufSize, const int* phComm, uint32_t uiTimeout) {
  if (pSatRspBuf == nullptr) {
    API_TRACE(kInfo, "Lnx rc[%04d]ER pSatRspBuf=NULL\n", kLinkPortClosed);
    return kLinkPortClosed;
  }
  if (*phComm == -1) {
    API_TRACE(kInfo, "Lnx rc[%04d]ER *phComm[%08Xh]Port Closed!\n", kLinkPortClosed, hex32(*phComm));
    return kLinkPortClosed;
  }
  clear_buffer(pSatRspBuf, uiBufSize);

  constexpr uint32_t kLongestTimeout = INT32_MAX / 1000;
  Reception r{};
  r.buffer = pSatRspBuf;
  r.capacity = capacity_of(pSatRspBuf, uiBufSize);
  r.descriptor = *phComm;
  r.is_long = is_long_function(gl_tSat.CurSatCmdInProc);
  r.time_limit = static_cast<int32_t>(std::min(uiTimeout, kLongestTimeout)) * 1000;

  for (; r.attempts > 0; --r.attempts) {
    switch (receive_once(r)) {
      case Step::kGoOn:
        return accept_frame(r.buffer, r.etx);
      case Step::kEndCall:
        return r.rc;
      default:
        break;
    }
  }
  if (r.rc >= 0) r.rc = kLinkAttemptsUsed;
  API_TRACE(kError, "Lnx rc[%06d] iRetryes[%d]\n", r.rc, r.attempts);
  return r.rc;
}

int32_t lSerialWriteAck(bool acknowledge) {
  const char byte = acknowledge ? kAck : kNak;
  const timespec start = monotonic_now();
  for (;;) {
    const ssize_t written = write_port(hComm, &byte, 1);
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
    const int64_t elapsed = elapsed_since(start);
    if (written == -1 && error == EBADF) {
      API_TRACE(kError, "Win: lBytesWritten[%08d] errno[%08d]EBADF              diff[%d] iTimeout[%d]\n",
                static_cast<int>(written), error, static_cast<int>(elapsed), kShownTimeoutMs);
    } else if (written == -1 && error == EAGAIN) {
      API_TRACE(kError, "Win: lBytesWritten[%08d] errno[%08d]EAGAIN:EWOULDBLOCK diff[%d] iTimeout[%d]\n",
                static_cast<int>(written), error, static_cast<int>(elapsed), kShownTimeoutMs);
    } else if (written == -1) {
      API_TRACE(kError, "Win: lBytesWritten[%08d] errno[%08d]OTHER              diff[%d] iTimeout[%d]\n",
                static_cast<int>(written), error, static_cast<int>(elapsed), kShownTimeoutMs);
    }
    if (elapsed > kAckWriteLimitMs) {
      API_TRACE(kError, "Lnx Error writing ACK TO \n");
      return -1;
    }
    pace();
  }
}
