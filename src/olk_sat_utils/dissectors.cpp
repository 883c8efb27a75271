#include "olk_sat_utils/dissectors.h"

#include <string.h>

#include "olk_sat_utils/frames.h"
#include "olk_sat_utils/sat_utils_trace.h"
#include "olk_sat_utils/split_text.h"

#define COMMAND_TRACE(level, ...) SAT_UTILS_TRACE_IN("SAT_API_CmdPktParcer", level, __VA_ARGS__)
#define RESPONSE_TRACE(level, ...) SAT_UTILS_TRACE_IN("SAT_API_RspPktParcer", level, __VA_ARGS__)

namespace {

// Zero bytes behind the copied frame; the search for empty fields looks two bytes behind a token.
constexpr size_t kCopySlack = 10;

// Response fields show this much of their text; a token that is longer is shortened.
constexpr size_t kShownLength = 100;
constexpr size_t kMarkerOffset = 97;

// Where the dissector expects the end of the text when it checks a frame whose checksum is 0x00.
enum class TextEnd { kOfString, kOfLastToken };

// What differs between the two directions. field gets a token of the copy, which it may cut.
struct FrameLines {
  void (*no_frame)();
  void (*no_memory)(const char* frame, size_t frame_length);
  void (*no_field)(const char* frame, size_t frame_length);
  void (*leading_separator)(int number, int index);
  void (*field)(int number, char* token, size_t length);
  void (*empty_field)(int number);
  void (*end_behind_separator)(unsigned checksum);
  void (*zero_checksum)(unsigned checksum, unsigned end);
  TextEnd text_end;
};

unsigned byte_at(const char* position) {
  return static_cast<unsigned char>(*position);
}

// Cuts checksum and ETX off the token that ends with them. An ETX alone has its checksum in front of the
// token: a separator, which the copy still holds there because nothing but separators precedes such a token.
unsigned cut_checksum(char* token, size_t length) {
  const unsigned checksum = byte_at(token + length - 2);
  token[length < 2 ? 0 : length - 2] = '\0';
  return checksum;
}

void command_missing() {
  COMMAND_TRACE(kError, "--- >> P%02d pSatCmdPkt=NULL\n", 1);
}

void command_without_memory(const char* frame, size_t frame_length) {
  COMMAND_TRACE(kError, "--- >> P%02d pSatCmdPkt=[%08d:%s]CALLOC FAIL!!!\n", 1, length_field(frame_length),
                frame);
}

void command_without_field(const char* frame, size_t frame_length) {
  COMMAND_TRACE(kError,
                "--- >> P%02d pSatCmdPkt=[%08d:%s]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n", 1,
                length_field(frame_length), frame);
}

void command_leading_separator(int number, int index) {
  COMMAND_TRACE(kInfo, "--- >> P%02d=[NULL] [%02d]\n", number, index);
}

void command_name(char* token, size_t length) {
  if (token[0] == kStx) {
    COMMAND_TRACE(kInfo, "--- >>  STX[%02Xh]\n", byte_at(token));
    COMMAND_TRACE(kInfo, "--- >> P%02d=[%08d:%s]Sat:NomeDoComando\n", 1, length_field(length - 1), token + 1);
  } else {
    COMMAND_TRACE(kInfo, "--- >> P%02d=[%08d:%s]SAT:NomeDoComando\n", 1, length_field(length), token);
  }
}

void command_last_field(int number, char* token, size_t length) {
  const unsigned checksum = cut_checksum(token, length);
  COMMAND_TRACE(kInfo, "--- >> P%02d=[%08d:%s]LastParam\n", number, length_field(strlen(token)), token);
  COMMAND_TRACE(kInfo, "--- >>  CKS[%02Xh]\n", checksum);
  COMMAND_TRACE(kInfo, "--- >>  ETX[%02Xh]\n\n", kEtx);
}

void command_field(int number, char* token, size_t length) {
  if (number == 1) {
    command_name(token, length);
  } else if (token[length - 1] == kEtx) {
    command_last_field(number, token, length);
  } else if (number == 2) {
    COMMAND_TRACE(kInfo, "--- >> P%02d=[%08d:%s]SAT:numeroSessao(AC-RND)\n", number, length_field(length),
                  token);
  } else {
    COMMAND_TRACE(kInfo, "--- >> P%02d=[%08d:%s]\n", number, length_field(length), token);
  }
}

void command_empty_field(int number) {
  COMMAND_TRACE(kInfo, "--- >> P%02d=[NULL]\n", number);
}

void command_end_behind_separator(unsigned checksum) {
  COMMAND_TRACE(kInfo, "--- >>  CKS[%02Xh]\n", checksum);
  COMMAND_TRACE(kInfo, "--- >>  ETX[%02Xh]\n\n", kEtx);
}

void command_zero_checksum(unsigned checksum, unsigned end) {
  if (end == kEtx) {
    COMMAND_TRACE(kInfo, "        CKS[%02Xh]=pSatCmdPkt[strlen(pSatCmdPkt)+0]\n", checksum);
    COMMAND_TRACE(kInfo, "        ETX[%02Xh]=pSatCmdPkt[strlen(pSatCmdPkt)+1]\n", end);
  } else {
    COMMAND_TRACE(kWarning, "        ---[%02Xh]=pSatCmdPkt[strlen(pSatCmdPkt)+0]Expected CKS\n", checksum);
    COMMAND_TRACE(kWarning, "        ---[%02Xh]=pSatCmdPkt[strlen(pSatCmdPkt)+1]Expected ETX\n", end);
  }
}

void response_missing() {
  RESPONSE_TRACE(kError, "--- << R%02d pSatRspPkt=NULL\n", 1);
}

void response_without_memory(const char* frame, size_t frame_length) {
  RESPONSE_TRACE(kError, "--- << R%02d pSatRspPkt=[%08d:%s]CALLOC FAIL!!!\n", 1, length_field(frame_length),
                 frame);
}

void response_without_field(const char* frame, size_t frame_length) {
  RESPONSE_TRACE(kError,
                 "--- << R%02d pSatRspPkt=[%08d:%s]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n", 1,
                 length_field(frame_length), frame);
}

void response_leading_separator(int number, int index) {
  RESPONSE_TRACE(kInfo, "--- << R%02d=[NULL] [%02d]\n", number, index);
}

// Kept: in the last field only ">" marks the cut, and the two bytes behind it are the field's own.
void shorten(char* token, bool is_last) {
  if (is_last) {
    token[kMarkerOffset] = '>';
  } else {
    memcpy(token + kMarkerOffset, "..>", 3);
  }
  token[kShownLength] = '\0';
}

void response_field(int number, char* token, size_t length) {
  if (number == 1) {
    const size_t stx = token[0] == kStx ? 1 : 0;
    if (stx != 0) RESPONSE_TRACE(kInfo, "--- <<  STX[%02Xh]\n", byte_at(token));
    RESPONSE_TRACE(kInfo, "--- << R%02d=[%08d:%s]\n", number, length_field(length - stx), token + stx);
    return;
  }
  const bool is_last = token[length - 1] == kEtx;
  const unsigned checksum = is_last ? cut_checksum(token, length) : 0;
  if (length > kShownLength) {
    shorten(token, is_last);
    RESPONSE_TRACE(kInfo, "BIG << R%02d=[%08d:%s]\n", number, length_field(length), token);
  } else {
    RESPONSE_TRACE(kInfo, "--- << R%02d=[%08d:%s]\n", number, length_field(strlen(token)), token);
  }
  if (!is_last) return;
  RESPONSE_TRACE(kInfo, "--- <<  CKS[%02Xh]\n", checksum);
  RESPONSE_TRACE(kInfo, "--- <<  ETX[%02Xh]\n", kEtx);
}

void response_empty_field(int number) {
  RESPONSE_TRACE(kInfo, "--- << R%02d=[NULL]\n", number);
}

void response_end_behind_separator(unsigned checksum) {
  RESPONSE_TRACE(kInfo, "--- <<  CKS[%02Xh] \n", checksum);
  RESPONSE_TRACE(kInfo, "--- <<  ETX[%02Xh] \n", kEtx);
}

void response_zero_checksum(unsigned checksum, unsigned end) {
  if (end == kEtx) {
    RESPONSE_TRACE(kInfo, "        CKS[%02Xh]=pSatRspPkt[iSarArgCz+0]\n", checksum);
    RESPONSE_TRACE(kInfo, "        ETX[%02Xh]=pSatRspPkt[iSarArgCz+1]\n", end);
  } else {
    RESPONSE_TRACE(kWarning, "        ---[%02Xh]=pSatRspPkt[iSarArgCz+0]Expected CKS\n", checksum);
    RESPONSE_TRACE(kWarning, "        ---[%02Xh]=pSatRspPkt[iSarArgCz+1]Expected ETX\n", end);
  }
}

constexpr FrameLines kCommandLines = {
    .no_frame = command_missing,
    .no_memory = command_without_memory,
    .no_field = command_without_field,
    .leading_separator = command_leading_separator,
    .field = command_field,
    .empty_field = command_empty_field,
    .end_behind_separator = command_end_behind_separator,
    .zero_checksum = command_zero_checksum,
    .text_end = TextEnd::kOfString,
};

constexpr FrameLines kResponseLines = {
    .no_frame = response_missing,
    .no_memory = response_without_memory,
    .no_field = response_without_field,
    .leading_separator = response_leading_separator,
    .field = response_field,
    .empty_field = response_empty_field,
    .end_behind_separator = response_end_behind_separator,
    .zero_checksum = response_zero_checksum,
    // Kept: the last token's length stands for the place of the checksum in the whole response.
    .text_end = TextEnd::kOfLastToken,
};

struct Walk {
  int field_number;  // one more than the last field's when the tokens ran out
  size_t last_token_length;
};

// Takes the copy apart from its first token on, whose number is given. The tokenizer skips runs of
// separators, so the empty fields are found again behind each token.
Walk walk_fields(const FrameLines& lines, char* token, char* rest, int number) {
  while (true) {
    const size_t length = strlen(token);
    const char* end = token + length;
    lines.field(number, token, length);
    for (; end[1] == kFieldSeparator; ++end) {
      lines.empty_field(++number);
      if (end[2] != kEtx) continue;
      lines.empty_field(++number);
      lines.end_behind_separator(byte_at(end + 1));
    }
    if (end[1] == kEtx) return {number, length};
    token = strtok_r(nullptr, kSeparators, &rest);
    ++number;
    if (token == nullptr) return {number, length};
  }
}

unsigned dissect_copy(const FrameLines& lines, const char* frame, size_t frame_length, int length,
                      char* copy) {
  char* rest = nullptr;
  char* const first_token = strtok_r(copy, kSeparators, &rest);
  if (first_token == nullptr) {
    lines.no_field(frame, frame_length);
    return 0;
  }
  int number = 1;
  for (int index = 0; frame[index] == kFieldSeparator; ++index) lines.leading_separator(number++, index);
  const Walk walk = walk_fields(lines, first_token, rest, number);

  const size_t text_end = lines.text_end == TextEnd::kOfString ? frame_length : walk.last_token_length;
  if (length >= 2 && static_cast<size_t>(length) == text_end + 2) {
    lines.zero_checksum(byte_at(frame + text_end), byte_at(frame + text_end + 1));
  }
  return static_cast<unsigned>(walk.field_number);
}

unsigned dissect(const FrameLines& lines, const char* frame, int length) {
  if (frame == nullptr) {
    lines.no_frame();
    return 0;
  }
  const size_t frame_length = strlen(frame);
  char* const copy = copy_to_split(frame, frame_length, kCopySlack);
  if (copy == nullptr) {
    lines.no_memory(frame, frame_length);
    return 0;
  }
  const unsigned field_number = dissect_copy(lines, frame, frame_length, length, copy);
  free(copy);
  return field_number;
}

bool has_field(const char* frame) {
  return frame != nullptr && frame[strspn(frame, kSeparators)] != '\0';
}

// Where a response's last token ends takes the dissection to find out; anywhere in the string will do here.
bool may_lack_etx(const FrameLines& lines, const char* frame, int length) {
  if (length < 2) return false;
  const size_t text_end = static_cast<size_t>(length) - 2;
  if (frame[text_end + 1] == kEtx) return false;
  // A command is looked at whole for each of its blocks: one byte tells for all but the last.
  if (lines.text_end == TextEnd::kOfString && frame[text_end] != '\0') return false;
  const size_t string_end = strnlen(frame, static_cast<size_t>(length));
  return lines.text_end == TextEnd::kOfString ? string_end == text_end : string_end >= text_end;
}

// With information not logged, what can be left to say is that the frame has no field or lacks its ETX.
void trace_frame(const FrameLines& lines, const char* frame, int length) {
  if (trace_passes(kInfo) || !has_field(frame) ||
      (trace_passes(kWarning) && may_lack_etx(lines, frame, length))) {
    dissect(lines, frame, length);
  }
}

}  // namespace

void trace_command_frame(const char* frame, int length) {
  trace_frame(kCommandLines, frame, length);
}

void trace_response_frame(const char* frame, int length) {
  trace_frame(kResponseLines, frame, length);
}

unsigned int SAT_API_CmdPktParcer(const char* pSatCmdPkt, int iLen) {
  return dissect(kCommandLines, pSatCmdPkt, iLen);
}

unsigned int SAT_API_RspPktParcer(const char* pSatRspPkt, int iLen) {
  return dissect(kResponseLines, pSatRspPkt, iLen);
}
