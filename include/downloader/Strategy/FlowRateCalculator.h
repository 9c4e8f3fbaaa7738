// A drain judgement delegated to the stream's flow-rate controller; it keeps
// the controller's last answer. Without a controller it never drains.
// Thread rules as DrainCalculator.
#ifndef DOWNLOADER_STRATEGY_FLOWRATECALCULATOR_H_
#define DOWNLOADER_STRATEGY_FLOWRATECALCULATOR_H_

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/DownloaderExport.h>
#include <downloader/Strategy/DrainCalculator.h>
#include <downloader/Strategy/FlowRateControl.h>

namespace downloader {

class DOWNLOADER_EXPORT FlowRateCalculator : public DrainCalculator {
 public:
  explicit FlowRateCalculator(std::shared_ptr<FlowRateControl> control);
  ~FlowRateCalculator() override;

  bool IsDrain() override;
  void OnRead(uint64_t sample, int32_t value, uint64_t extra) override;
  void Update() override;
  void SetBuffer(int32_t bufferMs) override;
  void Reset() override;
  std::string Describe() override;

 private:
  // Constant after construction.
  const std::shared_ptr<FlowRateControl> control_;
  // Reading thread only.
  int32_t answer_ = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_FLOWRATECALCULATOR_H_
