// The ordered set of download filters through which the streams of one
// tunnel read: one filter per download level, visited in ascending level
// order. The pipeline has no data path of its own; it makes streams, wires
// them to itself (configuration, reporter, back-pointer), lets them visit the
// filters and passes their statistics events to the host's callback.
//
// Thread rules: the filter map is written only while a subclass constructs
// the pipeline, so AccessFilter takes no lock. Configuration, reporter and
// callback are set by the owning tunnel before or between streams; streams
// call AccessFilter and CommitStats from their own threads.
//
// Lifetime: every stream keeps a plain pointer to the pipeline that wired it,
// so the pipeline must outlive its streams (a tunnel guarantees it: its
// streams hold the tunnel, which owns the pipeline).
//
// Edge cases: a null filter is ignored; a second filter at a level already
// taken is not stored but still receives the configuration and reporter;
// AccessFilter with an empty visitor visits nothing; CommitStats without a
// callback does nothing.
#ifndef DOWNLOADER_PIPE_DOWNLOADPIPELINE_H_
#define DOWNLOADER_PIPE_DOWNLOADPIPELINE_H_

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Filter/DLDownloadLevel.h>
#include <downloader/Filter/IDownloadFilter.h>
#include <downloader/Impls/IStream.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/IReporter.h>
#include <downloader/Pipe/StatsStage.h>

namespace downloader {

class DOWNLOADER_EXPORT DownloadPipeline {
 public:
  // Returns true to stop the visit.
  using FilterVisitor = std::function<bool(DLDownloadLevel, IDownloadFilter*)>;
  using StatsCallback = std::function<void(StatsStage, const std::string&)>;

  DownloadPipeline();
  // Copies share the filter objects; none of them owns one.
  DownloadPipeline(const DownloadPipeline& other);
  DownloadPipeline& operator=(const DownloadPipeline& other);
  virtual ~DownloadPipeline();

  // A new RetryableStream, wired by ConfigStream.
  virtual std::shared_ptr<IStream> AcquireStream();
  virtual void ConfigStream(std::shared_ptr<IStream>& stream);
  // Drops the given reference only.
  virtual void ReleaseStream(std::shared_ptr<IStream> stream);

  // Not owned.
  void AddFilter(DLDownloadLevel level, IDownloadFilter* filter);
  void AccessFilter(const FilterVisitor& visitor);

  void SetConfigure(ConfigPtr config);
  void SetReporter(std::shared_ptr<protocols::IReporter> reporter);
  void SetStatsCallback(StatsCallback callback);
  void CommitStats(StatsStage stage, const std::string& text);

 private:
  // Runs after every filter has the new configuration.
  virtual void UpdateGlobalConfig(ConfigPtr config);

  // Written only while a subclass constructs the pipeline.
  std::map<DLDownloadLevel, IDownloadFilter*> filters_;
  // Set by the owning tunnel before or between streams.
  ConfigPtr config_;
  std::shared_ptr<protocols::IReporter> reporter_;
  StatsCallback statsCallback_;
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_DOWNLOADPIPELINE_H_
