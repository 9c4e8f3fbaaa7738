#include "Filter/WispBufferQueue.h"

#include <algorithm>

#include "Utils/log/LogMessage.h"

namespace downloader {

WispDownloadExecutor::BufferQueue::Node::Node() : ring(kRingCapacity, wisp::RingBuffer::kBounded) {}

WispDownloadExecutor::BufferQueue::BufferQueue() = default;

WispDownloadExecutor::BufferQueue::~BufferQueue() {
  // Unlinks iteratively: a long chain must not recurse through destructors.
  while (head_ != nullptr) head_ = std::move(head_->next);
}

size_t WispDownloadExecutor::BufferQueue::Write(const void* data, size_t length) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (ended_) {
    DL_LOGW << "attention!! Write data after eof, drop it!";
    return 0;
  }
  if (length == 0) {
    ended_ = true;
    return 0;
  }
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  size_t written = 0;
  while (written < length) {
    if (tail_ == nullptr || tail_->ring.Full()) {
      auto node = std::make_unique<Node>();
      Node* added = node.get();
      if (tail_ == nullptr) {
        head_ = std::move(node);
      } else {
        tail_->next = std::move(node);
      }
      tail_ = added;
      ++nodes_;
    }
    written += tail_->ring.Write(bytes + written, length - written);
  }
  queued_ += length;
  return length;
}

size_t WispDownloadExecutor::BufferQueue::Read(void* out, size_t length) {
  std::lock_guard<std::mutex> lock(mutex_);
  uint8_t* bytes = static_cast<uint8_t*>(out);
  size_t done = 0;
  while (done < length && head_ != nullptr) {
    done += head_->ring.Read(bytes + done, length - done);
    if (!head_->ring.Empty() || head_.get() == tail_) break;
    head_ = std::move(head_->next);
    --nodes_;
  }
  queued_ -= done;
  return done;
}

bool WispDownloadExecutor::BufferQueue::Drained() {
  std::lock_guard<std::mutex> lock(mutex_);
  return ended_ && queued_ == 0;
}

bool WispDownloadExecutor::BufferQueue::EndMarked() {
  std::lock_guard<std::mutex> lock(mutex_);
  return ended_;
}

uint64_t WispDownloadExecutor::BufferQueue::QueuedBytes() {
  std::lock_guard<std::mutex> lock(mutex_);
  return queued_;
}

uint64_t WispDownloadExecutor::BufferQueue::HeldBytes() {
  std::lock_guard<std::mutex> lock(mutex_);
  return nodes_ * kRingCapacity;
}

}  // namespace downloader
