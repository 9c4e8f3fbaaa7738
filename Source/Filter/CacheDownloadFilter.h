// The disk-cache level (0) of every pipeline, the first filter a stream asks.
// Requests that segment writing covers (SegmentCachePolicy) go to the segment
// filter; other plain requests are served from the cache writer's data store
// when "enable_preload" is on and the store is readable; playlists, local
// files and the muxed "flv.ts"/"mp4.ts" forms are refused as illegal.
//
// Thread rules: the configuration is set between streams (SetConfigure also
// configures the segment filter); ShouldRespond and AcquireExecutor run on any
// stream thread and change nothing.
#ifndef DOWNLOADER_FILTER_CACHEDOWNLOADFILTER_H_
#define DOWNLOADER_FILTER_CACHEDOWNLOADFILTER_H_

#include <memory>

#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Filter/SubCode.h>

#include "Filter/SegmentDownloadFilter.h"

namespace downloader {

class CacheDownloadFilter : public IDownloadFilter {
 public:
  // Not cacheable here.
  static constexpr int64_t kUnknownSubCode = FourCharSubCode('R', 'U', 'K', 'N');
  // No readable data store.
  static constexpr int64_t kNotReadableSubCode = FourCharSubCode('R', 'F', 'U', 'R');

  CacheDownloadFilter();
  ~CacheDownloadFilter() override;

  DLResultCode ShouldRespond(const std::shared_ptr<URI>& uri, const std::shared_ptr<IStream>& context) override;
  std::shared_ptr<IDownloadExecutor> AcquireExecutor(const std::shared_ptr<URI>& uri) override;
  void SetConfigure(std::shared_ptr<protocols::IConfigure> config) override;
  void SetReporter(std::shared_ptr<protocols::IReporter> reporter) override;

 private:
  SegmentDownloadFilter segmentFilter_;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_CACHEDOWNLOADFILTER_H_
