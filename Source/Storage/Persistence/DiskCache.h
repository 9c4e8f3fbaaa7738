// Write-back accounting for one writer: how many bytes its entries hold, and
// when they must go to disk. Whenever an entry grows past the limit, entries
// are written out oldest use first until the total is below the limit again;
// memory, not a timer, decides when data reaches the disk.
//
// Thread rules: owned by one writer and used on the storage thread only; not
// synchronised.
//
// Edge cases: `update` refuses to take more bytes off than the total holds;
// `ensureLimit` gives up on an entry that holds nothing (the total and the
// entries disagree, which only a bug can cause, and is logged); destroying a
// cache that still accounts bytes logs the mismatch.
#ifndef DOWNLOADER_STORAGE_PERSISTENCE_DISKCACHE_H_
#define DOWNLOADER_STORAGE_PERSISTENCE_DISKCACHE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace downloader {
namespace storage {

class DiskCacheEntry;

class DiskCache {
 public:
  // `limit` of at least 1.
  DiskCache(uint64_t limit, int64_t jobId);
  ~DiskCache();

  DiskCache(const DiskCache&) = delete;
  DiskCache& operator=(const DiskCache&) = delete;

  void add(const std::shared_ptr<DiskCacheEntry>& entry);
  void remove(const std::shared_ptr<DiskCacheEntry>& entry);
  // The entry grew (or shrank) by `delta` bytes: a fresh use stamp, the new
  // total, then `ensureLimit`.
  bool update(const std::shared_ptr<DiskCacheEntry>& entry, int64_t delta);
  void ensureLimit();

  uint64_t total() const { return mTotal_; }
  uint64_t limit() const { return mLimit_; }

 private:
  void restamp(const std::shared_ptr<DiskCacheEntry>& entry);

  // Constant after construction.
  const std::string tag_;
  const uint64_t mLimit_;

  uint64_t mTotal_ = 0;
  // Entries by use stamp, oldest first.
  std::map<uint64_t, std::shared_ptr<DiskCacheEntry>> mSet_;
  uint64_t stampCounter_ = 0;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_PERSISTENCE_DISKCACHE_H_
