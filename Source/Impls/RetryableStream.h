// The stream the library hands to a player. It picks a download level for
// the request, has the pipeline's filter of that level make an executor,
// reads through it, and when an open fails, a read fails or times out, or the
// drain calculator says the level starves the player, moves to the next level
// of its mask and reopens at the same offset. Bytes read from a level other
// than the disk cache are handed to a segment writer when segment writing is
// on, so that the next request for the resource is replayed from disk.
//
// Levels: the first level tried is the disk cache (0), so that whatever was
// written is replayed; a request restricted to PCDN alone (mask 1) starts
// there. An open walk and a read downgrade visit each level of the mask at
// most once; an open that fails everywhere answers the failure of the last
// executor that was really opened (a filter's refusal does not replace it),
// or the last refusal when no executor opened.
//
// GetInfo("level_tracker") lists the levels that served, in order ("1>4"
// after a read downgrade from PCDN to HTTP); GetInfo("level_attempts") lists
// every level whose executor was opened, served or not ("0>4" for a request
// that missed the disk cache and was served over HTTP). GetInfo("error_message")
// says why the failure the stream answered last happened, as the failing
// executor put it ("could not resolve host 'x'"); "" when it did not say;
// GetInfo("error_kind") its class, as that executor named it.
//
// Thread rules: one player thread calls Open, OpenAsync, IsOpenReady, Read,
// Seek, GetFileSize, GetInfo and Close; an asynchronous open runs the open
// walk on a thread of its own, and the player's calls wait for it. The
// tunnel's threads call the state and pulse slots and GetParam. mutex_ guards
// the request parameters, the executor being opened and the asynchronous
// outcome; the flow-rate controller synchronises itself; everything else
// belongs to the player thread (or to the opener thread until the player
// thread has joined it).
#ifndef DOWNLOADER_IMPLS_RETRYABLESTREAM_H_
#define DOWNLOADER_IMPLS_RETRYABLESTREAM_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <downloader/Filter/DLDownloadLevel.h>
#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Filter/SubCode.h>
#include <downloader/Impls/IStream.h>
#include <downloader/Pipe/StatsStage.h>
#include <downloader/Strategy/DrainCalculator.h>
#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Base/StreamStats.h"
#include "Strategy/FlowRateController.h"
#include "Utils/clock/Clock.h"

namespace downloader {

namespace storage {
class SegmentFileWriter;
}  // namespace storage

class RetryableStream : public IStream, public std::enable_shared_from_this<RetryableStream> {
 public:
  // Read or Seek on a stream that is not open.
  static constexpr int64_t kNotOpenSubCode = FourCharSubCode('S', 'N', 'O', 'P');
  // Open without a URI, or on a closed stream.
  static constexpr int64_t kBadRequestSubCode = FourCharSubCode('S', 'B', 'R', 'Q');
  // No filter of the pipeline serves the level.
  static constexpr int64_t kNoFilterSubCode = FourCharSubCode('S', 'N', 'F', 'L');
  // A filter accepted the request but made no executor.
  static constexpr int64_t kNoExecutorSubCode = FourCharSubCode('S', 'N', 'E', 'X');
  // The asynchronous open ran out of "async_open_timeout".
  static constexpr int64_t kOpenTimeoutSubCode = FourCharSubCode('S', 'O', 'T', 'O');
  // The stream was closed while it opened.
  static constexpr int64_t kClosedSubCode = FourCharSubCode('S', 'C', 'L', 'D');

  RetryableStream();
  ~RetryableStream() override;

  DLResultCode Open(const std::shared_ptr<URI>& uri) override;
  DLResultCode OpenAsync(const std::shared_ptr<URI>& uri) override;
  DLResultCode IsOpenReady() override;
  DLReadResult Read(void* buffer, uint64_t size) override;
  DLResultCode Seek(int64_t offset) override;
  int64_t GetFileSize() override;
  DLResultCode Close() override;
  void OnBufferStateUpdated(BufferState state) override;
  void OnStreamingStateUpdated(StreamingState state) override;
  void OnPulseDataUpdated(const PulseData& data) override;
  std::string GetInfo(const std::string& key) override;
  std::string GetParam(const std::string& key) override;

  void SetConfigure(ConfigPtr config) override;
  void SetReporter(std::shared_ptr<protocols::IReporter> reporter) override;
  void SetPipeline(DownloadPipeline* pipeline) override;
  void SetTunnel(std::shared_ptr<ITunnel> tunnel) override;
  void SetStreamSettings(const StreamParams& settings) override;
  void SetPulseConsumer(std::shared_ptr<PlayStateMonitor> monitor) override;
  void SetSequence(uint64_t sequence) override;
  uint64_t GetSequence() override;

  DLDownloadLevel CurrentLevel() const { return level_; }
  uint32_t LevelMask() const { return mask_; }

 private:
  // What one visit of the filters at a level came to.
  struct LevelAttempt {
    bool responded = false;
    DLResultCode result;
    std::shared_ptr<IDownloadExecutor> executor;
    // The executor's "error_message" and "error_kind" when its open failed.
    std::string reason;
    std::string kind;
  };
  enum class ReadTrigger { kNone, kFailed, kTimedOut, kDrained };
  // Tries one level of the mask; `moved` is false only for the level the walk
  // started at. Answers true to end the walk.
  using LevelVisitor = std::function<bool(DLDownloadLevel level, bool moved)>;

  // Open.
  DLResultCode PrepareOpen(const std::shared_ptr<URI>& uri, const char* mode);
  DLResultCode OpenWalk();
  // The one level walk of open and read downgrade: from `from` in the order
  // NextLevel gives, each level at most once (`from` itself only when
  // `tryFrom`), handing every level of the mask to `tryLevel` until it answers
  // true. Returns the last level the walk reached.
  DLDownloadLevel WalkLevels(DLDownloadLevel from, bool tryFrom, const LevelVisitor& tryLevel);
  DLDownloadLevel InitialLevel() const;
  LevelAttempt OpenAtLevel(DLDownloadLevel level);
  std::shared_ptr<URI> RequestAtOffset();
  void InstallExecutor(std::shared_ptr<IDownloadExecutor> executor, DLDownloadLevel level);
  void FinishOpen(const DLResultCode& result);
  void RunAsyncOpen();
  // Stops an open in progress (on any thread's executor) for good.
  void CancelOpening();
  void JoinOpener();
  DLDownloadLevel NextLevel(DLDownloadLevel current);
  bool InMask(DLDownloadLevel level) const;

  // Read.
  DLReadResult InternalRead(void* buffer, uint64_t size);
  ReadTrigger JudgeRead(DLReadResult* result);
  bool ShouldDoDownloadLevelDegrade(DLReadResult* result);
  // Player thread: reads params_ without the lock (see params_).
  bool ReadDowngradeForbidden() const NO_THREAD_SAFETY_ANALYSIS;
  bool HandleReadDowngrade(ReadTrigger trigger);

  // Segment writing.
  void MaybeStartSegmentWriter();
  void CompleteSegmentWriter();

  // Statistics.
  void Commit(StatsStage stage, const std::string& event, DLDownloadLevel level, const DLResultCode& result);
  // "<prefix>_open_error" when an executor opened and failed, "<prefix>_respond_error" when none did.
  void CommitFailedAttempt(StatsStage stage, const std::string& prefix, DLDownloadLevel level,
                           const LevelAttempt& attempt);
  std::string StreamEndInfo();
  static std::string JoinLevels(const std::vector<DLDownloadLevel>& levels);
  int32_t PlayerId();

  // Wiring: set before Open, constant afterwards.
  ConfigPtr config_;
  std::shared_ptr<protocols::IReporter> reporter_;
  DownloadPipeline* pipeline_ = nullptr;
  std::shared_ptr<ITunnel> tunnel_;
  const std::shared_ptr<FlowRateController> controller_;
  const std::shared_ptr<StreamStats> stats_;
  std::atomic<uint64_t> sequence_{0};

  wisp::Mutex mutex_;
  StreamParams settings_ GUARDED_BY(mutex_);
  // The player thread is its only writer and reads it without the lock, which
  // the analysis cannot tell from a read on another thread.
  StreamParams params_ GUARDED_BY(mutex_);
  std::shared_ptr<URI> uri_ GUARDED_BY(mutex_);
  std::shared_ptr<IDownloadExecutor> openingExecutor_ GUARDED_BY(mutex_);
  bool cancelled_ GUARDED_BY(mutex_) = false;
  bool asyncDone_ GUARDED_BY(mutex_) = false;
  DLResultCode asyncResult_ GUARDED_BY(mutex_);
  wisp::CondVar asyncDoneChanged_;

  // Player thread (the opener thread while it runs).
  std::thread opener_;
  Clock::TimePoint asyncStartedAt_;
  bool opened_ = false;
  bool closed_ = false;
  std::string url_;
  uint32_t mask_ = 0;
  DLDownloadLevel level_ = kDLLevelCache;
  bool forbidDowngrade_ = false;
  bool downgradeForbiddenHit_ = false;
  std::shared_ptr<IDownloadExecutor> executor_;
  DLResultCode openResult_;
  int64_t fileSize_ = 0;
  int64_t offset_ = 0;
  int64_t readTimeoutMs_ = 0;
  // Read from config_ and params_ by the open.
  DownloaderSettings openSettings_;
  RequestParams request_;
  Clock::TimePoint lastProgressAt_;
  bool timedOut_ = false;
  std::unique_ptr<DrainCalculator> calculator_;
  bool segmentWritingWanted_ = false;
  std::shared_ptr<storage::SegmentFileWriter> segmentWriter_;
  uint64_t bytesRead_ = 0;
  uint32_t downgradeCount_ = 0;
  std::map<std::string, uint32_t> readDowngrades_;
  std::vector<DLDownloadLevel> levelHistory_;
  std::vector<DLDownloadLevel> levelAttempts_;
  // "error_message" and "error_kind" of the executor whose failure the stream answered last.
  std::string failureReason_;
  std::string failureKind_;
};

}  // namespace downloader

#endif  // DOWNLOADER_IMPLS_RETRYABLESTREAM_H_
