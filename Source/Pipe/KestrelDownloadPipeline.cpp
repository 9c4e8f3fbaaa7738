#include <downloader/Pipe/KestrelDownloadPipeline.h>

#include "Filter/CacheDownloadFilter.h"
#include "Filter/IPcdnDownloadFilter.h"

namespace downloader {

KestrelDownloadPipeline::KestrelDownloadPipeline()
    : cacheFilter_(new CacheDownloadFilter()), pcdnFilter_(new IPcdnDownloadFilter()) {
  AddFilter(kDLLevelCache, cacheFilter_.get());
  AddFilter(kDLLevelPcdn, pcdnFilter_.get());
  AddFilter(kDLLevelLocalFile, localFileFilter_.get());
  AddFilter(kDLLevelHttp, httpFilter_.get());
}

KestrelDownloadPipeline::~KestrelDownloadPipeline() {
  cacheFilter_.reset();
  pcdnFilter_.reset();
  localFileFilter_.reset();
  httpFilter_.reset();
}

void KestrelDownloadPipeline::UpdateGlobalConfig(ConfigPtr /*config*/) {}

}  // namespace downloader
