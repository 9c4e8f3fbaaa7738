#include <downloader/Strategy/BufferDrainCalculator.h>
#include <wisp/Mutex.h>

#include <limits>

#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr double kOneSecondMs = 1000;
constexpr int32_t kUnknownBuffer = -1;

int32_t AtLeastOne(int32_t ringSize) { return ringSize < 1 ? 1 : ringSize; }

int32_t TruncateToInt32(double value) {
  if (value >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
    return std::numeric_limits<int32_t>::max();
  }
  if (value <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
    return std::numeric_limits<int32_t>::min();
  }
  return static_cast<int32_t>(value);
}

}  // namespace

BufferDrainCalculator::BufferDrainCalculator(int32_t ringSize, int32_t thresholdPercent,
                                             int32_t bufferThresholdMs)
    : sampleSizes_(AtLeastOne(ringSize)),
      sampleTimes_(AtLeastOne(ringSize)),
      ringSize_(AtLeastOne(ringSize)),
      thresholdPercent_(thresholdPercent),
      bufferThresholdMs_(bufferThresholdMs) {}

BufferDrainCalculator::~BufferDrainCalculator() = default;

void BufferDrainCalculator::OnRead(uint64_t sample, int32_t /*value*/, uint64_t /*extra*/) {
  RecordSample(sample, LibraryContext::Current().clock().Now());
}

void BufferDrainCalculator::RecordSample(uint64_t sample, Clock::time_point at) {
  ++sampleIndex_;
  // Keep the index bounded on endless streams without changing its slot or
  // its warmed-up state.
  if (sampleIndex_ >= 2 * ringSize_) sampleIndex_ -= ringSize_;
  int32_t slot = SlotOf(sampleIndex_);
  sampleTimes_[slot] = at;
  sampleSizes_[slot] = sample;
}

void BufferDrainCalculator::SetBuffer(int32_t bufferMs) { currentBufferMs_ = bufferMs; }

void BufferDrainCalculator::Reset() {
  sampleIndex_ = -1;
  sampleSizes_.assign(ringSize_, 0);
  sampleTimes_.assign(ringSize_, Clock::time_point());
}

std::string BufferDrainCalculator::Describe() {
  wisp::MutexLock lock(&mutex_);
  return description_;
}

bool BufferDrainCalculator::IsDrain() {
  if (sampleIndex_ < ringSize_ - 1) return false;
  Clock::time_point newest = sampleTimes_[SlotOf(sampleIndex_)];
  // The slot the next sample overwrites holds the oldest of the ring.
  Clock::time_point oldest = sampleTimes_[SlotOf(sampleIndex_ + 1)];
  // Whole milliseconds: reads within one millisecond count as one.
  double readDurationMs = static_cast<double>(
      std::chrono::duration_cast<std::chrono::milliseconds>(newest - oldest).count());
  if (readDurationMs == 0) readDurationMs = 1.0;
  double totalRead = 0;
  for (uint64_t size : sampleSizes_) totalRead += static_cast<double>(size);
  int32_t currentPercent = TruncateToInt32(kOneSecondMs / readDurationMs * totalRead);
  DL_LOGD << "total_read:" << totalRead << ", read_duration:" << readDurationMs
          << ", one_second:" << kOneSecondMs << ", current_percent:" << currentPercent;

  bool bufferLow = currentBufferMs_ == kUnknownBuffer || currentBufferMs_ < bufferThresholdMs_;
  bool drain = bufferLow && currentPercent <= thresholdPercent_;
  std::string description = "donwload_" + std::to_string(drain ? 1 : 0) + "_buffer_" +
                            std::to_string(currentBufferMs_) + "_buffer_threshold_t_" +
                            std::to_string(bufferThresholdMs_) + "_cur_percent_" +
                            std::to_string(currentPercent) + "_threshold_percent_" +
                            std::to_string(thresholdPercent_);
  {
    wisp::MutexLock lock(&mutex_);
    description_.swap(description);
  }
  return drain;
}

}  // namespace downloader
