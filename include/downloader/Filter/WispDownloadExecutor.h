// Fetches one byte range of one resource over HTTP through the wisp network
// library. The network thread hands the body to the executor's listener
// callbacks, which write it into a byte channel per request; Read drains it
// on the stream's thread.
//
// Life: created (WispDownloadFilter::AcquireExecutor, always in a shared
// pointer: a running call keeps its executor alive) -> Open, or OpenAsync then
// WaitOpenResult -> responded -> streaming (Read) -> ended (the call completed
// or failed; Read drains what is queued, then answers code 5 or the failure)
// -> Close. Seek from any state after a response starts a new call at the new
// offset. Close it: that cancels the call and breaks the executor's cycle with it.
//
// Edge cases:
// - A failed Open or Read answers code 1 with the four-character code of the
//   failure (H404, C605, GDTO, ...; see HttpErrorCode.h); GetInfo("error_message")
//   then says why in words ("could not resolve host 'x'", "HTTP 401",
//   "timed out after 5000 ms waiting for data"), "" while nothing failed, and
//   GetInfo("error_kind") names its class as the network library does ("dns
//   failure", "connect failure", "tls failure", "http status", "timeout", ...).
// - Header text of the URI carrying CR or LF is refused: no request is sent,
//   the open fails with HHDR and the reason says so.
// - Read with nothing queued waits in 100 ms steps up to "read_timeout"
//   (default 5000 ms), then answers GDTO and marks the executor timed out.
//   With "fast_read_duration" above 0 it answers (0, 0 bytes) at once instead.
// - At the end of the data Read answers code 5 with 0 bytes, every time.
// - Read, Seek and the open wait return at once after Close (code 1,
//   "WispDownloadFilter,interrupted"); no callback reaches the executor once
//   Close has returned. Seek before any response fails without a request.
// - While the channel holds more than it allows the call is paused; it is
//   resumed once the reader has drained it low again. No byte is dropped or
//   reordered by this. Drained memory is freed as the reader goes: after
//   the last byte is read "memory_usage" is 0.
// - Close from another thread interrupts a Read that waits.
// - Callbacks of a call that is no longer the current one are dropped.
// - "track_info" that is not a JSON object of plain members is logged and
//   ignored (GetInfo("track_info") answers ""); the request goes on.
// - OpenAsync (not Open) with "enable_cache_buffer" on and "preload_buffer"
//   true queues what a preload stored of the resource in the disk cache as
//   the first bytes and asks the network for the rest (WispPreloadBuffer.h).
//
// As a Source, the executor counts every body byte the network delivers and
// the time its calls spend receiving (not while paused or after they end);
// SetStatsSink makes it count them in the stream's statistics too.
//
// Thread rules: Open, OpenAsync, WaitOpenResult, Read, Seek and GetInfo run on
// the owning stream's thread; Close may also come from another thread; the
// listener callbacks run on the network thread; SetStatsSink comes from the
// stream's thread before Open. mutex_ guards the call, the
// response, the error, the channel pointer, the counters and the record; the
// channel has its own locks and pauses and resumes the call through its flow
// signal. No lock is held while the call is cancelled, or while the reporter
// is called.
#ifndef DOWNLOADER_FILTER_WISPDOWNLOADEXECUTOR_H_
#define DOWNLOADER_FILTER_WISPDOWNLOADEXECUTOR_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Pipe/IConfigure.h>
#include <downloader/Pipe/IReporter.h>
#include <downloader/Strategy/Source.h>
#include <wisp/Mutex.h>
#include <wisp/http/Error.h>
#include <wisp/http/IListener.h>
#include <wisp/http/IRequestCall.h>
#include <wisp/http/Response.h>

namespace downloader {

class ByteChannel;
class Sha256;
struct DownloaderSettings;
struct RequestParams;

class DOWNLOADER_EXPORT WispDownloadExecutor : public IDownloadExecutor,
                                               public std::enable_shared_from_this<WispDownloadExecutor>,
                                               public Source,
                                               public wisp::http::IListener {
 public:
  using RequestRecord = std::map<std::string, std::string>;

  WispDownloadExecutor(std::shared_ptr<protocols::IConfigure> config, std::shared_ptr<protocols::IReporter> reporter,
                       std::shared_ptr<URI> uri);
  ~WispDownloadExecutor() override;
  WispDownloadExecutor(const WispDownloadExecutor&) = delete;
  WispDownloadExecutor& operator=(const WispDownloadExecutor&) = delete;

  DLResultCode Open(const std::shared_ptr<URI>& uri) override;
  DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) override;
  DLResultCode WaitOpenResult() override;
  DLReadResult Read(Packet& packet) override;
  DLResultCode Seek(int64_t offset) override;
  int64_t GetFileSize() override;
  DLResultCode Close() override;
  bool IsReady() override;
  // Only "pcdn_not_respond" means something: the PCDN level did not answer
  // for this resource (reported with the request's record).
  void SetHint(const std::string& hint) override;
  std::string GetInfo(const std::string& key) override;
  std::string GetName() override;
  int32_t GetExecutorType() override;
  // Stores the sink as every executor does, and counts the bytes the network
  // delivers in it from now on.
  void SetStatsSink(std::shared_ptr<StreamStats> stats) override;

  // The player's buffered duration now, from its tunnel: it goes into the next
  // request and into the player-event text.
  void SetPlayerBufferDuration(int64_t milliseconds);
  // The extra-channel description of the running request ("channelType",
  // "extChannelVol").
  void GetExtraChannelInfo(std::map<std::string, std::string>* info);

  void OnResponse(wisp::http::IRequestCall* call, std::shared_ptr<wisp::http::Response> response) override;
  void OnBytes(wisp::http::IRequestCall* call, const uint8_t* data, size_t length) override;
  void OnError(wisp::http::IRequestCall* call, const wisp::http::Error& error) override;
  void OnComplete(wisp::http::IRequestCall* call) override;
  void OnStatusPhase(wisp::http::IRequestCall* call, wisp::http::StatusPhase phase, int64_t value) override;

 private:
  using Clock = std::chrono::steady_clock;
  enum class WaitOutcome { kResponded, kFailed, kInterrupted };

  // Open without the wait; `preloadAllowed`: the request may begin with its
  // preload buffer.
  DLResultCode StartOpen(const std::shared_ptr<URI>& uri, bool preloadAllowed);
  DownloaderSettings ReadSettings(const std::shared_ptr<URI>& uri);
  void ReadTrackInfo();
  // The preload buffer of the request, or nothing (see WispPreloadBuffer.h).
  std::string TakePreloadBuffer(const DownloaderSettings& settings);
  // Starts a call at `seekOffset` (WispRequestBuilder::kNoSeek: where the
  // request asks) whose channel begins with `firstBytes`.
  DLResultCode StartRequest(int64_t seekOffset, const std::string& firstBytes = std::string());
  // Cancels the current call, if any, and keeps its statistics.
  void EndCurrentRequest();
  WaitOutcome WaitForResponse();
  DLResultCode OpenOutcome(WaitOutcome outcome);
  DLResultCode InterruptedResult();
  // The channel is drained and ended with `end`: the end of the data or the call's failure.
  DLReadResult EndOfDataResult(const DLResultCode& end);
  // The channel's flow signal for `call`.
  void ApplyFlow(const std::weak_ptr<wisp::http::IRequestCall>& call, bool pause, uint64_t queuedBytes);
  // Ends the current call's data with `status`.
  void EndChannel(const std::shared_ptr<ByteChannel>& channel, const DLResultCode& status);
  bool IsCurrent(wisp::http::IRequestCall* call) const REQUIRES(mutex_) {
    return call != nullptr && call == call_.get();
  }

  // Statistics.
  void RefreshRecord();
  int64_t CurrentSpeedLocked() const REQUIRES(mutex_);
  std::string PlayerEventText();
  // GetInfo("error_message") and GetInfo("error_kind").
  std::string FailureReasonLocked() const REQUIRES(mutex_);
  std::string FailureKindLocked() const REQUIRES(mutex_);
  // The sub-code of the current failure, 0 for none.
  int64_t FailureSubCodeLocked() const REQUIRES(mutex_);
  void HashDump();
  void ReportLastInfo();

  // Constant after construction.
  const std::shared_ptr<protocols::IConfigure> config_;
  const std::shared_ptr<protocols::IReporter> reporter_;

  // Written by Open and OpenAsync before their call starts; read-only while
  // a call runs.
  std::shared_ptr<URI> uri_;
  // The parameters of uri_, read with it.
  std::shared_ptr<const RequestParams> request_;
  int32_t playerId_ = -1;
  int32_t index_ = 0;
  std::string logTag_;
  int64_t readTimeoutMs_ = 0;
  bool fastRead_ = false;
  bool reportLast_ = true;
  bool enableFill_ = true;
  bool hashCheck_ = false;
  bool preload_ = false;
  int64_t openBufferMs_ = -1;
  std::map<std::string, std::string> track_;

  mutable wisp::Mutex mutex_;
  wisp::CondVar cv_;
  std::shared_ptr<wisp::http::IRequestCall> call_ GUARDED_BY(mutex_);
  std::shared_ptr<wisp::http::Response> response_ GUARDED_BY(mutex_);
  wisp::http::Error error_ GUARDED_BY(mutex_);
  // The last read ran out of "read_timeout" with no error from the network.
  bool readTimedOut_ GUARDED_BY(mutex_) = false;
  // The current request was not sent: its header text carries CR or LF.
  bool headerRefused_ GUARDED_BY(mutex_) = false;
  std::shared_ptr<ByteChannel> channel_ GUARDED_BY(mutex_);
  std::string requestUrl_ GUARDED_BY(mutex_);
  int64_t requestStart_ GUARDED_BY(mutex_) = 0;      // offset of the current call's first byte
  int64_t offset_ GUARDED_BY(mutex_) = 0;            // offset of the next byte to arrive
  uint64_t receivedBytes_ GUARDED_BY(mutex_) = 0;    // by the current call
  uint64_t totalReceived_ GUARDED_BY(mutex_) = 0;    // by every call of this executor
  int64_t totalSize_ GUARDED_BY(mutex_) = 0;
  Clock::time_point requestStartTime_ GUARDED_BY(mutex_){};
  Clock::time_point responseTime_ GUARDED_BY(mutex_){};
  Clock::time_point lastByteTime_ GUARDED_BY(mutex_){};
  bool closed_ GUARDED_BY(mutex_) = false;
  bool everResponded_ GUARDED_BY(mutex_) = false;
  bool ready_ GUARDED_BY(mutex_) = false;
  bool timedOut_ GUARDED_BY(mutex_) = false;
  bool speedUp_ GUARDED_BY(mutex_) = false;
  bool pcdnNotRespond_ GUARDED_BY(mutex_) = false;
  int64_t playerBufferMs_ GUARDED_BY(mutex_) = -1;
  RequestRecord record_ GUARDED_BY(mutex_);
  std::unique_ptr<Sha256> hash_ GUARDED_BY(mutex_);

  // Read by the stream's thread only.
  std::atomic<uint64_t> readBytes_{0};
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPDOWNLOADEXECUTOR_H_
