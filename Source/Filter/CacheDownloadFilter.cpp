#include "Filter/CacheDownloadFilter.h"

#include <utility>

#include <downloader/Storage/CacheWriter.h>

#include "Base/Settings.h"
#include "Filter/CacheDownloadExecutor.h"
#include "Storage/SegmentCachePolicy.h"
#include "Utils/log/LogMessage.h"

namespace downloader {

static_assert(CacheDownloadFilter::kUnknownSubCode == -1313559890, "RUKN");

CacheDownloadFilter::CacheDownloadFilter() = default;

CacheDownloadFilter::~CacheDownloadFilter() = default;

void CacheDownloadFilter::SetConfigure(std::shared_ptr<protocols::IConfigure> config) {
  segmentFilter_.SetConfigure(config);
  IDownloadFilter::SetConfigure(std::move(config));
}

void CacheDownloadFilter::SetReporter(std::shared_ptr<protocols::IReporter> reporter) {
  segmentFilter_.SetReporter(reporter);
  IDownloadFilter::SetReporter(std::move(reporter));
}

DLResultCode CacheDownloadFilter::ShouldRespond(const std::shared_ptr<URI>& uri,
                                                const std::shared_ptr<IStream>& context) {
  DLResultCode refusal(kDLFailure, kUnknownSubCode);
  if (!uri) return refusal;
  const std::string& url = uri->GetStringRep();
  if (storage::SegmentCachePolicy::Applies(config_, url)) return segmentFilter_.ShouldRespond(uri, context);
  if (!storage::SegmentCachePolicy::IsPlainUrl(url)) {
    DL_LOGD << "CacheDownloadFilter,file illegal:" << url;
    return refusal;
  }
  std::shared_ptr<storage::IDataStore> store;
  if (DownloaderSettings::Read(config_).enablePreload) {
    store = storage::CacheWriter::AcquireDataStore(config_, uri);
    DL_LOGD << "memory data store:" << (store ? "not nullptr" : "nullptr");
  }
  DLResultCode answer(kDLFailure, kNotReadableSubCode);
  if (store && store->IsReadable()) {
    DL_LOGD << "CacheDownloadFilter,file readable:" << url;
    answer = DLResultCode(kDLSuccess, 0);
  } else {
    DL_LOGD << "CacheDownloadFilter,file not readable:" << url;
  }
  DL_LOGD << "result:" << answer.code;
  return answer;
}

std::shared_ptr<IDownloadExecutor> CacheDownloadFilter::AcquireExecutor(const std::shared_ptr<URI>& uri) {
  if (!uri) return nullptr;
  if (storage::SegmentCachePolicy::Applies(config_, uri->GetStringRep())) return segmentFilter_.AcquireExecutor(uri);
  return std::make_shared<CacheDownloadExecutor>(config_, uri, storage::CacheWriter::AcquireDataStore(config_, uri));
}

}  // namespace downloader
