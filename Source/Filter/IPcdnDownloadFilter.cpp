#include "Filter/IPcdnDownloadFilter.h"

#include <downloader/Filter/PcdnDownloadExecutor.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Base/RequestKind.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {


}  // namespace

IPcdnDownloadFilter::IPcdnDownloadFilter() = default;

IPcdnDownloadFilter::~IPcdnDownloadFilter() = default;

DLResultCode IPcdnDownloadFilter::ShouldRespond(const std::shared_ptr<URI>& uri,
                                                const std::shared_ptr<IStream>& /*context*/) {
  if (uri == nullptr) return DLResultCode(kDLFailure, kNoEngineSubCode);
  const int64_t refusal = RefusalOf(*uri);
  if (refusal != 0) {
    DL_LOGD << "pcdn filter refuses " << SubCodeTag(refusal) << ", url:" << uri->GetStringRep();
    return DLResultCode(kDLFailure, refusal);
  }
  return DLResultCode(kDLSuccess, 0);
}

int64_t IPcdnDownloadFilter::RefusalOf(const URI& uri) const {
  if (!PcdnInterfaceHelper::EnsureSymbolLoaded()) return kNoEngineSubCode;
  if (!ReadConfigBool(config_, kDownloaderInfoGroup, "canUseP2P", true)) return kP2pNotAllowedSubCode;
  if (RequestKind::Of(uri.GetStringRep()).localFile) return kLocalUrlSubCode;
  if (ReadParamBool(uri.GetParams(), "force_cdn", false)) return kForceCdnSubCode;
  if (uri.ResolveUrlType() == kDLUrlM3u8 && !ReadConfigBool(config_, kDownloaderConfigGroup, "enable_m3u8_mp", false)) {
    return kPlaylistSubCode;
  }
  return 0;
}

std::shared_ptr<IDownloadExecutor> IPcdnDownloadFilter::AcquireExecutor(const std::shared_ptr<URI>& /*uri*/) {
  return std::make_shared<PcdnDownloadExecutor>(config_, reporter_);
}

}  // namespace downloader
