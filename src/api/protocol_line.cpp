#include "api/protocol_line.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "api/api_trace.h"
#include "olk_sat_utils/frames.h"
#include "olk_utils/system_clock.h"

namespace {

constexpr char kLogMsg[] = "LogSATProtocolMsg";

// Room for the marks "<02>", checksum and ETX around the text.
constexpr size_t kMarksSize = 48;

struct Frame {
  const char* text;
  size_t length;  // up to the first NUL, one more when that NUL is the checksum of a frame
  bool has_stx;
  bool invalid;  // STX, but no ETX where one belongs
};

char last_byte(const Frame& frame) {
  return frame.length > 0 ? frame.text[frame.length - 1] : '\xff';
}

// Where the line goes.
struct Line {
  char* text;
  size_t capacity;
};

// The work buffer, filled from the front.
struct Rendering {
  char* work;
  size_t length;
};

void append(Rendering& rendering, const char* bytes, size_t count) {
  memcpy(rendering.work + rendering.length, bytes, count);
  rendering.length += count;
}

void append_hex(Rendering& rendering, char byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto value = static_cast<uint8_t>(byte);
  const char hex[] = {'<', kDigits[value >> 4], kDigits[value & 0x0F], '>'};
  append(rendering, hex, sizeof hex);
}

// Bytes first to last of the frame, both included; none if there are none.
void append_bytes(Rendering& rendering, const Frame& frame, size_t first, size_t last) {
  if (last >= first && last < frame.length) append(rendering, frame.text + first, last - first + 1);
}

Frame classify(const char* text) {
  Frame frame{text, strlen(text), text[0] == kStx, false};
  if (!frame.has_stx) return frame;
  if (last_byte(frame) == kEtx) {
    API_TRACE_IN(kLogMsg, kWarning, "All WR\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[%02Xh]Rcvd ETX\n",
                 length_field(frame.length), static_cast<uint8_t>(last_byte(frame)));
  } else if (frame.text[frame.length + 1] == kEtx) {
    ++frame.length;
    API_TRACE_IN(kLogMsg, kWarning,
                 "All WR:\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[%02Xh]rcvd ETX CKSUM=0x00\n",
                 length_field(frame.length), static_cast<uint8_t>(last_byte(frame)));
  } else {
    API_TRACE_IN(kLogMsg, kWarning,
                 "All WR:bInvalidPacket\n\t iSatPkgLen[%08d]\n\t pSatPkt[iSatPkgLen-1]=[%02Xh]Expected ETX\n",
                 length_field(frame.length), static_cast<uint8_t>(last_byte(frame)));
    frame.invalid = true;
  }
  return frame;
}

// The last byte that belongs to a frame's text; checksum and ETX follow it.
size_t last_text_byte(const Frame& frame) {
  return frame.length >= 3 ? frame.length - 3 : 0;
}

// A line is cut at the buffer's end, its line feed kept.
void finish_line(const Line& line, int length) {
  if (length >= 0 && static_cast<size_t>(length) >= line.capacity) line.text[line.capacity - 2] = '\n';
}

#define COMPOSE_LINE(format)                                                                       \
  finish_line(line, snprintf(line.text, line.capacity, format, now.tm_year + 1900, now.tm_mon + 1, \
                             now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec, rendering.work))

void render_sent(const Frame& frame, const tm& now, Rendering& rendering, const Line& line) {
  if (frame.invalid) {
    append(rendering, frame.text, frame.length);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d PC->SAT >> [%s]InvalidSatPkg\n");
  } else if (last_byte(frame) == kEtx) {
    append(rendering, "<02>", 4);
    append_bytes(rendering, frame, 1, last_text_byte(frame));
    if (frame.length >= 2) append_hex(rendering, frame.text[frame.length - 2]);
    append_hex(rendering, last_byte(frame));
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d PC->SAT >> [%s]OK:a\n");
  } else if (frame.text[frame.length] == '\0') {
    append_hex(rendering, frame.text[0]);
    if (frame.length > 0) append_bytes(rendering, frame, 1, frame.length - 1);
    append_hex(rendering, frame.text[frame.length + 1]);
    append_hex(rendering, frame.text[frame.length + 2]);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d PC->SAT >> [%s]WR:CKSUM=00h\n");
  } else {
    // Kept: a checksum of 0x00 hides "<02>" and the last character, and turns the direction.
    append_bytes(rendering, frame, 1, last_text_byte(frame));
    append_hex(rendering, last_byte(frame));
    append_hex(rendering, frame.text[frame.length]);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]WR:CKSUM=0x00--\n");
  }
}

void render_received(const Frame& frame, const tm& now, Rendering& rendering, const Line& line) {
  if (frame.invalid) {
    append(rendering, frame.text, frame.length);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]InvalidSatPkg\n");
    return;
  }
  append(rendering, "<02>", 4);
  if (frame.has_stx) {
    append_bytes(rendering, frame, 1, last_text_byte(frame));
  } else {
    append(rendering, frame.text, frame.length);
  }
  if (last_byte(frame) == '\0') {
    append_hex(rendering, last_byte(frame));
    append_hex(rendering, frame.text[frame.length]);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]WR:CKS=0x00\n");
  } else if (last_byte(frame) == kEtx) {
    if (frame.length >= 2) append_hex(rendering, frame.text[frame.length - 2]);
    append_hex(rendering, last_byte(frame));
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]OK:c\n");
  } else {
    append(rendering, "<--><03>", 8);
    COMPOSE_LINE("%04d%02d%02d%02d%02d%02d SAT->PC << [%s]WR:d\n");
  }
}

}  // namespace

bool compose_protocol_line(const char* text, bool received, char* line, size_t capacity) {
  const size_t length = strlen(text);
  char* work = static_cast<char*>(calloc(1, length + kMarksSize));
  if (work == nullptr) {
    API_TRACE_IN(kLogMsg, kWarning, "All WR:calloc error iSatPkgLen[%08d]\n", length_field(length));
    return false;
  }
  const tm now = local_time_now().calendar;
  const Frame frame = classify(text);
  Rendering rendering{work, 0};
  (received ? render_received : render_sent)(frame, now, rendering, {line, capacity});
  free(work);
  return true;
}
