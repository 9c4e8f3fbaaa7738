#include "Impls/DownloadLevels.h"

#include "Base/RequestKind.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

uint32_t LowestBit(uint32_t mask) { return mask & (~mask + 1); }

}  // namespace

uint32_t DownloadLevels::RequiredMask(const ConfigPtr& config, const StreamParams& params, const std::string& url) {
  return RequiredMask(DownloaderSettings::Read(config), RequestParams::Read(params), url);
}

uint32_t DownloadLevels::RequiredMask(const DownloaderSettings& settings, const RequestParams& request,
                                      const std::string& url) {
  uint32_t mask = static_cast<uint32_t>(settings.downloadLevelMask);
  DL_LOGD << "GetRequireLevel config:" << mask;
  if (request.downloadLevel) {
    mask = static_cast<uint32_t>(*request.downloadLevel);
    DL_LOGD << "GetRequireLevel uri:" << mask;
  }
  int32_t cacheType = request.cacheType;
  if (cacheType > 0) {
    mask |= kDLLevelPcdn;
    DL_LOGD << "GetRequireLevel cachetype:" << cacheType << ", mask:" << mask;
  }
  bool hasPlaylist = request.playlistUrl.has_value();
  bool isLive = request.isLive;
  const RequestKind kind = RequestKind::Of(url);
  bool isLocal = kind.localFile;
  bool isAd = kind.advertisement;
  bool pcdnOnly = settings.usePcdnNgDisableDowngrade;
  DL_LOGD << "GetRequireLevel m3u8_url:" << hasPlaylist << ", is_live:" << isLive << ", local:" << isLocal
          << ", ad:" << isAd << ", pcdn only:" << pcdnOnly;
  if (pcdnOnly && !isLive && !isLocal && !isAd) return kPcdnOnly;
  return mask | kAlwaysAvailable;
}

DLDownloadLevel DownloadLevels::Next(DLDownloadLevel current, uint32_t mask, bool forbidDowngrade,
                                     bool* forbiddenHit) {
  uint32_t next = kDLLevelPcdn;
  if (current != kDLLevelCache) {
    next = static_cast<uint32_t>(current);
    do {
      next <<= 1;
    } while (mask != 0 && (next & mask) == 0 && next < mask);
    if (next > mask) {
      if (forbidDowngrade) {
        *forbiddenHit = true;
        next = static_cast<uint32_t>(current);
      } else {
        next = LowestBit(mask);
      }
    }
  }
  DL_LOGD << "] next level:" << next << ", available level:" << mask << ", current level:" << current;
  return static_cast<DLDownloadLevel>(next);
}

bool DownloadLevels::FilterServes(DLDownloadLevel filterLevel, DLDownloadLevel wanted) {
  return (static_cast<uint32_t>(wanted) & static_cast<uint32_t>(filterLevel)) == static_cast<uint32_t>(wanted);
}

}  // namespace downloader
