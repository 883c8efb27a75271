// Base64 with the standard alphabet of RFC 4648, "=" padding and no line breaks.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "olk_utils/output.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/utils_trace.h"
#include "talvex/talvex.h"

const char pB64_EncTable[64] = {
    'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P',  //
    'Q', 'R', 'S', 'T', 'U', 'V', 'W', 'X', 'Y', 'Z', 'a', 'b', 'c', 'd', 'e', 'f',  //
    'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v',  //
    'w', 'x', 'y', 'z', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '+', '/',
};

const int32_t mod_table[3] = {0, 2, 1};

unsigned char* psB64_DecTable;

namespace {

constexpr size_t kDecTableSize = 256;
constexpr char kPadding = '=';
constexpr uint64_t kBytesPerGroup = 3;
constexpr uint64_t kCharactersPerGroup = 4;

constexpr uint64_t groups_of(uint64_t byte_count) {
  return byte_count / kBytesPerGroup + (byte_count % kBytesPerGroup != 0 ? 1 : 0);
}

// volatile: a compiler may drop an unused allocation and take its success for granted.
bool can_allocate_groups(uint64_t groups) {
  void* volatile buffer = calloc(groups, kCharactersPerGroup);
  const bool allocated = buffer != nullptr;
  free(buffer);
  return allocated;
}

void encode_group(uint32_t bits, char* out) {
  out[0] = pB64_EncTable[bits >> 18 & 0x3F];
  out[1] = pB64_EncTable[bits >> 12 & 0x3F];
  out[2] = pB64_EncTable[bits >> 6 & 0x3F];
  out[3] = pB64_EncTable[bits & 0x3F];
}

// Returns the end of the text, which it terminates.
char* encode(const unsigned char* bytes, uint64_t count, char* out) {
  for (; count >= kBytesPerGroup; count -= kBytesPerGroup, bytes += kBytesPerGroup) {
    encode_group(static_cast<uint32_t>(bytes[0] << 16 | bytes[1] << 8 | bytes[2]), out);
    out += kCharactersPerGroup;
  }
  if (count != 0) {
    encode_group(static_cast<uint32_t>(bytes[0] << 16 | (count == 2 ? bytes[1] << 8 : 0)), out);
    out += kCharactersPerGroup;
    memset(out - mod_table[count], kPadding, static_cast<size_t>(mod_table[count]));
  }
  *out = '\0';
  return out;
}

// Kept: the last two characters are tested each on its own; "TQ=x" loses a byte too.
uint64_t decoded_length(const char* text, uint64_t length) {
  uint64_t decoded = kBytesPerGroup * (length / kCharactersPerGroup);
  for (uint64_t from_end = 1; from_end <= 2; ++from_end) {
    if (from_end <= length && text[length - from_end] == kPadding && decoded > 0) --decoded;
  }
  return decoded;
}

void decode(const char* text, uint64_t length, unsigned char* out, uint64_t out_length) {
  // Kept: padding is looked for in the output buffer, at the position of the text.
  const auto value_at = [=](uint64_t position) -> uint32_t {
    if (position >= length) return 0;
    if (position < out_length && out[position] == kPadding) return 0;
    return psB64_DecTable[static_cast<unsigned char>(text[position])];
  };
  uint64_t written = 0;
  for (uint64_t position = 0; position < length; position += kCharactersPerGroup) {
    const uint32_t bits = value_at(position) << 18 | value_at(position + 1) << 12 |
                          value_at(position + 2) << 6 | value_at(position + 3);
    for (int shift = 16; shift >= 0 && written < out_length; shift -= 8) {
      out[written++] = static_cast<unsigned char>(bits >> shift);
    }
  }
  out[out_length] = '\0';
}

}  // namespace

int OLK_Base64Encoder(const unsigned char* pBinIn, uint64_t ztBinInLen, char* pB64Out,
                      uint64_t* pztB64OutLen) {
  constexpr int kFailed = TALVEX_BASE64_ENCODER_FAILED;
  const int shown_length = length_field(ztBinInLen);
  if (ztBinInLen == 0) {
    UTILS_TRACE(kError, "  rc[%03d] BinLen[%06d] <= 0 Fail!\n", kFailed, shown_length);
    return kFailed;
  }
  if (pztB64OutLen == nullptr) {
    UTILS_TRACE(kError, "  rc[%03d] BinLen[%06d] pztB64OutLen=null\n", kFailed, shown_length);
    return kFailed;
  }
  if (pBinIn == nullptr) {
    UTILS_TRACE(kError, "  rc[%03d] BinLen[%06d] pBinIn=null\n", kFailed, shown_length);
    return kFailed;
  }

  const uint64_t groups = groups_of(ztBinInLen);
  if (pB64Out == nullptr && !can_allocate_groups(groups)) {
    *pztB64OutLen = 0;
    UTILS_TRACE(kError, "  rc[%03d] BinLen[%06d] calloc fail\n", kFailed, shown_length);
    return kFailed;
  }
  *pztB64OutLen = kCharactersPerGroup * groups;
  if (pB64Out != nullptr) encode(pBinIn, ztBinInLen, pB64Out);
  return length_field(*pztB64OutLen);
}

int OLK_Base64Decoder(const char* pBase64In, uint64_t ztBase64InLen, unsigned char* pBinOutData,
                      uint64_t* pztBinOutLen) {
  const uint64_t start = GetCurrentMilliTime();
  int rc = TALVEX_BASE64_INVALID_PARAMETER;
  if (pBase64In == nullptr || pBinOutData == nullptr || pztBinOutLen == nullptr) {
    UTILS_TRACE(kError, "  rc[%03d] pztBinOutLen=null Invalid Parameter\n", rc);
    OLK_Base64DecTblFree();
    return rc;
  }

  const int shown_length = length_field(ztBase64InLen);
  if (ztBase64InLen % kCharactersPerGroup != 0) {
    UTILS_TRACE(kWarning,
                "  rc[%03d] Base64InLen[%06d] [(ztBase64InLen %% 4)]=[%d] Exp[0] Pay Attention!!!!\n", rc,
                shown_length, static_cast<int>(ztBase64InLen % kCharactersPerGroup));
  }
  if (psB64_DecTable == nullptr && OLK_Base64DecTblAlloc() != 0) {
    rc = TALVEX_BASE64_NO_TABLE;
    UTILS_TRACE(kError, "  rc[%03d] Base64InLen[%06d] Alloc_Base64_DecTable() fail\n", rc, shown_length);
    OLK_Base64DecTblFree();
    return rc;
  }

  const uint64_t out_length = decoded_length(pBase64In, ztBase64InLen);
  decode(pBase64In, ztBase64InLen, pBinOutData, out_length);
  *pztBinOutLen = out_length;
  rc = length_field(out_length);
  OLK_Base64DecTblFree();
  UTILS_TRACE(kWarning, "  rc[%03d] Base64InLen[%06d] pBinOutData[%08Xh] BinOutLen[%06d] t[%ld]ms (Done)\n",
              rc, shown_length, hex32(pBinOutData), length_field(out_length),
              static_cast<long>(GetCurrentMilliTime() - start));
  return rc;
}

int OLK_Base64DecTblAlloc(void) {
  if (psB64_DecTable == nullptr) psB64_DecTable = static_cast<unsigned char*>(calloc(kDecTableSize, 1));
  if (psB64_DecTable == nullptr) {
    UTILS_TRACE(kError, "  rc[%03d] calloc psB64_DecTable[%08Xh]fail\n", -1, hex32(psB64_DecTable));
    return -1;
  }
  memset(psB64_DecTable, 0, kDecTableSize);
  for (unsigned value = 0; value < sizeof pB64_EncTable; ++value) {
    psB64_DecTable[static_cast<unsigned char>(pB64_EncTable[value])] = static_cast<unsigned char>(value);
  }
  return 0;
}

int OLK_Base64DecTblFree(void) {
  if (psB64_DecTable == nullptr) return 1;
  free(psB64_DecTable);
  psB64_DecTable = nullptr;
  // Kept: level 1, although nothing failed.
  UTILS_TRACE(kError, "  rc[%03d] free B64_DecTable OK\n", 0);
  return 0;
}

// The self-test's lines also go to standard output, each in a wording of its own.
#define PRINT_LINE(text, ...) \
  print("[%04d] [%s] [%s]" text, __LINE__, kUtilsSourcePath, __func__, __VA_ARGS__)

int OLK_Base64_Test01(void) {
  constexpr char kClearText[] = "Testando Base64 Encoding";
  constexpr int kClearLength = sizeof kClearText - 1;
  constexpr size_t kBufferSize = 48;

  int rc = -1;
  UTILS_BRACKET_TRACE(kInfo, " rc[%05d]WR:   ClearDataIn[%03d:%s]\n", rc, kClearLength, kClearText);
  PRINT_LINE(" rc[%05d]      ClearDataIn[%03d:%s]\n", rc, kClearLength, kClearText);

  char encoded[kBufferSize] = {};
  uint64_t encoded_length = 0;
  rc = OLK_Base64Encoder(reinterpret_cast<const unsigned char*>(kClearText), kClearLength, encoded,
                         &encoded_length);
  if (rc < 0) {
    UTILS_BRACKET_TRACE(kError, " rc[%05d]ER\n", rc);
    PRINT_LINE(" rc[%05d]ER\n", rc);
    return rc;
  }
  UTILS_BRACKET_TRACE(kInfo, " rc[%05d]OK: Base64DataOut[%03d:%s]\n", rc, length_field(encoded_length),
                      encoded);
  PRINT_LINE(" rc[%05d]    Base64DataOut[%03d:%s]\n", rc, length_field(encoded_length), encoded);

  char decoded[kBufferSize] = {};
  uint64_t decoded_length = 0;
  rc = OLK_Base64Decoder(encoded, encoded_length, reinterpret_cast<unsigned char*>(decoded), &decoded_length);
  if (rc < 0) {
    UTILS_BRACKET_TRACE(kError, " rc[%05d]ER:\n", rc);
    PRINT_LINE(" rc[%05d]ER:\n", rc);
    return rc;
  }
  if (strcmp(decoded, kClearText) == 0) {
    UTILS_BRACKET_TRACE(kInfo, " rc[%05d]OK:  ClearDataOut[%03d:%s]MATCH\n", rc, length_field(decoded_length),
                        decoded);
    PRINT_LINE(" rc[%05d]     ClearDataOut[%03d:%s]MATCH\n", rc, length_field(decoded_length), decoded);
  } else {
    UTILS_BRACKET_TRACE(kInfo, " rc[%05d]ER:  ClearDataOut[%03d:%s]MISMATCH\n", rc,
                        length_field(decoded_length), decoded);
    PRINT_LINE(" rc[%05d]ER   ClearDataOut[%03d:%s]MISMATCH\n", rc, length_field(decoded_length), decoded);
  }
  return rc;
}
