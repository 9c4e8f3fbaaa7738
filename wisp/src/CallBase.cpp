#include "CallBase.h"

#include "Logging.h"
#include "Telemetry.h"

#include <utility>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {
namespace {

constexpr int kLogDebug = 1;
constexpr int kLogInfo = 2;
constexpr int kLogWarn = 3;
constexpr std::chrono::milliseconds kRetryBackoffStep{100};
constexpr std::chrono::milliseconds kRetryBackoffMax{1000};

std::atomic<uint64_t> g_nextRequestId{1};

// Failures that another attempt may cure: the network, not the request.
bool Retryable(http::ErrorKind kind) {
  return kind == http::ErrorKind::kDnsFailure || kind == http::ErrorKind::kConnectFailure ||
         kind == http::ErrorKind::kConnectionLost || kind == http::ErrorKind::kInternal;
}

int64_t BytesPerSecond(int64_t bytes, CallBase::Clock::duration elapsed) {
  int64_t micros = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
  return micros <= 0 ? 0 : bytes * 1000000 / micros;
}

}  // namespace

CallBase::CallBase(RequestPlan spec)
    : spec_(std::move(spec)), requestId_(g_nextRequestId.fetch_add(1)) {
  metrics_.requestId = requestId_;
  metrics_.url = spec_.url;
  metrics_.traceUrl = spec_.traceUrl;
}

CallBase::~CallBase() = default;

http::MetricsInfo CallBase::GetMetrics() const {
  wisp::MutexLock lock(&metricsMutex_);
  http::MetricsInfo snapshot = metrics_;
  if (metrics_.httpStatus != 0 && metrics_.timing.totalUs == http::TimingInfo::kNotReached) {
    snapshot.speedBytesPerSecond = BytesPerSecond(metrics_.bytesReceived, Clock::now() - responseTime_);
  }
  return snapshot;
}

bool CallBase::PostStep(void (CallBase::*step)()) {
  return PostTask([self = shared_from_this(), step] { ((*self).*step)(); });
}

bool CallBase::Start(std::shared_ptr<http::IListener> listener) {
  if (!ClaimStart(std::move(listener))) return false;
  if (!PostStep(&CallBase::Begin)) {
    AbandonStart();
    return false;
  }
  return true;
}

void CallBase::Cancel() {
  if (SilenceForCancel()) PostStep(&CallBase::StopForCancel);
}

void CallBase::Pause() {
  if (!paused_.exchange(true, std::memory_order_acq_rel)) PostStep(&CallBase::ApplyPause);
}

void CallBase::Resume() {
  if (paused_.exchange(false, std::memory_order_acq_rel)) PostStep(&CallBase::ApplyPause);
}

CallBase::Clock::time_point CallBase::OpenDeadline() const {
  if (spec_.openTimeoutMs <= 0) return Clock::time_point::max();
  return startTime_ + std::chrono::milliseconds(spec_.openTimeoutMs);
}

bool CallBase::PlanRetry(const http::Error& error) {
  if (responded_ || !Retryable(error.kind) || retriesUsed_ >= spec_.retryLimit) return false;
  Clock::time_point due = Clock::now() + std::min(kRetryBackoffStep * (retriesUsed_ + 1), kRetryBackoffMax);
  if (due >= OpenDeadline()) return false;
  ++retriesUsed_;
  retryAt_ = due;
  WISP_LOG(kLogWarn) << "request_id:" << requestId_ << " retry " << retriesUsed_ << " after " << error.String();
  return true;
}

bool CallBase::ClaimStart(std::shared_ptr<http::IListener> listener) {
  if (listener == nullptr) return false;
  {
    wisp::MutexLock lock(&startMutex_);
    if (started_ || cancelled_) return false;
    started_ = true;
  }
  listener_ = std::move(listener);
  startTime_ = Clock::now();
  GaugeRequestStarted();
  WISP_LOG(kLogDebug) << "request_id:" << requestId_ << " start " << spec_.url
                      << (spec_.traceUrl.empty() ? "" : " trace:") << spec_.traceUrl;
  return true;
}

void CallBase::AbandonStart() {
  listener_.reset();
  gate_.Close();
  http::MetricsInfo snapshot = GetMetrics();
  snapshot.errorKind = http::ErrorKind::kCancelled;
  GaugeRequestEnded(snapshot);
}

bool CallBase::SilenceForCancel() {
  bool wasStarted = false;
  {
    wisp::MutexLock lock(&startMutex_);
    wasStarted = started_ && !cancelled_;
    cancelled_ = true;
  }
  if (gate_.Close()) {
    WISP_LOG(kLogDebug) << "request_id:" << requestId_ << " cancelled";
  }
  return wasStarted;
}

int64_t CallBase::MicrosSinceStart(Clock::time_point when) const {
  return std::chrono::duration_cast<std::chrono::microseconds>(when - startTime_).count();
}

void CallBase::UpdateTiming(http::StatusPhase phase, int64_t value) {
  wisp::MutexLock lock(&metricsMutex_);
  http::TimingInfo& timing = metrics_.timing;
  switch (phase) {
    case http::StatusPhase::kDnsResolved: timing.dnsUs = value; break;
    case http::StatusPhase::kConnected: timing.connectUs = value; break;
    case http::StatusPhase::kTlsHandshaken: timing.tlsUs = value; break;
    case http::StatusPhase::kFirstByte: timing.firstByteUs = value; break;
    case http::StatusPhase::kRedirected: metrics_.redirects = static_cast<int32_t>(value); break;
    case http::StatusPhase::kRetrying: metrics_.retries = static_cast<int32_t>(value); break;
  }
}

void CallBase::ReportPhase(http::StatusPhase phase, int64_t value) {
  if (finished_) return;
  UpdateTiming(phase, value);
  if (!gate_.Enter()) return;
  listener_->OnStatusPhase(this, phase, value);
  gate_.Leave();
}

void CallBase::NoteAddressTried(const std::string& address) {
  wisp::MutexLock lock(&metricsMutex_);
  metrics_.resolvedAddresses.push_back(address);
}

void CallBase::NoteConnection(const std::string& serverAddress, bool reused) {
  wisp::MutexLock lock(&metricsMutex_);
  metrics_.serverAddress = serverAddress;
  metrics_.connectionReused = reused;
  if (metrics_.resolvedAddresses.empty() && !serverAddress.empty()) {
    metrics_.resolvedAddresses.push_back(serverAddress);
  }
}

bool CallBase::DeliverResponse(std::shared_ptr<http::Response> response) {
  if (finished_ || responded_) return !finished_;
  responded_ = true;
  {
    wisp::MutexLock lock(&metricsMutex_);
    responseTime_ = Clock::now();
    metrics_.httpStatus = response->Status();
    metrics_.effectiveUrl = response->EffectiveUrl();
    if (!response->ServerAddress().empty()) metrics_.serverAddress = response->ServerAddress();
  }
  WISP_LOG(kLogDebug) << "request_id:" << requestId_ << " response status:" << response->Status()
                      << " file_size:" << response->FileSize()
                      << " range_start:" << response->RangeStart();
  if (!gate_.Enter()) return false;
  listener_->OnResponse(this, std::move(response));
  gate_.Leave();
  return !gate_.IsClosed();
}

bool CallBase::DeliverBytes(const uint8_t* data, size_t length) {
  if (finished_) return false;
  {
    wisp::MutexLock lock(&metricsMutex_);
    metrics_.bytesReceived += static_cast<int64_t>(length);
  }
  GaugeBytesReceived(static_cast<int64_t>(length));
  if (!gate_.Enter()) return false;
  listener_->OnBytes(this, data, length);
  gate_.Leave();
  return true;
}

void CallBase::FinishWithError(const http::Error& error) {
  if (finished_) return;
  WISP_LOG(kLogWarn) << "request_id:" << requestId_ << " failed " << error.String()
                     << " url:" << spec_.url;
  http::MetricsInfo final = RecordEnd(error);
  if (gate_.Enter()) {
    listener_->OnError(this, error);
    gate_.Leave();
  }
  Release(final);
}

void CallBase::FinishComplete() {
  if (finished_) return;
  http::MetricsInfo final = RecordEnd(http::Error());
  if (gate_.Enter()) {
    listener_->OnComplete(this);
    gate_.Leave();
  }
  Release(final);
}

void CallBase::FinishCancelled() {
  if (finished_) return;
  http::Error cancelled;
  cancelled.kind = http::ErrorKind::kCancelled;
  Release(RecordEnd(cancelled));
}

http::MetricsInfo CallBase::RecordEnd(const http::Error& error) {
  finished_ = true;
  Clock::time_point now = Clock::now();
  wisp::MutexLock lock(&metricsMutex_);
  metrics_.timing.totalUs = MicrosSinceStart(now);
  metrics_.errorKind = error.kind;
  if (responded_) metrics_.speedBytesPerSecond = BytesPerSecond(metrics_.bytesReceived, now - responseTime_);
  if (error.status != 0) metrics_.httpStatus = error.status;
  return metrics_;
}

void CallBase::Release(const http::MetricsInfo& final) {
  gate_.Close();
  WISP_LOG(kLogInfo) << "request_id:" << requestId_ << " end kind:" << static_cast<int32_t>(final.errorKind)
                     << " status:" << final.httpStatus << " bytes:" << final.bytesReceived
                     << " speed:" << final.speedBytesPerSecond << " total_us:" << final.timing.totalUs
                     << " server:" << final.serverAddress << " reused:" << final.connectionReused;
  GaugeRequestEnded(final);
  NotifyMonitor(final);
  // The listener may own this call's last outside reference and may cancel or
  // destroy things when released; it goes last.
  std::shared_ptr<http::IListener> listener = std::move(listener_);
  listener.reset();
}

}  // namespace internal
}  // namespace wisp
