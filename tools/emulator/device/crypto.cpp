#include "device/crypto.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <array>
#include <cctype>
#include <stdexcept>
#include <vector>

namespace emulator {

namespace {

template <auto function>
struct Releaser {
  template <typename T>
  void operator()(T* object) const {
    function(object);
  }
};
using Bio = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using BigNumber = std::unique_ptr<BIGNUM, Releaser<BN_free>>;
using BigNumberContext = std::unique_ptr<BN_CTX, Releaser<BN_CTX_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Releaser<EVP_PKEY_CTX_free>>;
using Parameters = std::unique_ptr<OSSL_PARAM, Releaser<OSSL_PARAM_free>>;
using ParameterBuilder = std::unique_ptr<OSSL_PARAM_BLD, Releaser<OSSL_PARAM_BLD_free>>;
using Request = std::unique_ptr<X509_REQ, Releaser<X509_REQ_free>>;

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("OpenSSL: ") + what);
}

std::string content(const Bio& bio) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return {data, static_cast<std::size_t>(size)};
}

// A prime of 1,024 bits whose two highest bits are set, so that the product of two has 2,048 bits. The
// candidates are hashes of seed, label and a counter.
BigNumber prime_from_seed(std::uint64_t seed, char label, BN_CTX* context) {
  BigNumber candidate(BN_new());
  for (unsigned counter = 0;; ++counter) {
    std::array<unsigned char, 128> bytes{};
    for (std::size_t part = 0; part < 4; ++part) {
      const std::string text =
          std::to_string(seed) + label + std::to_string(counter) + "." + std::to_string(part);
      SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), &bytes[part * 32]);
    }
    bytes.front() |= 0xC0;
    bytes.back() |= 0x01;
    BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), candidate.get());
    // p - 1 must share no factor with the public exponent 65537.
    if (BN_mod_word(candidate.get(), 65'537) != 1 && BN_check_prime(candidate.get(), context, nullptr) == 1) {
      return candidate;
    }
  }
}

EVP_PKEY* key_from_primes(const BIGNUM* p, const BIGNUM* q, BN_CTX* context) {
  const auto number = [] { return BigNumber(BN_new()); };
  BigNumber n = number(), e = number(), d = number(), p1 = number(), q1 = number(), phi = number();
  BigNumber dp = number(), dq = number(), qinv = number();
  BN_set_word(e.get(), 65'537);
  BN_mul(n.get(), p, q, context);
  BN_sub(p1.get(), p, BN_value_one());
  BN_sub(q1.get(), q, BN_value_one());
  BN_mul(phi.get(), p1.get(), q1.get(), context);
  require(BN_mod_inverse(d.get(), e.get(), phi.get(), context) != nullptr, "private exponent");
  BN_mod(dp.get(), d.get(), p1.get(), context);
  BN_mod(dq.get(), d.get(), q1.get(), context);
  BN_mod_inverse(qinv.get(), q, p, context);

  ParameterBuilder builder(OSSL_PARAM_BLD_new());
  const std::pair<const char*, const BIGNUM*> values[] = {
      {OSSL_PKEY_PARAM_RSA_N, n.get()},          {OSSL_PKEY_PARAM_RSA_E, e.get()},
      {OSSL_PKEY_PARAM_RSA_D, d.get()},          {OSSL_PKEY_PARAM_RSA_FACTOR1, p},
      {OSSL_PKEY_PARAM_RSA_FACTOR2, q},          {OSSL_PKEY_PARAM_RSA_EXPONENT1, dp.get()},
      {OSSL_PKEY_PARAM_RSA_EXPONENT2, dq.get()}, {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, qinv.get()},
  };
  for (const auto& [name, value] : values) OSSL_PARAM_BLD_push_BN(builder.get(), name, value);
  const Parameters parameters(OSSL_PARAM_BLD_to_param(builder.get()));
  const KeyContext maker(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  require(EVP_PKEY_fromdata_init(maker.get()) == 1 &&
              EVP_PKEY_fromdata(maker.get(), &key, EVP_PKEY_KEYPAIR, parameters.get()) == 1,
          "building the key");
  return key;
}

}  // namespace

std::string base64_encode(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

std::optional<std::string> base64_decode(std::string_view text) {
  std::string packed;
  for (const char c : text) {
    if (std::isspace(static_cast<unsigned char>(c)) == 0) packed += c;
  }
  const auto padding = packed.size() - std::min(packed.size(), packed.find_last_not_of('=') + 1);
  if (packed.size() % 4 != 0 || padding > 2 || packed.find('=') < packed.size() - padding)
    return std::nullopt;
  std::string bytes(packed.size() / 4 * 3, '\0');
  const int size =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                      reinterpret_cast<const unsigned char*>(packed.data()), static_cast<int>(packed.size()));
  if (size < 0) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(size) - padding);
  return bytes;
}

SigningKey::SigningKey(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {}

SigningKey SigningKey::from_seed(std::uint64_t seed) {
  const BigNumberContext context(BN_CTX_new());
  const BigNumber p = prime_from_seed(seed, 'p', context.get());
  const BigNumber q = prime_from_seed(seed, 'q', context.get());
  return SigningKey(key_from_primes(p.get(), q.get(), context.get()));
}

SigningKey SigningKey::from_pem(const std::string& pem) {
  const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  EVP_PKEY* key = PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr);
  require(key != nullptr, "the private key cannot be read");
  return SigningKey(key);
}

std::string SigningKey::pem() const {
  const Bio bio(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_PrivateKey(bio.get(), key_.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "writing the private key");
  return content(bio);
}

std::string SigningKey::public_pem() const {
  const Bio bio(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_PUBKEY(bio.get(), key_.get()) == 1, "writing the public key");
  return content(bio);
}

std::string SigningKey::sign(std::string_view text) const {
  const DigestContext context(EVP_MD_CTX_new());
  const auto* data = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(key_.get()));
  std::string signature(size, '\0');
  require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key_.get()) == 1 &&
              EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, data,
                             text.size()) == 1,
          "signing");
  signature.resize(size);
  return base64_encode(signature);
}

std::string SigningKey::certificate_request(const std::string& organization,
                                            const std::string& common_name) const {
  const Request request(X509_REQ_new());
  X509_NAME* subject = X509_REQ_get_subject_name(request.get());
  const std::pair<const char*, std::string> entries[] = {
      {"C", "BR"}, {"O", organization}, {"OU", "SAT"}, {"CN", common_name}};
  for (const auto& [field, value] : entries) {
    X509_NAME_add_entry_by_txt(subject, field, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0);
  }
  const Bio bio(BIO_new(BIO_s_mem()));
  require(X509_REQ_set_pubkey(request.get(), key_.get()) == 1 &&
              X509_REQ_sign(request.get(), key_.get(), EVP_sha256()) > 0 &&
              PEM_write_bio_X509_REQ(bio.get(), request.get()) == 1,
          "certificate request");
  return content(bio);
}

}  // namespace emulator
