// The statistics a stream shares with the executors it opens
// (IDownloadExecutor::SetStatsSink): executors count the bytes their channel
// delivers as they arrive, on whatever thread receives them, so that the
// stream can report what came in beside what the player read.
//
// Thread rules: any thread; the counters are atomic.
#ifndef DOWNLOADER_BASE_STREAMSTATS_H_
#define DOWNLOADER_BASE_STREAMSTATS_H_

#include <atomic>
#include <cstdint>

namespace downloader {

class StreamStats {
 public:
  void AddInletBytes(uint64_t bytes) { inletBytes_.fetch_add(bytes, std::memory_order_relaxed); }
  uint64_t InletBytes() const { return inletBytes_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> inletBytes_{0};
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_STREAMSTATS_H_
