// Buffers for the bytes the storage dispatch copies out of its callers,
// recycled once their store has run, so that a steady download allocates and
// faults in no new memory per store. Up to a fixed number of bytes is kept
// for reuse; buffers beyond that are freed.
//
// Thread rules: any thread; `mutex_` guards the free list. A buffer handed
// out belongs to its holder until the last copy of its pointer is gone.
//
// Edge cases: a request larger than any free buffer gets a new one; buffers
// outlive the pool safely only if the pool lives for the whole process (the
// dispatch's does).
#ifndef DOWNLOADER_STORAGE_STOREBUFFERPOOL_H_
#define DOWNLOADER_STORAGE_STOREBUFFERPOOL_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <wisp/Mutex.h>

namespace downloader {
namespace storage {

class StoreBufferPool {
 public:
  struct Buffer {
    std::unique_ptr<uint8_t[]> bytes;
    size_t capacity = 0;
  };

  explicit StoreBufferPool(size_t retainedBytesLimit);

  StoreBufferPool(const StoreBufferPool&) = delete;
  StoreBufferPool& operator=(const StoreBufferPool&) = delete;

  // A buffer of at least `size` bytes (contents undefined), returned to the
  // pool when the last pointer to it goes.
  std::shared_ptr<Buffer> Take(size_t size);

 private:
  void Give(Buffer* buffer);

  // Constant after construction.
  const size_t retainedBytesLimit_;

  wisp::Mutex mutex_;
  std::vector<std::unique_ptr<Buffer>> free_ GUARDED_BY(mutex_);
  size_t retainedBytes_ GUARDED_BY(mutex_) = 0;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_STOREBUFFERPOOL_H_
