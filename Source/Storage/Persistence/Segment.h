// A writer's handle on its pending bytes: one DiskCacheEntry for the writer's
// file, registered with the writer's DiskCache, which decides when the
// entry goes to disk.
//
// Thread rules: owned by one writer and used on the storage thread only; not
// synchronised. The DiskCache must outlive the Segment.
//
// Edge cases: destroying a Segment drops what it still holds (a writer that
// ends without `flushCache` loses its pending cells, which are downloaded
// again another time).
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_SEGMENT_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_SEGMENT_H_

#include <cstdint>
#include <memory>

namespace downloader {
namespace storage {

class DiskAdapter;
class DiskCache;
class DiskCacheEntry;

class Segment {
 public:
  Segment(std::shared_ptr<DiskAdapter> adapter, DiskCache* cache, int64_t jobId);
  ~Segment();

  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  // Bytes taken onto the end of the pending cell (by reference).
  uint64_t appendCache(uint64_t goff, const std::shared_ptr<const uint8_t>& data, uint64_t len);
  // Installs a new pending cell of `cap` bytes holding the `len` bytes at
  // `data` (by reference) at goff. Returns `len`, or 0 when the offset already
  // has a cell.
  uint64_t updateCache(uint64_t goff, std::shared_ptr<const uint8_t> data, uint64_t len, uint64_t cap);
  // Writes what the entry holds now; false if any cell was refused or failed.
  bool flushCache();

 private:
  // Constant after construction.
  DiskCache* const cache_;
  const std::shared_ptr<DiskCacheEntry> entry_;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_SEGMENT_H_
