// BufferQueue: the chunk queue between an executor's delivery thread and a
// player's reading thread. Every operation holds mutex_ for its whole run,
// its log line included, so that the logged queue size is the one the
// operation left behind.
//
// Hosts' log tooling keys on the source lines of the log statements (24, 48, 60).
#include <downloader/Base/BufferQueue.h>

#include <utility>

#include "Utils/log/LogMessage.h"

namespace downloader {

BufferQueue::BufferQueue() = default;

BufferQueue::~BufferQueue() = default;

void BufferQueue::Reset() {
  wisp::MutexLock lock(&mutex_);
  std::deque<std::shared_ptr<BufferChunk>> dropped;
  chunks_.swap(dropped);
  totalBytes_.store(0);
  DL_LOGT << "chunk queue swaped, size:" << chunks_.size();
  // `dropped` dies here, while the lock is still held.
}

DLReadResult BufferQueue::ReadData(void* out, uint64_t length) {
  wisp::MutexLock lock(&mutex_);
  DLReadResult result;
  if (chunks_.empty()) return result;
  std::shared_ptr<BufferChunk> front = chunks_.front();
  if (!front) {
    chunks_.pop_front();
    result.Set(kDLFailure, 0, 0);
    return result;
  }
  result = front->ReadData(out, length);
  totalBytes_.fetch_sub(result.bytes);
  if (front->AllRead()) chunks_.pop_front();
  // A read takes only from the front chunk; the caller comes back for the
  // next one. That keeps a flag chunk in its exact place in the byte order:
  // an end-of-data flag queued behind the last data chunk is seen only once
  // every byte before it has been read.
  //
  // The queue size is logged after the pop so that a reader draining the
  // queue sees it fall to zero in the log.
  DL_LOGT << "chunk queue size:" << chunks_.size();
  return result;
}

DLResultCode BufferQueue::AppendData(std::shared_ptr<BufferChunk> chunk) {
  wisp::MutexLock lock(&mutex_);
  uint64_t chunkSize = chunk ? chunk->GetSize() : 0;
  chunks_.push_back(std::move(chunk));
  // The count grows only after the chunk is visible: a reader that sees
  // the count never waits for bytes that are not there. Flag and null
  // chunks add nothing. Owners poll the count to pause their download.
  totalBytes_.fetch_add(chunkSize);
  DL_LOGT << "chunk queue size:" << chunks_.size();
  return DLResultCode();
}

}  // namespace downloader
