// The guard between a disk adapter and its segment file: it turns a resource
// offset into a file position, and lets only whole, accounted chunks pass.
//
// Write: the caller takes the content's checksum from `checksumOf`;
// `before_write` hands out the slot position for exactly one whole chunk that
// is not yet filled, else -1; the caller writes the content and the checksum
// behind it there and reports the content bytes written to `after_write`,
// which commits the chunk (sets its bit). Read: `before_read` hands out the position of a whole, filled
// chunk, else -1; `after_read` accepts the bytes only if they are the whole
// chunk and their checksum matches the stored one. The `_run` forms apply
// the read guards to every chunk of a run of whole chunks read in one
// transfer; the run's bits are refreshed once before it and once after.
//
// Edge cases: a write or read that does not start on a chunk boundary or does
// not span the chunk's exact content length is refused; a filled chunk whose
// new content has the stored checksum is refused ("already valid"); one whose
// checksum differs is unfilled first and handed out for rewriting. With the
// shipped checksum (always 0) a filled chunk is final.
//
// Thread rules: any thread. The segment file serialises its own state;
// `checksumMutex_` guards the checksum calculator. The segment file must
// outlive the guard (both belong to one DiskAdapter).
#ifndef DOWNLOADER_STORAGE_DISKADAPTERINTERCEPT_H_
#define DOWNLOADER_STORAGE_DISKADAPTERINTERCEPT_H_

#include <cstdint>
#include <string>
#include <vector>

#include <wisp/Mutex.h>

#include "Platform/FileSystem.h"
#include "Storage/ChunkChecksum.h"

namespace downloader {
namespace storage {

class SegmentFileV1;
struct SegmentChunk;

class DiskAdapterIntercept {
 public:
  DiskAdapterIntercept(SegmentFileV1* segmentFile, int64_t jobId);

  // Of the parts' concatenation.
  uint32_t checksumOf(const platform::WritePart* parts, size_t count);
  int64_t before_write(uint32_t crc, uint64_t goff, uint64_t len);
  bool after_write(uint32_t crc, uint64_t goff, uint64_t len, int64_t nwritten);
  int64_t before_read(uint64_t goff, uint64_t len);
  bool after_read(const uint8_t* data, uint64_t goff, uint64_t len, int64_t nread);
  // The run [goff, goff + len) of whole, filled chunks, or false.
  bool before_read_run(uint64_t goff, uint64_t len, std::vector<SegmentChunk>* chunks);
  // `nread` content bytes arrived for `chunks`, with their stored checksums:
  // true when that is all of the contents, every bit is still set and every
  // content matches its checksum.
  bool after_read_run(const uint8_t* data, uint64_t goff, uint64_t len, int64_t nread,
                      const std::vector<SegmentChunk>& chunks, const std::vector<uint32_t>& storedChecksums);

 private:
  // True when the chunk starts at goff and holds exactly len bytes.
  static bool isWholeChunk(const SegmentChunk& chunk, uint64_t goff, uint64_t len);
  // True when every chunk is filled and the last one ends at goff + len.
  static bool isFilledRun(const std::vector<SegmentChunk>& chunks, uint64_t goff, uint64_t len);
  uint32_t checksumOf(const uint8_t* data, uint64_t len);

  // Constant after construction.
  SegmentFileV1* const segmentFile_;
  const std::string tag_;

  wisp::Mutex checksumMutex_;
  ChunkChecksum checksum_ GUARDED_BY(checksumMutex_);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_DISKADAPTERINTERCEPT_H_
