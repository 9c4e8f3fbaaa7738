// The reading side of a segment executor: opens a resource's stored segment
// file and delivers its bytes in file order, from a start offset on, on a
// thread of its own, to a listener.
//
// Start opens the file on the caller's thread and tells the listener, before
// it returns, either OnOpen (with the resource's size) followed by the first
// block, or OnSegmentError: a file that is missing or invalid, or whose bytes
// at the start offset are not stored, fails at once. The thread then delivers
// blocks of up to kChunksPerBlock whole chunks, each read through the file's
// guard in one scattered transfer straight into the chunk that is handed over
// (no copy), until the end of the
// resource or a chunk that is not stored (OnSegmentError after the chunks
// before it). It stays at most kReadAhead bytes ahead of what the consumer
// reported as Consumed, so a slow reader does not make it load the whole
// resource into memory.
//
// Thread rules: Start, Consumed and Stop from the consumer's thread; the
// listener is called on the caller's thread during Start and on the reading
// thread afterwards, never after Stop returned. mutex_ guards the flow
// control; the adapter is shared with every other user of the file and
// serialises itself. The listener must not call Stop from inside a callback.
#ifndef DOWNLOADER_STORAGE_SEGMENTREADSIDE_H_
#define DOWNLOADER_STORAGE_SEGMENTREADSIDE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Filter/SubCode.h>
#include <wisp/Mutex.h>

namespace downloader {
namespace storage {

class DiskAdapter;

class SegmentReadListener {
 public:
  virtual ~SegmentReadListener() = default;
  virtual void OnOpen(int64_t fileSize) = 0;
  // `bytes` holds the resource's bytes from `offset` on.
  virtual void OnSegmentBytes(int64_t offset, std::shared_ptr<BufferChunk> bytes) = 0;
  virtual void OnSegmentError(int64_t subCode) = 0;
};

class SegmentReadSide {
 public:
  // The file is missing, invalid, or not stored at the offset asked for.
  static constexpr int64_t kNotStoredSubCode = FourCharSubCode('S', 'N', 'S', 'T');
  // How far the reading thread may run ahead of the consumer.
  static constexpr uint64_t kReadAhead = 4 * 1024 * 1024;
  // Whole chunks per delivered block: fewer hand-overs and wake-ups.
  static constexpr uint64_t kChunksPerBlock = 8;

  // `listener` must outlive Stop.
  SegmentReadSide(std::string path, int64_t jobId, SegmentReadListener* listener);
  ~SegmentReadSide();

  SegmentReadSide(const SegmentReadSide&) = delete;
  SegmentReadSide& operator=(const SegmentReadSide&) = delete;

  void Start(int64_t offset);
  void Consumed(uint64_t bytes);
  void Stop();

 private:
  void Run(int64_t offset, int64_t fileSize);
  // The stored bytes from `offset` on, up to `chunks` whole chunks (from
  // `offset` to the end of its chunk when it is not a chunk boundary); empty
  // when the first of them is not stored.
  std::shared_ptr<BufferChunk> ReadBlock(int64_t offset, uint64_t chunks);
  std::shared_ptr<BufferChunk> ReadChunkTail(int64_t offset);
  bool WaitForRoom();

  // Constant after construction.
  const std::string path_;
  const int64_t jobId_;
  SegmentReadListener* const listener_;

  // Set by Start; released by Stop.
  std::shared_ptr<DiskAdapter> adapter_;
  std::thread thread_;

  wisp::Mutex mutex_;
  wisp::CondVar changed_;
  bool stopping_ GUARDED_BY(mutex_) = false;
  uint64_t unconsumed_ GUARDED_BY(mutex_) = 0;
};

}  // namespace storage
}  // namespace downloader

#endif  // DOWNLOADER_STORAGE_SEGMENTREADSIDE_H_
