// A bounded byte channel from one producer thread to one reading thread: the
// hand-off between an executor's delivering side (network callbacks, an
// engine's callbacks, a file-reading thread) and the player's reads.
//
// The producer writes bytes and ends them once with a status: code 5 for the
// end of the data, or a failure. The reader drains every byte written before
// the end, then gets that status on every later read. Bytes wait in nodes of
// kNodeBytes that are allocated as the data needs them and freed as soon as
// the reader has drained them, so HeldBytes falls as the reader catches up and
// is 0 when nothing is queued. When the reader is already waiting, the
// producer copies the bytes straight into the reader's buffer: one copy, no
// node.
//
// Flow: once more than kPauseAboveBytes are queued the channel asks the
// producer to hold back, and once the reader has drained it below
// kResumeBelowBytes it asks it to go on. It asks through the FlowSignal given
// at construction, or the producer waits in WaitWhilePaused. The marks are
// small on purpose: while a network producer holds back, the kernel's socket
// buffer keeps receiving, so the queue only has to cover the moment a resume
// takes, and a reader slower than the network costs about 2 MiB, not the
// resource.
//
// Edge cases:
// - Read with nothing queued waits, in steps of at most kWaitStep, until
//   bytes come, the end, Close or the deadline; a deadline already passed
//   answers at once. The first step is kCoalesceStep: bytes that come during
//   it are taken together, so a trickle of small writes wakes the reader once.
// - A read answers at most `capacity` bytes and may span nodes.
// - Write after End drops the bytes with the warning "attention!! Write data
//   after eof, drop it!"; End after End is ignored (the first status stands).
// - Close interrupts a waiting Read (kClosed, even if some bytes had been
//   copied into its buffer) and a waiting WaitWhilePaused; after Close every
//   Read answers kClosed at once, and writes and End are dropped silently.
//
// Thread rules: Write, End and WaitWhilePaused on the producer's thread (one
// at a time); Read on the reader's thread (one at a time); Close and the
// queries from any thread. mutex_ guards the nodes, the waiting reader and the
// state; it is held for at most kLockedCopyBytes of copying into or out of a
// node, so the two sides overlap. flowMutex_ orders the flow signals: they
// are called one at a time, alternating, in the order the channel changed its
// mind, on whichever side's thread changed it, and never under mutex_. A flow
// signal must not Write, End or wait for the producer.
#ifndef DOWNLOADER_BASE_BYTECHANNEL_H_
#define DOWNLOADER_BASE_BYTECHANNEL_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>

#include <downloader/Base/DLResultCode.h>
#include <wisp/Mutex.h>

#include "Utils/clock/Clock.h"

namespace downloader {

class ByteChannel {
 public:
  // `pause` true: hold back; false: go on. `queuedBytes`: queued when decided.
  using FlowSignal = std::function<void(bool pause, uint64_t queuedBytes)>;

  static constexpr size_t kNodeBytes = 1u << 20;
  static constexpr uint64_t kPauseAboveBytes = 1u << 20;
  static constexpr uint64_t kResumeBelowBytes = 512u * 1024;
  static constexpr std::chrono::milliseconds kWaitStep{100};
  static constexpr std::chrono::milliseconds kCoalesceStep{2};
  static constexpr size_t kLockedCopyBytes = 64u * 1024;

  enum class ReadStatus { kBytes, kEnded, kTimedOut, kClosed };
  struct ReadOutcome {
    ReadStatus status = ReadStatus::kTimedOut;
    size_t bytes = 0;
    // With kEnded: the status the producer ended with.
    DLResultCode end;
  };

  // Deadlines are read on the current library context's clock.
  explicit ByteChannel(FlowSignal flow = FlowSignal());
  ~ByteChannel();
  ByteChannel(const ByteChannel&) = delete;
  ByteChannel& operator=(const ByteChannel&) = delete;

  // Queues `length` bytes (or hands them to the waiting reader). Returns false
  // when they were dropped: after End or Close.
  bool Write(const void* data, size_t length);
  // Ends the data with `status` (kDLEndOfData or a failure).
  void End(const DLResultCode& status);
  // Blocks while the channel asks the producer to hold back. Returns false
  // once the channel is closed.
  bool WaitWhilePaused();

  ReadOutcome Read(void* out, size_t capacity, Clock::TimePoint deadline);

  void Close();

  uint64_t QueuedBytes() const;
  // The memory of the nodes allocated now.
  uint64_t HeldBytes() const;
  bool Ended() const;
  // A Read waits with nothing queued: the next bytes go straight to it.
  bool ReaderWaits() const;

 private:
  struct Node;
  // The reader's buffer while it waits with nothing queued.
  struct Waiter {
    uint8_t* out = nullptr;
    size_t capacity = 0;
    size_t filled = 0;
    Clock::TimePoint since;
    bool woken = false;
  };

  // Copies one piece of `data` into the waiting reader or the tail node.
  size_t WritePieceLocked(const uint8_t* data, size_t length) REQUIRES(mutex_);
  // Copies one piece from the head node into `out`, freeing it once drained.
  size_t ReadPieceLocked(uint8_t* out, size_t length) REQUIRES(mutex_);
  size_t ReadQueued(uint8_t* out, size_t capacity);
  // Nothing is queued: waits as the reader's Waiter.
  ReadOutcome WaitForBytesLocked(wisp::MutexLock& lock, uint8_t* out, size_t capacity, Clock::TimePoint deadline)
      REQUIRES(mutex_);
  // Tells the producer the channel's current mind, if it changed since the
  // last signal.
  void SignalFlow();

  const FlowSignal flow_;
  Clock& clock_;

  mutable wisp::Mutex mutex_;
  wisp::CondVar readable_;
  wisp::CondVar resumed_;
  std::deque<std::unique_ptr<Node>> nodes_ GUARDED_BY(mutex_);
  uint64_t queued_ GUARDED_BY(mutex_) = 0;
  Waiter* waiter_ GUARDED_BY(mutex_) = nullptr;
  bool paused_ GUARDED_BY(mutex_) = false;
  bool ended_ GUARDED_BY(mutex_) = false;
  bool closed_ GUARDED_BY(mutex_) = false;
  DLResultCode endStatus_ GUARDED_BY(mutex_);

  wisp::Mutex flowMutex_;
  bool signalledPause_ GUARDED_BY(flowMutex_) = false;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_BYTECHANNEL_H_
