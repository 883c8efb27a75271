// What hub and device child say to each other: a length of four bytes, most significant first, and so many
// bytes of JSON. Bytes of documents and replies travel in it as base64.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hub {

inline constexpr std::size_t kLengthBytes = 4;
// A reply fills the library's packet buffer of 10 MiB at most; base64 makes a third more of it.
inline constexpr std::size_t kLongestMessage = std::size_t{16} * 1024 * 1024;

struct ChildOrder {
  enum class Kind { call, lock_serial };
  Kind kind = Kind::call;
  std::string function;             // call
  int session = 0;                  // call
  std::vector<std::string> values;  // call; the activation code is among them
  std::string serial;               // lock_serial
};

struct ChildAnswer {
  enum class Kind {
    ready,         // the port is locked and the library loaded
    failed,        // neither; the child ends
    held,          // another child or hub has the lock
    reply,         // of the call
    port_changed,  // before the call: the library was not called
    locked,        // the serial number's lock
  };
  Kind kind = Kind::failed;
  std::string text;           // reply: byte for byte; failed: the reason
  bool port_changed = false;  // reply: the port is another node than before the call
};

std::string encode(const ChildOrder& order);
std::string encode(const ChildAnswer& answer);
std::optional<ChildOrder> decode_order(std::string_view json);
std::optional<ChildAnswer> decode_answer(std::string_view json);

// The length in front, and back. None: longer than any message may be.
std::string framed(const std::string& message);
std::optional<std::size_t> length_in(std::string_view four_bytes);

}  // namespace hub
