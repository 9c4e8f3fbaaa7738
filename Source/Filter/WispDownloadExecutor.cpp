#include <downloader/Filter/WispDownloadExecutor.h>

#include <algorithm>
#include <random>
#include <utility>

#include <downloader/Filter/SubCode.h>
#include <downloader/Pipe/ConfigReader.h>
#include <wisp/Mutex.h>
#include <wisp/http/Metrics.h>
#include <wisp/http/WispClient.h>

#include "Base/ByteChannel.h"
#include "Base/RequestKind.h"
#include "Base/Settings.h"
#include "Base/Sha256.h"
#include "Filter/HttpErrorCode.h"
#include "Filter/WispLastReports.h"
#include "Filter/WispPreloadBuffer.h"
#include "Filter/WispRequestBuilder.h"
#include "Filter/WispTotals.h"
#include "Filter/WispTrackInfo.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr int64_t kNoDetail = -1;
constexpr char kInterruptedText[] = "WispDownloadFilter,interrupted";
constexpr char kReportCategory[] = "downloader";
// Hash checking is on for a request when a draw in [0, kHashDrawMax] is below "hash_check_sample".
constexpr int kHashDrawMax = 100;
// The channel type statistics give a request that names none.
constexpr char kNoChannelType[] = "0";

std::shared_ptr<const RequestParams> ReadRequest(const std::shared_ptr<URI>& uri) {
  return std::make_shared<const RequestParams>(uri ? RequestParams::Read(uri->GetParams()) : RequestParams());
}

int64_t MicrosToMillis(int64_t micros) {
  return micros == wisp::http::TimingInfo::kNotReached ? -1 : micros / 1000;
}

std::string JoinAddresses(const std::vector<std::string>& addresses) {
  std::string joined;
  for (const std::string& address : addresses) {
    if (!joined.empty()) joined.push_back(',');
    joined += address;
  }
  return joined;
}

// Deadlines and the request's timings follow the library context's clock.
Clock::TimePoint ContextNow() { return LibraryContext::Current().clock().Now(); }

}  // namespace

WispDownloadExecutor::WispDownloadExecutor(std::shared_ptr<protocols::IConfigure> config,
                                           std::shared_ptr<protocols::IReporter> reporter, std::shared_ptr<URI> uri)
    : config_(std::move(config)), reporter_(std::move(reporter)), uri_(std::move(uri)), request_(ReadRequest(uri_)) {}

WispDownloadExecutor::~WispDownloadExecutor() = default;

// --- Opening ---------------------------------------------------------------

DLResultCode WispDownloadExecutor::Open(const std::shared_ptr<URI>& uri) {
  DLResultCode started = StartOpen(uri, /*preloadAllowed=*/false);
  if (!started.IsSuccess()) return started;
  return WaitOpenResult();
}

DLResultCode WispDownloadExecutor::OpenAsync(const std::shared_ptr<URI>& uri) {
  return StartOpen(uri, /*preloadAllowed=*/true);
}

DLResultCode WispDownloadExecutor::StartOpen(const std::shared_ptr<URI>& uri, bool preloadAllowed) {
  if (uri == nullptr) return DLResultCode(kDLFailure, kNoDetail);
  EndCurrentRequest();
  const DownloaderSettings settings = ReadSettings(uri);
  const std::string preload = preloadAllowed ? TakePreloadBuffer(settings) : std::string();
  if (preload.empty()) return StartRequest(WispRequestBuilder::kNoSeek);
  return StartRequest(request_->rangeStart + static_cast<int64_t>(preload.size()), preload);
}

std::string WispDownloadExecutor::TakePreloadBuffer(const DownloaderSettings& settings) {
  if (!WispPreloadBuffer::Wanted(settings, *request_)) return std::string();
  const int64_t start = request_->rangeStart;
  std::string preload =
      WispPreloadBuffer::Take(config_, uri_, start, request_->rangeEnd, settings.cacheBufferLimitBytes);
  DL_LOGI << logTag_ << "] preloadBuffer:" << preload.size() << " start:" << start;
  if (!preload.empty()) {
    DL_LOGI << logTag_ << "] enable cache buffer, the network continues at offset:"
            << start + static_cast<int64_t>(preload.size());
  }
  return preload;
}

DLResultCode WispDownloadExecutor::WaitOpenResult() {
  WaitOutcome outcome = WaitForResponse();
  DLResultCode result = OpenOutcome(outcome);
  if (outcome == WaitOutcome::kFailed) {
    if (result.subCode == HttpErrorCode::kTimeout) {
      DL_LOGW << "[KeyFlow][" << logTag_ << "]  WISPDownloadExecutor open timeout";
    }
    DL_LOGW << logTag_ << "] WISPDownloadExecutor open error, errorCode:" << result.subCode << "("
            << SubCodeTag(result.subCode) << ")";
  }
  return result;
}

DownloaderSettings WispDownloadExecutor::ReadSettings(const std::shared_ptr<URI>& uri) {
  uri_ = uri;
  request_ = ReadRequest(uri);
  const DownloaderSettings settings = DownloaderSettings::Read(config_);
  playerId_ = request_->playerId;
  index_ = request_->sliceIndex;
  logTag_ = "wispdownload_index:" + std::to_string(index_ + 1) + "[playerid:" + std::to_string(playerId_) + "]";
  readTimeoutMs_ = settings.readTimeoutMs;
  fastRead_ = settings.fastReadDurationMs > 0;
  reportLast_ = settings.reportLast;
  enableFill_ = settings.enableFill;
  preload_ = request_->preload;
  openBufferMs_ = request_->bufferDurationMs;

  const int32_t sample = settings.hashCheckSample;
  std::random_device device;
  std::mt19937 generator(device());
  const int draw = std::uniform_int_distribution<int>(0, kHashDrawMax)(generator);
  hashCheck_ = draw < sample;
  DL_LOGD << logTag_ << "] random:" << draw << ", sample:" << sample;

  if (RequestKind::Of(uri->GetStringRep()).playlist) {
    DL_LOGI << logTag_ << "wispDownload m3u8 File";
  }
  ReadTrackInfo();

  wisp::MutexLock lock(&mutex_);
  if (playerBufferMs_ < 0) playerBufferMs_ = openBufferMs_;
  return settings;
}

void WispDownloadExecutor::ReadTrackInfo() {
  track_.clear();
  if (!request_->trackInfo) return;
  const std::string& text = *request_->trackInfo;
  std::string reason;
  if (WispTrackInfo::Parse(text, &track_, &reason)) {
    DL_LOGD << logTag_ << "track_info:" << WispTrackInfo::ToText(track_);
  } else {
    DL_LOGW << logTag_ << "track_info ignored (" << reason << "):" << text;
  }
}

DLResultCode WispDownloadExecutor::StartRequest(int64_t seekOffset, const std::string& firstBytes) {
  std::shared_ptr<WispDownloadExecutor> self = weak_from_this().lock();
  if (self == nullptr) {
    DL_LOGE << logTag_ << "the executor must live in a shared pointer";
    return DLResultCode(kDLFailure, kNoDetail);
  }
  int64_t playerBufferMs = 0;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return InterruptedResult();
    playerBufferMs = playerBufferMs_;
  }
  WispRequest request = WispRequestBuilder(config_, uri_, logTag_).Build(seekOffset, playerBufferMs);
  std::shared_ptr<wisp::http::IRequestCall> call =
      LibraryContext::Current().httpClient()->CreateRequestCaller(wisp::http::RequestType::kGet, request.options);
  std::weak_ptr<wisp::http::IRequestCall> flowCall = call;
  auto channel = std::make_shared<ByteChannel>(
      [this, flowCall](bool pause, uint64_t queuedBytes) { ApplyFlow(flowCall, pause, queuedBytes); });
  if (!firstBytes.empty()) channel->Write(firstBytes.data(), firstBytes.size());
  std::shared_ptr<ByteChannel> replaced;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return InterruptedResult();
    call_ = call;
    response_.reset();
    error_ = wisp::http::Error();
    readTimedOut_ = false;
    headerRefused_ = false;
    replaced = std::move(channel_);
    channel_ = channel;
    requestUrl_ = request.url;
    requestStart_ = request.rangeStart;
    offset_ = request.rangeStart;
    receivedBytes_ = 0;
    requestStartTime_ = ContextNow();
    responseTime_ = Clock::time_point();
    lastByteTime_ = Clock::time_point();
    ready_ = false;
    speedUp_ = request.speedUp;
    if (hashCheck_) {
      hash_ = std::make_unique<Sha256>();
      hash_->Update(request.url);
      hash_->Update(std::to_string(request.rangeStart));
    }
  }
  if (replaced != nullptr) replaced->Close();
  DL_LOGI << logTag_ << "] WISPDownloadExecutor start, url:" << request.url << " request_id:" << call->RequestId()
          << " this:" << this;
  BeginReceiving();
  if (!request.refusal.empty()) {
    DL_LOGE << logTag_ << "] request refused, not sent: " << request.refusal;
    {
      wisp::MutexLock lock(&mutex_);
      headerRefused_ = true;
    }
    wisp::http::Error refused;
    refused.kind = wisp::http::ErrorKind::kInvalidRequest;
    refused.message = request.refusal;
    OnError(call.get(), refused);
  } else if (!call->Start(self)) {
    wisp::http::Error refused;
    refused.kind = wisp::http::ErrorKind::kInternal;
    refused.message = "the call did not start";
    OnError(call.get(), refused);
  }
  return DLResultCode(kDLSuccess, 0);
}

void WispDownloadExecutor::EndCurrentRequest() {
  std::shared_ptr<wisp::http::IRequestCall> call;
  {
    wisp::MutexLock lock(&mutex_);
    call = call_;
  }
  if (call == nullptr) return;
  // Outside the lock: Cancel waits for a running callback, which takes it.
  call->Cancel();
  EndReceiving();
  RefreshRecord();
  HashDump();
  wisp::MutexLock lock(&mutex_);
  if (call_ == call) call_.reset();
}

WispDownloadExecutor::WaitOutcome WispDownloadExecutor::WaitForResponse() {
  wisp::MutexLock lock(&mutex_);
  for (;;) {
    if (closed_) return WaitOutcome::kInterrupted;
    if (response_ != nullptr) return WaitOutcome::kResponded;
    if (error_.IsError()) return WaitOutcome::kFailed;
    if (call_ == nullptr) return WaitOutcome::kInterrupted;  // nothing was started
    cv_.wait_for(lock, ByteChannel::kWaitStep);
  }
}

DLResultCode WispDownloadExecutor::OpenOutcome(WaitOutcome outcome) {
  switch (outcome) {
    case WaitOutcome::kResponded:
      return DLResultCode(kDLSuccess, 0);
    case WaitOutcome::kInterrupted:
      return InterruptedResult();
    case WaitOutcome::kFailed:
      break;
  }
  wisp::MutexLock lock(&mutex_);
  const int64_t subCode = FailureSubCodeLocked();
  if (subCode == HttpErrorCode::kTimeout) timedOut_ = true;
  return DLResultCode(kDLFailure, subCode);
}

DLResultCode WispDownloadExecutor::InterruptedResult() {
  DL_LOGI << logTag_ << kInterruptedText;
  DLResultCode result(kDLFailure, kNoDetail);
  result.details["reason"] = kInterruptedText;
  return result;
}

// --- Reading ---------------------------------------------------------------

DLReadResult WispDownloadExecutor::Read(Packet& packet) {
  DLReadResult result;
  if (packet.GetSize() == 0 || packet.GetBuffer() == nullptr) return result;
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) {
      static_cast<DLResultCode&>(result) = InterruptedResult();
      return result;
    }
    channel = channel_;
  }
  if (channel == nullptr) {
    DL_LOGW << logTag_ << "error! cur_queue is null";
    return result;
  }
  const Clock::time_point deadline = fastRead_ ? ContextNow() : ContextNow() + std::chrono::milliseconds(readTimeoutMs_);
  const ByteChannel::ReadOutcome outcome =
      channel->Read(packet.GetBuffer(), static_cast<size_t>(packet.GetSize()), deadline);
  switch (outcome.status) {
    case ByteChannel::ReadStatus::kBytes:
      readBytes_ += outcome.bytes;
      DL_LOGT << logTag_ << "read:" << outcome.bytes;
      result.Set(kDLSuccess, outcome.bytes, 0);
      return result;
    case ByteChannel::ReadStatus::kEnded:
      return EndOfDataResult(outcome.end);
    case ByteChannel::ReadStatus::kClosed:
      static_cast<DLResultCode&>(result) = InterruptedResult();
      return result;
    case ByteChannel::ReadStatus::kTimedOut:
      break;
  }
  if (fastRead_) return result;
  {
    wisp::MutexLock lock(&mutex_);
    timedOut_ = true;
    readTimedOut_ = true;
  }
  DL_LOGW << logTag_ << "error?? read timed out after " << readTimeoutMs_ << " ms, read size:" << readBytes_;
  result.Set(kDLFailure, 0, HttpErrorCode::kTimeout);
  return result;
}

DLReadResult WispDownloadExecutor::EndOfDataResult(const DLResultCode& end) {
  DLReadResult result;
  if (end.code != kDLEndOfData) {
    DL_LOGW << "[KeyFlow][" << logTag_ << "] period WispDownloadExecutor error, errorCode:" << end.subCode << "("
            << SubCodeTag(end.subCode) << ")";
    result.Set(kDLFailure, 0, end.subCode);
  } else {
    DL_LOGD << logTag_ << "WispDownloadExecutor read eof, current read size =" << readBytes_;
    result.Set(kDLEndOfData, 0, 0);
  }
  return result;
}

void WispDownloadExecutor::ApplyFlow(const std::weak_ptr<wisp::http::IRequestCall>& call, bool pause,
                                     uint64_t queuedBytes) {
  std::shared_ptr<wisp::http::IRequestCall> running = call.lock();
  if (running == nullptr) return;
  // Pause and Resume only post to the network thread: they never wait for a callback.
  if (pause) {
    running->Pause();
    HoldBack(true);
    DL_LOGD << logTag_ << "receiving paused, queued:" << queuedBytes;
  } else {
    running->Resume();
    HoldBack(false);
    DL_LOGD << logTag_ << "receiving resumed, queued:" << queuedBytes;
  }
}

// --- Seek and Close --------------------------------------------------------

DLResultCode WispDownloadExecutor::Seek(int64_t offset) {
  DL_LOGI << logTag_ << "] WispDownloadExecutor seek to offset:" << offset << " this:" << this;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return InterruptedResult();
    if (!everResponded_) {
      const int64_t subCode = FailureSubCodeLocked();
      return DLResultCode(kDLFailure, subCode != 0 ? subCode : kNoDetail);
    }
  }
  if (offset < 0) return DLResultCode(kDLFailure, kNoDetail);
  EndCurrentRequest();
  DLResultCode result = StartRequest(offset);
  if (result.IsSuccess()) result = OpenOutcome(WaitForResponse());
  if (result.IsSuccess()) {
    DL_LOGI << logTag_ << "] success";
  } else {
    DL_LOGW << logTag_ << "] error";
    DL_LOGW << "[KeyFlow][" << logTag_ << "] WispDownloadExecutor seek error errorCode:" << result.subCode << "("
            << SubCodeTag(result.subCode) << ")";
  }
  return result;
}

DLResultCode WispDownloadExecutor::Close() {
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return DLResultCode(kDLSuccess, 0);
    closed_ = true;
    channel = channel_;
  }
  cv_.notify_all();
  if (channel != nullptr) channel->Close();
  EndCurrentRequest();
  RequestRecord record;
  int64_t totalSize = 0;
  {
    wisp::MutexLock lock(&mutex_);
    channel_.reset();
    record = record_;
    totalSize = totalSize_;
  }
  DL_LOGI << logTag_ << "] WispDownloadExecutor close readsize:" << readBytes_ << " totalsize:" << totalSize
          << " this:" << this << " cdnIp:" << record["cdnIp"] << " download_speed:" << record["speed"];
  const int64_t speed = ParseInt64(record["speed"]);
  if (speed > 0) WispTotals::SetLastDownloadSpeed(speed);
  ReportLastInfo();
  return DLResultCode(kDLSuccess, 0);
}

// --- Simple queries --------------------------------------------------------

int64_t WispDownloadExecutor::GetFileSize() {
  wisp::MutexLock lock(&mutex_);
  return totalSize_;
}

bool WispDownloadExecutor::IsReady() {
  wisp::MutexLock lock(&mutex_);
  return ready_;
}

void WispDownloadExecutor::SetHint(const std::string& hint) {
  if (hint != "pcdn_not_respond") return;
  wisp::MutexLock lock(&mutex_);
  pcdnNotRespond_ = true;
}

std::string WispDownloadExecutor::GetName() { return "WISP"; }

int32_t WispDownloadExecutor::GetExecutorType() { return 4; }

void WispDownloadExecutor::SetStatsSink(std::shared_ptr<StreamStats> stats) {
  IDownloadExecutor::SetStatsSink(std::move(stats));
  RegisterStatsSink(stats_);
}

void WispDownloadExecutor::SetPlayerBufferDuration(int64_t milliseconds) {
  wisp::MutexLock lock(&mutex_);
  playerBufferMs_ = milliseconds;
}

void WispDownloadExecutor::GetExtraChannelInfo(std::map<std::string, std::string>* info) {
  DL_LOGI << logTag_ << "Enter downloader, Get ExtraChannel INFO";
  (*info)["channelType"] = request_->channelType.value_or(kNoChannelType);
  (*info)["extChannelVol"] = "0";
  DL_LOGI << logTag_ << "Get ExtraChannel INFO:channelType=" << (*info)["channelType"]
          << ",extChannelVol=" << (*info)["extChannelVol"];
}

// --- Network callbacks -----------------------------------------------------

void WispDownloadExecutor::OnResponse(wisp::http::IRequestCall* call, std::shared_ptr<wisp::http::Response> response) {
  {
    wisp::MutexLock lock(&mutex_);
    if (!IsCurrent(call)) return;
    response_ = response;
    responseTime_ = ContextNow();
    everResponded_ = true;
    ready_ = true;
    if (response->FileSize() > 0) totalSize_ = response->FileSize();
  }
  DL_LOGI << logTag_ << " OnResponse " << response->Status() << " this:" << this
          << " request_id:" << call->RequestId() << " size:" << response->FileSize();
  cv_.notify_all();
}

void WispDownloadExecutor::OnBytes(wisp::http::IRequestCall* call, const uint8_t* data, size_t length) {
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    if (!IsCurrent(call) || channel_ == nullptr) {
      DL_LOGD << logTag_ << "error! cur_queue is null";
      return;
    }
    channel = channel_;
    receivedBytes_ += length;
    totalReceived_ += length;
    offset_ += static_cast<int64_t>(length);
    lastByteTime_ = ContextNow();
    if (hash_ != nullptr) hash_->Update(data, length);
  }
  channel->Write(data, length);
  AddArrivedBytes(length);
  WispTotals::AddCdnBytes(length);
}

void WispDownloadExecutor::OnError(wisp::http::IRequestCall* call, const wisp::http::Error& error) {
  DL_LOGW << logTag_ << " OnError " << "] request_id:" << call->RequestId() << ", error:" << error.String()
          << " this:" << this;
  std::shared_ptr<ByteChannel> channel;
  int64_t subCode = 0;
  {
    wisp::MutexLock lock(&mutex_);
    if (!IsCurrent(call)) return;
    error_ = error;
    channel = channel_;
    subCode = FailureSubCodeLocked();
  }
  DL_LOGW << "[KeyFlow][" << logTag_ << "] WISPDownloadExecutor OnError errorIs:" << error.String();
  if (channel == nullptr) {
    DL_LOGW << logTag_ << "] error! cur_queue is null";
  } else {
    EndChannel(channel, subCode != 0 ? DLResultCode(kDLFailure, subCode) : DLResultCode(kDLEndOfData, 0));
  }
}

void WispDownloadExecutor::OnComplete(wisp::http::IRequestCall* call) {
  std::shared_ptr<ByteChannel> channel;
  uint64_t receivedBytes = 0;
  {
    wisp::MutexLock lock(&mutex_);
    if (!IsCurrent(call)) return;
    channel = channel_;
    receivedBytes = receivedBytes_;
  }
  DL_LOGI << logTag_ << "] WISPDownloadExecutor Complete size:" << receivedBytes;
  if (channel != nullptr) EndChannel(channel, DLResultCode(kDLEndOfData, 0));
}

void WispDownloadExecutor::EndChannel(const std::shared_ptr<ByteChannel>& channel, const DLResultCode& status) {
  // Before the end: a reader that sees the end sees a stopped clock.
  EndReceiving();
  channel->End(status);
  cv_.notify_all();
}

void WispDownloadExecutor::OnStatusPhase(wisp::http::IRequestCall* call, wisp::http::StatusPhase phase,
                                         int64_t value) {
  DL_LOGD << logTag_ << " OnStatusPhase " << static_cast<int32_t>(phase) << " value:" << value
          << " request_id:" << call->RequestId() << " trace:" << request_->traceUrl;
}

// --- Statistics ------------------------------------------------------------

void WispDownloadExecutor::RefreshRecord() {
  std::shared_ptr<wisp::http::IRequestCall> call;
  {
    wisp::MutexLock lock(&mutex_);
    call = call_;
  }
  if (call == nullptr) return;  // the last request's record stands
  const wisp::http::MetricsInfo metrics = call->GetMetrics();

  wisp::MutexLock lock(&mutex_);
  RequestRecord record;
  record["effectiveUrl"] = response_ != nullptr ? response_->EffectiveUrl() : requestUrl_;
  record["header"] = response_ != nullptr ? response_->GetHeaders().ToString() : std::string();
  record["cdnIp"] = response_ != nullptr && !response_->ServerAddress().empty() ? response_->ServerAddress()
                                                                                : metrics.serverAddress;
  record["speed"] = std::to_string(CurrentSpeedLocked());
  record["httpCode"] = std::to_string(response_ != nullptr ? response_->Status() : error_.status);
  record["downloadSize"] = std::to_string(receivedBytes_);
  record["firstBTime"] = std::to_string(MicrosToMillis(metrics.timing.firstByteUs));
  record["dnsType"] = metrics.connectionReused ? "reused"
                      : metrics.timing.dnsUs == wisp::http::TimingInfo::kNotReached ? "none"
                                                                                     : "system";
  record["connectTime"] = std::to_string(MicrosToMillis(metrics.timing.connectUs));
  record["hostIpList"] = JoinAddresses(metrics.resolvedAddresses);
  const int64_t downloadTimeMs =
      metrics.timing.totalUs != wisp::http::TimingInfo::kNotReached
          ? MicrosToMillis(metrics.timing.totalUs)
          : std::chrono::duration_cast<std::chrono::milliseconds>(ContextNow() - requestStartTime_).count();
  record["downloadTime"] = std::to_string(downloadTimeMs);
  record["extChannelVol"] = "0";
  record["speedUp"] = speedUp_ ? "1" : "0";
  record["pcdnNotRespond"] = pcdnNotRespond_ ? "1" : "0";
  record_ = std::move(record);
}

int64_t WispDownloadExecutor::CurrentSpeedLocked() const {
  if (receivedBytes_ == 0 || responseTime_ == Clock::time_point()) return 0;
  const int64_t micros =
      std::max<int64_t>(1, std::chrono::duration_cast<std::chrono::microseconds>(lastByteTime_ - responseTime_).count());
  return static_cast<int64_t>(static_cast<double>(receivedBytes_) * 1e6 / static_cast<double>(micros));
}

std::string WispDownloadExecutor::GetInfo(const std::string& key) {
  if (key == "player_event") return PlayerEventText();
  const bool fromRecord = key == "download_time" || key == "download_size" || key == "effective_url" || key == "cdn_ip";
  if (fromRecord) RefreshRecord();
  wisp::MutexLock lock(&mutex_);
  if (key == "download_time") return record_["downloadTime"];
  if (key == "download_size") return record_["downloadSize"];
  if (key == "effective_url") return record_["effectiveUrl"];
  if (key == "cdn_ip") return record_["cdnIp"];
  if (key == "downloaded_size") return std::to_string(totalReceived_);
  if (key == "is_loaded_from_cache") return "6";
  if (key == "executor_name") return "wisp_download_filter";
  if (key == "channel_type") return request_->channelType.value_or(kNoChannelType);
  if (key == "is_timeout") return timedOut_ ? "1" : "0";
  if (key == "error_message") return FailureReasonLocked();
  if (key == "error_kind") return FailureKindLocked();
  if (key == "track_info") return track_.empty() ? std::string() : WispTrackInfo::ToText(track_);
  if (key == "download_speed") {
    const int64_t speed = CurrentSpeedLocked();
    DL_LOGD << logTag_ << "speed:" << speed;
    return std::to_string(speed);
  }
  if (key == "memory_usage") {
    const uint64_t held = channel_ != nullptr ? channel_->HeldBytes() : 0;
    DL_LOGD << logTag_ << "memory usage:" << held;
    return std::to_string(held);
  }
  return std::string();
}

std::string WispDownloadExecutor::FailureReasonLocked() const {
  if (error_.IsError()) return HttpErrorCode::Reason(error_);
  if (readTimedOut_) return "timed out after " + std::to_string(readTimeoutMs_) + " ms waiting for data";
  return std::string();
}

int64_t WispDownloadExecutor::FailureSubCodeLocked() const {
  return headerRefused_ ? HttpErrorCode::kHeaderRefused : HttpErrorCode::FromError(error_);
}

std::string WispDownloadExecutor::FailureKindLocked() const {
  if (error_.IsError()) return wisp::http::ErrorKindName(error_.kind);
  if (readTimedOut_) return wisp::http::ErrorKindName(wisp::http::ErrorKind::kTimeout);
  return std::string();
}

std::string WispDownloadExecutor::PlayerEventText() {
  if (!enableFill_) return std::string();
  RefreshRecord();
  std::string text = "@BizType>wisp";
  auto add = [&text](const char* name, const std::string& value) { text += std::string("^") + name + ">" + value; };
  wisp::MutexLock lock(&mutex_);
  if (request_->jobType) add("job_type", *request_->jobType);
  add("open_buffer", std::to_string(openBufferMs_));
  if (request_->channelType) add("channelType", *request_->channelType);
  auto volume = record_.find("extChannelVol");
  add("extChannelVol", volume != record_.end() ? volume->second : "0");
  add("cur_buffer", std::to_string(playerBufferMs_));
  add("bitRate", std::to_string(request_->bitRate));
  return text;
}

void WispDownloadExecutor::HashDump() {
  std::string digest;
  int64_t start = 0;
  int64_t end = 0;
  uint64_t total = 0;
  {
    wisp::MutexLock lock(&mutex_);
    if (hash_ == nullptr) return;
    digest = hash_->FinalHex();
    hash_.reset();
    start = requestStart_;
    end = offset_;
    total = receivedBytes_;
  }
  DL_LOGI << logTag_ << "] hash result:" << digest << ", start offset:" << start << ", end offset:" << end
          << ", total:" << total;
}

void WispDownloadExecutor::ReportLastInfo() {
  if (!reportLast_ || preload_) return;
  RequestRecord record;
  {
    wisp::MutexLock lock(&mutex_);
    record = record_;
  }
  if (record.empty()) return;  // no request was made
  DL_LOGI << logTag_ << "ReportLastInfo report start  ";
  const std::vector<RequestRecord> kept = WispLastReports::Keep(playerId_, record);
  if (reporter_ == nullptr) {
    DL_LOGW << logTag_ << "wisp ReportLast3TimesRecords mReporter is null";
    return;
  }
  reporter_->Report(kReportCategory, "wispLastReports", WispLastReports::ToText(kept));
  DL_LOGI << logTag_ << "wisp ReportLast3TimesRecords report " << kept.size();
  reporter_->Report(kReportCategory, "lastSpeedInfo", WispLastReports::ToText({{{"speed", record["speed"]}}}));
}

}  // namespace downloader
