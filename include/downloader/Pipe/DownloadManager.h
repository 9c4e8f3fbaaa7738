// The host's entry point for everything global: configurations and reporters
// registered by id, global parameters, the local cache folder, listeners for
// finished downloads, and questions about the cache, PCDN and XCDN state of a
// resource. One instance per process, created on first use and never
// destroyed.
//
// Parameters (SetParam / GetParam; only the key is examined, any other key
// does nothing and leaves the result untouched):
//   5100 SetParam, value const char*: the user's setting for the extra
//        network channel.
//   4009 GetParam, result int64_t*: CDN bytes since the last 4009 query (0 if
//        the total went down); only while "enable_cdn_flow_report" is on,
//        otherwise the result is left untouched.
//   4010 GetParam, result int64_t*: PCDN bytes since the last 4010 query,
//        from the engine's "total-download-details-bytes-vod" answer (a JSON
//        number, or an object whose "total" member is the number); 0 when the
//        engine gives no readable answer.
//   4028 GetParam, result std::string*: the extra channel's information.
//
// Edge cases: RemoveConfigById / RemoveReporterById answer -1 for an unknown
// id and 0 otherwise; GetLatestConfigure is never empty (before any
// configuration it answers every default); OnDownloadComplete ignores an
// empty URI and calls the listener of the URI's "player_id" (-1 when absent).
//
// Thread rules: every method may be called from any thread. mutex_ guards the
// maps and the cache path; the flow figures are atomics. Listeners are called
// on the thread that calls OnDownloadComplete, outside the mutex.
#ifndef DOWNLOADER_PIPE_DOWNLOADMANAGER_H_
#define DOWNLOADER_PIPE_DOWNLOADMANAGER_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <downloader/Base/URI.h>
#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/IConfigure.h>
#include <downloader/Pipe/IReporter.h>
#include <downloader/Pipe/PseudoConfig.h>
#include <wisp/Mutex.h>

namespace downloader {

// What GetCacheStatus answers.
enum DLCacheStatus : int32_t {
  kDLCacheNone = 0,
  kDLCachePartial = 1,
  kDLCacheComplete = 2,
};

class DOWNLOADER_EXPORT DownloadManager {
 public:
  static constexpr int32_t kParamExtraChannelSetting = 5100;
  static constexpr int32_t kParamCdnBytes = 4009;
  static constexpr int32_t kParamPcdnBytes = 4010;
  static constexpr int32_t kParamExtraChannelInfo = 4028;

  using CompleteListener = std::function<void(std::shared_ptr<URI>)>;

  static DownloadManager& GetInstance();

  DownloadManager(const DownloadManager&) = delete;
  DownloadManager& operator=(const DownloadManager&) = delete;

  // Stores (or replaces) the configuration under id; a non-empty one also
  // sets the flow-report switches and becomes the latest configuration.
  void AddNewConfig(std::shared_ptr<protocols::IConfigure> config, int32_t id);
  std::shared_ptr<protocols::IConfigure> GetConfigById(int32_t id);
  int32_t RemoveConfigById(int32_t id);
  // A copy of the five groups of the configuration added last.
  std::shared_ptr<protocols::IConfigure> GetLatestConfigure();

  void AddNewReporter(std::shared_ptr<protocols::IReporter> reporter, int32_t id);
  std::shared_ptr<protocols::IReporter> GetReportById(int32_t id);
  int32_t RemoveReporterById(int32_t id);

  void SetParam(int32_t module, int32_t key, const void* value);
  void GetParam(int32_t module, int32_t key, void* result);

  void SetLocalCachePath(const char* path);
  std::string GetLocalCachePath();

  // Replaces an earlier listener of the same player.
  void RegisterDownloadCompleteListener(int32_t playerId, CompleteListener listener);
  void UnregisterDownloadCompleteListener(int32_t playerId);
  void OnDownloadComplete(std::shared_ptr<URI> uri);
  void OnFinishPlay(const std::string& text) const;

  // kDLCacheNone until the segment store and the disk cache answer.
  int32_t GetCacheStatus(const std::shared_ptr<URI>& uri);
  // The XCDN engine's download check for the URL; -1 when it cannot tell.
  int32_t GetXcdnStatus(const std::shared_ptr<URI>& uri) const;
  // The engine's download id for the resource ("itf-download-id"); -1 when
  // the engine gives none.
  int32_t GetPcdnDownloadId(const std::string& resource) const;
  // Resumes ("itf-start-cur-load") or pauses ("itf-stop-cur-load") the
  // engine's current load of download id.
  void SetPcdnDownloadState(int32_t id, bool loading);
  void CancelPreloadTask(const char* url);

 private:
  DownloadManager();
  ~DownloadManager();

  int64_t TakeCdnBytesSinceLastQuery();
  int64_t TakePcdnBytesSinceLastQuery();
  // The storage side joins here: the disk adapter provider and the cache
  // root are prepared from the folder the host names.
  void PrepareCacheStorage(const std::string& cacheRoot);

  // Constant after construction.
  const std::shared_ptr<PseudoConfig> latestConfig_;

  wisp::Mutex mutex_;
  std::map<int32_t, std::shared_ptr<protocols::IConfigure>> configs_ GUARDED_BY(mutex_);
  std::map<int32_t, std::shared_ptr<protocols::IReporter>> reporters_ GUARDED_BY(mutex_);
  std::map<int32_t, CompleteListener> completeListeners_ GUARDED_BY(mutex_);
  std::string localCachePath_ GUARDED_BY(mutex_);

  // The totals handed out by the last 4009 and 4010 queries.
  std::atomic<int64_t> lastCdnTotalBytes_{0};
  std::atomic<int64_t> lastPcdnTotalBytes_{0};
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_DOWNLOADMANAGER_H_
