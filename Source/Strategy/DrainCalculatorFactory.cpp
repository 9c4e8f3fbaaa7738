#include <downloader/Strategy/DrainCalculatorFactory.h>

#include <downloader/Strategy/BufferDrainCalculator.h>
#include <downloader/Strategy/FlowRateCalculator.h>

namespace downloader {
namespace {

constexpr int32_t kDefaultRingSize = 3;
constexpr int32_t kDefaultThresholdPercent = 10;
constexpr int32_t kDefaultBufferThresholdMs = 20000;
constexpr int32_t kFlowRateCalculatorChoice = 1;
constexpr int32_t kDefaultCompareCount = 3;

}  // namespace

std::unique_ptr<DrainCalculator> DrainCalculatorFactory::Create(
    const ConfigPtr& config, const std::shared_ptr<FlowRateControl>& control) {
  int32_t choice = kFlowRateCalculatorChoice;
  int32_t ringSize = kDefaultRingSize;
  int32_t thresholdPercent = kDefaultThresholdPercent;
  int32_t bufferThresholdMs = kDefaultBufferThresholdMs;
  if (config) {
    ringSize = ReadConfigInt(config, kDownloaderConfigGroup, "read_retry_count", kDefaultRingSize);
    thresholdPercent = ReadConfigInt(config, kDownloaderConfigGroup, "read_fallback_threshold_percent",
                                     kDefaultThresholdPercent);
    bufferThresholdMs = ReadConfigInt(config, kDownloaderConfigGroup, "buffer_duration_threshold",
                                      kDefaultBufferThresholdMs);
    choice = ReadConfigInt(config, kDownloaderConfigGroup, "new_drain_caculator", kFlowRateCalculatorChoice);
    // Read for hosts that watch which keys are consulted; the ring size comes
    // from "read_retry_count".
    ReadConfigInt(config, kDownloaderConfigGroup, "read_buffer_compaire_count", kDefaultCompareCount);
  }
  bool useFlowRate = choice == kFlowRateCalculatorChoice;
  if (control) control->SetNewCalculatorInUse(useFlowRate);
  if (useFlowRate) return std::unique_ptr<DrainCalculator>(new FlowRateCalculator(control));
  return std::unique_ptr<DrainCalculator>(
      new BufferDrainCalculator(ringSize, thresholdPercent, bufferThresholdMs));
}

}  // namespace downloader
