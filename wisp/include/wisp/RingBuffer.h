// A fixed-capacity byte ring. The downloader's HTTP executor chains rings of
// 1 MiB to hold what the network delivered until the reader takes it.
//
// Not thread-safe: the owner serialises Write and Read (the executor does so
// under its queue's mutex). Storage is allocated once, in the constructor.
#ifndef WISP_RINGBUFFER_H_
#define WISP_RINGBUFFER_H_

#include <wisp/WispExport.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace wisp {

class WISP_EXPORT RingBuffer {
 public:
  // Flags, or-ed.
  // kBounded: Write never overwrites unread bytes; it stores what fits and
  // returns how much that was. Without it, Write stores everything, dropping
  // the oldest unread bytes to make room (a trailing window, e.g. for traces).
  static constexpr uint32_t kBounded = 1;

  RingBuffer(size_t capacity, uint32_t flags);
  ~RingBuffer();
  RingBuffer(const RingBuffer&) = delete;
  RingBuffer& operator=(const RingBuffer&) = delete;

  // Returns the number of bytes stored: with kBounded at most Capacity() -
  // Size(); otherwise `length` (only the last Capacity() bytes of a longer
  // write survive).
  size_t Write(const void* data, size_t length);
  // Moves up to `length` unread bytes into `out`; returns how many. 0 when empty.
  size_t Read(void* out, size_t length);

  size_t Size() const { return size_; }
  size_t Capacity() const { return capacity_; }
  size_t Free() const { return capacity_ - size_; }
  bool Empty() const { return size_ == 0; }
  bool Full() const { return size_ == capacity_; }

 private:
  // Constant after construction.
  const size_t capacity_;
  const uint32_t flags_;
  const std::unique_ptr<uint8_t[]> storage_;

  // Changed by Write and Read only.
  size_t head_ = 0;  // index of the oldest unread byte
  size_t size_ = 0;
};

}  // namespace wisp

#endif  // WISP_RINGBUFFER_H_
