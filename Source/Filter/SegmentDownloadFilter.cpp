#include "Filter/SegmentDownloadFilter.h"

#include "Filter/SegmentDownloadExecutor.h"
#include "Storage/SegmentCachePolicy.h"
#include "Utils/log/LogMessage.h"

namespace downloader {

SegmentDownloadFilter::SegmentDownloadFilter() = default;

SegmentDownloadFilter::~SegmentDownloadFilter() = default;

DLResultCode SegmentDownloadFilter::ShouldRespond(const std::shared_ptr<URI>& uri,
                                                  const std::shared_ptr<IStream>& /*context*/) {
  if (!uri || storage::SegmentCachePolicy::IsPlaylistOrLocal(uri->GetStringRep())) {
    DL_LOGD << "[diskcache]segmentdownloadfilter,shouldrespond,invalid url:" << (uri ? uri->GetStringRep() : "");
    return DLResultCode(kDLFailure, kInvalidUrlSubCode);
  }
  DL_LOGD << "[diskcache]segmentdownloadfilter,shouldrespond,valid url:" << uri->GetStringRep();
  return DLResultCode(kDLSuccess, 0);
}

std::shared_ptr<IDownloadExecutor> SegmentDownloadFilter::AcquireExecutor(const std::shared_ptr<URI>& uri) {
  return std::make_shared<SegmentDownloadExecutor>(config_, uri);
}

}  // namespace downloader
