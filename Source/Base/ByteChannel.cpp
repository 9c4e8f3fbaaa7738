#include "Base/ByteChannel.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <wisp/Mutex.h>

#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {

struct ByteChannel::Node {
  // Left uninitialised: only the pages the data reaches are touched.
  std::unique_ptr<uint8_t[]> bytes{new uint8_t[kNodeBytes]};
  size_t begin = 0;  // the next byte to read
  size_t end = 0;    // the next byte to write
};

ByteChannel::ByteChannel(FlowSignal flow) : flow_(std::move(flow)), clock_(LibraryContext::Current().clock()) {}

ByteChannel::~ByteChannel() = default;

// --- Producer --------------------------------------------------------------

bool ByteChannel::Write(const void* data, size_t length) {
  if (length == 0) return true;
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  size_t written = 0;
  bool pausedNow = false;
  do {
    bool wake = false;
    {
      wisp::MutexLock lock(&mutex_);
      if (closed_) return false;
      if (ended_) break;
      written += WritePieceLocked(bytes + written, length - written);
      if (waiter_ != nullptr && waiter_->filled > 0 && !waiter_->woken) {
        wake = waiter_->filled == waiter_->capacity || clock_.Now() - waiter_->since >= kCoalesceStep;
        waiter_->woken = wake;
      }
      if (!paused_ && queued_ > kPauseAboveBytes) {
        paused_ = true;
        pausedNow = true;
      }
    }
    if (wake) readable_.notify_one();
  } while (written < length);
  if (written < length) {
    DL_LOGW << "attention!! Write data after eof, drop it!";
    return false;
  }
  if (pausedNow) SignalFlow();
  return true;
}

size_t ByteChannel::WritePieceLocked(const uint8_t* data, size_t length) {
  if (waiter_ != nullptr && queued_ == 0 && waiter_->filled < waiter_->capacity) {
    const size_t piece = std::min({length, waiter_->capacity - waiter_->filled, kLockedCopyBytes});
    std::memcpy(waiter_->out + waiter_->filled, data, piece);
    waiter_->filled += piece;
    return piece;
  }
  if (nodes_.empty() || nodes_.back()->end == kNodeBytes) nodes_.push_back(std::make_unique<Node>());
  Node& tail = *nodes_.back();
  const size_t piece = std::min({length, kNodeBytes - tail.end, kLockedCopyBytes});
  std::memcpy(tail.bytes.get() + tail.end, data, piece);
  tail.end += piece;
  queued_ += piece;
  return piece;
}

void ByteChannel::End(const DLResultCode& status) {
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_ || ended_) return;
    ended_ = true;
    endStatus_ = status;
  }
  readable_.notify_all();
}

bool ByteChannel::WaitWhilePaused() {
  wisp::MutexLock lock(&mutex_);
  resumed_.wait(lock, [this]() REQUIRES(mutex_) { return !paused_ || closed_; });
  return !closed_;
}

// --- Reader ----------------------------------------------------------------

ByteChannel::ReadOutcome ByteChannel::Read(void* out, size_t capacity, Clock::TimePoint deadline) {
  uint8_t* bytes = static_cast<uint8_t*>(out);
  ReadOutcome outcome;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) {
      outcome.status = ReadStatus::kClosed;
      return outcome;
    }
    // Only this thread takes bytes out, so what is queued now stays queued.
    if (queued_ == 0) return WaitForBytesLocked(lock, bytes, capacity, deadline);
  }
  outcome.status = ReadStatus::kBytes;
  outcome.bytes = ReadQueued(bytes, capacity);
  return outcome;
}

size_t ByteChannel::ReadQueued(uint8_t* out, size_t capacity) {
  size_t done = 0;
  bool resumedNow = false;
  while (done < capacity) {
    wisp::MutexLock lock(&mutex_);
    if (queued_ == 0) break;
    done += ReadPieceLocked(out + done, capacity - done);
    if (paused_ && queued_ < kResumeBelowBytes) {
      paused_ = false;
      resumedNow = true;
    }
  }
  if (resumedNow) {
    resumed_.notify_all();
    SignalFlow();
  }
  return done;
}

size_t ByteChannel::ReadPieceLocked(uint8_t* out, size_t length) {
  Node& head = *nodes_.front();
  const size_t piece = std::min({length, head.end - head.begin, kLockedCopyBytes});
  std::memcpy(out, head.bytes.get() + head.begin, piece);
  head.begin += piece;
  queued_ -= piece;
  // Drained: freed, even when it is the tail the producer is filling; the
  // next byte gets a new node.
  if (head.begin == head.end) nodes_.pop_front();
  return piece;
}

ByteChannel::ReadOutcome ByteChannel::WaitForBytesLocked(wisp::MutexLock& lock, uint8_t* out,
                                                         size_t capacity, Clock::TimePoint deadline) {
  ReadOutcome outcome;
  if (ended_) {
    outcome.status = ReadStatus::kEnded;
    outcome.end = endStatus_;
    return outcome;
  }
  Clock::TimePoint now = clock_.Now();
  if (capacity == 0 || now >= deadline) return outcome;
  Waiter waiter;
  waiter.out = out;
  waiter.capacity = capacity;
  waiter.since = now;
  waiter_ = &waiter;
  Clock::TimePoint stepEnd = std::min(deadline, now + kCoalesceStep);
  for (;;) {
    clock_.WaitUntil(readable_, lock, stepEnd, [&]() REQUIRES(mutex_) { return closed_ || ended_ || waiter.woken; });
    now = clock_.Now();
    if (closed_ || ended_ || waiter.filled > 0 || now >= deadline) break;
    stepEnd = std::min(deadline, now + kWaitStep);
  }
  waiter_ = nullptr;
  if (closed_) {
    outcome.status = ReadStatus::kClosed;
  } else if (waiter.filled > 0) {
    outcome.status = ReadStatus::kBytes;
    outcome.bytes = waiter.filled;
  } else if (ended_) {
    // Every byte before the end went to the waiter, and it got none.
    outcome.status = ReadStatus::kEnded;
    outcome.end = endStatus_;
  }
  return outcome;
}

// --- Both sides ------------------------------------------------------------

void ByteChannel::SignalFlow() {
  if (!flow_) return;
  wisp::MutexLock flowLock(&flowMutex_);
  bool pause = false;
  uint64_t queued = 0;
  {
    wisp::MutexLock lock(&mutex_);
    pause = paused_;
    queued = queued_;
  }
  if (pause == signalledPause_) return;
  signalledPause_ = pause;
  flow_(pause, queued);
}

void ByteChannel::Close() {
  std::deque<std::unique_ptr<Node>> dropped;
  {
    wisp::MutexLock lock(&mutex_);
    closed_ = true;
    dropped.swap(nodes_);
    queued_ = 0;
  }
  readable_.notify_all();
  resumed_.notify_all();
}

uint64_t ByteChannel::QueuedBytes() const {
  wisp::MutexLock lock(&mutex_);
  return queued_;
}

uint64_t ByteChannel::HeldBytes() const {
  wisp::MutexLock lock(&mutex_);
  return static_cast<uint64_t>(nodes_.size()) * kNodeBytes;
}

bool ByteChannel::Ended() const {
  wisp::MutexLock lock(&mutex_);
  return ended_;
}

bool ByteChannel::ReaderWaits() const {
  wisp::MutexLock lock(&mutex_);
  return waiter_ != nullptr;
}

}  // namespace downloader
