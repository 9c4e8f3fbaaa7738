// Process-wide figures of the HTTP level that outlive its executors: the
// bytes fetched from the CDN (the download manager's parameter 4009) and the
// speed of the last request that ended (the base of the next request's speed
// limit).
//
// One per library context (the static functions reach the current one's).
//
// Lock-free; any thread.
#ifndef DOWNLOADER_FILTER_WISPTOTALS_H_
#define DOWNLOADER_FILTER_WISPTOTALS_H_

#include <atomic>
#include <cstdint>

namespace downloader {

class WispTotals {
 public:
  WispTotals() = default;
  WispTotals(const WispTotals&) = delete;
  WispTotals& operator=(const WispTotals&) = delete;

  static void AddCdnBytes(uint64_t bytes);
  static uint64_t CdnBytes();

  // Bytes per second; 0 before any request ended with data.
  static void SetLastDownloadSpeed(int64_t bytesPerSecond);
  static int64_t LastDownloadSpeed();

 private:
  static WispTotals& Current();

  std::atomic<uint64_t> cdnBytes_{0};
  std::atomic<int64_t> lastDownloadSpeed_{0};
};

}  // namespace downloader

#endif  // DOWNLOADER_FILTER_WISPTOTALS_H_
