#include "device/crypto.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace emulator {
namespace {

TEST(Base64, GoesThereAndBack) {
  for (const std::string text : {"", "a", "ab", "abc", "abcd", "\xff\xfe\x01"}) {
    EXPECT_EQ(base64_decode(base64_encode(text)), text);
  }
  EXPECT_EQ(base64_encode("CFe"), "Q0Zl");
  EXPECT_EQ(base64_decode("Q0\r\nZl"), "CFe");
  EXPECT_EQ(base64_decode("QQ=="), "A");
}

TEST(Base64, RefusesWhatIsNone) {
  for (const char* text : {"Q", "Q0Z", "Q0Zl=", "Q===", "====", "Q0=l", "Q0Z\x01"}) {
    EXPECT_EQ(base64_decode(text), std::nullopt) << text;
  }
}

TEST(SigningKey, IsTheSameForTheSameSeedOnly) {
  const std::string first = SigningKey::from_seed(1).pem();
  EXPECT_EQ(SigningKey::from_seed(1).pem(), first);
  EXPECT_NE(SigningKey::from_seed(2).pem(), first);
}

TEST(SigningKey, SignsAsAnRsaKeyOf2048BitsDoes) {
  const SigningKey key = SigningKey::from_seed(3);
  const auto signature = base64_decode(key.sign("text"));
  ASSERT_TRUE(signature);
  EXPECT_EQ(signature->size(), 256U);

  const std::string pem = key.public_pem();
  std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                    BIO_free_all);
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> parsed(
      PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
  ASSERT_NE(parsed, nullptr);
  EXPECT_EQ(EVP_PKEY_get_bits(parsed.get()), 2048);
  const auto verify = [&](const std::string& text) {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, parsed.get());
    return EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(signature->data()),
                            signature->size(), reinterpret_cast<const unsigned char*>(text.data()),
                            text.size());
  };
  EXPECT_EQ(verify("text"), 1);
  EXPECT_NE(verify("Text"), 1);
}

TEST(SigningKey, SurvivesItsPem) {
  const SigningKey key = SigningKey::from_seed(4);
  EXPECT_EQ(SigningKey::from_pem(key.pem()).sign("x"), key.sign("x"));
  EXPECT_THROW(SigningKey::from_pem("no key"), std::runtime_error);
}

TEST(SigningKey, RequestsACertificateForItself) {
  const std::string pem = SigningKey::from_seed(5).certificate_request("SEFAZ emulada", "SAT 900000001");
  std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                    BIO_free_all);
  std::unique_ptr<X509_REQ, decltype(&X509_REQ_free)> request(
      PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr), X509_REQ_free);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(X509_REQ_verify(request.get(), X509_REQ_get0_pubkey(request.get())), 1);
}

}  // namespace
}  // namespace emulator
