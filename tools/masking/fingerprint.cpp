#include "masking/fingerprint.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <random>

namespace masking {

namespace {

// SipHash-2-4.
class KeyedHash {
 public:
  KeyedHash(std::uint64_t k0, std::uint64_t k1)
      : v_{k0 ^ 0x736f6d6570736575U, k1 ^ 0x646f72616e646f6dU, k0 ^ 0x6c7967656e657261U,
           k1 ^ 0x7465646279746573U} {}

  std::uint64_t of(std::string_view bytes) {
    const std::size_t size = bytes.size();
    for (; bytes.size() >= 8; bytes.remove_prefix(8)) absorb(word(bytes.substr(0, 8)));
    absorb(word(bytes) | static_cast<std::uint64_t>(size & 0xFF) << 56U);
    v_[2] ^= 0xFF;
    for (int i = 0; i < 4; ++i) round();
    return v_[0] ^ v_[1] ^ v_[2] ^ v_[3];
  }

 private:
  static std::uint64_t word(std::string_view bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
      value |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << 8 * i;
    return value;
  }

  void absorb(std::uint64_t value) {
    v_[3] ^= value;
    round();
    round();
    v_[0] ^= value;
  }

  void round() {
    v_[0] += v_[1];
    v_[1] = std::rotl(v_[1], 13) ^ v_[0];
    v_[0] = std::rotl(v_[0], 32);
    v_[2] += v_[3];
    v_[3] = std::rotl(v_[3], 16) ^ v_[2];
    v_[0] += v_[3];
    v_[3] = std::rotl(v_[3], 21) ^ v_[0];
    v_[2] += v_[1];
    v_[1] = std::rotl(v_[1], 17) ^ v_[2];
    v_[2] = std::rotl(v_[2], 32);
  }

  std::array<std::uint64_t, 4> v_;
};

std::uint64_t random_word() {
  std::random_device source;
  return static_cast<std::uint64_t>(source()) << 32U | source();
}

}  // namespace

std::string fingerprint(std::string_view document) {
  static const std::array<std::uint64_t, 2> key{random_word(), random_word()};
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%08x",
                static_cast<unsigned>(KeyedHash(key[0], key[1]).of(document) & 0xFFFFFFFFU));
  return text.data();
}

}  // namespace masking
