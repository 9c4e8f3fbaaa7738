// What a flow-rate controller offers to the drain judgement of a stream: it
// watches the player's buffer and the rate at which bytes arrive, and answers
// whether the current level drains the buffer.
//
// Implementations are called from the stream's reading thread (OnReadHappened,
// CurrentAnswer, SetNewCalculatorInUse) and from the tunnel's thread (state
// and pulse updates); they synchronise themselves.
#ifndef DOWNLOADER_STRATEGY_FLOWRATECONTROL_H_
#define DOWNLOADER_STRATEGY_FLOWRATECONTROL_H_

#include <cstdint>
#include <string>

#include <downloader/DownloaderExport.h>

namespace downloader {

class DOWNLOADER_EXPORT FlowRateControl {
 public:
  virtual ~FlowRateControl();

  // A read delivered `sample` bytes; `value` is the stream's companion value.
  // Returns non-zero when the level drains.
  virtual int32_t OnReadHappened(int32_t value, uint64_t sample) = 0;
  // The judgement as it stands now, non-zero for a drain.
  virtual int32_t CurrentAnswer() = 0;
  // Text describing the last judgement.
  virtual std::string Describe() = 0;
  // Tells the controller whether a stream judges drains through it.
  virtual void SetNewCalculatorInUse(bool inUse) = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_FLOWRATECONTROL_H_
