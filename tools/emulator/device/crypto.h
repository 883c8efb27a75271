// Base64, the device's RSA key, its signatures and its certificate request.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

using EVP_PKEY = struct evp_pkey_st;

namespace emulator {

std::string base64_encode(std::string_view bytes);
// Nothing for a text that is no Base64; white space is skipped.
std::optional<std::string> base64_decode(std::string_view text);

// RSA, 2,048 bits.
class SigningKey {
 public:
  // The same seed gives the same key. It protects nothing: it only has to sign like a device's key.
  static SigningKey from_seed(std::uint64_t seed);
  static SigningKey from_pem(const std::string& pem);

  std::string pem() const;
  std::string public_pem() const;
  // Base64 of the PKCS#1 v1.5 signature over the text's SHA-256.
  std::string sign(std::string_view text) const;
  // PEM certificate request for this subject.
  std::string certificate_request(const std::string& organization, const std::string& common_name) const;

 private:
  explicit SigningKey(EVP_PKEY* key);
  std::shared_ptr<EVP_PKEY> key_;
};

}  // namespace emulator
