// The whole public interface of the downloader library in one include.
#ifndef DOWNLOADER_DOWNLOADER_H_
#define DOWNLOADER_DOWNLOADER_H_

#include <downloader/DownloaderExport.h>
#include <downloader/Utils/Logging.h>

#endif  // DOWNLOADER_DOWNLOADER_H_
