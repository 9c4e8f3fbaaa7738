#include "Filter/WispPreloadBuffer.h"

#include <algorithm>

#include <downloader/Storage/CacheWriter.h>

namespace downloader {

bool WispPreloadBuffer::Wanted(const DownloaderSettings& settings, const RequestParams& request) {
  return settings.enableCacheBuffer && request.preloadBuffer;
}

std::string WispPreloadBuffer::Take(const ConfigPtr& config, const std::shared_ptr<URI>& uri, int64_t start,
                                    int64_t rangeEnd, int64_t limit) {
  std::shared_ptr<storage::IDataStore> store = storage::CacheWriter::AcquireDataStore(config, uri);
  if (store == nullptr || !store->IsReadable() || start < 0) return std::string();
  const int64_t totalSize = store->GetTotalSize();
  const int64_t lastByte = rangeEnd > 0 ? std::min(rangeEnd, totalSize - 1) : totalSize - 1;
  const int64_t wanted = std::min({limit, store->GetDownloadedSize() - start, lastByte - start});
  if (wanted <= 0 || !store->Seek(start)) return std::string();

  std::string bytes(static_cast<size_t>(wanted), '\0');
  size_t taken = 0;
  while (taken < bytes.size()) {
    const int64_t loaded = store->Load(&bytes[taken], bytes.size() - taken);
    if (loaded <= 0) break;
    taken += static_cast<size_t>(loaded);
  }
  bytes.resize(taken);
  return bytes;
}

}  // namespace downloader
