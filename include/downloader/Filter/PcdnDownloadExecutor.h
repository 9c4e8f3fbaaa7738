// Fetches one byte range of one resource through the PCDN engine. Open asks
// the engine for a download id (dlPCDNOpen) and a read from the request's
// offset to the end of the resource (dlPCDNRead); the engine's read callback
// writes each piece into a byte channel, then ends it: code 5 at the end of
// the data, code 1 with the engine's failure (PRDE). Read drains the channel
// on the stream's thread.
//
// Life: created (IPcdnDownloadFilter::AcquireExecutor, always in a shared
// pointer) -> Open (blocks until the first piece or notice) -> Read/Seek ->
// Close (dlPCDNClose). Seek asks the engine for a new read at the new offset.
//
// Edge cases:
// - No engine id (dlPCDNOpen answered <= 0): Open fails with POPN. The engine
//   refusing a read (dlPCDNRead non-zero): PRDR. A failure notice: PRDE. No
//   first piece within "read_timeout": Open fails with PRTO.
// - An open at or past the end of the resource succeeds; Read then answers
//   code 5 with 0 bytes.
// - Read with nothing queued waits in 100 ms steps up to "read_timeout"
//   (default 5000 ms), then answers code 1, PRTO. At the end of the data it
//   answers code 5 with 0 bytes every time; after a failure, the failure.
// - While the channel asks to hold back, the callback asks the engine to
//   stop; once the reader has drained it low again a new read is asked for
//   at the next missing offset.
// - Close from another thread interrupts a Read that waits.
// - Pieces and notices that do not continue at the next expected offset are
//   from a read that was replaced (Seek, pause) and are dropped.
// - Read, Seek after Close or after a failed Open fail at once; Close may be
//   called more than once. Close before dropping the last reference: the
//   destructor closes too, but the engine must not be closed from inside its
//   own callback.
// - With "pcdn_heartbeat" (default true) a HeartPacemaker runs from Open to
//   Close and hands each beat to the engine as one dlPCDNSetByKV call: key
//   "itf-heartbeat", value a JSON object of the beat's entries plus
//   "download_id".
//
// Thread rules: Open, Read, Seek and GetInfo run on the owning stream's
// thread; Close may also come from another thread. The engine's read callback
// arrives on the engine's threads: it is routed through a registry of open
// executors keyed by download id holding weak pointers, so a callback after
// Close (or after the executor died) finds nobody. deliveryMutex_ keeps one
// callback at a time writing, in offset order; mutex_ guards the state below
// it; no lock of the executor is held while the engine is called or the
// channel written.
#ifndef DOWNLOADER_FILTER_PCDNDOWNLOADEXECUTOR_H_
#define DOWNLOADER_FILTER_PCDNDOWNLOADEXECUTOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Filter/SubCode.h>
#include <downloader/Pipe/IConfigure.h>
#include <downloader/Pipe/IReporter.h>
#include <wisp/Mutex.h>

namespace downloader {

class ByteChannel;
class HeartPacemaker;

class DOWNLOADER_EXPORT PcdnDownloadExecutor : public IDownloadExecutor,
                                               public std::enable_shared_from_this<PcdnDownloadExecutor> {
 public:
  static constexpr int64_t kOpenFailedSubCode = FourCharSubCode('P', 'O', 'P', 'N');
  static constexpr int64_t kReadRefusedSubCode = FourCharSubCode('P', 'R', 'D', 'R');
  static constexpr int64_t kEngineErrorSubCode = FourCharSubCode('P', 'R', 'D', 'E');
  static constexpr int64_t kTimeoutSubCode = FourCharSubCode('P', 'R', 'T', 'O');
  static constexpr int64_t kClosedSubCode = FourCharSubCode('P', 'C', 'L', 'S');
  static constexpr uint64_t kDefaultHeartbeatMs = 5000;

  PcdnDownloadExecutor(std::shared_ptr<protocols::IConfigure> config, std::shared_ptr<protocols::IReporter> reporter);
  ~PcdnDownloadExecutor() override;
  PcdnDownloadExecutor(const PcdnDownloadExecutor&) = delete;
  PcdnDownloadExecutor& operator=(const PcdnDownloadExecutor&) = delete;

  DLResultCode Open(const std::shared_ptr<URI>& uri) override;
  // Not asynchronous: answers (1, 0).
  DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) override;
  DLResultCode WaitOpenResult() override;
  DLReadResult Read(Packet& packet) override;
  DLResultCode Seek(int64_t offset) override;
  int64_t GetFileSize() override;
  DLResultCode Close() override;
  bool IsReady() override;
  void SetHint(const std::string& hint) override;
  // "downloaded_size", "download_id", "executor_name", "is_timeout".
  std::string GetInfo(const std::string& key) override;
  std::string GetName() override;
  int32_t GetExecutorType() override;

  // The engine's read callback (PCDNReadCallback).
  static int OnEngineRead(int64_t id, int64_t offset, int kind, const char* data, int64_t length, int64_t total,
                          int code, const char* info);

 private:
  // What one callback asks of its executor: 0 go on, non-zero stop this read.
  int HandleEngineRead(int64_t offset, int kind, const char* data, int64_t length, int64_t total, int code);
  // Asks the engine for a read from `offset` on, into a fresh channel or,
  // when resuming a paused read, behind what is queued.
  DLResultCode StartRead(int64_t offset, bool freshChannel);
  // Waits for the current read's first piece or notice.
  DLResultCode WaitFirstEvent();
  // The channel's flow signal: stop delivering, or read on once the reader
  // is back (ResumeIfDue): the engine is not called from inside the channel.
  void ApplyFlow(bool pause, uint64_t queuedBytes);
  // After a read: asks for a new read at the next missing offset when the
  // channel asked to go on.
  void ResumeIfDue();
  void StartHeartbeat(int32_t playerId, int64_t downloadId);
  DLResultCode FailedResult() const REQUIRES(mutex_);

  // Constant after construction.
  const std::shared_ptr<protocols::IConfigure> config_;
  const std::shared_ptr<protocols::IReporter> reporter_;

  // Written by Open before any read starts.
  std::string url_;
  int64_t readTimeoutMs_ = 0;

  // One engine delivery at a time into the channel; it guards no member.
  wisp::Mutex deliveryMutex_;
  mutable wisp::Mutex mutex_;
  wisp::CondVar cv_;
  int64_t downloadId_ GUARDED_BY(mutex_) = 0;
  std::shared_ptr<ByteChannel> channel_ GUARDED_BY(mutex_);
  int64_t nextOffset_ GUARDED_BY(mutex_) = 0;     // the next byte the engine should deliver
  bool firstEvent_ GUARDED_BY(mutex_) = false;    // the current read answered
  bool readDelivered_ GUARDED_BY(mutex_) = false; // the current read delivered a byte
  int64_t readFailure_ GUARDED_BY(mutex_) = 0;    // the current read's failure sub-code, or 0
  bool stopDelivery_ GUARDED_BY(mutex_) = false;  // the channel asked the current read to hold back
  bool resumeDue_ GUARDED_BY(mutex_) = false;     // and then to go on: a new read is to be asked for
  bool openFailed_ GUARDED_BY(mutex_) = false;
  bool closed_ GUARDED_BY(mutex_) = false;
  bool timedOut_ GUARDED_BY(mutex_) = false;
  int64_t totalSize_ GUARDED_BY(mutex_) = 0;
  uint64_t receivedBytes_ GUARDED_BY(mutex_) = 0;
  std::shared_ptr<HeartPacemaker> pacemaker_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_PCDNDOWNLOADEXECUTOR_H_
