// What travels on the line, seen from the device.
//
//   frame  = STX text CKS ETX      CKS: sum of the text's bytes modulo 256, 0x04 instead of 0x03
//   answer = ACK | NAK
//
// A frame is moved in blocks of 16,384 bytes counted from its STX. The receiver answers ACK to each full
// block that does not hold the ETX, and ACK or NAK to the end of the frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace emulator {

inline constexpr unsigned char kStx = 0x02;
inline constexpr unsigned char kEtx = 0x03;
inline constexpr unsigned char kAck = 0x06;
inline constexpr unsigned char kNak = 0x15;

inline constexpr std::size_t kBlockSize = 16'384;
// The largest frame that a host can send: it builds its commands in a buffer of this size.
inline constexpr std::size_t kLargestFrame = 10'485'760;

unsigned char checksum(std::string_view text);
std::string make_frame(std::string_view text);
// The frame with a checksum byte that no receiver accepts.
std::string spoil_checksum(std::string frame);

enum class Arrival { nothing, block, frame, broken_frame, ack, nak };

// Takes the host's bytes one by one and says what each of them completes. Bytes outside a frame that are
// neither STX nor an answer are dropped: a host may start, stop or send garbage at any time.
class FrameReader {
 public:
  Arrival feed(unsigned char byte);

  // The text of the frame that `feed` just reported; the reader is ready for the next frame.
  std::string take_text();

  bool in_frame() const { return held_ > 0; }
  // Forgets a frame that stopped arriving.
  void drop_partial_frame();

 private:
  Arrival start_or_answer(unsigned char byte);
  Arrival finish();

  std::size_t held_ = 0;   // bytes of the current frame, STX included
  std::string text_;       // text and, until the ETX, the checksum
  unsigned char sum_ = 0;  // over text_
};

}  // namespace emulator
