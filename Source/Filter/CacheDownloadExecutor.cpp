#include "Filter/CacheDownloadExecutor.h"

#include <utility>

#include "Filter/CacheDownloadFilter.h"
#include "Utils/log/LogMessage.h"

namespace downloader {

CacheDownloadExecutor::CacheDownloadExecutor(ConfigPtr config, std::shared_ptr<URI> uri,
                                             std::shared_ptr<storage::IDataStore> store)
    : config_(std::move(config)), uri_(std::move(uri)), store_(std::move(store)) {}

CacheDownloadExecutor::~CacheDownloadExecutor() = default;

DLResultCode CacheDownloadExecutor::Open(const std::shared_ptr<URI>& uri) {
  const std::shared_ptr<URI>& request = uri ? uri : uri_;
  int64_t downloadedSize = store_->GetDownloadedSize();
  int64_t rangeStart = ReadParamInt64(request->GetParams(), "range_start", 0);
  if (ReadConfigBool(config_, kDownloaderConfigGroup, "enable_cache_filter_range_start", false) && rangeStart > 0) {
    if (rangeStart <= downloadedSize && store_->Seek(rangeStart)) {
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

int64_t CacheDownloadExecutor::GetFileSize() { return store_->GetTotalSize(); }

DLResultCode CacheDownloadExecutor::Close() {
  closed_ = true;
  return DLResultCode(kDLSuccess, 0);
}

void CacheDownloadExecutor::SetHint(const std::string& /*hint*/) {}

std::string CacheDownloadExecutor::GetInfo(const std::string& key) {
  if (key == "is_loaded_from_cache") return "1";
  if (key == "downloaded_size") return std::to_string(store_->GetDownloadedSize());
  if (key == "executor_name") return "cache_download_filter";
  return std::string();
}

}  // namespace downloader
