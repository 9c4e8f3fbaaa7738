#include "Filter/IPcdnDownloadFilter.h"

#include <downloader/Filter/PcdnDownloadExecutor.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Base/RequestKind.h"
#include "Base/Settings.h"
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
  const DownloaderSettings settings = DownloaderSettings::Read(config_);
  if (!settings.canUseP2p) return kP2pNotAllowedSubCode;
  if (RequestKind::Of(uri.GetStringRep()).localFile) return kLocalUrlSubCode;
  if (RequestParams::Read(uri.GetParams()).forceCdn) return kForceCdnSubCode;
  if (uri.ResolveUrlType() == kDLUrlM3u8 && !settings.enableM3u8Mp) {
    return kPlaylistSubCode;
  }
  return 0;
}

std::shared_ptr<IDownloadExecutor> IPcdnDownloadFilter::AcquireExecutor(const std::shared_ptr<URI>& /*uri*/) {
  return std::make_shared<PcdnDownloadExecutor>(config_, reporter_);
}

}  // namespace downloader
