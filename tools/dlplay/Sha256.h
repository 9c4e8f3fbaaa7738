// SHA-256 of a byte stream, fed piece by piece (OpenSSL's digest underneath).
#ifndef TOOLS_DLPLAY_SHA256_H_
#define TOOLS_DLPLAY_SHA256_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace dlplay {

class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void Update(const uint8_t* data, size_t length);
  // Lower-case hex; the object is spent afterwards.
  std::string HexDigest();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_SHA256_H_
