#include "Base/BlockRecycler.h"

#include <algorithm>
#include <new>

#include <wisp/Mutex.h>

#include "Utils/context/LibraryContext.h"

namespace downloader {

constexpr uint64_t BlockRecycler::kSmallestKept;
constexpr uint64_t BlockRecycler::kLargestKept;
constexpr uint64_t BlockRecycler::kMaxKeptBytes;

BlockRecycler& BlockRecycler::Instance() { return LibraryContext::Current().Get<BlockRecycler>(); }

BlockRecycler::~BlockRecycler() {
  for (const auto& sizeAndBlock : kept_) delete[] sizeAndBlock.second;
}

uint8_t* BlockRecycler::Take(uint64_t size) {
  if (!InKeptRange(size)) return new (std::nothrow) uint8_t[size];
  auto fits = [size](const std::pair<uint64_t, uint8_t*>& kept) {
    return kept.first >= size && kept.first / 2 <= size;
  };
  {
    wisp::MutexLock lock(&mutex_);
    auto newest = std::find_if(kept_.rbegin(), kept_.rend(), fits);
    if (newest != kept_.rend()) {
      uint64_t capacity = newest->first;
      uint8_t* block = newest->second;
      kept_.erase(std::next(newest).base());
      keptBytes_ -= capacity;
      lent_[block] = capacity;
      return block;
    }
  }
  // Fresh memory can be slow to come by; not under the lock.
  uint8_t* block = new (std::nothrow) uint8_t[size];
  if (block == nullptr) return nullptr;
  wisp::MutexLock lock(&mutex_);
  lent_[block] = size;
  return block;
}

void BlockRecycler::Give(uint8_t* block, uint64_t size) {
  if (block == nullptr) return;
  // A block asked for outside the kept range was made to measure and never lent.
  if (!InKeptRange(size)) {
    delete[] block;
    return;
  }
  std::vector<uint8_t*> dropped;
  {
    wisp::MutexLock lock(&mutex_);
    auto lent = lent_.find(block);
    if (lent == lent_.end()) {
      dropped.push_back(block);
    } else {
      uint64_t capacity = lent->second;
      lent_.erase(lent);
      while (!kept_.empty() && keptBytes_ + capacity > kMaxKeptBytes) {
        keptBytes_ -= kept_.front().first;
        dropped.push_back(kept_.front().second);
        kept_.erase(kept_.begin());
      }
      kept_.emplace_back(capacity, block);
      keptBytes_ += capacity;
    }
  }
  // Returning memory to the system can be slow; not under the lock.
  for (uint8_t* old : dropped) delete[] old;
}

uint64_t BlockRecycler::KeptBytes() {
  wisp::MutexLock lock(&mutex_);
  return keptBytes_;
}

}  // namespace downloader
