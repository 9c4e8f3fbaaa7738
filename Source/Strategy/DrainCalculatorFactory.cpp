#include <downloader/Strategy/DrainCalculatorFactory.h>

#include <downloader/Strategy/BufferDrainCalculator.h>
#include <downloader/Strategy/FlowRateCalculator.h>

#include "Base/Settings.h"

namespace downloader {
namespace {

constexpr int32_t kFlowRateCalculatorChoice = 1;

}  // namespace

std::unique_ptr<DrainCalculator> DrainCalculatorFactory::Create(
    const ConfigPtr& config, const std::shared_ptr<FlowRateControl>& control) {
  const DownloaderSettings settings = DownloaderSettings::Read(config);
  bool useFlowRate = settings.drainCalculatorChoice == kFlowRateCalculatorChoice;
  if (control) control->SetNewCalculatorInUse(useFlowRate);
  if (useFlowRate) return std::unique_ptr<DrainCalculator>(new FlowRateCalculator(control));
  return std::unique_ptr<DrainCalculator>(
      new BufferDrainCalculator(settings.readRetryCount, settings.readFallbackThresholdPercent,
                                settings.bufferDurationThresholdMs));
}

}  // namespace downloader
