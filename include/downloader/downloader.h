// The whole public interface of the downloader library in one include.
#ifndef DOWNLOADER_DOWNLOADER_H_
#define DOWNLOADER_DOWNLOADER_H_

#include <downloader/DownloaderExport.h>
#include <downloader/Utils/Logging.h>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Base/BufferQueue.h>
#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/DLResultCode.h>
#include <downloader/Base/Packet.h>

#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/IConfigure.h>
#include <downloader/Pipe/IReporter.h>
#include <downloader/Pipe/PseudoConfig.h>

#endif  // DOWNLOADER_DOWNLOADER_H_
