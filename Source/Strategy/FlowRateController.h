// A stream's flow-rate controller: judges whether the level the stream reads
// from drains the player's buffer, from what the player reports and from the
// rate at which bytes come in.
//
// Inputs:
// - the inlet. When the executor is a Source (SetInletSource), what its
//   channel received and the time it spent receiving, taken at every read:
//   the rate is the network's, however fast or slow the player reads, and
//   time while the channel is finished or held back does not count.
//   Otherwise every read of the stream, with the bytes it delivered and the
//   time the reader waited inside the executor for them (OnReadHappened's
//   value, in microseconds). Waiting time, not wall time, is the measure: a
//   reader that is not reading (the player's buffer is full) does not make a
//   level look slow, and a reader served from a full queue waits ~0;
// - the player's buffered duration: the stream's own pulse data, else the
//   tunnel's play-state monitor, else the request's "buffer" or
//   "buffer_duration" parameter; a buffering player counts as empty;
// - the bit rate: the pulse's, else the request's "bit_rate" parameter
//   (bits per second), else the resource's size over its duration.
//
// Rules (decided once per read; the answer is 1 for a drain):
// - no drain while the player is paused, or has buffered at least
//   "buffer_duration_threshold" (20000 ms);
// - stall: a whole window (sample interval x window count) of waiting, or of
//   receiving for a Source, has passed since the last byte arrived;
// - too slow: with a known bit rate, after at least one sample interval of
//   waiting, the bytes of the last window over its waiting time are below
//   the bit rate;
// - OnLevelChanged forgets every sample: a new level is judged afresh.
// "flow_rate_sample_interval" (1000 ms) and "flow_rate_sample_wnd" (3) set
// the window; "let_pluse" (true) lets pulse data count; a "FLOWRATE->" line
// reports the inlet every "dump_flow_rate_interval_" (10000 ms) and each
// decision that changes the answer.
//
// Thread rules: the reading thread calls OnReadHappened, CurrentAnswer,
// Configure, OnLevelChanged, OnFileSizeKnown and SetInletSource; the tunnel's threads call the
// state and pulse slots; mutex_ guards everything below it.
#ifndef DOWNLOADER_STRATEGY_FLOWRATECONTROLLER_H_
#define DOWNLOADER_STRATEGY_FLOWRATECONTROLLER_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/PlayerState.h>
#include <downloader/Pipe/PulseDataDef.h>
#include <downloader/Strategy/FlowRateControl.h>
#include <downloader/Strategy/PlayStateMonitor.h>
#include <downloader/Strategy/Source.h>
#include <wisp/Mutex.h>

#include "Base/Settings.h"

namespace downloader {

class FlowRateController : public FlowRateControl {
 public:
  // Microseconds on a monotonic clock.
  using NowFunction = std::function<int64_t()>;

  // `now` defaults to the steady clock.
  explicit FlowRateController(NowFunction now = NowFunction());
  ~FlowRateController() override;

  // Reads the settings and the request's buffer and bit rate; forgets every
  // sample. `durationMs` is the resource's play time (0: unknown).
  void Configure(const ConfigPtr& config, const StreamParams& params, uint64_t durationMs);
  void Configure(const DownloaderSettings& settings, const RequestParams& request, uint64_t durationMs);
  void SetPlayStateMonitor(std::shared_ptr<PlayStateMonitor> monitor);
  void OnFileSizeKnown(int64_t fileSize);
  // The executor now read from, when it is a Source (empty otherwise). Held
  // weakly: the stream owns its executors.
  void SetInletSource(std::weak_ptr<Source> source);
  // Forgets every sample; the inlet counts from now.
  void OnLevelChanged();

  void OnBufferStateUpdated(BufferState state);
  void OnStreamingStateUpdated(StreamingState state);
  void OnPulseDataUpdated(const PulseData& data);

  // The player's buffered duration as the controller sees it; -1: unknown.
  int32_t BufferedDurationMs();

  // `value`: microseconds the read waited; `sample`: bytes it delivered.
  int32_t OnReadHappened(int32_t value, uint64_t sample) override;
  int32_t CurrentAnswer() override;
  std::string Describe() override;
  void SetNewCalculatorInUse(bool inUse) override;

 private:
  struct Sample {
    uint64_t bytes;
    int64_t waitUs;
  };
  enum Verdict { kFlowing, kPaused, kBuffered, kStalled, kTooSlow };
  // What the last judgement saw; the text of Describe is made from it only
  // when asked.
  struct Judgement {
    Verdict verdict = kFlowing;
    int64_t rateBps = 0;
    int64_t bitRate = 0;
    int32_t bufferMs = -1;
    int64_t windowWaitUs = 0;
    int64_t stallUs = 0;
  };

  static const char* VerdictName(Verdict verdict);

  int32_t BufferedDurationMsLocked() REQUIRES(mutex_);
  int64_t BitRateLocked() REQUIRES(mutex_);
  int32_t JudgeLocked() REQUIRES(mutex_);
  std::string DescribeLocked() const REQUIRES(mutex_);
  void RecordSampleLocked(uint64_t bytes, int64_t waitUs) REQUIRES(mutex_);
  void ForgetSamplesLocked() REQUIRES(mutex_);
  void DumpInletLocked(int64_t nowUs) REQUIRES(mutex_);

  // Constant after construction.
  const NowFunction now_;

  wisp::Mutex mutex_;
  int64_t sampleIntervalUs_ GUARDED_BY(mutex_);
  int64_t windowUs_ GUARDED_BY(mutex_);
  int32_t bufferThresholdMs_ GUARDED_BY(mutex_);
  int64_t dumpIntervalUs_ GUARDED_BY(mutex_);
  bool pulseCounts_ GUARDED_BY(mutex_) = true;
  bool newCalculatorInUse_ GUARDED_BY(mutex_) = false;
  int32_t requestBufferMs_ GUARDED_BY(mutex_) = -1;
  int64_t requestBitRate_ GUARDED_BY(mutex_) = 0;
  uint64_t durationMs_ GUARDED_BY(mutex_) = 0;
  int64_t fileSize_ GUARDED_BY(mutex_) = 0;
  std::shared_ptr<PlayStateMonitor> monitor_ GUARDED_BY(mutex_);
  BufferState bufferState_ GUARDED_BY(mutex_) = kBufferStateUnknown;
  StreamingState streamingState_ GUARDED_BY(mutex_) = kStreamingStateUnknown;
  int32_t pulseBufferMs_ GUARDED_BY(mutex_) = -1;
  int64_t pulseBitRate_ GUARDED_BY(mutex_) = 0;
  std::weak_ptr<Source> inletSource_ GUARDED_BY(mutex_);
  Source::Inlet inletMark_ GUARDED_BY(mutex_);  // the source's inlet when the last sample was taken
  std::deque<Sample> samples_ GUARDED_BY(mutex_);
  uint64_t windowBytes_ GUARDED_BY(mutex_) = 0;
  int64_t windowWaitUs_ GUARDED_BY(mutex_) = 0;
  int64_t waitSinceByteUs_ GUARDED_BY(mutex_) = 0;
  int64_t lastDumpUs_ GUARDED_BY(mutex_) = 0;
  uint64_t totalBytes_ GUARDED_BY(mutex_) = 0;
  int32_t answer_ GUARDED_BY(mutex_) = 0;
  Judgement last_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_FLOWRATECONTROLLER_H_
