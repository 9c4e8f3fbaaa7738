#include <downloader/Storage/CacheWriter.h>
#include <wisp/Mutex.h>

#include <atomic>
#include <chrono>

#include "Base/Settings.h"
#include "Platform/FileSystem.h"
#include "Storage/CacheFileName.h"
#include "Storage/DiskCacheCleaner.h"
#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/Persistence/DiskFileNameUtil.h"
#include "Storage/SegmentCachePolicy.h"
#include "Storage/SegmentDataStore.h"
#include "Storage/SegmentFileV1.h"
#include "Storage/SegmentFileWriter.h"
#include "Storage/SegmentFileWriterDispatch.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

// Segment files of format version 1 live in their own version folder.
constexpr char kSegmentCacheVersion[] = "v1";

struct CacheRoot {
  wisp::Mutex mutex;
  wisp::CondVar writesDone;
  std::string root GUARDED_BY(mutex);
  int64_t pendingCompletions GUARDED_BY(mutex) = 0;
};

CacheRoot& SharedRoot() {
  // Never destroyed: streams may still ask while the process exits.
  static CacheRoot* const shared = new CacheRoot();
  return *shared;
}

int64_t NextJobId() {
  static std::atomic<int64_t> lastJobId{0};
  return ++lastJobId;
}

bool FileExists(const std::string& path) {
  platform::FileInfo info;
  return platform::FileSystem::Default()->GetFileInfo(path, &info).ok() && !info.isDirectory;
}

}  // namespace

void CacheWriter::SetCacheRoot(const std::string& root) {
  DiskAdapterProvider& provider = DiskAdapterProvider::GetInstance();
  if (!root.empty() && !provider.isInitialized()) provider.init();
  CacheRoot& shared = SharedRoot();
  wisp::MutexLock lock(&shared.mutex);
  shared.root = root;
  DL_LOGI << "[diskcache]cache root:" << root;
}

std::string CacheWriter::GetCacheRoot() {
  CacheRoot& shared = SharedRoot();
  wisp::MutexLock lock(&shared.mutex);
  return shared.root;
}

std::string CacheWriter::CacheFilePath(const URI& uri) {
  std::string root = GetCacheRoot();
  if (root.empty()) return std::string();
  std::string base = DiskFileNameUtil::getDLBasePath(root);
  return DiskFileNameUtil::getCacheFilePath(DiskFileNameUtil::getVersionDir(base, kSegmentCacheVersion),
                                            CacheFileName::FromId(uri.ID()));
}

std::shared_ptr<IDataStore> CacheWriter::AcquireDataStore(const ConfigPtr& config, const std::shared_ptr<URI>& uri) {
  if (!uri) return nullptr;
  std::string path = CacheFilePath(*uri);
  if (path.empty() || !FileExists(path)) return nullptr;
  bool requireComplete = DownloaderSettings::Read(config).enableCacheStoreLock;
  return std::make_shared<SegmentDataStore>(uri->ID(), path, NextJobId(), requireComplete);
}

std::shared_ptr<SegmentFileWriter> CacheWriter::CreateSegmentWriter(const ConfigPtr& config,
                                                                    const std::shared_ptr<URI>& uri,
                                                                    uint64_t contentSize) {
  if (!uri || contentSize == 0 || contentSize >= SegmentFileV1::kContentFileSizeLimit) return nullptr;
  std::string path = CacheFilePath(*uri);
  if (path.empty()) return nullptr;
  const DownloaderSettings settings = DownloaderSettings::Read(config);
  const bool isPreload = RequestParams::Read(uri->GetParams()).preload;
  int64_t flushLimit = isPreload ? settings.segmentWriterFlushThreshold : settings.segmentWriterFlushThresholdPlay;
  int64_t jobId = NextJobId();
  // The writer shares this adapter; holding it here first tells a file of
  // another resource size apart before anything is written.
  std::shared_ptr<DiskAdapter> adapter = DiskAdapterProvider::GetInstance().acquire_adapter(path, contentSize, jobId);
  if (!adapter->isValid() || adapter->segmentFile().content_file_size() != contentSize) {
    DL_LOGW << "[diskcache]no segment writer,path:" << path << ",content size:" << contentSize;
    return nullptr;
  }
  return std::make_shared<SegmentFileWriter>(path, contentSize, jobId, isPreload, flushLimit);
}

bool CacheWriter::WritesSegments(const ConfigPtr& config, const std::string& url) {
  return SegmentCachePolicy::Applies(config, url);
}

void CacheWriter::StoreSegmentBytes(const std::shared_ptr<SegmentFileWriter>& writer, uint64_t offset,
                                    const uint8_t* data, uint64_t size) {
  SegmentFileWriterDispatch::GetInstance().store(writer, offset, data, size);
}

void CacheWriter::ScheduleCleaning(const ConfigPtr& config) { DiskCacheCleaner::GetInstance().Schedule(config); }

void CacheWriter::CompleteSegmentWriter(std::shared_ptr<SegmentFileWriter> writer) {
  if (!writer) return;
  CacheRoot& shared = SharedRoot();
  {
    wisp::MutexLock lock(&shared.mutex);
    ++shared.pendingCompletions;
  }
  // Runs on the storage thread after every store posted before it.
  SegmentFileWriterDispatch::GetInstance().complete(writer, [&shared] {
    {
      wisp::MutexLock lock(&shared.mutex);
      --shared.pendingCompletions;
    }
    shared.writesDone.notify_all();
  });
}

bool CacheWriter::WaitForPendingWrites(int64_t timeoutMs) {
  CacheRoot& shared = SharedRoot();
  Clock& clock = LibraryContext::Current().clock();
  wisp::MutexLock lock(&shared.mutex);
  return clock.WaitUntil(shared.writesDone, lock, clock.Now() + std::chrono::milliseconds(timeoutMs),
                         [&shared]() REQUIRES(shared.mutex) { return shared.pendingCompletions == 0; });
}

}  // namespace storage
}  // namespace downloader
