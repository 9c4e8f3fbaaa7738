#include "Filter/WispBufferQueue.h"

#include <algorithm>

#include "Utils/log/LogMessage.h"

namespace downloader {

WispDownloadExecutor::BufferQueue::Node::Node() : ring(kRingCapacity, wisp::RingBuffer::kBounded) {}

WispDownloadExecutor::BufferQueue::BufferQueue() = default;

constexpr size_t WispDownloadExecutor::BufferQueue::kMaxSpareRings;

WispDownloadExecutor::BufferQueue::~BufferQueue() {
  // Unlinks iteratively: a long chain must not recurse through destructors.
  while (head_ != nullptr) head_ = std::move(head_->next);
}

size_t WispDownloadExecutor::BufferQueue::Write(const void* data, size_t length) {
  bool afterEnd = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    afterEnd = ended_;
    if (length == 0) ended_ = true;
  }
  if (afterEnd) {
    DL_LOGW << "attention!! Write data after eof, drop it!";
    return 0;
  }
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  size_t written = 0;
  // Piece by piece, so that the reader can take the first bytes while the
  // rest are copied in. Pieces of one write stay together: there is one writer.
  while (written < length) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (tail_ == nullptr || tail_->ring.Full()) AppendNodeLocked();
    const size_t piece = tail_->ring.Write(bytes + written, std::min(length - written, kLockedCopyBytes));
    written += piece;
    queued_ += piece;
  }
  return length;
}

void WispDownloadExecutor::BufferQueue::AppendNodeLocked() {
  std::unique_ptr<Node> node;
  if (spares_.empty()) {
    node = std::make_unique<Node>();
    ++nodes_;
  } else {
    node = std::move(spares_.back());
    spares_.pop_back();
  }
  Node* added = node.get();
  if (tail_ == nullptr) {
    head_ = std::move(node);
  } else {
    tail_->next = std::move(node);
  }
  tail_ = added;
}

size_t WispDownloadExecutor::BufferQueue::Read(void* out, size_t length) {
  uint8_t* bytes = static_cast<uint8_t*>(out);
  size_t done = 0;
  // Piece by piece, so that the network thread's Write never waits long for the lock.
  while (done < length) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (head_ == nullptr) break;
    const size_t piece = head_->ring.Read(bytes + done, std::min(length - done, kLockedCopyBytes));
    done += piece;
    queued_ -= piece;
    if (head_->ring.Empty()) {
      if (head_.get() == tail_) break;
      std::unique_ptr<Node> drained = std::move(head_);
      head_ = std::move(drained->next);
      if (spares_.size() < kMaxSpareRings) {
        spares_.push_back(std::move(drained));
      } else {
        --nodes_;
      }
    } else if (piece == 0) {
      break;
    }
  }
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
