#include <downloader/Pipe/DownloadManager.h>

#include <downloader/Storage/CacheWriter.h>
#include <downloader/Storage/IDataStore.h>

#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <downloader/Base/URIBuilder.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>
#include <downloader/Stream/XcdnInterfaceHelper.h>
#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Filter/WispTotals.h"
#include "Stats/FlowReport.h"
#include "Strategy/ExtraChannelStrategy.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr int32_t kNotFound = -1;
constexpr int32_t kRemoved = 0;
constexpr int kPcdnTotalBufferBytes = 1024;
constexpr int kDownloadIdBufferBytes = 32;
constexpr char kPcdnTotalKey[] = "total-download-details-bytes-vod";
constexpr char kPcdnTotalMember[] = "total";

// Forwards the engine's own log lines into the library's log.
void LogEngineTrace(const char* text, int /*level*/) { DL_LOGI << "pcdn:" << (text == nullptr ? "" : text); }

// What the engine's total answer says, or false when it cannot be read.
bool ParsePcdnTotal(const std::string& text, int64_t* total) {
  nlohmann::json answer = nlohmann::json::parse(text, nullptr, false);
  if (answer.is_object()) {
    auto member = answer.find(kPcdnTotalMember);
    if (member == answer.end()) return false;
    answer = *member;
  }
  if (!answer.is_number_integer()) return false;
  *total = answer.get<int64_t>();
  return true;
}

// Moves `last` to `current` and answers the growth since (0 when it shrank).
int64_t TakeGrowth(std::atomic<int64_t>& last, int64_t current) {
  int64_t previous = last.exchange(current);
  return current > previous ? current - previous : 0;
}

template <typename Map>
typename Map::mapped_type FindById(const Map& map, int32_t id) {
  auto found = map.find(id);
  return found == map.end() ? nullptr : found->second;
}

template <typename Map>
int32_t EraseById(Map& map, int32_t id) {
  return map.erase(id) == 1 ? kRemoved : kNotFound;
}

}  // namespace

DownloadManager& DownloadManager::GetInstance() {
  // Never destroyed: hosts and library threads may reach it while the
  // process ends.
  static DownloadManager* instance = new DownloadManager();
  return *instance;
}

DownloadManager::DownloadManager() : latestConfig_(std::make_shared<PseudoConfig>()) {}

DownloadManager::~DownloadManager() = default;

void DownloadManager::AddNewConfig(std::shared_ptr<protocols::IConfigure> config, int32_t id) {
  if (config) {
    const DownloaderSettings settings = DownloaderSettings::Read(config);
    FlowReport::SetSwitches(settings.enableCdnFlowReport, settings.enableNewFlowReport);
    if (settings.enablePcdnQuillCallback) {
      PcdnInterfaceHelper::dlPCDNSetTraceCallback(&LogEngineTrace);
    }
    ExtraChannelStrategy::GetInstance().UpdateConfig(config);
    latestConfig_->Snapshot(config);
  }
  wisp::MutexLock lock(&mutex_);
  configs_[id] = std::move(config);
}

std::shared_ptr<protocols::IConfigure> DownloadManager::GetConfigById(int32_t id) {
  wisp::MutexLock lock(&mutex_);
  return FindById(configs_, id);
}

int32_t DownloadManager::RemoveConfigById(int32_t id) {
  wisp::MutexLock lock(&mutex_);
  return EraseById(configs_, id);
}

std::shared_ptr<protocols::IConfigure> DownloadManager::GetLatestConfigure() { return latestConfig_; }

void DownloadManager::AddNewReporter(std::shared_ptr<protocols::IReporter> reporter, int32_t id) {
  wisp::MutexLock lock(&mutex_);
  reporters_[id] = std::move(reporter);
}

std::shared_ptr<protocols::IReporter> DownloadManager::GetReportById(int32_t id) {
  wisp::MutexLock lock(&mutex_);
  return FindById(reporters_, id);
}

int32_t DownloadManager::RemoveReporterById(int32_t id) {
  wisp::MutexLock lock(&mutex_);
  return EraseById(reporters_, id);
}

void DownloadManager::SetParam(int32_t /*module*/, int32_t key, const void* value) {
  if (key != kParamExtraChannelSetting) return;
  const char* setting = static_cast<const char*>(value);
  ExtraChannelStrategy::GetInstance().SetUserSetting(setting == nullptr ? "" : setting);
}

void DownloadManager::GetParam(int32_t /*module*/, int32_t key, void* result) {
  if (result == nullptr) return;
  switch (key) {
    case kParamCdnBytes:
      if (FlowReport::CdnFlowReportEnabled()) *static_cast<int64_t*>(result) = TakeCdnBytesSinceLastQuery();
      break;
    case kParamPcdnBytes:
      *static_cast<int64_t*>(result) = TakePcdnBytesSinceLastQuery();
      break;
    case kParamExtraChannelInfo: {
      DL_LOGI << "Enter downloader, Get ExtraChannel INFO";
      std::string info = ExtraChannelStrategy::GetInstance().Info();
      DL_LOGI << "Get ExtraChannel INFO:" << info;
      *static_cast<std::string*>(result) = info;
      break;
    }
    default:
      break;
  }
}

int64_t DownloadManager::TakeCdnBytesSinceLastQuery() {
  int64_t current = static_cast<int64_t>(WispTotals::CdnBytes());
  DL_LOGI << "reportCdnTotalBytes:" << current;
  return TakeGrowth(lastCdnTotalBytes_, current);
}

int64_t DownloadManager::TakePcdnBytesSinceLastQuery() {
  std::vector<char> buffer(kPcdnTotalBufferBytes, '\0');
  const char* reply = PcdnInterfaceHelper::dlPCDNGet(kPcdnTotalKey, buffer.data(), kPcdnTotalBufferBytes);
  std::string answer = reply == nullptr ? std::string() : std::string(reply);
  DL_LOGI << "getparam:" << kPcdnTotalKey << ", result:" << answer;
  int64_t received = 0;
  if (!ParsePcdnTotal(answer, &received)) {
    DL_LOGW << "Json parse error on:" << answer;
    return 0;
  }
  int64_t previous = lastPcdnTotalBytes_.load();
  int64_t growth = TakeGrowth(lastPcdnTotalBytes_, received);
  DL_LOGI << "reportPcdnTotalBytes:" << growth << ", currentPcdnTotalBytes:" << previous
          << ", receivedPcdnTotalBytes:" << received;
  return growth;
}

void DownloadManager::SetLocalCachePath(const char* path) {
  std::string folder = path == nullptr ? std::string() : std::string(path);
  DL_LOGI << "dlsetlocalpath:" << folder;
  {
    wisp::MutexLock lock(&mutex_);
    localCachePath_ = folder;
  }
  PrepareCacheStorage(folder);
}

std::string DownloadManager::GetLocalCachePath() {
  std::string folder;
  {
    wisp::MutexLock lock(&mutex_);
    folder = localCachePath_;
  }
  DL_LOGI << "dlgetlocalpath:" << folder;
  return folder;
}

void DownloadManager::PrepareCacheStorage(const std::string& cacheRoot) {
  // Initialises the disk adapter provider too, so that streams may write
  // segments from now on.
  storage::CacheWriter::SetCacheRoot(cacheRoot);
}

void DownloadManager::RegisterDownloadCompleteListener(int32_t playerId, CompleteListener listener) {
  DL_LOGI << "registercompletelistener,player:" << playerId;
  wisp::MutexLock lock(&mutex_);
  completeListeners_[playerId] = std::move(listener);
}

void DownloadManager::UnregisterDownloadCompleteListener(int32_t playerId) {
  DL_LOGI << "unregistercompletelistener,player:" << playerId;
  wisp::MutexLock lock(&mutex_);
  completeListeners_.erase(playerId);
}

void DownloadManager::OnDownloadComplete(std::shared_ptr<URI> uri) {
  if (!uri) return;
  const RequestParams request = RequestParams::Read(uri->GetParams());
  int32_t playerId = request.playerId;
  bool preload = request.preloadBuffer;
  DL_LOGI << "ondownloadcomplete,player:" << playerId << ",file:" << uri->GetStringRep() << ",preload:" << preload;
  CompleteListener listener;
  {
    wisp::MutexLock lock(&mutex_);
    auto found = completeListeners_.find(playerId);
    if (found == completeListeners_.end()) return;
    listener = found->second;
  }
  if (listener) listener(std::move(uri));
}

void DownloadManager::OnFinishPlay(const std::string& text) const { DL_LOGI << "OnFinishPlay:" << text; }

int32_t DownloadManager::GetCacheStatus(const std::shared_ptr<URI>& uri) {
  if (!uri) return kDLCacheNone;
  std::shared_ptr<protocols::IConfigure> config = latestConfig_;
  const DownloaderSettings settings = DownloaderSettings::Read(config);
  bool segmentStore = settings.enableSegmentWriter || settings.forceSegmentWriter;
  DL_LOGD << "getcachestatus,file:" << uri->GetStringRep() << ",segment_store:" << segmentStore;
  if (!segmentStore) return kDLCacheNone;
  std::shared_ptr<storage::IDataStore> store = storage::CacheWriter::AcquireDataStore(config, uri);
  if (!store || store->GetDownloadedSize() <= 0) return kDLCacheNone;
  int64_t total = store->GetTotalSize();
  return total > 0 && store->GetDownloadedSize() >= total ? kDLCacheComplete : kDLCachePartial;
}

int32_t DownloadManager::GetXcdnStatus(const std::shared_ptr<URI>& uri) const {
  if (!uri) return XcdnInterfaceHelper::kNotLoadedResult;
  return XcdnInterfaceHelper::dlXCdnDownloaded(uri->GetStringRep().c_str(), 0, 0, 0);
}

int32_t DownloadManager::GetPcdnDownloadId(const std::string& resource) const {
  std::vector<char> buffer(kDownloadIdBufferBytes, '\0');
  const char* reply =
      PcdnInterfaceHelper::dlPCDNGetByKV("itf-download-id", resource.c_str(), buffer.data(), kDownloadIdBufferBytes);
  if (reply == nullptr || *reply == '\0') return kNotFound;
  return ParseInt32(reply);
}

void DownloadManager::SetPcdnDownloadState(int32_t id, bool loading) {
  PcdnInterfaceHelper::dlPCDNSetByKV(loading ? "itf-start-cur-load" : "itf-stop-cur-load",
                                     std::to_string(id).c_str());
}

void DownloadManager::CancelPreloadTask(const char* url) {
  URIBuilder builder = URIBuilder::New();
  builder.SetUrl(url == nullptr ? std::string() : std::string(url));
  std::shared_ptr<URI> resource = builder.Build();
  // The cache writer that runs preload tasks is not built: nothing runs to cancel.
  DL_LOGI << "cancelpreloadtask:" << resource->GetStringRep();
}

}  // namespace downloader
