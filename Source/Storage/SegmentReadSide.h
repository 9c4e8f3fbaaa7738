// The reading side of a segment executor: a resource's stored segment file,
// read on the consumer's own thread when the consumer asks for bytes.
//
// There is no thread of its own and no read-ahead: the file's bytes sit in the
// page cache or behind the kernel's own sequential read-ahead, and a read
// straight into the consumer's buffer is the one copy a replay needs.
//
// Open finds the file and checks that the chunk at the start offset is stored,
// without reading content. ReadRun moves whole chunks from a chunk boundary
// straight into the caller's buffer, as many as fit; when not even one fits,
// or the offset lies inside a chunk, the caller reads the whole chunk with
// ReadChunk and serves the part it needs from there. Every read checks the
// chunks' fill bits and checksums; a chunk that is not stored fails the read.
//
// Thread rules: one thread at a time (the executor serialises its calls); the
// adapter is shared with every other user of the file and serialises itself.
#ifndef DOWNLOADER_STORAGE_SEGMENTREADSIDE_H_
#define DOWNLOADER_STORAGE_SEGMENTREADSIDE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Filter/SubCode.h>

namespace downloader {
namespace storage {

class DiskAdapter;

// A whole chunk read from a segment file. Its storage is kept from read to
// read and left uninitialised when it grows: every byte served was read first.
struct ChunkBuffer {
  std::unique_ptr<uint8_t[]> bytes;
  size_t capacity = 0;
  // The chunk's content bytes, from resource offset `offset` on; 0 when empty.
  size_t size = 0;
  int64_t offset = 0;
};

class SegmentReadSide {
 public:
  // The file is missing, invalid, or not stored at the offset asked for.
  static constexpr int64_t kNotStoredSubCode = FourCharSubCode('S', 'N', 'S', 'T');

  SegmentReadSide(std::string path, int64_t jobId);
  ~SegmentReadSide();

  SegmentReadSide(const SegmentReadSide&) = delete;
  SegmentReadSide& operator=(const SegmentReadSide&) = delete;

  // The resource's size when the file is valid and `offset` is its end or
  // lies in a stored chunk; -1 otherwise, and every read then fails.
  int64_t Open(int64_t offset);

  // Reads the whole chunks from `offset` on that fit in `capacity` bytes
  // straight into `destination` (the last chunk of the resource may be short).
  // The bytes read; 0 when `offset` is not a chunk boundary or not one chunk
  // fits; -1 when the first chunk is not stored. A run whose later chunks
  // are not stored yields the chunks before the gap, one at a time.
  int64_t ReadRun(int64_t offset, uint8_t* destination, size_t capacity);

  // Reads the whole chunk holding `offset` into `chunk`; false, with `chunk`
  // empty, when it is not stored.
  bool ReadChunk(int64_t offset, ChunkBuffer* chunk);

 private:
  // Constant after construction.
  const std::string path_;
  const int64_t jobId_;

  // Set by Open.
  std::shared_ptr<DiskAdapter> adapter_;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTREADSIDE_H_
