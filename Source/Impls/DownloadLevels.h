// The level arithmetic of a stream: which download levels a request may use
// (its mask, one bit per level value) and which level comes after a given
// one.
//
// The mask starts from "download_level" (setting, default 7), replaced by the
// request's own "download_level"; a positive "cache_type" adds the PCDN bit.
// With "use_pcdn_ng_disable_downgrade" on, a request that is not live, not a
// local file and not an advertisement reads from PCDN alone (mask 1, no
// downgrade); any other request always may use the local-file and HTTP levels
// (mask | 6).
//
// The next level after the disk cache (0) is 1; after any other level it is
// the next higher bit of the mask; past the highest bit it wraps to the
// lowest, unless downgrades are forbidden, in which case the level stays and
// the caller is told that the forbidden path was hit.
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_IMPLS_DOWNLOADLEVELS_H_
#define DOWNLOADER_IMPLS_DOWNLOADLEVELS_H_

#include <cstdint>
#include <string>

#include <downloader/Filter/DLDownloadLevel.h>
#include <downloader/Pipe/ConfigReader.h>

#include "Base/Settings.h"

namespace downloader {

class DownloadLevels {
 public:
  static constexpr uint32_t kAlwaysAvailable = kDLLevelLocalFile | kDLLevelHttp;
  static constexpr uint32_t kPcdnOnly = kDLLevelPcdn;

  static uint32_t RequiredMask(const ConfigPtr& config, const StreamParams& params, const std::string& url);
  static uint32_t RequiredMask(const DownloaderSettings& settings, const RequestParams& request,
                               const std::string& url);
  // `*forbiddenHit` is set when a forbidden downgrade kept the level.
  static DLDownloadLevel Next(DLDownloadLevel current, uint32_t mask, bool forbidDowngrade, bool* forbiddenHit);
  // True when `wanted` may be served by a filter installed at `filterLevel`:
  // every bit of the wanted level is one of the filter's (so level 0 matches
  // any filter, and the first one visited takes it).
  static bool FilterServes(DLDownloadLevel filterLevel, DLDownloadLevel wanted);
};

}  // namespace downloader

#endif  // DOWNLOADER_IMPLS_DOWNLOADLEVELS_H_
