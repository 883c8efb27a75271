#include "api/packet_buffer.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>

namespace {

constexpr size_t kPageSize = 4096;
// Small commands and replies live in these first bytes: clearing them by hand is cheaper than a page fault.
constexpr size_t kClearedByHand = 4 * kPageSize;

// How many of the first size bytes are left to be cleared by hand.
size_t give_pages_back(char* bytes, size_t size) {
  const size_t pages_end = size - size % kPageSize;
  if (pages_end <= kClearedByHand ||
      madvise(bytes + kClearedByHand, pages_end - kClearedByHand, MADV_DONTNEED) != 0) {
    return size;
  }
  memset(bytes + pages_end, 0, size - pages_end);
  return kClearedByHand;
}

}  // namespace

alignas(kPageSize) char gl_sSatPkt[kPacketBufferSize];

PacketBuffer packet_buffer() {
  return {gl_sSatPkt, kPacketBufferSize, kPacketBufferSize};
}

void clear(PacketBuffer& packet, size_t size) {
  const size_t to_clear = std::min(size, packet.dirty);
  memset(packet.bytes, 0, give_pages_back(packet.bytes, to_clear));
  if (to_clear == packet.dirty) packet.dirty = 0;
}

void mark_written(PacketBuffer& packet, size_t end) {
  packet.dirty = std::clamp(end, packet.dirty, packet.capacity);
}

void replace_text(PacketBuffer& packet, const char* format, ...) {
  clear(packet, packet.capacity);
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(packet.bytes, packet.capacity, format, arguments);
  va_end(arguments);
  mark_written(packet, length < 0 ? packet.capacity : static_cast<size_t>(length));
}
