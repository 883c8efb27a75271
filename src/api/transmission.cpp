#include "api/transmission.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "api/context.h"
#include "api/link_codes.h"
#include "api/link_io.h"
#include "api/protocol_log.h"
#include "api/serial_port.h"
#include "olk_sat_utils/dissectors.h"
#include "olk_sat_utils/frames.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/trace_log.h"

namespace {

constexpr char kWrite[] = "lSerialWriteBufL";
constexpr char kReadAck[] = "cSerialReadAck";

constexpr int kNakBudget = 3;
constexpr int kWriteStallMs = 2000;
constexpr uint32_t kLargeTraceExcerpt = 900;

constexpr int kAckWaitMs = 3000;
constexpr int kAckWaitRetries = 3;
constexpr int kAckLimitMs = 2000;
constexpr int kBadDescriptorGraceMs = 1000;

// Results of cSerialReadAck.
constexpr int32_t kRefused = 0;
constexpr int32_t kAcknowledged = 1;
constexpr int32_t kStrayStx = 2;
constexpr int32_t kEtxAfterStx = 3;
constexpr int32_t kNoAnswer = -2;
constexpr int32_t kBadDescriptor = -3;
constexpr int32_t kReadFailed = -4;
constexpr int32_t kNothingYet = -1;

// ---- The frame --------------------------------------------------------------------------------------

uint8_t checksum(const char* text, size_t length) {
  uint8_t sum = 0;
  for (size_t i = 0; i < length; ++i) sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(text[i]));
  return checksum_of_sum(sum);
}

// The placeholder becomes the checksum, and ETX follows it. Returns the frame's length.
uint32_t complete_frame(char* text, uint32_t size) {
  text[size - 1] = static_cast<char>(checksum(text + 1, size - 2));
  text[size] = kEtx;
  return size + 1;
}

// ---- Writing one block ------------------------------------------------------------------------------

void trace_refused_write(uint32_t block_end, int64_t elapsed) {
  const int error = errno;
  if (error == EBADF) {
    API_TRACE_IN(kWrite, kError, "Win: uiPktSz[%08d] errno[%08d]EBADF              diff[%d] iTimeout[%d]\n",
                 length_field(block_end), error, static_cast<int>(elapsed), kWriteStallMs);
  } else if (error == EAGAIN) {
    API_TRACE_IN(kWrite, kError, "Win: uiPktSz[%08d] errno[%08d]EAGAIN:EWOULDBLOCK diff[%d] iTimeout[%d]\n",
                 length_field(block_end), error, static_cast<int>(elapsed), kWriteStallMs);
  } else {
    API_TRACE_IN(kWrite, kError, "Win: uiPktSz[%08d] errno[%08d]OTHER              diff[%d] iTimeout[%d]\n",
                 length_field(block_end), error, static_cast<int>(elapsed), kWriteStallMs);
  }
}

enum class BlockResult { kWritten, kFailed, kStalled };

// The elapsed time that is shown behind a failure is the last measured one, perhaps another block's.
BlockResult write_block(const char* frame, uint32_t frame_length, uint32_t block_end, uint32_t& offset,
                        int64_t& elapsed) {
  timespec progress = monotonic_now();
  while (offset < block_end) {
    const ssize_t written = write_port(hComm, frame + offset, block_end - offset);
    if (written >= 1) {
      progress = monotonic_now();
      offset += static_cast<uint32_t>(written);
      continue;
    }
    if (is_failure(written)) {
      API_TRACE_IN(kWrite, kError,
                   "Lnx errno[%05d:%s]ER iBytesWritten[%04d] uiOffset[%04d] uiTxBufSz[%04d] diff[%04d]\n",
                   errno, strerror(errno), static_cast<int>(written), length_field(offset),
                   length_field(frame_length), static_cast<int>(elapsed));
      return BlockResult::kFailed;
    }
    elapsed = elapsed_ms(progress, monotonic_now());
    if (written == -1) trace_refused_write(block_end, elapsed);
    if (elapsed > kWriteStallMs) {
      API_TRACE_IN(
          kWrite, kError,
          "Lnx errno[%05d:%s]ER iBytesWritten[%04d] uiOffset[%04d] uiTxBufSz[%04d] diff[%04d] Timeout...\n",
          errno, strerror(errno), static_cast<int>(written), length_field(offset), length_field(frame_length),
          static_cast<int>(elapsed));
      return BlockResult::kStalled;
    }
    wait_for_room(hComm);
  }
  return BlockResult::kWritten;
}

void trace_block(const char* frame, uint32_t block_end) {
  if (block_end <= kLargeTraceSize) {
    API_TRACE_IN(kWrite, kInfo, "Lnx\n\t >> Sent[%04d] hC[%08Xh]\n\t >> PC->SAT Sent[%05d:%s]\n",
                 length_field(block_end), hex32(hComm), length_field(strlen(frame)), frame);
    return;
  }
  if (!trace_passes(kWarning)) return;
  snprintf(gl_TmpBuf, sizeof gl_TmpBuf, "%.*s...**BIGPKG SLL-SAT**....%s",
           static_cast<int>(kLargeTraceExcerpt), frame, frame + block_end - kLargeTraceExcerpt);
  API_TRACE_IN(kWrite, kWarning,
               "Win: OK:hC[%08Xh]Sent ulTxPktSz[%05d]BIG \n\t PC->SAT >>   pusTxPkt[%03d:%s]\n", hex32(hComm),
               length_field(block_end), length_field(strlen(gl_TmpBuf)), gl_TmpBuf);
}

// ---- The answer -------------------------------------------------------------------------------------

// One wait for an answer. False once the waits of the call are used up or nothing else is to be waited for:
// then it is time to look at the port.
bool wait_again(int& retries) {
  if (wait_readable(hComm, kAckWaitMs) != kTimedOut) return false;
  const bool any_left = retries != 0;
  --retries;
  if (any_left) return true;
  API_TRACE_IN(kReadAck, kWarning,
               " rc[%05d]WR: Lnx:FAIL select Trying Read\n\t       hComm[%08Xh] \n\t selectRetry[%02d]\n",
               kNothingYet, hex32(hComm), retries);
  return false;
}

// Kept: behind a stray STX the meanings are crossed, an ACK is answered by a retransmission and a NAK passes
// for an ACK. The bytes must already be there; nothing is waited for.
int32_t read_behind_stray_stx(const timespec& start) {
  char byte = kStx;
  for (;;) {
    const ssize_t count = read_port(hComm, &byte, 1);
    if (count == 1 && byte == kAck) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]ACK Expected ETX\n", static_cast<uint8_t>(byte));
      return kRefused;
    }
    if (count == 1 && byte == kNak) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]NAK Expected ETX\n", static_cast<uint8_t>(byte));
      return kAcknowledged;
    }
    if (count == 1 && byte == kEtx) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]ETX\n", static_cast<uint8_t>(byte));
      return kEtxAfterStx;
    }
    const bool over = count == -1 || (count == 0 && wait_readable(hComm, 0) == kHungUp) ||
                      is_endless_wait(elapsed_ms(start, monotonic_now()));
    if (over) {
      API_TRACE_IN(kReadAck, kWarning, " rc[%06d]ER SAT->PC Rcvd[%02Xh]Exiting\n", kNoAnswer,
                   static_cast<uint8_t>(byte));
      return kNoAnswer;
    }
    if (count == 1) {
      API_TRACE_IN(kReadAck, kWarning, " SAT->PC Rcvd[%02Xh]---\n", static_cast<uint8_t>(byte));
    } else {
      pace();
    }
  }
}

void trace_no_answer(int32_t rc, int error, int64_t elapsed) {
  API_TRACE_IN(kReadAck, kError, "  rc[%05d]ER:Lnx hComm[%08Xh] Timeout[%s] t[%d]ms\n", rc, hex32(hComm),
               strerror(error), static_cast<int>(elapsed));
}

// The byte that was read decides, unless it is garbage: kNothingYet.
int32_t judge_answer(char byte, const timespec& start) {
  const auto shown = static_cast<uint8_t>(byte);
  switch (byte) {
    case kAck:
      API_TRACE_IN(kReadAck, kInfo, "  rc[%05d]WR:Lnx\n\t << SAT->PC Rcvd[%02Xh]ACK\n", kAcknowledged, shown);
      return kAcknowledged;
    case kNak:
      API_TRACE_IN(kReadAck, kInfo, "  rc[%05d]WR:Lnx\n\t << SAT->PC Rcvd[%02Xh]NAK\n", kRefused, shown);
      return kRefused;
    case kStx:
      API_TRACE_IN(kReadAck, kWarning, "  rc[%05d]WR:Lnx\n\t << SAT->PC Rcvd[%02Xh]STX Expected ACK or NAK\n",
                   kStrayStx, shown);
      return read_behind_stray_stx(start);
    default:
      API_TRACE_IN(kReadAck, kError, "  rc[%05d]ER:Lnx\n\t << SAT->PC Rcvd[%02Xh]--- Expected ACK or NAK\n",
                   kNothingYet, shown);
      return kNothingYet;
  }
}

void trace_failed_read(ssize_t count, int error, int64_t elapsed) {
  if (error == EBADF) {
    API_TRACE_IN(kReadAck, kError,
                 "Win: BytesRead[%08d] errno[%08d]EBADF              diff[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(elapsed), kAckLimitMs);
  } else {
    API_TRACE_IN(kReadAck, kError,
                 "Win: BytesRead[%08d] errno[%08d]OTHER              diff[%d] iTimeout[%d]\n",
                 static_cast<int>(count), error, static_cast<int>(elapsed), kAckLimitMs);
  }
}

// Nothing was read: kNothingYet while the wait may go on.
int32_t judge_silence(ssize_t count, int error, int64_t elapsed) {
  if (count == -1 && error != 0 && error != EAGAIN) {
    if (error == EBADF && elapsed <= kBadDescriptorGraceMs) return kNothingYet;
    const int32_t rc = error == EBADF ? kBadDescriptor : kReadFailed;
    trace_no_answer(rc, error, elapsed);
    trace_no_answer(rc, error, elapsed);  // kept: the line stands twice
    return rc;
  }
  if (count == -1 && error != EAGAIN) trace_failed_read(count, error, elapsed);
  if (elapsed <= kAckLimitMs) return kNothingYet;
  trace_no_answer(kNoAnswer, error, elapsed);
  return kNoAnswer;
}

}  // namespace

int32_t cSerialReadAck() {
  int retries = kAckWaitRetries;
  const timespec start = monotonic_now();
  for (;;) {
    const bool waited_in_vain = wait_again(retries);
    char byte = 0;
    const ssize_t count = waited_in_vain ? 0 : read_port(hComm, &byte, 1);
    const int error = errno;
    const int64_t elapsed = elapsed_ms(start, monotonic_now());

    int32_t rc = kNothingYet;
    if (count == 1) {
      rc = judge_answer(byte, start);
    } else if (!waited_in_vain) {
      rc = judge_silence(count, error, elapsed);
      if (rc == kNothingYet) pace();
    }
    if (rc == kNothingYet && is_endless_wait(elapsed)) {
      rc = kNoAnswer;
      trace_no_answer(rc, error, elapsed);
    }
    if (rc != kNothingYet) return rc;
  }
}

int32_t lSerialWriteBufL(char* pusTxPkt, uint32_t uiTxBufSz) {
  int32_t rc = kLinkWrite;
  if (pusTxPkt == nullptr || uiTxBufSz < 2) return rc;

  int naks_allowed = kNakBudget;
  const uint32_t length = complete_frame(pusTxPkt, uiTxBufSz);
  uint32_t offset = 0;
  uint32_t block_end = kBlockSize;
  int64_t elapsed = 0;
  while (offset < length) {
    if (block_end > length) block_end = length;
    switch (write_block(pusTxPkt, length, block_end, offset, elapsed)) {
      case BlockResult::kWritten:
        break;
      case BlockResult::kStalled:
        return kLinkWriteStalled;
      // Kept: behind an acknowledged block this is that acknowledgement's result and counts as success.
      case BlockResult::kFailed:
        return rc;
    }
    trace_block(pusTxPkt, block_end);
    trace_command_frame(pusTxPkt, static_cast<int>(offset));
    LogSATProtocolMsg(pusTxPkt, false);

    rc = cSerialReadAck();
    if (rc < 0) {
      API_TRACE(kError, "Lnx errno[%05d:%s]:ER Waiting ACK/NAK from SAT\n", errno, strerror(errno));
      return rc;
    }
    if (rc != kRefused) {
      block_end += kBlockSize;
      continue;
    }
    if (naks_allowed == 0) {
      API_TRACE(kError, "Lnx errno[%05d:%s]:ER Read NAK\n", errno, strerror(errno));
      return kLinkRefused;
    }
    --naks_allowed;
    offset = 0;
    block_end = kBlockSize;
    API_TRACE(kInfo, "Lnx errno[%05d:%s]:WR Read NAK\n", errno, strerror(errno));
  }
  return static_cast<int32_t>(offset);
}
