#pragma once

#include <cstddef>
#include <string_view>

namespace sandbox {

// A port that reads what it is fed. In its bytes 0xFF and a letter stand for a read that finds nothing (A),
// ends (Z) or fails: EIO (I), EBADF (B), EINTR (S).
inline constexpr int kDescriptor = 1000000;
void feed(std::string_view bytes, std::size_t most_at_once);
bool is_dry();
long written();

}  // namespace sandbox
