#include <downloader/Pipe/KestrelDownloadPipeline.h>

#include <downloader/Filter/LocalFileFilter.h>
#include <downloader/Filter/WispDownloadFilter.h>

#include "Filter/CacheDownloadFilter.h"
#include "Filter/IPcdnDownloadFilter.h"

namespace downloader {

KestrelDownloadPipeline::KestrelDownloadPipeline()
    : cacheFilter_(new CacheDownloadFilter()),
      pcdnFilter_(new IPcdnDownloadFilter()),
      localFileFilter_(new LocalFileFilter()),
      httpFilter_(new WispDownloadFilter()) {
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
