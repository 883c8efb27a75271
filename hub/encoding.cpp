#include "hub/encoding.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "satctl/terminal/printable.h"

namespace hub {

namespace {

const auto* octets(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

bool is_base64_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// 0x80 to 0x9F of code page 1252; the rest of it is Unicode's first page.
constexpr std::array<char16_t, 32> kUpperControls{
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};

void append_code_point(std::string& text, char32_t point) {
  if (point < 0x80) {
    text += static_cast<char>(point);
  } else if (point < 0x800) {
    text += static_cast<char>(0xC0 | (point >> 6));
    text += static_cast<char>(0x80 | (point & 0x3F));
  } else {
    text += static_cast<char>(0xE0 | (point >> 12));
    text += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
    text += static_cast<char>(0x80 | (point & 0x3F));
  }
}

}  // namespace

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), octets(bytes),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::optional<std::string> from_base64(std::string_view text) {
  if (text.empty()) return std::string();
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  const auto letters = text.substr(0, text.size() - padding);
  if (!std::all_of(letters.begin(), letters.end(), is_base64_letter)) return std::nullopt;
  std::string bytes(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), octets(text),
                                     static_cast<int>(text.size()));
  if (length < 0) return std::nullopt;
  bytes.resize(bytes.size() - padding);
  return bytes;
}

std::optional<std::string> from_wrapped_base64(std::string_view text) {
  std::string letters(text);
  std::erase_if(letters, [](char c) { return c == '\r' || c == '\n' || c == ' ' || c == '\t'; });
  return from_base64(letters);
}

std::string sha256(std::string_view bytes) {
  std::string digest(SHA256_DIGEST_LENGTH, '\0');
  SHA256(octets(bytes), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
}

std::string hexadecimal(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto value = static_cast<unsigned char>(c);
    text += kDigits[value >> 4];
    text += kDigits[value & 0xF];
  }
  return text;
}

std::string random_bytes(std::size_t count) {
  std::string bytes(count, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) != 1) {
    throw std::runtime_error("no random numbers");
  }
  return bytes;
}

int random_number(int first, int last) {
  const std::string bytes = random_bytes(sizeof(std::uint32_t));
  std::uint32_t value = 0;
  for (const char c : bytes) value = value << 8 | static_cast<unsigned char>(c);
  return first + static_cast<int>(value % static_cast<std::uint32_t>(last - first + 1));
}

std::string utf8(std::string_view bytes) {
  if (satctl::valid_utf8(bytes) == bytes) return std::string(bytes);
  std::string text;
  for (const char c : bytes) {
    const auto value = static_cast<unsigned char>(c);
    append_code_point(text, value >= 0x80 && value < 0xA0 ? kUpperControls[value - 0x80U] : value);
  }
  return text;
}

std::string moment_text(Moment seconds) {
  const auto moment = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&moment, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

std::optional<Moment> moment_from(std::string_view text) {
  const std::string moment(text);
  std::tm parts{};
  for (const char* format : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
    parts = {};
    const char* end = strptime(moment.c_str(), format, &parts);
    if (end == nullptr || *end != '\0') continue;
    // A date alone is the shop's day, not Greenwich's.
    if (format[8] == '\0') {
      parts.tm_isdst = -1;
      return static_cast<Moment>(std::mktime(&parts));
    }
    return static_cast<Moment>(timegm(&parts));
  }
  return std::nullopt;
}

}  // namespace hub
