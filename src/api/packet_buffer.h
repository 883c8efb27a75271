// The text of one call: the command goes out of it, the reply comes into it, and the caller gets it.
#pragma once

#include <stddef.h>

inline constexpr size_t kPacketBufferSize = size_t{10} * 1024 * 1024;

// Cleared before a reply is read. Kept: what a longer command left behind it stays.
inline constexpr size_t kClearedForReply = size_t{5} * 1024 * 1024;

struct PacketBuffer {
  char* bytes;
  size_t capacity;
  size_t dirty;  // every byte from here on is zero
};

// The library's own, which every SAT function returns.
extern char gl_sSatPkt[kPacketBufferSize];

// The whole of it, of which nothing is known: the host may have written anywhere.
PacketBuffer packet_buffer();

// Makes the first size bytes zero. Whole pages are given back to the kernel, which hands them out as zeros
// when they are next touched.
void clear(PacketBuffer& packet, size_t size);

// What has been written reaches up to here.
void mark_written(PacketBuffer& packet, size_t end);

// Replaces the content by a text, cut where the buffer ends; nothing of a command stays readable behind it.
void replace_text(PacketBuffer& packet, const char* format, ...) __attribute__((format(printf, 2, 3)));
