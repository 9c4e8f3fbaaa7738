#include "AesCbcDecryptor.h"

#include <openssl/evp.h>

namespace dlplay {

struct AesCbcDecryptor::Context {
  EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
  ~Context() { EVP_CIPHER_CTX_free(cipher); }
};

AesCbcDecryptor::AesCbcDecryptor(const AesBlock& key, const AesBlock& iv) : context_(new Context) {
  EVP_DecryptInit_ex(context_->cipher, EVP_aes_128_cbc(), nullptr, key.data(), iv.data());
}

AesCbcDecryptor::~AesCbcDecryptor() = default;

void AesCbcDecryptor::Update(const uint8_t* data, size_t length, std::string* plain) {
  size_t before = plain->size();
  // The cipher may release up to one block more than it is given.
  plain->resize(before + length + kAesBlockSize);
  int written = 0;
  EVP_DecryptUpdate(context_->cipher, reinterpret_cast<unsigned char*>(&(*plain)[before]), &written, data,
                    static_cast<int>(length));
  plain->resize(before + static_cast<size_t>(written));
}

bool AesCbcDecryptor::Finish(std::string* plain) {
  size_t before = plain->size();
  plain->resize(before + kAesBlockSize);
  int written = 0;
  bool padded = EVP_DecryptFinal_ex(context_->cipher, reinterpret_cast<unsigned char*>(&(*plain)[before]),
                                    &written) == 1;
  plain->resize(before + (padded ? static_cast<size_t>(written) : 0));
  return padded;
}

}  // namespace dlplay
