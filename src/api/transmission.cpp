#include "api/transmission.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "api/acknowledgement.h"
#include "api/api_trace.h"
#include "api/errno_trace.h"
#include "api/link_codes.h"
#include "api/port_io.h"
#include "api/protocol_log.h"
#include "api/time_limits.h"
#include "olk_sat_utils/dissectors.h"
#include "olk_sat_utils/frames.h"
#include "olk_utils/system_clock.h"

namespace {

constexpr char kWrite[] = "lSerialWriteBufL";

constexpr int kNakBudget = 3;
constexpr uint32_t kLargeTraceExcerpt = 900;

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

void trace_refused_write(uint32_t block_end, int64_t elapsed) {
  const int error = errno;
  TRACE_BY_ERRNO(kWrite, kError, error,
                 "Win: uiPktSz[%08d] errno[%08d]EBADF              diff[%d] iTimeout[%d]\n",
                 "Win: uiPktSz[%08d] errno[%08d]EAGAIN:EWOULDBLOCK diff[%d] iTimeout[%d]\n",
                 "Win: uiPktSz[%08d] errno[%08d]OTHER              diff[%d] iTimeout[%d]\n",
                 length_field(block_end), error, static_cast<int>(elapsed), kWriteStallMs);
}

enum class BlockResult { kWritten, kFailed, kStalled };

// The elapsed time that is shown behind a failure is the last measured one, perhaps another block's.
BlockResult write_block(SerialPort& port, const char* frame, uint32_t frame_length, uint32_t block_end,
                        uint32_t& offset, int64_t& elapsed) {
  timespec progress = monotonic_now();
  while (offset < block_end) {
    const ssize_t written = write_port(port, frame + offset, block_end - offset);
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
    wait_for_room(port);
  }
  return BlockResult::kWritten;
}

char excerpt[kPacketBufferSize];

void trace_block(const SerialPort& port, const char* frame, uint32_t block_end) {
  if (block_end <= kLargeTraceSize) {
    API_TRACE_IN(kWrite, kInfo, "Lnx\n\t >> Sent[%04d] hC[%08Xh]\n\t >> PC->SAT Sent[%05d:%s]\n",
                 length_field(block_end), hex32(port.descriptor), length_field(strlen(frame)), frame);
    return;
  }
  if (!trace_passes(kWarning)) return;
  snprintf(excerpt, sizeof excerpt, "%.*s...**BIGPKG SLL-SAT**....%s", static_cast<int>(kLargeTraceExcerpt),
           frame, frame + block_end - kLargeTraceExcerpt);
  API_TRACE_IN(kWrite, kWarning,
               "Win: OK:hC[%08Xh]Sent ulTxPktSz[%05d]BIG \n\t PC->SAT >>   pusTxPkt[%03d:%s]\n",
               hex32(port.descriptor), length_field(block_end), length_field(strlen(excerpt)), excerpt);
  memset(excerpt, 0, strlen(excerpt));  // it held the activation code
}

}  // namespace

int32_t lSerialWriteBufL(Call& call) {
  int32_t rc = kLinkWrite;
  char* const frame = call.packet.bytes;
  const auto text_length = static_cast<uint32_t>(strlen(frame));
  if (text_length < 2) return rc;

  int naks_allowed = kNakBudget;
  const uint32_t length = complete_frame(frame, text_length);
  uint32_t offset = 0;
  uint32_t block_end = kBlockSize;
  int64_t elapsed = 0;
  while (offset < length) {
    if (block_end > length) block_end = length;
    switch (write_block(call.port, frame, length, block_end, offset, elapsed)) {
      case BlockResult::kWritten:
        break;
      case BlockResult::kStalled:
        return kLinkWriteStalled;
      // Kept: behind an acknowledged block this is that acknowledgement's result and counts as success.
      case BlockResult::kFailed:
        return rc;
    }
    trace_block(call.port, frame, block_end);
    trace_command_frame(frame, static_cast<int>(offset));
    LogSATProtocolMsg(frame, false);

    rc = cSerialReadAck(call);
    if (rc < 0) {
      API_TRACE(kError, "Lnx errno[%05d:%s]:ER Waiting ACK/NAK from SAT\n", errno, strerror(errno));
      return rc;
    }
    if (rc != kAnswerRefused) {
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
