#include <downloader/Pipe/DownloadPipeline.h>

#include <utility>

#include "Impls/RetryableStream.h"

namespace downloader {

DownloadPipeline::DownloadPipeline() = default;

DownloadPipeline::DownloadPipeline(const DownloadPipeline& other) = default;

DownloadPipeline& DownloadPipeline::operator=(const DownloadPipeline& other) = default;

DownloadPipeline::~DownloadPipeline() = default;

std::shared_ptr<IStream> DownloadPipeline::AcquireStream() {
  std::shared_ptr<IStream> stream = std::make_shared<RetryableStream>();
  ConfigStream(stream);
  return stream;
}

void DownloadPipeline::ConfigStream(std::shared_ptr<IStream>& stream) {
  if (!stream) return;
  stream->SetConfigure(config_);
  stream->SetReporter(reporter_);
  stream->SetPipeline(this);
}

void DownloadPipeline::ReleaseStream(std::shared_ptr<IStream> stream) { stream.reset(); }

void DownloadPipeline::AddFilter(DLDownloadLevel level, IDownloadFilter* filter) {
  if (filter == nullptr) return;
  filters_.emplace(level, filter);
  filter->SetConfigure(config_);
  filter->SetReporter(reporter_);
}

void DownloadPipeline::AccessFilter(const FilterVisitor& visitor) {
  if (!visitor) return;
  for (const auto& levelAndFilter : filters_) {
    if (visitor(levelAndFilter.first, levelAndFilter.second)) return;
  }
}

void DownloadPipeline::SetConfigure(ConfigPtr config) {
  config_ = config;
  for (const auto& levelAndFilter : filters_) levelAndFilter.second->SetConfigure(config_);
  UpdateGlobalConfig(std::move(config));
}

void DownloadPipeline::SetReporter(std::shared_ptr<protocols::IReporter> reporter) {
  reporter_ = std::move(reporter);
}

void DownloadPipeline::SetStatsCallback(StatsCallback callback) { statsCallback_ = std::move(callback); }

void DownloadPipeline::CommitStats(StatsStage stage, const std::string& text) {
  if (statsCallback_) statsCallback_(stage, text);
}

void DownloadPipeline::UpdateGlobalConfig(ConfigPtr /*config*/) {}

}  // namespace downloader
