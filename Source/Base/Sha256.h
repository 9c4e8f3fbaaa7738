// SHA-256 (FIPS 180-4), incremental: Update any number of times, then Final.
// Used to fingerprint downloaded bytes for sampled integrity checks.
//
// Not synchronised: one owner at a time.
#ifndef DOWNLOADER_BASE_SHA256_H_
#define DOWNLOADER_BASE_SHA256_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace downloader {

class Sha256 {
 public:
  static constexpr size_t kDigestBytes = 32;

  Sha256();

  void Update(const void* data, size_t length);
  void Update(const std::string& text) { Update(text.data(), text.size()); }
  // The digest as 64 lower-case hex digits. Ends the hashing: further calls
  // of Update or Final are not meaningful.
  std::string FinalHex();

 private:
  static constexpr size_t kBlockBytes = 64;

  void Compress(const uint8_t* block);

  std::array<uint32_t, 8> state_;
  std::array<uint8_t, kBlockBytes> pending_{};
  size_t pendingBytes_ = 0;
  uint64_t totalBytes_ = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_SHA256_H_
