// Serves byte ranges of a cached resource out of the filled chunks of its
// segment file.
//
// A read delivers bytes from the requested offset on until it has what was
// asked, the content ends, or it meets a chunk that is not filled (or fails
// its check); it never delivers a byte of an unfilled chunk. The disk is read
// in whole chunks. The last chunk read is kept, and a following read inside
// the same chunk is served from it as long as the chunk is still filled and
// its stored checksum still matches the kept bytes; bit and checksum are read
// from disk for every such read, so a chunk a writer has since unfilled or
// rewritten is not served from the old copy.
//
// Thread rules: any thread; `mutex_` serialises the calls and guards the
// kept chunk.
//
// Edge cases: on an invalid file, or at or past the content size, `read`
// returns 0. A header may claim chunks larger than the file holds; such a
// chunk is refused before any buffer is allocated for it. Construction
// throws DLException when the adapter provider has not been initialised.
#ifndef DOWNLOADER_STORAGE_SEGMENTFILEREADER_H_
#define DOWNLOADER_STORAGE_SEGMENTFILEREADER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <wisp/Mutex.h>

#include "Storage/ChunkChecksum.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentChunk.h"

namespace downloader {
namespace storage {

class DiskAdapter;

class SegmentFileReader {
 public:
  SegmentFileReader(const std::string& path, int64_t jobId,
                    DiskAdapterProvider& provider = DiskAdapterProvider::GetInstance());
  ~SegmentFileReader();

  SegmentFileReader(const SegmentFileReader&) = delete;
  SegmentFileReader& operator=(const SegmentFileReader&) = delete;

  // Bytes delivered into buffer, starting at resource offset goff.
  uint64_t read(uint64_t goff, uint8_t* buffer, uint64_t nrequest);
  // The whole chunk into buffer (length must be its content_len); the bytes
  // read, or -1.
  int64_t read_chunk(const SegmentChunk& chunk, uint8_t* buffer, uint64_t length);

  bool isValid() const;
  uint64_t content_file_size() const;

 private:
  // True when the kept chunk is `chunk` and may still be served.
  bool keptChunkValidLocked(const SegmentChunk& chunk) REQUIRES(mutex_);
  // Reads `chunk` from disk into the kept buffer.
  bool loadChunkLocked(const SegmentChunk& chunk) REQUIRES(mutex_);

  // Constant after construction.
  const std::string tag_;
  const std::shared_ptr<DiskAdapter> adapter_;

  wisp::Mutex mutex_;
  std::vector<uint8_t> keptData_ GUARDED_BY(mutex_);
  bool hasKeptChunk_ GUARDED_BY(mutex_) = false;
  uint64_t keptIndex_ GUARDED_BY(mutex_) = 0;
  // Checksum of keptData_; after_read checked it against the stored one.
  uint32_t keptCrc_ GUARDED_BY(mutex_) = 0;
  ChunkChecksum checksum_ GUARDED_BY(mutex_);
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTFILEREADER_H_
