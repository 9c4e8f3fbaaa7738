#include <downloader/Strategy/PlayStateMonitor.h>

namespace downloader {

PlayStateMonitor::PlayStateMonitor() = default;

PlayStateMonitor::~PlayStateMonitor() = default;

void PlayStateMonitor::OnPulseDataUpdated(const PulseData& data) {
  int bufferedMs = 0;
  int64_t bitRate = 0;
  bool hasBuffer = PulseDataDef<int>(kPulseBufferDurationKey).Read(data, &bufferedMs);
  bool hasBitRate = PulseDataDef<int64_t>(kPulseBitRateKey).Read(data, &bitRate);
  std::lock_guard<std::mutex> lock(mutex_);
  if (hasBuffer) bufferedDurationMs_ = bufferedMs;
  if (hasBitRate) bitRate_ = bitRate;
}

int32_t PlayStateMonitor::BufferedDurationMs() {
  std::lock_guard<std::mutex> lock(mutex_);
  return bufferedDurationMs_;
}

int64_t PlayStateMonitor::BitRate() {
  std::lock_guard<std::mutex> lock(mutex_);
  return bitRate_;
}

}  // namespace downloader
