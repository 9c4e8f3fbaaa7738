#include "Filter/IPcdnDownloadFilter.h"

#include "Utils/log/LogMessage.h"

namespace downloader {

IPcdnDownloadFilter::IPcdnDownloadFilter() = default;

IPcdnDownloadFilter::~IPcdnDownloadFilter() = default;

DLResultCode IPcdnDownloadFilter::ShouldRespond(const std::shared_ptr<URI>& uri,
                                                const std::shared_ptr<IStream>& /*context*/) {
  DL_LOGD << "pcdn filter refuses, no engine, url:" << (uri ? uri->GetStringRep() : std::string());
  return DLResultCode(kDLFailure, kNoEngineSubCode);
}

std::shared_ptr<IDownloadExecutor> IPcdnDownloadFilter::AcquireExecutor(const std::shared_ptr<URI>& /*uri*/) {
  return nullptr;
}

}  // namespace downloader
