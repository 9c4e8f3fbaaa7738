// The delivery channels of a pipeline, in the order the pipeline visits them.
// The values double as bits of a stream's level mask ("download_level",
// default 7), so they are part of the contract.
#ifndef DOWNLOADER_FILTER_DLDOWNLOADLEVEL_H_
#define DOWNLOADER_FILTER_DLDOWNLOADLEVEL_H_

#include <cstdint>

enum DLDownloadLevel : int32_t {
  kDLLevelCache = 0,      // the library's disk cache
  kDLLevelPcdn = 1,       // a peer-assisted CDN engine
  kDLLevelLocalFile = 2,  // a file already on the device ("http://local.url" + path)
  kDLLevelSpare = 3,      // no filter is ever installed here
  kDLLevelHttp = 4,       // HTTP through wisp
};

#endif  // DOWNLOADER_FILTER_DLDOWNLOADLEVEL_H_
