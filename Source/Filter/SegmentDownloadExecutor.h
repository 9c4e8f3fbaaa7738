// Serves a request from the segment file stored for it. Its name is "CACHE1".
//
// Open finds the file and checks that the chunk where the request starts is
// stored; it reads no content. Each Read then takes its bytes, on the
// stream's own thread, from the first of: the chunk buffer (the last chunk
// read whole, when a read was smaller than a chunk or began inside one), the
// byte channel (blocks handed in through OnSegmentBytes), or the file itself,
// whose whole chunks go straight into the player's buffer when at least one
// fits. A replay therefore copies each byte once, from the page cache into the
// player's buffer, and an open starts no thread.
//
// Open waits at most "segment_open_timeout" ms (default 0) for the file to be
// reported, which happens before the wait starts, so the default does not
// delay. With "enable_cache_filter_range_start" on, a request's "range_start"
// above 0 opens there; otherwise the executor opens at 0 (a stream does not
// send such requests to the cache level).
//
// Read answers (0, n); (5, 0) at the end of the resource; (1, SNST) once a
// chunk that is not stored was met and the queued bytes are read (the stream
// then moves on at that offset); (1, SNST) at once once closed, also when
// Close comes from another thread while a Read waits. A Read waits only when
// nothing stands behind the channel but OnSegmentBytes: (0, 0) after
// "segment_control_timeout" ms, or "read_timeout" (5000) when that is 0, in
// 100 ms steps without a byte.
//
// Thread rules: the stream's thread calls the IDownloadExecutor operations;
// OnOpen, OnSegmentBytes and OnSegmentError may come from any one thread;
// Close may also come from another thread. mutex_ guards the counters, the
// flags and the channel pointer, the channel locks itself. readSideMutex_
// guards the reading side and the chunk buffer; a Read holds it while it
// reads the file, so that Close waits for that read before the file is let
// go. Lock order: readSideMutex_, then mutex_.
#ifndef DOWNLOADER_FILTER_SEGMENTDOWNLOADEXECUTOR_H_
#define DOWNLOADER_FILTER_SEGMENTDOWNLOADEXECUTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Pipe/ConfigReader.h>
#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Storage/SegmentReadSide.h"

namespace downloader {

class ByteChannel;

class SegmentDownloadExecutor : public IDownloadExecutor {
 public:
  SegmentDownloadExecutor(ConfigPtr config, std::shared_ptr<URI> uri);
  ~SegmentDownloadExecutor() override;

  DLResultCode Open(const std::shared_ptr<URI>& uri) override;
  // Not supported: (1, 0).
  DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) override;
  DLResultCode WaitOpenResult() override;
  DLReadResult Read(Packet& packet) override;
  DLResultCode Seek(int64_t offset) override;
  int64_t GetFileSize() override;
  DLResultCode Close() override;
  bool IsReady() override { return true; }
  void SetHint(const std::string& hint) override;
  std::string GetInfo(const std::string& key) override;
  std::string GetName() override { return "CACHE1"; }

  // The resource's size is known.
  void OnOpen(int64_t fileSize);
  // `bytes` holds the resource's bytes from `offset` on; queued only when it
  // continues the run queued so far.
  void OnSegmentBytes(int64_t offset, std::shared_ptr<BufferChunk> bytes);
  // Reads end with (1, subCode) once the queued bytes are read.
  void OnSegmentError(int64_t subCode);

 private:
  // Replaces the reading side by one that starts at `offset`.
  void StartReading(int64_t offset);
  void StopReading();
  // Copies the bytes at `offset` into `packet` from the chunk buffer or the
  // file: how many, 0 when there is no reading side or a chunk that is not
  // stored ended the reads.
  uint64_t ReadFromStore(int64_t offset, Packet& packet);
  uint64_t CopyFromChunkBuffer(int64_t offset, Packet& packet) REQUIRES(readSideMutex_);
  // Waits up to readWaitMs_ for bytes handed in through OnSegmentBytes.
  DLReadResult ReadFromChannel(ByteChannel& channel, Packet& packet);
  void CountReceived(uint64_t bytes);
  // Waits up to `waitMs` for the file size or an error.
  void Wait(int64_t waitMs);
  DLResultCode OpenResultLocked() const REQUIRES(mutex_);
  bool StartFailedLocked() const REQUIRES(mutex_);

  // Constant after construction.
  const ConfigPtr config_;
  const DownloaderSettings settings_;
  const std::shared_ptr<URI> uri_;
  const int64_t readWaitMs_;
  const int64_t jobId_;
  const std::string tag_;
  std::string fileName_;

  wisp::Mutex readSideMutex_;
  // Close may let it go from another thread.
  std::unique_ptr<storage::SegmentReadSide> readSide_ GUARDED_BY(readSideMutex_);
  // The last chunk read whole.
  storage::ChunkBuffer chunk_ GUARDED_BY(readSideMutex_);

  mutable wisp::Mutex mutex_;
  wisp::CondVar changed_;
  std::shared_ptr<ByteChannel> channel_ GUARDED_BY(mutex_);
  int64_t startOffset_ GUARDED_BY(mutex_) = 0;
  uint64_t received_ GUARDED_BY(mutex_) = 0;
  int64_t readOffset_ GUARDED_BY(mutex_) = 0;
  int64_t fileSize_ GUARDED_BY(mutex_) = 0;
  bool closed_ GUARDED_BY(mutex_) = false;
  bool errorSeen_ GUARDED_BY(mutex_) = false;
  int64_t errorSubCode_ GUARDED_BY(mutex_) = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_SEGMENTDOWNLOADEXECUTOR_H_
