#include "Storage/StoreBufferPool.h"
#include <wisp/Mutex.h>

namespace downloader {
namespace storage {

StoreBufferPool::StoreBufferPool(size_t retainedBytesLimit) : retainedBytesLimit_(retainedBytesLimit) {}

std::shared_ptr<StoreBufferPool::Buffer> StoreBufferPool::Take(size_t size) {
  std::unique_ptr<Buffer> buffer;
  {
    wisp::MutexLock lock(&mutex_);
    if (!free_.empty() && free_.back()->capacity >= size) {
      buffer = std::move(free_.back());
      free_.pop_back();
      retainedBytes_ -= buffer->capacity;
    }
  }
  if (!buffer) {
    buffer = std::make_unique<Buffer>();
    buffer->bytes.reset(new uint8_t[size]);
    buffer->capacity = size;
  }
  return std::shared_ptr<Buffer>(buffer.release(), [this](Buffer* returned) { Give(returned); });
}

void StoreBufferPool::Give(Buffer* buffer) {
  std::unique_ptr<Buffer> owned(buffer);
  wisp::MutexLock lock(&mutex_);
  if (retainedBytes_ + owned->capacity > retainedBytesLimit_) return;
  retainedBytes_ += owned->capacity;
  free_.push_back(std::move(owned));
}

}  // namespace storage
}  // namespace downloader
