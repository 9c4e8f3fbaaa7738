#include "Storage/Persistence/DiskCacheEntry.h"

#include <algorithm>

#include "Storage/Persistence/DiskAdapter.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {

DiskCacheEntry::DiskCacheEntry(std::shared_ptr<DiskAdapter> adapter, int64_t jobId)
    : adapter_(std::move(adapter)), tag_("[diskcache][JobId" + std::to_string(jobId) + "_DiskCacheEntry]") {}

uint64_t DiskCacheEntry::append(uint64_t goff, const std::shared_ptr<const uint8_t>& data, uint64_t len) {
  if (!hasPending_) {
    DL_LOGT << tag_ << "append,mSet_ empty";
    return 0;
  }
  DataCell& cell = mSet_.at(pendingGoff_);
  if (goff != cell.goff + cell.len || cell.len >= cell.cap) {
    DL_LOGT << tag_ << "append,discontinue,cell goff:" << cell.goff << ",cell len:" << cell.len << ",goff:" << goff;
    return 0;
  }
  uint64_t taken = std::min(len, cell.cap - cell.len);
  cell.pieces.push_back(CellPiece{data, taken});
  cell.len += taken;
  mSize_ += taken;
  DL_LOGT << tag_ << "append,concatenate,cell goff:" << cell.goff << ",cell len:" << cell.len
          << ",cell cap:" << cell.cap;
  return taken;
}

bool DiskCacheEntry::cacheData(DataCell cell) {
  uint64_t goff = cell.goff;
  uint64_t len = cell.len;
  bool inserted = mSet_.emplace(goff, std::move(cell)).second;
  if (!inserted) {
    DL_LOGD << tag_ << "cacheData,insert,fail,mSize_" << mSize_ << ",goff:" << goff;
    return false;
  }
  mSize_ += len;
  hasPending_ = true;
  pendingGoff_ = goff;
  DL_LOGT << tag_ << "cacheData,insert,success,mSize_" << mSize_;
  return true;
}

uint64_t DiskCacheEntry::dropUnfinishedPending() {
  if (!hasPending_) return 0;
  auto pending = mSet_.find(pendingGoff_);
  hasPending_ = false;
  if (pending->second.len >= pending->second.cap) return 0;
  uint64_t dropped = pending->second.len;
  DL_LOGD << tag_ << "drop unfinished cell,goff:" << pending->first << ",len:" << dropped;
  mSet_.erase(pending);
  mSize_ -= dropped;
  return dropped;
}

bool DiskCacheEntry::writeToDisk() {
  bool written = adapter_->writeCache(*this);
  deleteDataCells();
  return written;
}

void DiskCacheEntry::deleteDataCells() {
  DL_LOGT << tag_ << "deleteDataCells,mSet_ size:" << mSet_.size();
  mSet_.clear();
  mSize_ = 0;
  hasPending_ = false;
}

}  // namespace storage
}  // namespace downloader
