#include <downloader/Base/BufferChunk.h>

#include <cstring>
#include <new>

#include "Base/BlockRecycler.h"

namespace downloader {

BufferChunk::BufferChunk(uint64_t size) : size_(size) {}

BufferChunk& BufferChunk::operator=(const BufferChunk& other) {
  if (this == &other) return *this;
  BlockRecycler::Instance().Give(data_, size_);
  data_ = nullptr;
  size_ = other.size_;
  if (other.data_ != nullptr && !Init(other.data_)) size_ = 0;
  readOffset_ = other.readOffset_ <= size_ ? other.readOffset_ : size_;
  flag_ = other.flag_;
  infoCode_ = other.infoCode_;
  return *this;
}

BufferChunk::~BufferChunk() {
  BlockRecycler::Instance().Give(data_, size_);
  data_ = nullptr;
  size_ = 0;
  readOffset_ = 0;
}

std::shared_ptr<BufferChunk> BufferChunk::AllocBufferChunk(const void* source, uint64_t size) {
  if (size != 0 && source == nullptr) return nullptr;
  std::shared_ptr<BufferChunk> chunk(new (std::nothrow) BufferChunk(size));
  if (!chunk || !chunk->Init(source)) return nullptr;
  return chunk;
}

std::shared_ptr<BufferChunk> BufferChunk::AllocBufferChunkFilledBy(uint64_t size,
                                                                 const std::function<bool(uint8_t*)>& fill) {
  if (size == 0 || !fill) return nullptr;
  std::shared_ptr<BufferChunk> chunk(new (std::nothrow) BufferChunk(size));
  if (!chunk) return nullptr;
  chunk->data_ = BlockRecycler::Instance().Take(size);
  if (chunk->data_ == nullptr || !fill(chunk->data_)) return nullptr;
  return chunk;
}

std::shared_ptr<BufferChunk> BufferChunk::AllocFlaggedChunk(int32_t flag, int32_t infoCode) {
  std::shared_ptr<BufferChunk> chunk(new (std::nothrow) BufferChunk(0));
  if (!chunk) return nullptr;
  chunk->SetFlag(flag);
  chunk->SetInfoCode(infoCode);
  return chunk;
}

bool BufferChunk::Init(const void* source) {
  if (size_ == 0) return true;
  if (source == nullptr) return false;
  data_ = BlockRecycler::Instance().Take(size_);
  if (data_ == nullptr) return false;
  std::memcpy(data_, source, size_);
  return true;
}

bool BufferChunk::AllRead() const { return readOffset_ == size_; }

DLReadResult BufferChunk::ReadData(void* out, uint64_t length) {
  DLReadResult result;
  if (flag_ != 0) {
    result.Set(flag_, 0, infoCode_);
    return result;
  }
  if (size_ == 0 || readOffset_ > size_ || data_ == nullptr) {
    result.Set(kDLFailure, 0, -1);
    return result;
  }
  uint64_t count = length;
  if (count > size_ - readOffset_) count = size_ - readOffset_;
  if (count > 0) std::memcpy(out, data_ + readOffset_, count);
  readOffset_ += count;
  result.Set(kDLSuccess, count, 0);
  return result;
}

}  // namespace downloader
