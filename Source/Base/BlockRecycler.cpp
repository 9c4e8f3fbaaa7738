#include "Base/BlockRecycler.h"

#include <algorithm>
#include <new>

namespace downloader {

constexpr uint64_t BlockRecycler::kSmallestKept;
constexpr uint64_t BlockRecycler::kLargestKept;
constexpr uint64_t BlockRecycler::kMaxKeptBytes;

BlockRecycler& BlockRecycler::Instance() {
  static BlockRecycler* const recycler = new BlockRecycler();
  return *recycler;
}

BlockRecycler::~BlockRecycler() {
  for (const auto& sizeAndBlock : kept_) delete[] sizeAndBlock.second;
}

uint8_t* BlockRecycler::Take(uint64_t size, uint64_t* capacity) {
  if (size >= kSmallestKept && size <= kLargestKept) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto fits = [size](const std::pair<uint64_t, uint8_t*>& kept) {
      return kept.first >= size && kept.first / 2 <= size;
    };
    auto newest = std::find_if(kept_.rbegin(), kept_.rend(), fits);
    if (newest != kept_.rend()) {
      *capacity = newest->first;
      uint8_t* block = newest->second;
      kept_.erase(std::next(newest).base());
      keptBytes_ -= *capacity;
      return block;
    }
  }
  *capacity = size;
  return new (std::nothrow) uint8_t[size];
}

void BlockRecycler::Give(uint8_t* block, uint64_t capacity) {
  if (block == nullptr) return;
  if (capacity < kSmallestKept || capacity > kLargestKept) {
    delete[] block;
    return;
  }
  std::vector<uint8_t*> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    while (!kept_.empty() && keptBytes_ + capacity > kMaxKeptBytes) {
      keptBytes_ -= kept_.front().first;
      dropped.push_back(kept_.front().second);
      kept_.erase(kept_.begin());
    }
    kept_.emplace_back(capacity, block);
    keptBytes_ += capacity;
  }
  // Returning memory to the system can be slow; not under the lock.
  for (uint8_t* old : dropped) delete[] old;
}

uint64_t BlockRecycler::KeptBytes() {
  std::lock_guard<std::mutex> lock(mutex_);
  return keptBytes_;
}

}  // namespace downloader
