#include <downloader/Filter/IDownloadFilter.h>

#include <utility>

namespace downloader {

IDownloadFilter::IDownloadFilter() = default;

IDownloadFilter::IDownloadFilter(const IDownloadFilter& other) = default;

IDownloadFilter& IDownloadFilter::operator=(const IDownloadFilter& other) = default;

IDownloadFilter::~IDownloadFilter() = default;

void IDownloadFilter::SetConfigure(std::shared_ptr<protocols::IConfigure> config) { config_ = std::move(config); }

void IDownloadFilter::SetReporter(std::shared_ptr<protocols::IReporter> reporter) {
  reporter_ = std::move(reporter);
}

}  // namespace downloader
