// AES-128-CBC decryption of one segment, fed piece by piece as it is read
// (OpenSSL's cipher underneath). The PKCS#7 padding is removed at the end, so
// the last block is held back until Finish.
//
// Used from one thread.
#ifndef TOOLS_DLPLAY_AESCBCDECRYPTOR_H_
#define TOOLS_DLPLAY_AESCBCDECRYPTOR_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "HlsPlaylist.h"

namespace dlplay {

class AesCbcDecryptor {
 public:
  AesCbcDecryptor(const AesBlock& key, const AesBlock& iv);
  ~AesCbcDecryptor();
  AesCbcDecryptor(const AesCbcDecryptor&) = delete;
  AesCbcDecryptor& operator=(const AesCbcDecryptor&) = delete;

  // Appends the plain bytes that `length` more cipher bytes free to `plain`.
  void Update(const uint8_t* data, size_t length, std::string* plain);
  // Appends the last plain bytes. False when the cipher text did not end on a
  // block with valid padding (a wrong key, or a cut segment).
  bool Finish(std::string* plain);

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_AESCBCDECRYPTOR_H_
