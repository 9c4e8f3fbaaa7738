#include "Sha256.h"

#include <openssl/evp.h>

namespace dlplay {

struct Sha256::Context {
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  ~Context() { EVP_MD_CTX_free(digest); }
};

Sha256::Sha256() : context_(new Context) { EVP_DigestInit_ex(context_->digest, EVP_sha256(), nullptr); }

Sha256::~Sha256() = default;

void Sha256::Update(const uint8_t* data, size_t length) { EVP_DigestUpdate(context_->digest, data, length); }

std::string Sha256::HexDigest() {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context_->digest, digest, &length);
  static const char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < length; ++i) {
    hex.push_back(kHex[digest[i] >> 4]);
    hex.push_back(kHex[digest[i] & 0x0F]);
  }
  return hex;
}

}  // namespace dlplay
