#include <downloader/Filter/PcdnDownloadExecutor.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

#include <nlohmann/json.hpp>

#include <downloader/Base/HeartPacemaker.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>
#include <wisp/Mutex.h>

#include "Base/ByteChannel.h"
#include "Base/Settings.h"
#include "Stream/PcdnReadEvent.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr int kEngineMode = 0;
constexpr int64_t kToTheEnd = -1;
constexpr int kGoOn = 0;
constexpr int kStopDelivering = 1;
constexpr char kHeartbeatKey[] = "itf-heartbeat";

// Open executors by engine download id. The engine may call back after an
// executor closed or died: the weak pointer then finds nobody.
class ExecutorRegistry {
 public:
  static ExecutorRegistry& Instance() {
    static ExecutorRegistry* registry = new ExecutorRegistry();
    return *registry;
  }
  void Add(int64_t id, const std::weak_ptr<PcdnDownloadExecutor>& executor) {
    wisp::MutexLock lock(&mutex_);
    executors_[id] = executor;
  }
  void Remove(int64_t id) {
    wisp::MutexLock lock(&mutex_);
    executors_.erase(id);
  }
  std::shared_ptr<PcdnDownloadExecutor> Find(int64_t id) {
    wisp::MutexLock lock(&mutex_);
    auto found = executors_.find(id);
    return found == executors_.end() ? nullptr : found->second.lock();
  }

 private:
  wisp::Mutex mutex_;
  std::map<int64_t, std::weak_ptr<PcdnDownloadExecutor>> executors_ GUARDED_BY(mutex_);
};

}  // namespace

PcdnDownloadExecutor::PcdnDownloadExecutor(std::shared_ptr<protocols::IConfigure> config,
                                           std::shared_ptr<protocols::IReporter> reporter)
    : config_(std::move(config)), reporter_(std::move(reporter)) {}

PcdnDownloadExecutor::~PcdnDownloadExecutor() { Close(); }

// --- Opening ---------------------------------------------------------------

DLResultCode PcdnDownloadExecutor::Open(const std::shared_ptr<URI>& uri) {
  if (uri == nullptr) return DLResultCode(kDLFailure, kOpenFailedSubCode);
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return DLResultCode(kDLFailure, kClosedSubCode);
  }
  url_ = uri->GetStringRep();
  const DownloaderSettings settings = DownloaderSettings::Read(config_);
  const RequestParams request = RequestParams::Read(uri->GetParams());
  readTimeoutMs_ = settings.readTimeoutMs;
  const int64_t offset = std::max<int64_t>(0, request.rangeStart);
  const int64_t id = PcdnInterfaceHelper::dlPCDNOpen(url_.c_str(), kEngineMode, "");
  if (id <= 0) {
    DL_LOGW << "pcdn open failed, url:" << url_ << ", id:" << id;
    wisp::MutexLock lock(&mutex_);
    openFailed_ = true;
    return DLResultCode(kDLFailure, kOpenFailedSubCode);
  }
  ExecutorRegistry::Instance().Add(id, weak_from_this());
  {
    wisp::MutexLock lock(&mutex_);
    downloadId_ = id;
  }
  if (settings.pcdnHeartbeat) {
    StartHeartbeat(request.playerId, id);
  }
  DL_LOGI << "pcdn open, id:" << id << ", offset:" << offset << ", url:" << url_;
  DLResultCode started = StartRead(offset, true);
  DLResultCode result = started.IsSuccess() ? WaitFirstEvent() : started;
  if (!result.IsSuccess()) {
    wisp::MutexLock lock(&mutex_);
    openFailed_ = true;
  }
  return result;
}

DLResultCode PcdnDownloadExecutor::OpenAsync(const std::shared_ptr<URI>& /*uri*/) {
  return DLResultCode(kDLFailure, 0);
}

DLResultCode PcdnDownloadExecutor::WaitOpenResult() { return DLResultCode(kDLFailure, 0); }

DLResultCode PcdnDownloadExecutor::StartRead(int64_t offset, bool freshChannel) {
  int64_t id = 0;
  std::shared_ptr<ByteChannel> replaced;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return DLResultCode(kDLFailure, kClosedSubCode);
    id = downloadId_;
    if (freshChannel || channel_ == nullptr) {
      replaced = std::move(channel_);
      // A closed channel signals nothing, and Close (also run by the destructor) closes it.
      channel_ = std::make_shared<ByteChannel>([this](bool pause, uint64_t queued) { ApplyFlow(pause, queued); });
    }
    nextOffset_ = offset;
    firstEvent_ = false;
    readFailure_ = 0;
    readDelivered_ = false;
    stopDelivery_ = false;
    resumeDue_ = false;
  }
  if (replaced != nullptr) replaced->Close();
  // Outside the lock: the engine may wait for a running callback, which takes it.
  const int answer = PcdnInterfaceHelper::dlPCDNRead(id, kEngineMode, url_.c_str(), offset, kToTheEnd, "",
                                                     &PcdnDownloadExecutor::OnEngineRead);
  if (answer != 0) {
    DL_LOGW << "pcdn read refused, id:" << id << ", offset:" << offset << ", answer:" << answer;
    return DLResultCode(kDLFailure, kReadRefusedSubCode);
  }
  return DLResultCode(kDLSuccess, 0);
}

DLResultCode PcdnDownloadExecutor::WaitFirstEvent() {
  Clock& clock = LibraryContext::Current().clock();
  const Clock::TimePoint deadline = clock.Now() + std::chrono::milliseconds(readTimeoutMs_);
  wisp::MutexLock lock(&mutex_);
  while (!firstEvent_ && !closed_) {
    const Clock::TimePoint now = clock.Now();
    if (now >= deadline) {
      timedOut_ = true;
      DL_LOGW << "pcdn open timed out after " << readTimeoutMs_ << " ms, id:" << downloadId_;
      return DLResultCode(kDLFailure, kTimeoutSubCode);
    }
    clock.WaitUntil(cv_, lock, std::min<Clock::TimePoint>(deadline, now + ByteChannel::kWaitStep));
  }
  if (closed_) return DLResultCode(kDLFailure, kClosedSubCode);
  // A read that failed before its first byte is a failed open (or seek).
  if (readFailure_ != 0 && !readDelivered_) return DLResultCode(kDLFailure, readFailure_);
  return DLResultCode(kDLSuccess, 0);
}

void PcdnDownloadExecutor::StartHeartbeat(int32_t playerId, int64_t downloadId) {
  PacemakerParams params;
  params.pid = playerId;
  params.duration = kDefaultHeartbeatMs;
  params.label = "pcdn";
  // Captures the id only: a beat never reaches the executor.
  params.consumer = [downloadId](const HeartbeatInfo& info) {
    nlohmann::json beat(nlohmann::json::value_t::object);
    for (const auto& entry : info) beat[entry.first] = entry.second;
    beat["download_id"] = downloadId;
    PcdnInterfaceHelper::dlPCDNSetByKV(kHeartbeatKey, beat.dump().c_str());
  };
  auto pacemaker = HeartPacemaker::Create();
  pacemaker->Start(params);
  wisp::MutexLock lock(&mutex_);
  pacemaker_ = std::move(pacemaker);
}

// --- Engine callbacks ------------------------------------------------------

int PcdnDownloadExecutor::OnEngineRead(int64_t id, int64_t offset, int kind, const char* data, int64_t length,
                                       int64_t total, int code, const char* info) {
  std::shared_ptr<PcdnDownloadExecutor> executor = ExecutorRegistry::Instance().Find(id);
  if (executor == nullptr) {
    DL_LOGD << "pcdn callback for no open executor, id:" << id << ", kind:" << kind;
    return kStopDelivering;
  }
  if (kind == kPcdnReadError) {
    DL_LOGW << "pcdn read error, id:" << id << ", offset:" << offset << ", code:" << code
            << ", info:" << (info == nullptr ? "" : info);
  }
  return executor->HandleEngineRead(offset, kind, data, length, total, code);
}

int PcdnDownloadExecutor::HandleEngineRead(int64_t offset, int kind, const char* data, int64_t length,
                                           int64_t total, int code) {
  wisp::MutexLock delivery(&deliveryMutex_);
  std::shared_ptr<ByteChannel> channel;
  bool end = false;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_ || channel_ == nullptr || channel_->Ended()) return kStopDelivering;
    if (offset != nextOffset_) return kStopDelivering;  // a replaced read
    if (total > 0) totalSize_ = total;
    if (kind == kPcdnReadData) {
      if (data == nullptr || length <= 0) return kGoOn;
      nextOffset_ += length;
      receivedBytes_ += static_cast<uint64_t>(length);
      readDelivered_ = true;
    } else {
      // A failure at or past the end of a resource of known size is its end.
      const bool pastTheEnd = kind == kPcdnReadError && totalSize_ > 0 && offset >= totalSize_;
      end = kind == kPcdnReadDone || pastTheEnd;
      DL_LOGD << "pcdn read ended, offset:" << offset << ", end:" << end << ", code:" << code;
      if (!end) readFailure_ = kEngineErrorSubCode;
    }
    channel = channel_;
  }
  // Outside mutex_: a write may signal the flow, which takes it.
  if (kind == kPcdnReadData) {
    channel->Write(data, static_cast<size_t>(length));
  } else {
    channel->End(end ? DLResultCode(kDLEndOfData, 0) : DLResultCode(kDLFailure, kEngineErrorSubCode));
  }
  int answer = kGoOn;
  {
    wisp::MutexLock lock(&mutex_);
    if (stopDelivery_ && kind == kPcdnReadData) answer = kStopDelivering;
    firstEvent_ = true;
  }
  cv_.notify_all();
  return answer;
}

void PcdnDownloadExecutor::ApplyFlow(bool pause, uint64_t queuedBytes) {
  wisp::MutexLock lock(&mutex_);
  if (pause) {
    stopDelivery_ = true;
    DL_LOGD << "pcdn delivery paused, queued:" << queuedBytes;
  } else if (stopDelivery_) {
    resumeDue_ = true;
  }
}

void PcdnDownloadExecutor::ResumeIfDue() {
  int64_t offset = 0;
  {
    wisp::MutexLock lock(&mutex_);
    if (!resumeDue_ || closed_) return;
    resumeDue_ = false;
    offset = nextOffset_;
  }
  DL_LOGD << "pcdn delivery resumed at " << offset;
  DLResultCode resumed = StartRead(offset, false);
  if (resumed.IsSuccess()) return;
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    channel = channel_;
  }
  if (channel != nullptr) channel->End(DLResultCode(kDLFailure, resumed.subCode));
}

// --- Reading ---------------------------------------------------------------

DLReadResult PcdnDownloadExecutor::Read(Packet& packet) {
  DLReadResult result;
  result.Set(kDLSuccess, 0, 0);
  if (packet.GetSize() == 0 || packet.GetBuffer() == nullptr) return result;
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_ || openFailed_ || channel_ == nullptr) {
      static_cast<DLResultCode&>(result) = FailedResult();
      return result;
    }
    channel = channel_;
  }
  const ByteChannel::ReadOutcome outcome = channel->Read(
      packet.GetBuffer(), static_cast<size_t>(packet.GetSize()),
      LibraryContext::Current().clock().Now() + std::chrono::milliseconds(readTimeoutMs_));
  ResumeIfDue();
  switch (outcome.status) {
    case ByteChannel::ReadStatus::kBytes:
      result.Set(kDLSuccess, outcome.bytes, 0);
      return result;
    case ByteChannel::ReadStatus::kEnded:
      result.Set(outcome.end.code, 0, outcome.end.subCode);
      return result;
    case ByteChannel::ReadStatus::kClosed:
      result.Set(kDLFailure, 0, kClosedSubCode);
      return result;
    case ByteChannel::ReadStatus::kTimedOut:
      break;
  }
  wisp::MutexLock lock(&mutex_);
  timedOut_ = true;
  DL_LOGW << "pcdn read timed out after " << readTimeoutMs_ << " ms, id:" << downloadId_;
  result.Set(kDLFailure, 0, kTimeoutSubCode);
  return result;
}

DLResultCode PcdnDownloadExecutor::FailedResult() const {
  return DLResultCode(kDLFailure, closed_ ? kClosedSubCode : kOpenFailedSubCode);
}

// --- Seek and Close --------------------------------------------------------

DLResultCode PcdnDownloadExecutor::Seek(int64_t offset) {
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_ || openFailed_ || downloadId_ <= 0) return FailedResult();
  }
  if (offset < 0) return DLResultCode(kDLFailure, kReadRefusedSubCode);
  DL_LOGI << "pcdn seek to " << offset << ", url:" << url_;
  DLResultCode result = StartRead(offset, true);
  return result.IsSuccess() ? WaitFirstEvent() : result;
}

DLResultCode PcdnDownloadExecutor::Close() {
  int64_t id = 0;
  std::shared_ptr<HeartPacemaker> pacemaker;
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return DLResultCode(kDLSuccess, 0);
    closed_ = true;
    id = downloadId_;
    pacemaker = std::move(pacemaker_);
    channel = std::move(channel_);
  }
  cv_.notify_all();
  if (channel != nullptr) channel->Close();
  // Outside the lock: Stop joins a running beat, the engine a running callback.
  if (pacemaker != nullptr) pacemaker->Stop();
  if (id > 0) {
    ExecutorRegistry::Instance().Remove(id);
    PcdnInterfaceHelper::dlPCDNClose(id);
    uint64_t received = 0;
    {
      wisp::MutexLock lock(&mutex_);
      received = receivedBytes_;
    }
    DL_LOGI << "pcdn close, id:" << id << ", received:" << received;
  }
  return DLResultCode(kDLSuccess, 0);
}

// --- Simple queries --------------------------------------------------------

int64_t PcdnDownloadExecutor::GetFileSize() {
  wisp::MutexLock lock(&mutex_);
  return totalSize_;
}

bool PcdnDownloadExecutor::IsReady() {
  wisp::MutexLock lock(&mutex_);
  return firstEvent_;
}

void PcdnDownloadExecutor::SetHint(const std::string& /*hint*/) {}

std::string PcdnDownloadExecutor::GetInfo(const std::string& key) {
  wisp::MutexLock lock(&mutex_);
  if (key == "downloaded_size") return std::to_string(receivedBytes_);
  if (key == "download_id") return std::to_string(downloadId_);
  if (key == "executor_name") return "pcdn_download_filter";
  if (key == "is_timeout") return timedOut_ ? "1" : "0";
  return std::string();
}

std::string PcdnDownloadExecutor::GetName() { return "PCDN"; }

int32_t PcdnDownloadExecutor::GetExecutorType() { return 1; }

}  // namespace downloader
