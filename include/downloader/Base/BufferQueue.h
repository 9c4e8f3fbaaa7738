// The first-in-first-out queue through which downloaded bytes travel from the
// side that delivers them (an executor's callback thread) to the side that
// reads them (a player thread).
//
// Thread rules: AppendData, ReadData and Reset may be called from any thread;
// each holds mutex_ for its whole run. GetTotalBytes reads an atomic and takes
// no lock. The queue is unbounded: whoever fills it bounds it.
//
// Edge cases:
// - an empty queue reads as (0, 0, 0 bytes): not an error, read again later;
// - a read never spans two chunks: it returns at most the rest of the front
//   chunk, which stays at the front until its last byte has been read;
// - a flag chunk is returned once, after every byte queued before it, with its
//   flag as code and its info code as sub-code, and is then removed;
// - a null chunk at the front reads as (1, 0, 0 bytes) and is removed.
#ifndef DOWNLOADER_BASE_BUFFERQUEUE_H_
#define DOWNLOADER_BASE_BUFFERQUEUE_H_

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/DLResultCode.h>
#include <downloader/DownloaderExport.h>
#include <wisp/Mutex.h>

namespace downloader {

class DOWNLOADER_EXPORT BufferQueue {
 public:
  BufferQueue();
  ~BufferQueue();
  BufferQueue(const BufferQueue&) = delete;
  BufferQueue& operator=(const BufferQueue&) = delete;

  // Always succeeds.
  DLResultCode AppendData(std::shared_ptr<BufferChunk> chunk);
  DLReadResult ReadData(void* out, uint64_t length);
  // Drops every queued chunk, read or not.
  void Reset();

  // Unread bytes of all queued chunks.
  uint64_t GetTotalBytes() const { return totalBytes_.load(); }

 private:
  // The order of the members is part of the binary interface (GetTotalBytes
  // is inlined into hosts).

  std::deque<std::shared_ptr<BufferChunk>> chunks_ GUARDED_BY(mutex_);
  wisp::Mutex mutex_;
  // Written under mutex_, readable without it.
  std::atomic<uint64_t> totalBytes_{0};
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_BUFFERQUEUE_H_
