#include "Storage/Persistence/DiskAdapterProvider.h"

#include <algorithm>

#include <wisp/Mutex.h>

#include "Storage/Persistence/DLException.h"
#include "Storage/Persistence/DiskAdapter.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

constexpr size_t kMinSweepSize = 64;
constexpr char kNotInitialized[] = "dlexception,diskadapterprovider,not initialized";

}  // namespace

DiskAdapterProvider& DiskAdapterProvider::GetInstance() { return LibraryContext::Current().Get<DiskAdapterProvider>(); }

DiskAdapterProvider::DiskAdapterProvider() : sweepAtSize_(kMinSweepSize) {}
DiskAdapterProvider::~DiskAdapterProvider() = default;

void DiskAdapterProvider::init(platform::FileSystem* fileSystem) {
  wisp::MutexLock lock(&mutex_);
  fileSystem_ = fileSystem;
}

bool DiskAdapterProvider::isInitialized() {
  wisp::MutexLock lock(&mutex_);
  return fileSystem_ != nullptr;
}

std::shared_ptr<DiskAdapter> DiskAdapterProvider::acquire_adapter(const std::string& path, uint64_t file_size,
                                                                  int64_t job_id) {
  wisp::MutexLock lock(&mutex_);
  if (fileSystem_ == nullptr) throw DLException(kNotInitialized);
  DL_LOGD << "[diskcache]diskadapterprovider,acquire adapter,get:" << path << ",file_size:" << file_size;

  std::shared_ptr<DiskAdapter> adapter;
  auto found = adapters_.find(path);
  if (found != adapters_.end()) {
    adapter = found->second.lock();
    if (adapter) {
      DL_LOGD << "[diskcache]diskadapterprovider,acquire adapter,match:" << path;
    } else {
      DL_LOGD << "[diskcache]diskadapterprovider,acquire adapter,weak ptr:" << path;
      adapter = std::make_shared<DiskAdapter>(path, file_size, job_id, fileSystem_);
      found->second = adapter;
    }
  } else {
    adapter = std::make_shared<DiskAdapter>(path, file_size, job_id, fileSystem_);
    adapters_.emplace(path, adapter);
    DL_LOGD << "[diskcache]diskadapterprovider,acquire adapter,insert:" << path;
    sweepExpiredLocked();
  }
  if (adapter->isValid()) {
    DL_LOGD << "[diskcache]diskadapterprovider,acquire adapter,valid:" << path;
  } else {
    DL_LOGW << "[diskcache]diskadapterprovider,acquire adapter,invalid:" << path;
  }
  return adapter;
}

void DiskAdapterProvider::sweepExpiredLocked() {
  if (adapters_.size() < sweepAtSize_) return;
  for (auto it = adapters_.begin(); it != adapters_.end();) {
    it = it->second.expired() ? adapters_.erase(it) : std::next(it);
  }
  sweepAtSize_ = std::max(kMinSweepSize, adapters_.size() * 2);
}

bool DiskAdapterProvider::removeIfUnused(const std::string& path) {
  wisp::MutexLock lock(&mutex_);
  auto found = adapters_.find(path);
  if (found != adapters_.end()) {
    if (!found->second.expired()) return false;
    adapters_.erase(found);
  }
  platform::FileSystem* fileSystem = fileSystem_ != nullptr ? fileSystem_ : platform::FileSystem::Default();
  return fileSystem->RemoveFile(path).ok();
}

}  // namespace storage
}  // namespace downloader
