#include "line/frame.h"

#include <utility>

namespace emulator {

namespace {

unsigned char never_etx(unsigned sum) {
  const auto byte = static_cast<unsigned char>(sum);
  return byte == kEtx ? 0x04 : byte;
}

}  // namespace

unsigned char checksum(std::string_view text) {
  unsigned sum = 0;
  for (const char c : text) sum += static_cast<unsigned char>(c);
  return never_etx(sum);
}

std::string make_frame(std::string_view text) {
  std::string frame;
  frame.reserve(text.size() + 3);
  frame += static_cast<char>(kStx);
  frame += text;
  frame += static_cast<char>(checksum(text));
  frame += static_cast<char>(kEtx);
  return frame;
}

std::string spoil_checksum(std::string frame) {
  char& cks = frame[frame.size() - 2];
  const auto flipped = static_cast<unsigned char>(~static_cast<unsigned char>(cks));
  cks = static_cast<char>(flipped == kEtx ? 0x05 : flipped);
  return frame;
}

Arrival FrameReader::feed(unsigned char byte) {
  if (held_ == 0) return start_or_answer(byte);
  ++held_;
  if (byte == kEtx) return finish();
  text_ += static_cast<char>(byte);
  sum_ = static_cast<unsigned char>(sum_ + byte);
  if (held_ > kLargestFrame) {
    drop_partial_frame();
    return Arrival::broken_frame;
  }
  return held_ % kBlockSize == 0 ? Arrival::block : Arrival::nothing;
}

Arrival FrameReader::start_or_answer(unsigned char byte) {
  switch (byte) {
    case kStx:
      held_ = 1;
      text_.clear();
      sum_ = 0;
      return Arrival::nothing;
    case kAck:
      return Arrival::ack;
    case kNak:
      return Arrival::nak;
    default:
      return Arrival::nothing;
  }
}

Arrival FrameReader::finish() {
  held_ = 0;
  if (text_.empty()) return Arrival::broken_frame;
  const auto received = static_cast<unsigned char>(text_.back());
  text_.pop_back();
  const auto computed = never_etx(static_cast<unsigned>(sum_) + 256U - received);
  return received == computed ? Arrival::frame : Arrival::broken_frame;
}

std::string FrameReader::take_text() {
  return std::exchange(text_, {});
}

void FrameReader::drop_partial_frame() {
  held_ = 0;
  text_.clear();
}

}  // namespace emulator
