// Base64: what is encoded decodes to itself, and any text decodes within its bounds.
#include <cstring>
#include <vector>

#include "fuzz/fuzzing.h"
#include "talvex/talvex.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);

  if (size > 0) {
    const std::size_t length = 4 * ((size + 2) / 3);
    std::vector<char> text(length + 1, '#');
    std::uint64_t text_length = 0;
    require(OLK_Base64Encoder(data, size, text.data(), &text_length) == static_cast<int>(length));
    require(text_length == length && std::strlen(text.data()) == length);
    std::vector<unsigned char> bytes(3 * (length / 4) + 1, 0);
    std::uint64_t bytes_length = 0;
    require(OLK_Base64Decoder(text.data(), length, bytes.data(), &bytes_length) == static_cast<int>(size));
    require(bytes_length == size && std::memcmp(bytes.data(), data, size) == 0);
  }
  std::vector<char> text(data, data + size);
  std::vector<unsigned char> bytes(3 * (size / 4) + 1, 0);
  std::uint64_t bytes_length = 0;
  const int decoded = OLK_Base64Decoder(text.data(), size, bytes.data(), &bytes_length);
  require(decoded < 0 || static_cast<std::size_t>(decoded) <= 3 * (size / 4));
  return 0;
}
