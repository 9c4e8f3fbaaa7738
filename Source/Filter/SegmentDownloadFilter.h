// The segment level of the disk cache: serves a request from the segment file
// that a stream's segment writer stored for it. Playlists and local files are
// never served from segments.
//
// Thread rules: stateless beyond the configuration of IDownloadFilter; any
// stream thread.
#ifndef DOWNLOADER_FILTER_SEGMENTDOWNLOADFILTER_H_
#define DOWNLOADER_FILTER_SEGMENTDOWNLOADFILTER_H_

#include <memory>

#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Filter/SubCode.h>

namespace downloader {

class SegmentDownloadFilter : public IDownloadFilter {
 public:
  static constexpr int64_t kInvalidUrlSubCode = FourCharSubCode('R', 'S', 'I', 'U');

  SegmentDownloadFilter();
  ~SegmentDownloadFilter() override;

  DLResultCode ShouldRespond(const std::shared_ptr<URI>& uri, const std::shared_ptr<IStream>& context) override;
  std::shared_ptr<IDownloadExecutor> AcquireExecutor(const std::shared_ptr<URI>& uri) override;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_SEGMENTDOWNLOADFILTER_H_
