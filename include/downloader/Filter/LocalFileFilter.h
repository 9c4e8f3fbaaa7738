// The local-file level: serves the resources that already exist as files on
// the device, which the host names "http://local.url" followed by the file's
// path. Every other URL is refused with RNLU.
//
// Thread rules: those of IDownloadFilter; it keeps no state of its own.
#ifndef DOWNLOADER_FILTER_LOCALFILEFILTER_H_
#define DOWNLOADER_FILTER_LOCALFILEFILTER_H_

#include <cstdint>
#include <memory>

#include <downloader/DownloaderExport.h>
#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Filter/SubCode.h>

namespace downloader {

class DOWNLOADER_EXPORT LocalFileFilter : public IDownloadFilter {
 public:
  // The placeholder prefix of local resources; the file's path follows it.
  static constexpr const char kLocalUrlPrefix[] = "http://local.url";
  // "RNLU": the URL is not a local one.
  static constexpr int64_t kNotLocalUrlSubCode = FourCharSubCode('R', 'N', 'L', 'U');

  LocalFileFilter();
  ~LocalFileFilter() override;

  DLResultCode ShouldRespond(const std::shared_ptr<URI>& uri, const std::shared_ptr<IStream>& context) override;
  // The URI reaches the executor through Open.
  std::shared_ptr<IDownloadExecutor> AcquireExecutor(const std::shared_ptr<URI>& uri) override;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_LOCALFILEFILTER_H_
