#include <downloader/Filter/WispDownloadFilter.h>

#include <downloader/Filter/WispDownloadExecutor.h>
#include <downloader/Pipe/ConfigReader.h>

#include "Base/RequestKind.h"
#include "Base/Settings.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

// The host keeps this resource in its cache only; it is never fetched.
constexpr int32_t kCacheOnlyType = 1;

}  // namespace

WispDownloadFilter::WispDownloadFilter() = default;

WispDownloadFilter::~WispDownloadFilter() = default;

DLResultCode WispDownloadFilter::ShouldRespond(const std::shared_ptr<URI>& uri,
                                               const std::shared_ptr<IStream>& /*context*/) {
  if (uri == nullptr || RequestKind::Of(uri->GetStringRep()).localFile) {
    return DLResultCode(kDLFailure, kRefusedSubCode);
  }
  const int32_t cacheType = RequestParams::Read(uri->GetParams()).cacheType;
  DL_LOGD << "cache_type:" << cacheType;
  if (cacheType == kCacheOnlyType) return DLResultCode(kDLFailure, kRefusedSubCode);
  return DLResultCode(kDLSuccess, 0);
}

std::shared_ptr<IDownloadExecutor> WispDownloadFilter::AcquireExecutor(const std::shared_ptr<URI>& uri) {
  return std::make_shared<WispDownloadExecutor>(config_, reporter_, uri);
}

}  // namespace downloader
