// The HTTP level, the last of a pipeline: it serves every URL that no other
// level serves, through the wisp network library. It refuses (RLAD) the
// placeholder URLs of local resources ("http://local.url...") and the
// resources the host marked cache-only ("cache_type" 1).
//
// Thread rules: those of IDownloadFilter; it keeps no state of its own.
#ifndef DOWNLOADER_FILTER_WISPDOWNLOADFILTER_H_
#define DOWNLOADER_FILTER_WISPDOWNLOADFILTER_H_

#include <cstdint>
#include <memory>

#include <downloader/DownloaderExport.h>
#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Filter/SubCode.h>

namespace downloader {

class DOWNLOADER_EXPORT WispDownloadFilter : public IDownloadFilter {
 public:
  // "RLAD": the resource is not to be fetched over HTTP.
  static constexpr int64_t kRefusedSubCode = FourCharSubCode('R', 'L', 'A', 'D');

  WispDownloadFilter();
  ~WispDownloadFilter() override;

  DLResultCode ShouldRespond(const std::shared_ptr<URI>& uri, const std::shared_ptr<IStream>& context) override;
  // A WispDownloadExecutor with this filter's configuration and reporter.
  std::shared_ptr<IDownloadExecutor> AcquireExecutor(const std::shared_ptr<URI>& uri) override;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPDOWNLOADFILTER_H_
