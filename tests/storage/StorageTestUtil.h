// Helpers shared by the storage tests: a reproducible resource, raw file
// access, and segment files with chosen chunk sizes.
#ifndef TESTS_STORAGE_STORAGETESTUTIL_H_
#define TESTS_STORAGE_STORAGETESTUTIL_H_

#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Platform/FileSystem.h"
#include "Storage/Persistence/File.h"
#include "Storage/SegmentFileV1.h"

namespace dltest {

// Byte `offset` of resource number `seed`: a pattern that differs between
// neighbouring bytes, chunks and resources and is never 0, so that a byte
// landing at the wrong place or a hole is told apart from content.
inline uint8_t SourceByte(uint32_t seed, uint64_t offset) {
  uint64_t x = (offset + 1) * 0x9E3779B97F4A7C15ull ^ (static_cast<uint64_t>(seed) << 32);
  x ^= x >> 29;
  uint8_t value = static_cast<uint8_t>(x ^ (x >> 17));
  return value == 0 ? 1 : value;
}

inline std::vector<uint8_t> SourceBytes(uint32_t seed, uint64_t goff, uint64_t len) {
  std::vector<uint8_t> bytes(len);
  for (uint64_t i = 0; i < len; ++i) bytes[i] = SourceByte(seed, goff + i);
  return bytes;
}

inline std::vector<uint8_t> ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteWholeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// An empty segment file at path with the given sizes; false if create fails.
inline bool MakeSegmentFile(const std::string& path, uint64_t contentSize, uint64_t chunkSize,
                            downloader::platform::FileSystem* fileSystem =
                                downloader::platform::FileSystem::Default()) {
  auto file = std::make_shared<downloader::storage::File>(path, fileSystem);
  if (!file->create()) return false;
  downloader::storage::SegmentFileV1 segmentFile;
  bool created = segmentFile.create(file, contentSize, chunkSize, 1);
  file->close();
  return created;
}

}  // namespace dltest

#endif  // TESTS_STORAGE_STORAGETESTUTIL_H_
