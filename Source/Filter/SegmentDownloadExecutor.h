// Serves a request from the segment file stored for it: a reading side
// delivers the file's bytes in order on its own thread, they queue here in a
// byte channel as one contiguous run, and Read hands them out. Its name is
// "CACHE1".
//
// Open waits at most "segment_open_timeout" ms (default 0) for the reading
// side to report the file, which it does before Start returns, so the default
// does not delay. With "enable_cache_filter_range_start" on, a request's
// "range_start" above 0 opens there; otherwise the executor opens at 0 (a
// stream does not send such requests to the cache level).
//
// Read answers (0, n) from the queue; (5, 0) at the end of the resource;
// (1, SNST) once the reading side met a chunk that is not stored and the queue
// is empty (the stream then moves on at that offset); (0, 0) after waiting
// "segment_control_timeout" ms, or "read_timeout" (5000) when that is 0, in
// 100 ms steps without a byte; (1, SNST) at once once closed, also when Close
// comes from another thread while a Read waits.
//
// Thread rules: the stream's thread calls the IDownloadExecutor operations;
// the reading side calls the listener slots on its thread; Close may also
// come from another thread. mutex_ guards the counters, the flags and the
// channel pointer, the channel locks itself; the reading side is replaced
// only by Open and Seek and stopped outside mutex_, after its channel is
// closed; readSideMutex_ guards it.
#ifndef DOWNLOADER_FILTER_SEGMENTDOWNLOADEXECUTOR_H_
#define DOWNLOADER_FILTER_SEGMENTDOWNLOADEXECUTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Pipe/ConfigReader.h>
#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Storage/SegmentReadSide.h"

namespace downloader {

class ByteChannel;

class SegmentDownloadExecutor : public IDownloadExecutor, public storage::SegmentReadListener {
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

  void OnOpen(int64_t fileSize) override;
  void OnSegmentBytes(int64_t offset, std::shared_ptr<BufferChunk> bytes) override;
  void OnSegmentError(int64_t subCode) override;

 private:
  // Replaces the reading side by one that starts at `offset`.
  void StartReading(int64_t offset);
  void StopReading();
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

  // The reading thread never takes readSideMutex_, so it may be held while
  // Stop joins that thread.
  wisp::Mutex readSideMutex_;
  // Close may stop it from another thread.
  std::unique_ptr<storage::SegmentReadSide> readSide_ GUARDED_BY(readSideMutex_);

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
