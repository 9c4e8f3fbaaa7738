#include "Storage/DiskCacheCleaner.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include <downloader/Base/URI.h>
#include <downloader/Storage/CacheWriter.h>
#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/Persistence/DiskFileNameUtil.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

struct CacheFileEntry {
  std::string path;
  uint64_t size;
  int64_t modifiedMillis;
};

// Any URL does: every cache file lies in the same folder.
constexpr char kProbeUrl[] = "http://cache.folder/probe.ts";

}  // namespace

DiskCacheCleaner& DiskCacheCleaner::GetInstance() { return LibraryContext::Current().Get<DiskCacheCleaner>(); }

DiskCacheCleaner::DiskCacheCleaner(LibraryContext& context) : looper_("disk_cleaner", context.clock()) {}

DiskCacheCleaner::~DiskCacheCleaner() { looper_.Stop(); }

void DiskCacheCleaner::Schedule(const ConfigPtr& config) {
  if (!DownloaderSettings::Read(config).enableCleanDisk) return;
  {
    wisp::MutexLock lock(&mutex_);
    if (started_) return;
    started_ = true;
    config_ = config;
  }
  DL_LOGI << "[diskcache]cleaner started";
  looper_.Start();
  looper_.Post([this] { RunPass(); });
}

void DiskCacheCleaner::RunPass() {
  ConfigPtr config;
  {
    wisp::MutexLock lock(&mutex_);
    config = config_;
  }
  const DownloaderSettings settings = DownloaderSettings::Read(config);
  const int64_t capacity = settings.diskCacheCapacityBytes;
  const std::string folder = CacheFolder();
  if (capacity > 0 && !folder.empty()) {
    CleanFolder(folder, static_cast<uint64_t>(capacity), DiskAdapterProvider::GetInstance(),
                platform::FileSystem::Default());
  }
  const int64_t duration = std::max<int64_t>(1, settings.cleanDurationMs);
  looper_.PostDelayed([this] { RunPass(); }, std::chrono::milliseconds(duration));
}

std::string DiskCacheCleaner::CacheFolder() {
  const std::string probe = CacheWriter::CacheFilePath(*URI::From(kProbeUrl, {}));
  return probe.empty() ? std::string() : DiskFileNameUtil::getParentPath(probe);
}

uint64_t DiskCacheCleaner::CleanFolder(const std::string& folder, uint64_t capacity, DiskAdapterProvider& provider,
                                       platform::FileSystem* fileSystem) {
  if (capacity == 0) return 0;
  std::vector<std::string> names;
  if (!fileSystem->ListDir(folder, &names).ok()) return 0;
  std::vector<CacheFileEntry> files;
  uint64_t total = 0;
  for (const std::string& name : names) {
    const std::string path = folder + DiskFileNameUtil::getSeparator() + name;
    platform::FileInfo info;
    if (!fileSystem->GetFileInfo(path, &info).ok() || info.isDirectory) continue;
    files.push_back({path, info.size, info.modifiedMillis});
    total += info.size;
  }
  std::sort(files.begin(), files.end(), [](const CacheFileEntry& a, const CacheFileEntry& b) {
    return a.modifiedMillis < b.modifiedMillis;
  });
  uint64_t removed = 0;
  for (const CacheFileEntry& file : files) {
    if (total <= capacity) break;
    if (!provider.removeIfUnused(file.path)) continue;
    total -= file.size;
    removed += file.size;
    DL_LOGI << "[diskcache]cleaner removed:" << file.path << ", size:" << file.size;
  }
  DL_LOGD << "[diskcache]cleaner pass, folder:" << folder << ", left:" << total << ", removed:" << removed
          << ", capacity:" << capacity;
  return removed;
}

}  // namespace storage
}  // namespace downloader
