// Little-endian integers in on-disk headers, written and read byte by byte so
// that no file layout depends on the host's byte order or alignment.
#ifndef DOWNLOADER_STORAGE_BYTEORDER_H_
#define DOWNLOADER_STORAGE_BYTEORDER_H_

#include <cstddef>
#include <cstdint>

namespace downloader {
namespace storage {

template <typename T>
inline void PutLittleEndian(uint8_t* out, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) out[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
}

template <typename T>
inline T GetLittleEndian(const uint8_t* in) {
  uint64_t value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) value |= static_cast<uint64_t>(in[i]) << (8 * i);
  return static_cast<T>(value);
}

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_BYTEORDER_H_
