// Chooses and creates a stream's drain calculator from "downloader_config":
// "new_drain_caculator" 1 (the default, and the choice without a
// configuration) selects FlowRateCalculator over the stream's controller; any
// other value selects BufferDrainCalculator with ring size
// "read_retry_count", "read_fallback_threshold_percent" and
// "buffer_duration_threshold". The controller, when given, is told which
// kind is in use. "read_buffer_compaire_count" is read and not used.
//
// Stateless; callable from any thread.
#ifndef DOWNLOADER_STRATEGY_DRAINCALCULATORFACTORY_H_
#define DOWNLOADER_STRATEGY_DRAINCALCULATORFACTORY_H_

#include <memory>

#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Strategy/DrainCalculator.h>
#include <downloader/Strategy/FlowRateControl.h>

namespace downloader {

class DOWNLOADER_EXPORT DrainCalculatorFactory {
 public:
  static std::unique_ptr<DrainCalculator> Create(const ConfigPtr& config,
                                                 const std::shared_ptr<FlowRateControl>& control);
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_DRAINCALCULATORFACTORY_H_
