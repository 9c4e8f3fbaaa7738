#include <downloader/Strategy/PlayStateMonitor.h>
#include <wisp/Mutex.h>

namespace downloader {

PlayStateMonitor::PlayStateMonitor() = default;

PlayStateMonitor::~PlayStateMonitor() = default;

void PlayStateMonitor::OnPulseDataUpdated(const PulseData& data) {
  int bufferedMs = 0;
  int64_t bitRate = 0;
  bool hasBuffer = PulseDataDef<int>(kPulseBufferDurationKey).Read(data, &bufferedMs);
  bool hasBitRate = PulseDataDef<int64_t>(kPulseBitRateKey).Read(data, &bitRate);
  wisp::MutexLock lock(&mutex_);
  if (hasBuffer) bufferedDurationMs_ = bufferedMs;
  if (hasBitRate) bitRate_ = bitRate;
}

int32_t PlayStateMonitor::BufferedDurationMs() {
  wisp::MutexLock lock(&mutex_);
  return bufferedDurationMs_;
}

int64_t PlayStateMonitor::BitRate() {
  wisp::MutexLock lock(&mutex_);
  return bitRate_;
}

}  // namespace downloader
