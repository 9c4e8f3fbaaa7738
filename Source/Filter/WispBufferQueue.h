// The HTTP executor's private byte queue: a singly linked chain of 1 MiB
// rings between the network callbacks (Write) and the reader (Read). Rings
// are allocated only as the data needs them and freed as soon as they are
// drained (the last one stays for the next bytes), so memory follows what is
// queued, rounded up to whole rings, plus up to kMaxSpareRings drained rings
// kept for reuse: a download that swings between the executor's pause and
// resume marks then cycles through rings whose pages are already mapped
// instead of faulting in a fresh megabyte for every ring. Each byte is copied
// once in and once out.
//
// The end of the data is a zero-length Write: bytes written after it are
// dropped with a warning, and Read drains what was queued before it.
//
// Thread rules: one writer thread and any readers. Write and Read hold mutex_
// for at most kLockedCopyBytes of copying at a time, so that the two sides
// overlap; the other operations hold it for their whole run.
#ifndef DOWNLOADER_FILTER_WISPBUFFERQUEUE_H_
#define DOWNLOADER_FILTER_WISPBUFFERQUEUE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <downloader/Filter/WispDownloadExecutor.h>
#include <wisp/RingBuffer.h>

namespace downloader {

struct WispDownloadExecutor::BufferQueue {
  static constexpr size_t kRingCapacity = 0x100000;
  // Write and Read copy at most this much per hold of the lock.
  static constexpr size_t kLockedCopyBytes = 64 * 1024;
  // As many rings as lie between the executor's pause and resume marks.
  static constexpr size_t kMaxSpareRings =
      (WispDownloadExecutor::kQueuePauseBytes - WispDownloadExecutor::kQueueResumeBytes) / kRingCapacity;

  BufferQueue();
  ~BufferQueue();
  BufferQueue(const BufferQueue&) = delete;
  BufferQueue& operator=(const BufferQueue&) = delete;

  // Queues `length` bytes and returns `length`; a length of 0 marks the end.
  // After the end every write is dropped and returns 0.
  size_t Write(const void* data, size_t length);
  // Moves up to `length` queued bytes into `out`, across rings; returns how many.
  size_t Read(void* out, size_t length);

  // The end is marked and every byte before it has been read.
  bool Drained();
  bool EndMarked();
  uint64_t QueuedBytes();
  // Bytes of the rings allocated now, the spares included.
  uint64_t HeldBytes();

 private:
  void AppendNodeLocked();

  struct Node {
    Node();
    wisp::RingBuffer ring;
    std::unique_ptr<Node> next;
  };

  std::mutex mutex_;
  // Guarded by mutex_. head_ owns the chain; tail_ points into it; spares_
  // are empty rings outside the chain.
  std::unique_ptr<Node> head_;
  Node* tail_ = nullptr;
  std::vector<std::unique_ptr<Node>> spares_;
  // Rings allocated, the spares included.
  uint64_t nodes_ = 0;
  uint64_t queued_ = 0;
  bool ended_ = false;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPBUFFERQUEUE_H_
