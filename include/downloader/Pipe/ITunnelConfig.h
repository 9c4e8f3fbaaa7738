// How a host sets up a tunnel: the interval of its periodic work (pulse and
// statistics, one second by default) and a free-form tag the host may use to
// tell its tunnels apart in logs.
#ifndef DOWNLOADER_PIPE_ITUNNELCONFIG_H_
#define DOWNLOADER_PIPE_ITUNNELCONFIG_H_

#include <cstdint>
#include <string>

#include <downloader/DownloaderExport.h>

namespace downloader {

struct DOWNLOADER_EXPORT ITunnelConfig {
  static constexpr int64_t kDefaultIntervalMs = 1000;

  ITunnelConfig();
  ITunnelConfig(const ITunnelConfig& other);
  ITunnelConfig(ITunnelConfig&& other) noexcept;
  ITunnelConfig& operator=(const ITunnelConfig& other);
  ITunnelConfig& operator=(ITunnelConfig&& other) noexcept;
  ~ITunnelConfig();

  int64_t intervalMs;
  std::string tag;
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_ITUNNELCONFIG_H_
