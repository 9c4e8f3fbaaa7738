#include "Strategy/FlowRateController.h"

#include <chrono>
#include <utility>

#include <wisp/Mutex.h>

#include "Base/Settings.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr int32_t kUnknownBuffer = -1;
constexpr int64_t kMicrosPerMilli = 1000;
constexpr int64_t kMicrosPerSecond = 1000000;
constexpr int64_t kBitsPerByte = 8;
constexpr int64_t kMillisPerSecond = 1000;

int64_t AtLeastOne(int64_t value) { return value < 1 ? 1 : value; }

// What the controller judges by until Configure.
const DownloaderSettings& DefaultSettings() {
  static const DownloaderSettings* defaults = new DownloaderSettings();
  return *defaults;
}

}  // namespace

const char* FlowRateController::VerdictName(Verdict verdict) {
  switch (verdict) {
    case kPaused:
      return "paused";
    case kBuffered:
      return "buffered";
    case kStalled:
      return "stall";
    case kTooSlow:
      return "slow";
    case kFlowing:
      break;
  }
  return "flowing";
}

FlowRateController::FlowRateController(NowFunction now)
    : now_(now ? std::move(now) : NowFunction(&Source::SteadyClockUs)),
      sampleIntervalUs_(DefaultSettings().flowRateSampleIntervalMs * kMicrosPerMilli),
      windowUs_(DefaultSettings().flowRateSampleIntervalMs * DefaultSettings().flowRateSampleWindow * kMicrosPerMilli),
      bufferThresholdMs_(DefaultSettings().bufferDurationThresholdMs),
      dumpIntervalUs_(DefaultSettings().dumpFlowRateIntervalMs * kMicrosPerMilli) {}

FlowRateController::~FlowRateController() = default;

void FlowRateController::Configure(const ConfigPtr& config, const StreamParams& params, uint64_t durationMs) {
  Configure(DownloaderSettings::Read(config), RequestParams::Read(params), durationMs);
}

void FlowRateController::Configure(const DownloaderSettings& settings, const RequestParams& request,
                                   uint64_t durationMs) {
  int64_t intervalMs = AtLeastOne(settings.flowRateSampleIntervalMs);
  int64_t windowCount = AtLeastOne(settings.flowRateSampleWindow);
  int32_t bufferThresholdMs = settings.bufferDurationThresholdMs;
  int64_t dumpMs = AtLeastOne(settings.dumpFlowRateIntervalMs);
  bool pulseCounts = settings.pulseCounts;
  int32_t requestBufferMs = request.bufferMs.value_or(ClampToInt32(request.bufferDurationMs));
  int64_t requestBitRate = request.bitRate;

  wisp::MutexLock lock(&mutex_);
  sampleIntervalUs_ = intervalMs * kMicrosPerMilli;
  windowUs_ = intervalMs * windowCount * kMicrosPerMilli;
  bufferThresholdMs_ = bufferThresholdMs;
  dumpIntervalUs_ = dumpMs * kMicrosPerMilli;
  pulseCounts_ = pulseCounts;
  requestBufferMs_ = requestBufferMs;
  requestBitRate_ = requestBitRate;
  durationMs_ = durationMs;
  fileSize_ = 0;
  totalBytes_ = 0;
  lastDumpUs_ = now_();
  ForgetSamplesLocked();
  last_ = Judgement();
}

void FlowRateController::SetPlayStateMonitor(std::shared_ptr<PlayStateMonitor> monitor) {
  wisp::MutexLock lock(&mutex_);
  monitor_ = std::move(monitor);
}

void FlowRateController::OnFileSizeKnown(int64_t fileSize) {
  wisp::MutexLock lock(&mutex_);
  fileSize_ = fileSize;
}

void FlowRateController::SetInletSource(std::weak_ptr<Source> source) {
  wisp::MutexLock lock(&mutex_);
  inletSource_ = std::move(source);
  ForgetSamplesLocked();
}

void FlowRateController::OnLevelChanged() {
  wisp::MutexLock lock(&mutex_);
  ForgetSamplesLocked();
}

void FlowRateController::ForgetSamplesLocked() {
  samples_.clear();
  windowBytes_ = 0;
  windowWaitUs_ = 0;
  waitSinceByteUs_ = 0;
  answer_ = 0;
  std::shared_ptr<Source> source = inletSource_.lock();
  inletMark_ = source != nullptr ? source->InletSoFar() : Source::Inlet();
}

void FlowRateController::OnBufferStateUpdated(BufferState state) {
  wisp::MutexLock lock(&mutex_);
  bufferState_ = state;
}

void FlowRateController::OnStreamingStateUpdated(StreamingState state) {
  wisp::MutexLock lock(&mutex_);
  streamingState_ = state;
}

void FlowRateController::OnPulseDataUpdated(const PulseData& data) {
  int bufferMs = kUnknownBuffer;
  int64_t bitRate = 0;
  bool hasBuffer = PulseDataDef<int>(kPulseBufferDurationKey).Read(data, &bufferMs);
  bool hasBitRate = PulseDataDef<int64_t>(kPulseBitRateKey).Read(data, &bitRate);
  wisp::MutexLock lock(&mutex_);
  if (hasBuffer) pulseBufferMs_ = bufferMs;
  if (hasBitRate) pulseBitRate_ = bitRate;
}

int32_t FlowRateController::BufferedDurationMs() {
  wisp::MutexLock lock(&mutex_);
  return BufferedDurationMsLocked();
}

int32_t FlowRateController::BufferedDurationMsLocked() {
  if (bufferState_ == kBufferStateBuffering) return 0;
  if (pulseCounts_) {
    if (pulseBufferMs_ >= 0) return pulseBufferMs_;
    int32_t monitored = monitor_ ? monitor_->BufferedDurationMs() : kUnknownBuffer;
    if (monitored >= 0) return monitored;
  }
  return requestBufferMs_;
}

int64_t FlowRateController::BitRateLocked() {
  if (pulseCounts_) {
    if (pulseBitRate_ > 0) return pulseBitRate_;
    int64_t monitored = monitor_ ? monitor_->BitRate() : 0;
    if (monitored > 0) return monitored;
  }
  if (requestBitRate_ > 0) return requestBitRate_;
  if (fileSize_ > 0 && durationMs_ > 0) {
    return fileSize_ * kBitsPerByte * kMillisPerSecond / static_cast<int64_t>(durationMs_);
  }
  return 0;
}

int32_t FlowRateController::OnReadHappened(int32_t value, uint64_t sample) {
  wisp::MutexLock lock(&mutex_);
  uint64_t bytes = sample;
  int64_t waitUs = value < 0 ? 0 : value;
  if (std::shared_ptr<Source> source = inletSource_.lock()) {
    const Source::Inlet inlet = source->InletSoFar();
    bytes = inlet.bytes - inletMark_.bytes;
    waitUs = inlet.receivingUs - inletMark_.receivingUs;
    inletMark_ = inlet;
  }
  // A sample without bytes or time tells nothing; keeping it would only grow
  // the window's list while a finished download is read out.
  if (bytes > 0 || waitUs > 0) RecordSampleLocked(bytes, waitUs);
  return JudgeLocked();
}

int32_t FlowRateController::CurrentAnswer() {
  wisp::MutexLock lock(&mutex_);
  return JudgeLocked();
}

std::string FlowRateController::Describe() {
  wisp::MutexLock lock(&mutex_);
  return DescribeLocked();
}

void FlowRateController::SetNewCalculatorInUse(bool inUse) {
  wisp::MutexLock lock(&mutex_);
  newCalculatorInUse_ = inUse;
}

void FlowRateController::RecordSampleLocked(uint64_t bytes, int64_t waitUs) {
  samples_.push_back(Sample{bytes, waitUs});
  windowBytes_ += bytes;
  windowWaitUs_ += waitUs;
  // Keep the newest samples that cover one window of waiting.
  while (samples_.size() > 1 && windowWaitUs_ - samples_.front().waitUs >= windowUs_) {
    windowBytes_ -= samples_.front().bytes;
    windowWaitUs_ -= samples_.front().waitUs;
    samples_.pop_front();
  }
  waitSinceByteUs_ = bytes > 0 ? 0 : waitSinceByteUs_ + waitUs;
  totalBytes_ += bytes;
  DumpInletLocked(now_());
}

int32_t FlowRateController::JudgeLocked() {
  Judgement judgement;
  judgement.bufferMs = BufferedDurationMsLocked();
  judgement.bitRate = BitRateLocked();
  judgement.rateBps = static_cast<int64_t>(static_cast<double>(windowBytes_) * kBitsPerByte * kMicrosPerSecond /
                                           static_cast<double>(AtLeastOne(windowWaitUs_)));
  judgement.windowWaitUs = windowWaitUs_;
  judgement.stallUs = waitSinceByteUs_;
  if (streamingState_ == kStreamingStatePaused) {
    judgement.verdict = kPaused;
  } else if (judgement.bufferMs >= bufferThresholdMs_) {
    judgement.verdict = kBuffered;
  } else if (waitSinceByteUs_ >= windowUs_) {
    judgement.verdict = kStalled;
  } else if (judgement.bitRate > 0 && windowWaitUs_ >= sampleIntervalUs_ && judgement.rateBps < judgement.bitRate) {
    judgement.verdict = kTooSlow;
  }
  int32_t answer = judgement.verdict == kStalled || judgement.verdict == kTooSlow ? 1 : 0;
  last_ = judgement;
  if (answer != answer_ && newCalculatorInUse_) {
    DL_LOGI << "FLOWRATE-> judgement changed, " << DescribeLocked();
  }
  answer_ = answer;
  return answer_;
}

std::string FlowRateController::DescribeLocked() const {
  int32_t answer = last_.verdict == kStalled || last_.verdict == kTooSlow ? 1 : 0;
  return "drain:" + std::to_string(answer) + ",reason:" + VerdictName(last_.verdict) +
         ",rate_bps:" + std::to_string(last_.rateBps) + ",bit_rate:" + std::to_string(last_.bitRate) +
         ",buffer_ms:" + std::to_string(last_.bufferMs) +
         ",window_wait_ms:" + std::to_string(last_.windowWaitUs / kMicrosPerMilli) +
         ",stall_ms:" + std::to_string(last_.stallUs / kMicrosPerMilli);
}

void FlowRateController::DumpInletLocked(int64_t nowUs) {
  if (nowUs - lastDumpUs_ < dumpIntervalUs_) return;
  lastDumpUs_ = nowUs;
  DL_LOGD << "FLOWRATE-> inlet total_bytes:" << totalBytes_ << ", window_bytes:" << windowBytes_
          << ", window_wait_ms:" << windowWaitUs_ / kMicrosPerMilli << ", buffer_ms:" << BufferedDurationMsLocked();
}

}  // namespace downloader
