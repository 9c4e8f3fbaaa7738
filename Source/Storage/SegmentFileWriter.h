// Turns a download's bytes into committed chunks of one segment file.
//
// `store` takes bytes at their resource offset. Bytes that continue the
// pending cell are appended to it; bytes that start on a chunk boundary open
// a new pending cell; bytes that start inside any other chunk cannot make a
// whole chunk and are dropped up to the next boundary. Cells reach the disk
// when the writer's DiskCache holds flush_limit bytes or more, and on
// `complete`; only a full cell passes the guard, so a partial chunk is never
// written (it is downloaded again another time).
//
// Thread rules: constructed on any thread; `store` and `complete` run on the
// storage thread (SegmentFileWriterDispatch), one call at a time. Members are
// constant after construction; the cache and segment are used only by those
// calls.
//
// Edge cases: on an invalid file, and for offsets at or past the content
// size, `store` drops everything. Destruction without `complete` drops the
// pending cell. Construction throws DLException when the adapter provider has
// not been initialised.
#ifndef DOWNLOADER_STORAGE_SEGMENTFILEWRITER_H_
#define DOWNLOADER_STORAGE_SEGMENTFILEWRITER_H_

#include <cstdint>
#include <memory>
#include <string>

#include "Storage/Persistence/DiskAdapterProvider.h"

namespace downloader {
namespace storage {

class DiskAdapter;
class DiskCache;
class Segment;
struct SegmentChunk;

class SegmentFileWriter {
 public:
  // The write-back limit used when the configured one is 0 or less.
  static constexpr int64_t kDefaultFlushLimit = 131072;

  // `path` is the resource's cache file; `contentSize` its size in bytes,
  // used when the file has to be made.
  SegmentFileWriter(const std::string& path, uint64_t contentSize, int64_t jobId, bool isPreload,
                    int64_t flushLimit, DiskAdapterProvider& provider = DiskAdapterProvider::GetInstance());
  ~SegmentFileWriter();

  SegmentFileWriter(const SegmentFileWriter&) = delete;
  SegmentFileWriter& operator=(const SegmentFileWriter&) = delete;

  // `data[0]` is the byte at resource offset `goff`. The bytes are copied.
  void store(uint64_t goff, const uint8_t* data, uint64_t wlen);
  // The same without a copy: the cells keep `data` (and whatever buffer it
  // shares ownership of) until they are written or dropped.
  void store(uint64_t goff, const std::shared_ptr<const uint8_t>& data, uint64_t wlen);
  // Flushes the pending cell.
  void complete();

 private:
  // Opens a pending cell for the chunk with the first bytes of data; the
  // number of bytes taken, 0 on failure.
  uint64_t store_chunk(const SegmentChunk& chunk, std::shared_ptr<const uint8_t> data, uint64_t wlen);

  // Constant after construction.
  const std::string tag_;
  const std::shared_ptr<DiskAdapter> adapter_;
  const std::unique_ptr<DiskCache> cache_;
  // Declared after cache_: it unregisters from the cache when destroyed.
  const std::unique_ptr<Segment> segment_;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTFILEWRITER_H_
