#include "olk_sat_utils/frames.h"

#include <limits.h>
#include <string.h>

#include "olk_sat_utils/sat_utils_trace.h"

namespace {

constexpr size_t kHexTextSize = 4096;
// ShowHex keeps this much of its buffer free in front of every byte.
constexpr size_t kHexTextReserve = 10;

char gl_usHex[kHexTextSize];

const char* as_text(const unsigned char* bytes) {
  return reinterpret_cast<const char*>(bytes);
}

// Kept: the subtraction wraps, so that a text of fewer than 3 characters never is long enough.
bool covers_text(int length, size_t text_length) {
  return static_cast<size_t>(static_cast<int64_t>(length)) >= text_length - 3;
}

void trace_zero_checksum(const unsigned char* packet, int packet_length) {
  constexpr char kFunction[] = "SAT_API_CreatePacket";
  SAT_UTILS_TRACE_IN(kFunction, kInfo, "    pSatPkt[%02d]=[%02Xh]rc-2=CHECKSUM=0x00!!!!!!\n",
                     packet_length - 2, packet[packet_length - 2]);
  SAT_UTILS_TRACE_IN(kFunction, kInfo, "    pSatPkt[%02d]=[%02Xh]rc-1=ETX\n", packet_length - 1,
                     packet[packet_length - 1]);
  SAT_UTILS_TRACE_IN(kFunction, kInfo,
                     "    rc[%06d]WR\n\t *piSatPktLen[%02d]>> SAT-PC pSatPkt[%04d:%s<0x00><ETX>]\n",
                     packet_length, packet_length, length_field(strlen(as_text(packet))), as_text(packet));
}

}  // namespace

unsigned char SAT_API_CalcCkeckSum(const unsigned char* pBuf, int iBufLen) {
  if (pBuf == nullptr) {
    SAT_UTILS_TRACE(kInfo, " ucCheckSum[%02Xh]=NULL pBuf=NULL\n", 0u);
    return 0;
  }
  const size_t text_length = strlen(as_text(pBuf));
  if (iBufLen == 0 || !covers_text(iBufLen, text_length)) {
    SAT_UTILS_TRACE(kInfo, " ucCheckSum[%02Xh]=NULL iBufLen[%02d] < pBuf[%04d:%s]-3\n", 0u, iBufLen,
                    length_field(text_length), as_text(pBuf));
    return 0;
  }

  uint8_t sum = 0;
  for (int i = pBuf[0] == kStx ? 1 : 0; i < iBufLen; ++i) sum = static_cast<uint8_t>(sum + pBuf[i]);
  const uint8_t checksum = checksum_of_sum(sum);

  // Kept: the closing brace is reported as the pipe.
  if (checksum == '}') {
    SAT_UTILS_TRACE(kInfo, " ucCheckSum[%02Xh]=PIPE iBufLen[%02d]\n\t   pBuf[%04d:%s] ucCheckSum[%c]\n",
                    checksum, iBufLen, length_field(text_length), as_text(pBuf), checksum);
  }
  return checksum;
}

int SAT_API_CreatePacket(const unsigned char* pSatMsg, int iSatMsgLen, unsigned char* pSatPkt,
                         int* piSatPktLen) {
  const bool missing = pSatMsg == nullptr || pSatPkt == nullptr || piSatPktLen == nullptr;
  const bool has_stx = !missing && pSatMsg[0] == kStx;
  // Behind a message with STX the two closing bytes are appended; otherwise the message brings two zero bytes
  // for them, and the STX is put in front.
  const int shortest = has_stx ? 0 : 1;
  if (missing || iSatMsgLen < shortest || iSatMsgLen > INT_MAX - 2) {
    SAT_UTILS_TRACE(kError, " rc[%06d]ER:INVALID_PARAM pSatMsg[%08Xh] pSatPkt[%08Xh] piSatPktLen[%08Xh]\n",
                    -1, hex32(pSatMsg), hex32(pSatPkt), hex32(piSatPktLen));
    return -1;
  }
  const uint8_t checksum = SAT_API_CalcCkeckSum(pSatMsg, iSatMsgLen);

  const size_t message_length = static_cast<size_t>(iSatMsgLen);
  memmove(has_stx ? pSatPkt : pSatPkt + 1, pSatMsg, message_length);
  pSatPkt[0] = kStx;
  unsigned char* const closing = pSatPkt + (has_stx ? iSatMsgLen : iSatMsgLen - 1);
  closing[0] = checksum;
  closing[1] = kEtx;
  const int packet_length = static_cast<int>(closing - pSatPkt) + 2;
  *piSatPktLen = packet_length;

  if (checksum == 0x00) trace_zero_checksum(pSatPkt, packet_length);
  return packet_length;
}

int SAT_API_DecodeSatCmd(const unsigned char* pSatCmdParam, int /*iLen*/) {
  constexpr int kNotDecoded = -1;
  if (pSatCmdParam == nullptr) SAT_UTILS_TRACE(kError, " rc[%04d]ER:    pSatCmdParam=NULL\n", kNotDecoded);
  return kNotDecoded;
}

const char* ShowHex(const unsigned char* pBuf, int iLen) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  memset(gl_usHex, 0, sizeof gl_usHex);
  if (pBuf == nullptr) return gl_usHex;
  size_t length = 0;
  for (int i = 0; i < iLen && length + kHexTextReserve <= kHexTextSize; ++i) {
    gl_usHex[length++] = kDigits[pBuf[i] >> 4];
    gl_usHex[length++] = kDigits[pBuf[i] & 0x0F];
  }
  return gl_usHex;
}
