// The whole public interface of the downloader library in one include.
#ifndef DOWNLOADER_DOWNLOADER_H_
#define DOWNLOADER_DOWNLOADER_H_

#include <downloader/DownloaderExport.h>
#include <downloader/Utils/Logging.h>
#include <downloader/Version.h>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Base/BufferQueue.h>
#include <downloader/Base/DLReadResult.h>
#include <downloader/Base/DLResultCode.h>
#include <downloader/Base/HeartPacemaker.h>
#include <downloader/Base/Packet.h>
#include <downloader/Base/PacemakerParams.h>
#include <downloader/Base/URI.h>
#include <downloader/Base/URIBuilder.h>
#include <downloader/Base/URIIdentifier.h>

#include <downloader/Cache/FileDownloader.h>

#include <downloader/Filter/DLDownloadLevel.h>
#include <downloader/Filter/IDownloadExecutor.h>
#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Filter/LocalFileExecutor.h>
#include <downloader/Filter/LocalFileFilter.h>
#include <downloader/Filter/PcdnDownloadExecutor.h>
#include <downloader/Filter/WispDownloadExecutor.h>
#include <downloader/Filter/WispDownloadFilter.h>
#include <downloader/Filter/SubCode.h>

#include <downloader/Impls/IStream.h>

#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/DownloadManager.h>
#include <downloader/Pipe/DownloadPipeline.h>
#include <downloader/Pipe/IConfigure.h>
#include <downloader/Pipe/IReporter.h>
#include <downloader/Pipe/ITunnel.h>
#include <downloader/Pipe/ITunnelConfig.h>
#include <downloader/Pipe/KestrelDownloadPipeline.h>
#include <downloader/Pipe/KestrelTunnel.h>
#include <downloader/Pipe/PlayerState.h>
#include <downloader/Pipe/PseudoConfig.h>
#include <downloader/Pipe/PulseDataDef.h>
#include <downloader/Pipe/StatsStage.h>
#include <downloader/Pipe/TunnelFinder.h>

#include <downloader/Storage/CacheWriter.h>
#include <downloader/Storage/IDataStore.h>

#include <downloader/Stream/PcdnInterfaceHelper.h>
#include <downloader/Stream/XcdnInterfaceHelper.h>

#include <downloader/Strategy/BufferDrainCalculator.h>
#include <downloader/Strategy/DrainCalculator.h>
#include <downloader/Strategy/DrainCalculatorFactory.h>
#include <downloader/Strategy/FlowRateCalculator.h>
#include <downloader/Strategy/FlowRateControl.h>
#include <downloader/Strategy/PlayStateMonitor.h>
#include <downloader/Strategy/Source.h>

#endif  // DOWNLOADER_DOWNLOADER_H_
