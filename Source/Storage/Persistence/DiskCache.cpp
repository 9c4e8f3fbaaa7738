#include "Storage/Persistence/DiskCache.h"

#include <algorithm>

#include "Storage/Persistence/DiskCacheEntry.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {

DiskCache::DiskCache(uint64_t limit, int64_t jobId)
    : tag_("[diskcache][JobId" + std::to_string(jobId) + "_DiskCache]"), mLimit_(limit) {}

DiskCache::~DiskCache() {
  if (mTotal_ != 0) {
    DL_LOGE << tag_ << "destructor,DLEXCEPTION,mTotal_:" << mTotal_;
  }
}

void DiskCache::restamp(const std::shared_ptr<DiskCacheEntry>& entry) {
  mSet_.erase(entry->useStamp());
  entry->setUseStamp(++stampCounter_);
  mSet_.emplace(entry->useStamp(), entry);
}

void DiskCache::add(const std::shared_ptr<DiskCacheEntry>& entry) {
  restamp(entry);
  mTotal_ += entry->size();
  DL_LOGT << tag_ << "add,insert success,mTotal_:" << mTotal_ << ",mSet_ size:" << mSet_.size()
          << ",entry size:" << entry->size();
}

void DiskCache::remove(const std::shared_ptr<DiskCacheEntry>& entry) {
  auto found = mSet_.find(entry->useStamp());
  if (found == mSet_.end() || found->second != entry) return;
  mSet_.erase(found);
  mTotal_ -= std::min(mTotal_, entry->size());
  DL_LOGT << tag_ << "remove,erase success,mTotal_:" << mTotal_ << ",mSet_ size:" << mSet_.size()
          << ",entry size:" << entry->size();
}

bool DiskCache::update(const std::shared_ptr<DiskCacheEntry>& entry, int64_t delta) {
  if (delta < 0 && static_cast<uint64_t>(-delta) > mTotal_) {
    DL_LOGE << tag_ << "update,DLEXCEPTION,overflow,mTotal_:" << mTotal_ << ",delta:" << delta;
    return false;
  }
  restamp(entry);
  mTotal_ = delta < 0 ? mTotal_ - static_cast<uint64_t>(-delta) : mTotal_ + static_cast<uint64_t>(delta);
  ensureLimit();
  return true;
}

void DiskCache::ensureLimit() {
  while (mTotal_ >= mLimit_ && !mSet_.empty()) {
    std::shared_ptr<DiskCacheEntry> oldest = mSet_.begin()->second;
    uint64_t held = oldest->size();
    if (held == 0) {
      DL_LOGE << tag_ << "ensureLimited,DLEXCEPTION,empty entry,mTotal_:" << mTotal_;
      return;
    }
    mTotal_ -= std::min(mTotal_, held);
    oldest->writeToDisk();
    restamp(oldest);
    DL_LOGT << tag_ << "ensureLimited,mTotal_:" << mTotal_;
  }
}

}  // namespace storage
}  // namespace downloader
