#include <wisp/RingBuffer.h>

#include <algorithm>
#include <cstring>

namespace wisp {

RingBuffer::RingBuffer(size_t capacity, uint32_t flags)
    : capacity_(capacity), flags_(flags), storage_(new uint8_t[capacity]) {}

RingBuffer::~RingBuffer() = default;

size_t RingBuffer::Write(const void* data, size_t length) {
  if (capacity_ == 0) return 0;
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  size_t accepted = length;
  if ((flags_ & kBounded) != 0) {
    length = std::min(length, Free());
    accepted = length;
  } else if (length > capacity_) {
    // Only the newest capacity_ bytes can survive; everything older is dropped.
    bytes += length - capacity_;
    length = capacity_;
  }
  if (length > Free()) {
    size_t dropped = length - Free();
    head_ = (head_ + dropped) % capacity_;
    size_ -= dropped;
  }
  size_t tail = (head_ + size_) % capacity_;
  size_t first = std::min(length, capacity_ - tail);
  std::memcpy(storage_.get() + tail, bytes, first);
  std::memcpy(storage_.get(), bytes + first, length - first);
  size_ += length;
  return accepted;
}

size_t RingBuffer::Read(void* out, size_t length) {
  length = std::min(length, size_);
  if (length == 0) return 0;
  uint8_t* bytes = static_cast<uint8_t*>(out);
  size_t first = std::min(length, capacity_ - head_);
  std::memcpy(bytes, storage_.get() + head_, first);
  std::memcpy(bytes + first, storage_.get(), length - first);
  head_ = (head_ + length) % capacity_;
  size_ -= length;
  if (size_ == 0) head_ = 0;
  return length;
}

}  // namespace wisp
