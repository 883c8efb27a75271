// What the benchmark's device and its floor client know of the link, written anew: neither shares code with
// the library that they are the measure of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace bench {

inline constexpr char kStx = 0x02;
inline constexpr char kEtx = 0x03;
inline constexpr char kAck = 0x06;
inline constexpr char kNak = 0x15;
inline constexpr std::size_t kBlock = 16384;

inline char checksum(std::string_view text) {
  std::uint8_t sum = 0;
  for (const char byte : text) sum = static_cast<std::uint8_t>(sum + static_cast<std::uint8_t>(byte));
  return static_cast<char>(sum == 3 ? 4 : sum);
}

inline std::string frame(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() + 3);
  bytes += kStx;
  bytes += text;
  bytes += checksum(text);
  bytes += kEtx;
  return bytes;
}

}  // namespace bench
