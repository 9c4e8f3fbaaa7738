// One download level of a pipeline. When a stream needs bytes it walks the
// levels in order, asks each filter whether it serves the URI
// (ShouldRespond) and has the first willing one create an executor
// (AcquireExecutor).
//
// Thread rules: the pipeline hands the configuration and the reporter in
// before or between streams (SetConfigure, SetReporter); streams call
// ShouldRespond and AcquireExecutor from their own threads, concurrently.
// Implementations must not change their own state in those two calls, or
// must guard it.
//
// Edge cases: ShouldRespond with a null URI refuses (code 1); a filter
// without a configuration uses every setting's default.
#ifndef DOWNLOADER_FILTER_IDOWNLOADFILTER_H_
#define DOWNLOADER_FILTER_IDOWNLOADFILTER_H_

#include <memory>

#include <downloader/Base/DLResultCode.h>
#include <downloader/Base/URI.h>
#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/IConfigure.h>
#include <downloader/Pipe/IReporter.h>

namespace downloader {

class IDownloadExecutor;
class IStream;

class DOWNLOADER_EXPORT IDownloadFilter {
 public:
  IDownloadFilter();
  IDownloadFilter(const IDownloadFilter& other);
  IDownloadFilter& operator=(const IDownloadFilter& other);
  virtual ~IDownloadFilter();

  // Code 0: this level serves `uri`; any other code: the stream skips this
  // level, the sub-code says why. `context` is the asking stream (may be
  // empty).
  virtual DLResultCode ShouldRespond(const std::shared_ptr<URI>& uri,
                                     const std::shared_ptr<IStream>& context) = 0;
  // A new, unopened executor for `uri`.
  virtual std::shared_ptr<IDownloadExecutor> AcquireExecutor(const std::shared_ptr<URI>& uri) = 0;
  virtual void SetConfigure(std::shared_ptr<protocols::IConfigure> config);
  virtual void SetReporter(std::shared_ptr<protocols::IReporter> reporter);

 protected:
  std::shared_ptr<protocols::IConfigure> config_;
  std::shared_ptr<protocols::IReporter> reporter_;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_IDOWNLOADFILTER_H_
