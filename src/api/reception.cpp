#include "api/reception.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

#include "api/accepted_frame.h"
#include "api/acknowledgement.h"
#include "api/api_trace.h"
#include "api/errno_trace.h"
#include "api/link_codes.h"
#include "api/port_io.h"
#include "api/time_limits.h"
#include "olk_sat_utils/frames.h"
#include "olk_utils/system_clock.h"

namespace {

constexpr char kReadBuf[] = "cSerialReadBufW";

constexpr int kAttempts = 3;
constexpr int kShownTimeoutMs = 2000;  // in the lines of the STX stage, whatever its limit

// State of one reception; "position" to "wait_start" belong to the attempt in progress.
struct Reception {
  Call& call;
  char* buffer;
  uint32_t capacity;  // bytes that a reply, its checksum and ETX included, may take

  int32_t rc = kLinkPortClosed;
  int wait_retries = kReplyWaits - 1;
  int attempts = kAttempts;
  int32_t time_limit;  // ms; set by the stages, not reset by an attempt
  int last_errno = 0;
  int64_t elapsed = 0;  // ms since the start, as last measured

  int32_t position = 0;  // frame bytes held, STX included; the next byte goes to index position - 1
  uint32_t block_end = 0;
  uint8_t sum = 0;
  uint32_t etx = 0;          // index of the accepted frame's ETX
  timespec start = {};       // of the current wait
  timespec wait_start = {};  // as start, but not renewed when a wait times out
};

enum class Step { kGoOn, kAgain, kEndAttempt, kEndCall };

int64_t elapsed_since(const timespec& since) {
  return elapsed_ms(since, monotonic_now());
}

bool is_endless(const Reception& r, int64_t elapsed) {
  return elapsed > longest_wait_ms(r.call.reply_timeout_s);
}

// Traces the errno of an empty read once, until it changes.
void trace_empty_read(Reception& r, ssize_t count, int shown_limit) {
  const int error = errno;
  if (count != -1 || error == r.last_errno) return;
  r.last_errno = error;
  TRACE_BY_ERRNO(kReadBuf, kInfo, error,
                 "Win: iBytesRead[%08d] errno[%08d]EBADF              liDiffTime[%d] iTimeout[%d]\n",
                 "Win: iBytesRead[%08d] errno[%08d]EAGAIN:EWOULDBLOCK liDiffTime[%d] iTimeout[%d]\n",
                 "Win: ulTxPktSz[%08d] errno[%08d]OTHER              liDiffTime[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(r.elapsed), shown_limit);
}

// EBADF is waited out like an empty read; other errors are not.
bool is_read_failure(ssize_t count) {
  return is_failure(count) && errno != EBADF;
}

// The elapsed time becomes that of the last look at an empty port.
void wait_within_limit(Reception& r) {
  wait_for_bytes(r.call.port, r.time_limit - r.elapsed + 1);
  r.elapsed = elapsed_since(r.start);
}

// ---- Waiting for the frame --------------------------------------------------------------------------

Step no_reply(Reception& r) {
  r.rc = kLinkNoReply;
  API_TRACE_IN(kReadBuf, kError, "Lnx rc[%06d]ER iSelectRetries[%02d] SatCmd[%s]Fail!!!\n", r.rc,
               r.wait_retries, r.call.function.name);
  return Step::kEndCall;
}

// The wait counter belongs to the whole call; a time-out begins the attempt again without using it up.
Step wait_for_reply(Reception& r) {
  const bool is_long = r.call.function.waits_long;
  if (wait_readable(r.call.port.descriptor, is_long ? kLongReplyWaitMs : kReplyWaitMs) != kTimedOut) {
    return Step::kGoOn;
  }
  const bool ran_out_before = r.wait_retries < 0;
  if (ran_out_before && is_endless(r, elapsed_since(r.wait_start))) return no_reply(r);
  const bool any_left = r.wait_retries != 0;
  --r.wait_retries;
  if (any_left) {
    API_TRACE_IN(kReadBuf, kInfo, "Lnx iSelectRetries[%02d] Waiting Data from SAT!!!\n", r.wait_retries);
    return Step::kAgain;
  }
  if (!is_long) return no_reply(r);
  API_TRACE_IN(kReadBuf, kWarning, "Lnx rc[%06d]WR iSelectRetries[%02d SarCmd[%s]Skipped...!!!\n", r.rc,
               r.wait_retries, r.call.function.name);
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
    const ssize_t count = read_port(r.call.port, r.buffer, 1);
    if (count == 1 && r.buffer[0] == kStx) return Step::kGoOn;
    if (count == 1) {
      API_TRACE_IN(kReadBuf, kWarning, "Lnx << SAT->PC Rcvd[%02Xh]Expected STX  iCurPos[%d] liDiffTime[%lu\n",
                   static_cast<uint8_t>(r.buffer[0]), r.position, static_cast<unsigned long>(r.elapsed));
      const int64_t lasting = elapsed_since(r.start);
      if (is_endless(r, lasting)) return no_stx(r, lasting);
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
  lSerialWriteAck(r.call.port, false);
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
  lSerialWriteAck(r.call.port, false);
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
    lSerialWriteAck(r.call.port, true);
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
    const ssize_t count = read_port(r.call.port, r.buffer + held, wanted);
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

}  // namespace

int32_t cSerialReadBufW(Call& call) {
  if (call.packet.bytes == nullptr) {
    API_TRACE(kInfo, "Lnx rc[%04d]ER pSatRspBuf=NULL\n", kLinkPortClosed);
    return kLinkPortClosed;
  }
  if (call.port.descriptor == kClosedPort) {
    API_TRACE(kInfo, "Lnx rc[%04d]ER *phComm[%08Xh]Port Closed!\n", kLinkPortClosed,
              hex32(call.port.descriptor));
    return kLinkPortClosed;
  }
  clear(call.packet, kClearedForReply);
  mark_written(call.packet, call.packet.capacity);

  constexpr uint32_t kLongestTimeout = INT32_MAX / 1000;
  Reception r{.call = call,
              .buffer = call.packet.bytes,
              .capacity = static_cast<uint32_t>(call.packet.capacity - 1),
              .time_limit = static_cast<int32_t>(std::min(call.reply_timeout_s, kLongestTimeout)) * 1000};

  for (; r.attempts > 0; --r.attempts) {
    switch (receive_once(r)) {
      case Step::kGoOn:
        return accept_frame(call, r.etx);
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
