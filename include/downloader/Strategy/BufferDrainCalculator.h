// A drain judgement from a ring of the last N reads and the player's buffer:
// the level drains when the bytes of the last N reads, scaled to one second
// over the time they took, are at or below `thresholdPercent`, and the buffer
// is unknown or below `bufferThresholdMs`.
//
// Until N reads have been recorded since construction or Reset, IsDrain is
// false. Thread rules as DrainCalculator; the description alone is guarded by
// mutex_ so that Describe may copy it while IsDrain replaces it.
#ifndef DOWNLOADER_STRATEGY_BUFFERDRAINCALCULATOR_H_
#define DOWNLOADER_STRATEGY_BUFFERDRAINCALCULATOR_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <downloader/DownloaderExport.h>
#include <downloader/Strategy/DrainCalculator.h>
#include <wisp/Mutex.h>

namespace downloader {

class DOWNLOADER_EXPORT BufferDrainCalculator : public DrainCalculator {
 public:
  using Clock = std::chrono::steady_clock;

  // A ring size below 1 is taken as 1.
  BufferDrainCalculator(int32_t ringSize, int32_t thresholdPercent, int32_t bufferThresholdMs);
  ~BufferDrainCalculator() override;

  bool IsDrain() override;
  void OnRead(uint64_t sample, int32_t value, uint64_t extra) override;
  void SetBuffer(int32_t bufferMs) override;
  void Reset() override;
  std::string Describe() override;

  // OnRead with an explicit time, for callers that already hold one.
  void RecordSample(uint64_t sample, Clock::time_point at);

 private:
  int32_t SlotOf(int32_t index) const { return index % ringSize_; }

  // Reading thread only.
  std::vector<uint64_t> sampleSizes_;
  std::vector<Clock::time_point> sampleTimes_;

  // Constant after construction.
  const int32_t ringSize_;
  const int32_t thresholdPercent_;
  const int32_t bufferThresholdMs_;

  // Reading thread only.
  int32_t currentBufferMs_ = -1;
  int32_t sampleIndex_ = -1;

  wisp::Mutex mutex_;
  std::string description_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_BUFFERDRAINCALCULATOR_H_
