#include "Storage/Persistence/Segment.h"

#include "Storage/Persistence/DiskCache.h"
#include "Storage/Persistence/DiskCacheEntry.h"

namespace downloader {
namespace storage {

Segment::Segment(std::shared_ptr<DiskAdapter> adapter, DiskCache* cache, int64_t jobId)
    : cache_(cache), entry_(std::make_shared<DiskCacheEntry>(std::move(adapter), jobId)) {
  cache_->add(entry_);
}

Segment::~Segment() {
  cache_->remove(entry_);
  entry_->deleteDataCells();
}

uint64_t Segment::appendCache(uint64_t goff, const std::shared_ptr<const uint8_t>& data, uint64_t len) {
  uint64_t taken = entry_->append(goff, data, len);
  if (taken > 0) cache_->update(entry_, static_cast<int64_t>(taken));
  return taken;
}

uint64_t Segment::updateCache(uint64_t goff, std::shared_ptr<const uint8_t> data, uint64_t len, uint64_t cap) {
  // Only the pending cell ever grows: once a new cell takes its place, an
  // unfinished one could only be refused at the next flush, and meanwhile its
  // bytes would count against the limit and force that flush early.
  uint64_t dropped = entry_->dropUnfinishedPending();
  if (dropped > 0) cache_->update(entry_, -static_cast<int64_t>(dropped));
  DataCell cell;
  cell.goff = goff;
  cell.pieces.push_back(CellPiece{std::move(data), len});
  cell.len = len;
  cell.cap = cap;
  if (!entry_->cacheData(std::move(cell))) return 0;
  cache_->update(entry_, static_cast<int64_t>(len));
  return len;
}

bool Segment::flushCache() {
  uint64_t held = entry_->size();
  bool written = entry_->writeToDisk();
  cache_->update(entry_, -static_cast<int64_t>(held));
  return written;
}

}  // namespace storage
}  // namespace downloader
