#include "line/frame.h"

#include <gtest/gtest.h>

#include <vector>

#include "vectors/frame_vectors.h"

namespace emulator {
namespace {

std::vector<Arrival> feed(FrameReader& reader, const std::string& bytes) {
  std::vector<Arrival> arrivals;
  for (const char c : bytes) {
    const Arrival arrival = reader.feed(static_cast<unsigned char>(c));
    if (arrival != Arrival::nothing) arrivals.push_back(arrival);
  }
  return arrivals;
}

std::string text_of(const FrameVector& vector) {
  return vector.bytes.substr(1, vector.bytes.size() - 3);
}

std::size_t block_acks(std::size_t frame_size) {
  return (frame_size - 1) / kBlockSize;
}

TEST(GoldenFrames, ThereAreBothKindsOfBoth) {
  int commands = 0, responses = 0, valid = 0, damaged = 0;
  for (const auto& vector : read_frame_vectors(FRAME_VECTORS)) {
    ++(vector.is_command ? commands : responses);
    ++(vector.is_valid ? valid : damaged);
  }
  EXPECT_GT(commands, 5);
  EXPECT_GT(responses, 5);
  EXPECT_GT(valid, 5);
  EXPECT_GT(damaged, 3);
}

TEST(GoldenFrames, BuilderMakesExactlyTheValidOnes) {
  for (const auto& vector : read_frame_vectors(FRAME_VECTORS)) {
    if (!vector.is_valid) continue;
    EXPECT_EQ(make_frame(text_of(vector)), vector.bytes) << vector.comment;
  }
}

TEST(GoldenFrames, ReaderTakesTheValidOnesBlockByBlock) {
  for (const auto& vector : read_frame_vectors(FRAME_VECTORS)) {
    if (!vector.is_valid) continue;
    FrameReader reader;
    std::vector<Arrival> expected(block_acks(vector.bytes.size()), Arrival::block);
    expected.push_back(Arrival::frame);
    EXPECT_EQ(feed(reader, vector.bytes), expected) << vector.comment;
    EXPECT_EQ(reader.take_text(), text_of(vector)) << vector.comment;
    EXPECT_FALSE(reader.in_frame());
  }
}

TEST(GoldenFrames, ReaderRefusesTheDamagedOnes) {
  for (const auto& vector : read_frame_vectors(FRAME_VECTORS)) {
    if (vector.is_valid) continue;
    FrameReader reader;
    const auto arrivals = feed(reader, vector.bytes);
    ASSERT_FALSE(arrivals.empty()) << vector.comment;
    EXPECT_EQ(arrivals.back(), Arrival::broken_frame) << vector.comment;
  }
}

TEST(Checksum, NeverLooksLikeTheEndOfAFrame) {
  EXPECT_EQ(checksum(std::string("\x01\x02", 2)), 0x04);  // the sum is 3
  EXPECT_EQ(checksum(std::string("\x02\x02", 2)), 0x04);
  EXPECT_EQ(checksum("AB"), 0x83);
  EXPECT_EQ(checksum(std::string(4, '\x40')), 0x00);
}

TEST(FrameReader, DropsGarbageOutsideFramesButSeesAnswers) {
  FrameReader reader;
  EXPECT_EQ(feed(reader, "xyz\x03\x06|\x15"), (std::vector<Arrival>{Arrival::ack, Arrival::nak}));
}

TEST(FrameReader, ControlBytesInsideAFrameAreText) {
  FrameReader reader;
  const std::string text = "a\x02\x06\x15z";
  EXPECT_EQ(feed(reader, make_frame(text)), std::vector<Arrival>{Arrival::frame});
  EXPECT_EQ(reader.take_text(), text);
}

TEST(FrameReader, AnEndOnTheBlockBoundaryHasNoBlockOfItsOwn) {
  FrameReader reader;
  EXPECT_EQ(feed(reader, make_frame(std::string(kBlockSize - 3, 'x'))), std::vector<Arrival>{Arrival::frame});
  EXPECT_EQ(feed(reader, make_frame(std::string(kBlockSize - 2, 'x'))),
            (std::vector<Arrival>{Arrival::block, Arrival::frame}));
}

TEST(FrameReader, TheChecksumMayStandOnTheBlockBoundary) {
  FrameReader reader;
  EXPECT_EQ(feed(reader, make_frame(std::string(2 * kBlockSize - 2, 'x'))),
            (std::vector<Arrival>{Arrival::block, Arrival::block, Arrival::frame}));
}

TEST(FrameReader, AFrameAfterABrokenOneIsGood) {
  FrameReader reader;
  EXPECT_EQ(feed(reader, spoil_checksum(make_frame("AB")) + make_frame("CD")),
            (std::vector<Arrival>{Arrival::broken_frame, Arrival::frame}));
  EXPECT_EQ(reader.take_text(), "CD");
}

TEST(FrameReader, DropsAFrameLargerThanAnyHostCanSend) {
  FrameReader reader;
  const auto arrivals = feed(reader, "\x02" + std::string(kLargestFrame + 10, 'x'));
  EXPECT_EQ(arrivals.back(), Arrival::broken_frame);
  EXPECT_FALSE(reader.in_frame());
  EXPECT_EQ(feed(reader, make_frame("AB")), std::vector<Arrival>{Arrival::frame});
}

TEST(SpoiledChecksum, IsNeverAcceptedAndNeverEndsTheFrameEarly) {
  for (int first = 0; first < 256; ++first) {
    if (first == kEtx) continue;
    const std::string text{static_cast<char>(first)};
    const std::string spoilt = spoil_checksum(make_frame(text));
    FrameReader reader;
    EXPECT_EQ(feed(reader, spoilt), std::vector<Arrival>{Arrival::broken_frame}) << first;
  }
}

}  // namespace
}  // namespace emulator
