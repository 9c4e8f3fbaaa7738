// The PCDN dispatcher at level 1 of a pipeline. It serves a request with a
// PcdnDownloadExecutor when the host has mapped the PCDN engine and the
// request may go through it; otherwise it refuses, naming why, so a stream
// moves on to the next level of its mask:
// - RPNA: no engine (not every engine function is bound);
// - RPNP: the user may not use P2P ("canUseP2P" of "downloader_info" false);
// - RPLU: a local file ("http://local.url");
// - RPFC: the request insists on the CDN (parameter "force_cdn");
// - RPM3: a playlist, unless "enable_m3u8_mp" lets playlists through.
//
// Thread rules: stateless beyond the configuration of IDownloadFilter; any
// stream thread.
#ifndef DOWNLOADER_FILTER_IPCDNDOWNLOADFILTER_H_
#define DOWNLOADER_FILTER_IPCDNDOWNLOADFILTER_H_

#include <memory>

#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Filter/SubCode.h>

namespace downloader {

class IPcdnDownloadFilter : public IDownloadFilter {
 public:
  static constexpr int64_t kNoEngineSubCode = FourCharSubCode('R', 'P', 'N', 'A');
  static constexpr int64_t kP2pNotAllowedSubCode = FourCharSubCode('R', 'P', 'N', 'P');
  static constexpr int64_t kLocalUrlSubCode = FourCharSubCode('R', 'P', 'L', 'U');
  static constexpr int64_t kForceCdnSubCode = FourCharSubCode('R', 'P', 'F', 'C');
  static constexpr int64_t kPlaylistSubCode = FourCharSubCode('R', 'P', 'M', '3');

  IPcdnDownloadFilter();
  ~IPcdnDownloadFilter() override;

  DLResultCode ShouldRespond(const std::shared_ptr<URI>& uri, const std::shared_ptr<IStream>& context) override;
  // A new PcdnDownloadExecutor; ask ShouldRespond first.
  std::shared_ptr<IDownloadExecutor> AcquireExecutor(const std::shared_ptr<URI>& uri) override;

 private:
  // The reason this request may not use the engine, or 0.
  int64_t RefusalOf(const URI& uri) const;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_IPCDNDOWNLOADFILTER_H_
