#include <downloader/Filter/LocalFileFilter.h>

#include <downloader/Filter/LocalFileExecutor.h>

namespace downloader {

LocalFileFilter::LocalFileFilter() = default;

LocalFileFilter::~LocalFileFilter() = default;

DLResultCode LocalFileFilter::ShouldRespond(const std::shared_ptr<URI>& uri,
                                            const std::shared_ptr<IStream>& /*context*/) {
  if (uri != nullptr && uri->GetStringRep().find(kLocalUrlPrefix) != std::string::npos) {
    return DLResultCode(kDLSuccess, 0);
  }
  return DLResultCode(kDLFailure, kNotLocalUrlSubCode);
}

std::shared_ptr<IDownloadExecutor> LocalFileFilter::AcquireExecutor(const std::shared_ptr<URI>& /*uri*/) {
  return std::make_shared<LocalFileExecutor>();
}

}  // namespace downloader
