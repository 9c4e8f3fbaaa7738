// The PCDN dispatcher at level 1 of a pipeline. Until a PCDN engine is bound
// it refuses every request (sub-code RPNA: no PCDN engine available), so a
// stream moves on to the next level of its mask.
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

  IPcdnDownloadFilter();
  ~IPcdnDownloadFilter() override;

  DLResultCode ShouldRespond(const std::shared_ptr<URI>& uri, const std::shared_ptr<IStream>& context) override;
  // Empty: no request is ever accepted.
  std::shared_ptr<IDownloadExecutor> AcquireExecutor(const std::shared_ptr<URI>& uri) override;
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_IPCDNDOWNLOADFILTER_H_
