#include "Filter/CacheDownloadExecutor.h"

#include <algorithm>
#include <utility>

#include <downloader/Storage/CacheWriter.h>

#include "Base/Settings.h"
#include "Filter/CacheDownloadFilter.h"
#include "Utils/log/LogMessage.h"

namespace downloader {

CacheDownloadExecutor::CacheDownloadExecutor(ConfigPtr config, std::shared_ptr<URI> uri,
                                             std::shared_ptr<storage::IDataStore> store)
    : config_(std::move(config)), uri_(std::move(uri)), store_(std::move(store)) {}

CacheDownloadExecutor::~CacheDownloadExecutor() = default;

DLResultCode CacheDownloadExecutor::Open(const std::shared_ptr<URI>& uri) {
  const std::shared_ptr<URI>& request = uri ? uri : uri_;
  if (!request) return DLResultCode(kDLFailure, CacheDownloadFilter::kNotReadableSubCode);
  if (!store_ || store_->GetID() != request->ID()) store_ = storage::CacheWriter::AcquireDataStore(config_, request);
  if (!store_ || !store_->IsReadable()) {
    DL_LOGD << "cache executor nothing stored for uri:" << request->GetStringRep();
    return DLResultCode(kDLFailure, CacheDownloadFilter::kNotReadableSubCode);
  }
  int64_t downloadedSize = store_->GetDownloadedSize();
  int64_t totalSize = store_->GetTotalSize();
  int64_t rangeStart = RequestParams::Read(request->GetParams()).rangeStart;
  if (DownloaderSettings::Read(config_).enableCacheFilterRangeStart && rangeStart > 0) {
    if (rangeStart <= downloadedSize || rangeStart >= totalSize) {
      store_->Seek(std::min(rangeStart, totalSize));
      DL_LOGD << "cache open range start:" << rangeStart << ",downloaded_size:" << downloadedSize
              << ",id:" << store_->GetID();
    } else {
      DL_LOGD << "cache open range start invalid:" << rangeStart << ",downloaded_size:" << downloadedSize
              << ",id:" << store_->GetID();
      store_->Seek(0);
    }
  }
  DL_LOGD << "cache executor open with uri:" << request->GetStringRep();
  opened_ = true;
  return DLResultCode(kDLSuccess, 0);
}

DLResultCode CacheDownloadExecutor::OpenAsync(const std::shared_ptr<URI>& /*uri*/) {
  return DLResultCode(kDLFailure, 0);
}

DLResultCode CacheDownloadExecutor::WaitOpenResult() { return DLResultCode(kDLFailure, 0); }

DLReadResult CacheDownloadExecutor::Read(Packet& packet) {
  DLReadResult result;
  if (!opened_ || closed_) {
    result.Set(kDLFailure, 0, CacheDownloadFilter::kNotReadableSubCode);
    return result;
  }
  if (store_->GetPosition() >= store_->GetTotalSize()) {
    result.Set(kDLEndOfData, 0, 0);
    return result;
  }
  int64_t loaded = store_->Load(packet.GetBuffer(), packet.GetSize());
  DL_LOGT << "data store load data with desire:" << packet.GetSize() << ", result size:" << loaded;
  if (loaded > 0) {
    result.Set(kDLSuccess, static_cast<uint64_t>(loaded), 0);
  } else {
    result.Set(kDLFailure, 0, CacheDownloadFilter::kNotReadableSubCode);
  }
  return result;
}

DLResultCode CacheDownloadExecutor::Seek(int64_t offset) {
  if (!opened_ || closed_ || !store_->Seek(offset)) {
    return DLResultCode(kDLFailure, CacheDownloadFilter::kNotReadableSubCode);
  }
  return DLResultCode(kDLSuccess, 0);
}

int64_t CacheDownloadExecutor::GetFileSize() { return opened_ ? store_->GetTotalSize() : 0; }

DLResultCode CacheDownloadExecutor::Close() {
  closed_ = true;
  return DLResultCode(kDLSuccess, 0);
}

void CacheDownloadExecutor::SetHint(const std::string& /*hint*/) {}

std::string CacheDownloadExecutor::GetInfo(const std::string& key) {
  if (key == "is_loaded_from_cache") return "1";
  if (key == "downloaded_size") return std::to_string(store_ ? store_->GetDownloadedSize() : 0);
  if (key == "executor_name") return "cache_download_filter";
  return std::string();
}

}  // namespace downloader
