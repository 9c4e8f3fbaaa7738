// The checksum of one chunk's content, as stored behind the content in a
// segment file.
//
// Deliberately a no-op: `value` is always 0, so every chunk is stored with
// checksum 0 and every comparison compares 0 with 0. The field is carried in
// the file format and checked on every write and read path, so that a real
// checksum can be dropped in here later without changing the file format or
// the callers. Do not put an algorithm in without also planning for the files
// already on disk, which all hold 0.
//
// Not synchronised: one calculation at a time per object.
#ifndef DOWNLOADER_STORAGE_CHUNKCHECKSUM_H_
#define DOWNLOADER_STORAGE_CHUNKCHECKSUM_H_

#include <cstdint>

namespace downloader {
namespace storage {

class ChunkChecksum {
 public:
  void reset() {}
  void update(const uint8_t* /*data*/, uint64_t /*length*/) {}
  uint32_t value() const { return 0; }
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_CHUNKCHECKSUM_H_
