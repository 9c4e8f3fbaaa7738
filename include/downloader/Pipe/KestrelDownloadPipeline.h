// The library's pipeline: the disk cache at level 0, the PCDN dispatcher at
// level 1, local files at level 2 and HTTP at level 4, each filter made and
// owned here. A tunnel creates one for itself.
//
// Thread rules and lifetime as DownloadPipeline. Not copyable: it owns its
// filters.
#ifndef DOWNLOADER_PIPE_KESTRELDOWNLOADPIPELINE_H_
#define DOWNLOADER_PIPE_KESTRELDOWNLOADPIPELINE_H_

#include <memory>

#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/DownloadPipeline.h>

namespace downloader {

class DOWNLOADER_EXPORT KestrelDownloadPipeline : public DownloadPipeline {
 public:
  KestrelDownloadPipeline();
  KestrelDownloadPipeline(const KestrelDownloadPipeline&) = delete;
  KestrelDownloadPipeline& operator=(const KestrelDownloadPipeline&) = delete;
  ~KestrelDownloadPipeline() override;

 private:
  void UpdateGlobalConfig(ConfigPtr config) override;

  // Constant after construction; destroyed in this order.
  std::unique_ptr<IDownloadFilter> cacheFilter_;
  std::unique_ptr<IDownloadFilter> pcdnFilter_;
  std::unique_ptr<IDownloadFilter> localFileFilter_;
  std::unique_ptr<IDownloadFilter> httpFilter_;
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_KESTRELDOWNLOADPIPELINE_H_
