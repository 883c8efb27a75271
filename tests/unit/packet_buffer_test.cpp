#include "api/packet_buffer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kFirst[] = {1, 4096, 16384, 16385, 20480, 50001, kClearedForReply};

bool is_zero(const char* from, const char* to) {
  return std::string_view(from, static_cast<std::size_t>(to - from)).find_first_not_of('\0') ==
         std::string_view::npos;
}
bool is_zero(const PacketBuffer& packet) {
  return is_zero(packet.bytes, packet.bytes + packet.capacity);
}

TEST(PacketBuffer, IsClearedToItsLastByteAtFirst) {
  PacketBuffer packet = packet_buffer();
  EXPECT_EQ(packet.bytes, gl_sSatPkt);
  EXPECT_EQ(packet.capacity, kPacketBufferSize);
  for (std::size_t at : {std::size_t{0}, std::size_t{1}, std::size_t{4095}, std::size_t{16383},
                         std::size_t{16384}, kClearedForReply, kPacketBufferSize - 1}) {
    packet.bytes[at] = 'x';
  }
  clear(packet, packet.capacity);
  EXPECT_TRUE(is_zero(packet));
}

// Locked pages cannot be given back to the kernel, but they are cleared all the same.
TEST(PacketBuffer, IsClearedInAHostWithLockedMemoryToo) {
  constexpr std::size_t kPages = 65536;
  PacketBuffer packet = packet_buffer();
  char* const middle = packet.bytes + packet.capacity / 2;
  if (mlock(middle, kPages) != 0) GTEST_SKIP() << "no right to lock memory";
  std::memset(packet.bytes, 'x', packet.capacity);
  clear(packet, packet.capacity);
  munlock(middle, kPages);
  EXPECT_TRUE(is_zero(packet));
}

TEST(PacketBuffer, IsClearedAsFarAsItWasWritten) {
  for (const std::size_t used : kFirst) {
    PacketBuffer packet = packet_buffer();
    clear(packet, packet.capacity);
    std::memset(packet.bytes, 'x', used);
    mark_written(packet, used);
    clear(packet, packet.capacity);
    EXPECT_TRUE(is_zero(packet)) << used;
  }
}

// Nothing behind what was written is touched: the byte that breaks the promise stays.
TEST(PacketBuffer, IsNotTouchedBehindWhatWasWritten) {
  PacketBuffer packet = packet_buffer();
  clear(packet, packet.capacity);
  mark_written(packet, 20000);
  mark_written(packet, 100);  // no less was written for that
  packet.bytes[19999] = packet.bytes[20000] = 'x';
  clear(packet, packet.capacity);
  EXPECT_EQ(packet.bytes[19999], '\0');
  EXPECT_EQ(packet.bytes[20000], 'x');
}

TEST(PacketBuffer, KeepsWhatLiesBehindAPartThatIsCleared) {
  PacketBuffer packet = packet_buffer();
  packet.bytes[kClearedForReply] = packet.bytes[kClearedForReply - 1] = 'x';
  clear(packet, kClearedForReply);
  EXPECT_EQ(packet.bytes[kClearedForReply], 'x');
  EXPECT_EQ(packet.bytes[kClearedForReply - 1], '\0');
  clear(packet, packet.capacity);
  EXPECT_TRUE(is_zero(packet)) << "it is still known to be there";
}

TEST(PacketBuffer, HoldsATextAndNothingOfWhatItReplaces) {
  PacketBuffer packet = packet_buffer();
  std::memset(packet.bytes, 's', packet.capacity);
  replace_text(packet, "rc[%d]", -2000);
  EXPECT_STREQ(packet.bytes, "rc[-2000]");
  EXPECT_TRUE(is_zero(packet.bytes + 9, packet.bytes + packet.capacity));
}

TEST(PacketBuffer, OfAnotherSizeIsNeverPassed) {
  char bytes[64];
  std::memset(bytes, 'x', sizeof bytes);
  PacketBuffer packet{bytes, 32, 32};
  clear(packet, kClearedForReply);
  EXPECT_TRUE(is_zero(bytes, bytes + 32));
  replace_text(packet, "%s", std::string(100, 'y').c_str());
  EXPECT_EQ(packet.bytes, std::string(31, 'y'));
  EXPECT_EQ(bytes[32], 'x');
}

}  // namespace
