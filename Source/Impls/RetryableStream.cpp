#include "Impls/RetryableStream.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include <downloader/Base/URIBuilder.h>
#include <downloader/Base/URIIdentifier.h>
#include <downloader/Pipe/DownloadPipeline.h>
#include <downloader/Pipe/ITunnel.h>
#include <downloader/Storage/CacheWriter.h>
#include <downloader/Strategy/DrainCalculatorFactory.h>
#include <downloader/Strategy/Source.h>
#include <wisp/Mutex.h>

#include "Base/RequestKind.h"
#include "Impls/DownloadLevels.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

// Bounds the levels one Read may go through before it answers.
constexpr int32_t kMaxDowngradesPerRead = 4;
constexpr char kStatsCategory[] = "downloader";

// Gives a rebuilt request the identity of the request it was built from, so
// that the cache keys on what the host asked for.
class FixedIdentifier : public URIIdentifier {
 public:
  FixedIdentifier(std::string id, std::string groupId) : id_(std::move(id)), groupId_(std::move(groupId)) {}
  std::string ID(const URI* /*uri*/) override { return id_; }
  std::string GroupID(const URI* /*uri*/) override { return groupId_; }

 private:
  std::string id_;
  std::string groupId_;
};

std::shared_ptr<URI> WithParams(const std::shared_ptr<URI>& uri, const StreamParams& params) {
  FixedIdentifier identifier(uri->ID(), uri->GroupID());
  URIBuilder builder = URIBuilder::FromURI(uri);
  builder.params = params;
  return builder.SetUrl(uri->GetStringRep())
      .SetHttpHeader(uri->GetHttpHeader())
      .SetURIIdentifier(&identifier)
      .Build();
}

std::string ResultText(const DLResultCode& result) {
  std::string text = "code:" + std::to_string(result.code) + ",sub_code:" + std::to_string(result.subCode);
  std::string tag = SubCodeTag(result.subCode);
  if (!tag.empty()) text += "(" + tag + ")";
  return text;
}

// Time-outs and waits follow the library context's clock.
Clock::TimePoint ContextNow() { return LibraryContext::Current().clock().Now(); }

}  // namespace

RetryableStream::RetryableStream()
    : controller_(std::make_shared<FlowRateController>()), stats_(std::make_shared<StreamStats>()) {}

RetryableStream::~RetryableStream() { Close(); }

// ---------------------------------------------------------------------------
// Wiring and state slots.

void RetryableStream::SetConfigure(ConfigPtr config) { config_ = std::move(config); }

void RetryableStream::SetReporter(std::shared_ptr<protocols::IReporter> reporter) {
  reporter_ = std::move(reporter);
}

void RetryableStream::SetPipeline(DownloadPipeline* pipeline) { pipeline_ = pipeline; }

void RetryableStream::SetTunnel(std::shared_ptr<ITunnel> tunnel) { tunnel_ = std::move(tunnel); }

void RetryableStream::SetStreamSettings(const StreamParams& settings) {
  wisp::MutexLock lock(&mutex_);
  settings_ = settings;
  if (!uri_) params_ = settings;
}

void RetryableStream::SetPulseConsumer(std::shared_ptr<PlayStateMonitor> monitor) {
  controller_->SetPlayStateMonitor(std::move(monitor));
}

void RetryableStream::SetSequence(uint64_t sequence) { sequence_.store(sequence); }

uint64_t RetryableStream::GetSequence() { return sequence_.load(); }

void RetryableStream::OnBufferStateUpdated(BufferState state) { controller_->OnBufferStateUpdated(state); }

void RetryableStream::OnStreamingStateUpdated(StreamingState state) { controller_->OnStreamingStateUpdated(state); }

void RetryableStream::OnPulseDataUpdated(const PulseData& data) { controller_->OnPulseDataUpdated(data); }

std::string RetryableStream::GetParam(const std::string& key) {
  wisp::MutexLock lock(&mutex_);
  return ReadParamString(params_, key, std::string());
}

int32_t RetryableStream::PlayerId() { return request_.playerId; }

// ---------------------------------------------------------------------------
// Open.

DLResultCode RetryableStream::Open(const std::shared_ptr<URI>& uri) {
  DLResultCode prepared = PrepareOpen(uri, "");
  if (!prepared.IsSuccess()) return prepared;
  DownloaderSettings::OpenScope scope(config_, openSettings_);
  storage::CacheWriter::ScheduleCleaning(config_);
  DLResultCode result = OpenWalk();
  FinishOpen(result);
  return result;
}

DLResultCode RetryableStream::OpenAsync(const std::shared_ptr<URI>& uri) {
  DLResultCode prepared = PrepareOpen(uri, "[async]");
  if (!prepared.IsSuccess()) return prepared;
  DownloaderSettings::OpenScope scope(config_, openSettings_);
  storage::CacheWriter::ScheduleCleaning(config_);
  if (RequestKind::Of(url_).playlist) {
    DL_LOGI << "FLOWRATE-> can't set open cb due to m3u8!";
    DLResultCode result = OpenWalk();
    FinishOpen(result);
    wisp::MutexLock lock(&mutex_);
    asyncDone_ = true;
    asyncResult_ = result;
    return DLResultCode(kDLSuccess, 0);
  }
  asyncStartedAt_ = ContextNow();
  opener_ = std::thread([this] { RunAsyncOpen(); });
  return DLResultCode(kDLSuccess, 0);
}

void RetryableStream::RunAsyncOpen() {
  DownloaderSettings::OpenScope scope(config_, openSettings_);
  DLResultCode result = OpenWalk();
  wisp::MutexLock lock(&mutex_);
  asyncDone_ = true;
  asyncResult_ = result;
  asyncDoneChanged_.notify_all();
}

DLResultCode RetryableStream::IsOpenReady() {
  if (!opener_.joinable()) {
    wisp::MutexLock lock(&mutex_);
    return asyncDone_ ? asyncResult_ : DLResultCode(kDLFailure, kNotOpenSubCode);
  }
  int32_t checkMs = openSettings_.asyncOpenCheckMs;
  bool done = false;
  {
    Clock& clock = LibraryContext::Current().clock();
    wisp::MutexLock lock(&mutex_);
    done = clock.WaitUntil(asyncDoneChanged_, lock, clock.Now() + std::chrono::milliseconds(std::max(checkMs, 1)),
                           [this]() REQUIRES(mutex_) { return asyncDone_; });
  }
  if (!done) {
    int64_t timeoutMs = openSettings_.asyncOpenTimeoutMs;
    int64_t elapsedMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(ContextNow() - asyncStartedAt_).count();
    if (elapsedMs < timeoutMs) return DLResultCode(kDLOpenPending, 0);
    DL_LOGW << "isopenready,timeout:" << elapsedMs;
    CancelOpening();
  }
  JoinOpener();
  if (!done) {
    if (executor_) {
      executor_->Close();
      executor_.reset();
    }
    opened_ = false;
    openResult_ = DLResultCode(kDLFailure, kOpenTimeoutSubCode);
    wisp::MutexLock lock(&mutex_);
    asyncResult_ = openResult_;
  }
  return openResult_;
}

void RetryableStream::CancelOpening() {
  std::shared_ptr<IDownloadExecutor> opening;
  {
    wisp::MutexLock lock(&mutex_);
    cancelled_ = true;
    opening = openingExecutor_;
  }
  // Outside the lock: closing wakes the open that the opener thread waits in.
  if (opening) opening->Close();
}

void RetryableStream::JoinOpener() {
  if (!opener_.joinable()) return;
  opener_.join();
  DLResultCode result;
  {
    wisp::MutexLock lock(&mutex_);
    result = asyncResult_;
  }
  FinishOpen(result);
}

DLResultCode RetryableStream::PrepareOpen(const std::shared_ptr<URI>& uri, const char* mode) {
  if (!uri || closed_ || opened_ || opener_.joinable()) {
    DL_LOGW << "]" << mode << " open refused, uri:" << (uri ? uri->GetStringRep() : std::string());
    return DLResultCode(kDLFailure, kBadRequestSubCode);
  }
  StreamParams params;
  {
    wisp::MutexLock lock(&mutex_);
    params = settings_;
  }
  for (const auto& keyAndValue : uri->GetParams()) params[keyAndValue.first] = keyAndValue.second;
  std::shared_ptr<URI> request = WithParams(uri, params);
  {
    wisp::MutexLock lock(&mutex_);
    params_ = params;
    uri_ = request;
  }
  url_ = uri->GetStringRep();
  openSettings_ = DownloaderSettings::Read(config_);
  request_ = RequestParams::Read(params);
  DL_LOGI << "]" << mode << " RetryableStream open url:" << url_ << ", need trace:" << ParseBool(request_.traceUrl)
          << ", default_pack_size:" << openSettings_.cacheWriterPacketSize;
  readTimeoutMs_ = openSettings_.readTimeoutMs;
  DownloaderSettings::OpenScope scope(config_, openSettings_);
  mask_ = DownloadLevels::RequiredMask(openSettings_, request_, url_);
  forbidDowngrade_ = mask_ == DownloadLevels::kPcdnOnly;
  offset_ = std::max<int64_t>(0, request_.rangeStart);
  controller_->Configure(openSettings_, request_, uri->GetDuration());
  calculator_ = DrainCalculatorFactory::Create(config_, controller_);
  segmentWritingWanted_ = storage::CacheWriter::WritesSegments(config_, url_);
  return DLResultCode(kDLSuccess, 0);
}

DLDownloadLevel RetryableStream::InitialLevel() const {
  if (mask_ == DownloadLevels::kPcdnOnly) return kDLLevelPcdn;
  // The cache levels serve a request that starts past 0 only when told to
  // honour its range; otherwise they would deliver from offset 0.
  if (offset_ > 0 && !openSettings_.enableCacheFilterRangeStart) {
    return kDLLevelPcdn;
  }
  return kDLLevelCache;
}

bool RetryableStream::InMask(DLDownloadLevel level) const {
  return level == kDLLevelCache || (static_cast<uint32_t>(level) & mask_) != 0;
}

DLDownloadLevel RetryableStream::NextLevel(DLDownloadLevel current) {
  return DownloadLevels::Next(current, mask_, forbidDowngrade_, &downgradeForbiddenHit_);
}

DLDownloadLevel RetryableStream::WalkLevels(DLDownloadLevel from, bool tryFrom, const LevelVisitor& tryLevel) {
  std::set<int32_t> visited;
  DLDownloadLevel level = from;
  if (tryFrom) {
    visited.insert(from);
    if (InMask(from) && tryLevel(from, false)) return from;
  }
  while (true) {
    DLDownloadLevel next = NextLevel(level);
    if (next == level || visited.count(next) != 0) return level;
    visited.insert(next);
    level = next;
    if (InMask(next) && tryLevel(next, true)) return next;
  }
}

void RetryableStream::CommitFailedAttempt(StatsStage stage, const std::string& prefix, DLDownloadLevel level,
                                          const LevelAttempt& attempt) {
  Commit(stage, prefix + (attempt.responded ? "_open_error" : "_respond_error"), level, attempt.result);
}

DLResultCode RetryableStream::OpenWalk() {
  DLDownloadLevel initial = InitialLevel();
  Commit(kStatsStageOpen, "init_level", initial, DLResultCode(kDLSuccess, 0));
  bool executorOpened = false;
  DLResultCode lastOpenFailure;
  DLResultCode lastRefusal(kDLFailure, kNoFilterSubCode);
  std::optional<DLResultCode> answer;
  WalkLevels(initial, true, [&](DLDownloadLevel level, bool moved) {
    if (moved) Commit(kStatsStageOpen, "open_downgrade", level, DLResultCode(kDLSuccess, 0));
    LevelAttempt attempt = OpenAtLevel(level);
    if (attempt.executor || attempt.result.subCode == kClosedSubCode) {
      if (attempt.executor) InstallExecutor(std::move(attempt.executor), level);
      answer = attempt.result;
      return true;
    }
    if (attempt.responded) {
      executorOpened = true;
      lastOpenFailure = attempt.result;
      failureReason_ = attempt.reason;
      failureKind_ = attempt.kind;
    } else {
      lastRefusal = attempt.result;
    }
    CommitFailedAttempt(kStatsStageOpen, "open", level, attempt);
    return false;
  });
  if (answer) return *answer;
  return executorOpened ? lastOpenFailure : lastRefusal;
}

std::shared_ptr<URI> RetryableStream::RequestAtOffset() {
  std::shared_ptr<URI> request;
  {
    wisp::MutexLock lock(&mutex_);
    request = uri_;
  }
  if (offset_ == 0 && !request->ContainsParamKey("range_start")) return request;
  StreamParams params = request->GetParams();
  params["range_start"] = std::to_string(offset_);
  return WithParams(request, params);
}

RetryableStream::LevelAttempt RetryableStream::OpenAtLevel(DLDownloadLevel level) {
  LevelAttempt attempt;
  attempt.result = DLResultCode(kDLFailure, kNoFilterSubCode);
  if (pipeline_ == nullptr) return attempt;
  std::shared_ptr<URI> request = RequestAtOffset();
  std::shared_ptr<IStream> self = weak_from_this().lock();
  pipeline_->AccessFilter([&](DLDownloadLevel filterLevel, IDownloadFilter* filter) {
    if (!DownloadLevels::FilterServes(filterLevel, level)) return false;
    DLResultCode answer = filter->ShouldRespond(request, self);
    DL_LOGD << "] access filter, level:" << filterLevel << ", offset:" << offset_
            << ", shouldRespond:" << answer.code;
    attempt.result = answer;
    if (!answer.IsSuccess()) return true;
    std::shared_ptr<IDownloadExecutor> executor = filter->AcquireExecutor(request);
    if (!executor) {
      attempt.result = DLResultCode(kDLFailure, kNoExecutorSubCode);
      return true;
    }
    executor->SetStatsSink(stats_);
    {
      wisp::MutexLock lock(&mutex_);
      if (cancelled_) {
        attempt.result = DLResultCode(kDLFailure, kClosedSubCode);
        return true;
      }
      openingExecutor_ = executor;
    }
    attempt.responded = true;
    levelAttempts_.push_back(level);
    attempt.result = executor->Open(request);
    bool cancelled = false;
    {
      wisp::MutexLock lock(&mutex_);
      openingExecutor_.reset();
      cancelled = cancelled_;
    }
    if (attempt.result.IsSuccess() && !cancelled) {
      attempt.executor = std::move(executor);
    } else {
      if (cancelled) attempt.result = DLResultCode(kDLFailure, kClosedSubCode);
      attempt.reason = executor->GetInfo("error_message");
      attempt.kind = executor->GetInfo("error_kind");
      executor->Close();
    }
    return true;
  });
  return attempt;
}

void RetryableStream::InstallExecutor(std::shared_ptr<IDownloadExecutor> executor, DLDownloadLevel level) {
  executor_ = std::move(executor);
  level_ = level;
  levelHistory_.push_back(level);
  fileSize_ = executor_->GetFileSize();
  controller_->OnFileSizeKnown(fileSize_);
  // An executor that counts what its channel receives is the better inlet:
  // what the network delivers, not what this stream happened to read.
  controller_->SetInletSource(std::dynamic_pointer_cast<Source>(executor_));
  controller_->OnLevelChanged();
  calculator_->Reset();
  lastProgressAt_ = ContextNow();
  MaybeStartSegmentWriter();
}

void RetryableStream::FinishOpen(const DLResultCode& result) {
  openResult_ = result;
  opened_ = result.IsSuccess() && executor_ != nullptr;
  DL_LOGI << "] retryable stream done with uri:" << url_ << " with level " << level_ << ", result:" << result.code;
  DL_LOGI << "FLOWRATE-> open uri " << url_ << " curl_level: " << level_ << " code:" << result.code
          << " s_code:" << result.subCode;
}

// ---------------------------------------------------------------------------
// Read.

DLReadResult RetryableStream::Read(void* buffer, uint64_t size) {
  JoinOpener();
  DLReadResult result;
  if (closed_ || !executor_) {
    result.Set(kDLFailure, 0, kNotOpenSubCode);
    return result;
  }
  if (buffer == nullptr || size == 0) {
    result.Set(kDLSuccess, 0, 0);
    return result;
  }
  for (int32_t attempt = 1;; ++attempt) {
    result = InternalRead(buffer, size);
    if (result.code == kDLEndOfData) return result;
    if (result.code == kDLFailure) {
      failureReason_ = executor_->GetInfo("error_message");
      failureKind_ = executor_->GetInfo("error_kind");
    }
    ReadTrigger trigger = JudgeRead(&result);
    if (trigger == ReadTrigger::kNone || ReadDowngradeForbidden()) return result;
    bool switched = HandleReadDowngrade(trigger);
    // Bytes already delivered go back now; the new level serves the next read.
    if (result.bytes > 0 || !switched || attempt >= kMaxDowngradesPerRead) return result;
  }
}

DLReadResult RetryableStream::InternalRead(void* buffer, uint64_t size) {
  Packet packet(size);
  packet.SetBuffer(buffer);
  Clock::TimePoint startedAt = ContextNow();
  DLReadResult result = executor_->Read(packet);
  Clock::TimePoint endedAt = ContextNow();
  int64_t waitedUs = std::chrono::duration_cast<std::chrono::microseconds>(endedAt - startedAt).count();
  calculator_->SetBuffer(controller_->BufferedDurationMs());
  calculator_->OnRead(result.bytes, ClampToInt32(waitedUs), static_cast<uint64_t>(offset_));
  if (result.code == kDLSuccess && result.bytes > 0) {
    MaybeStartSegmentWriter();
    if (segmentWriter_) {
      storage::CacheWriter::StoreSegmentBytes(segmentWriter_, static_cast<uint64_t>(offset_),
                                              static_cast<const uint8_t*>(buffer), result.bytes);
    }
    offset_ += static_cast<int64_t>(result.bytes);
    bytesRead_ += result.bytes;
    lastProgressAt_ = endedAt;
    calculator_->Reset();
  }
  DL_LOGT << "] read result:" << result.code << ", second:" << result.subCode << ", level:" << level_
          << ", size:" << result.bytes << ", packet size:" << size << ", offset:" << offset_;
  return result;
}

RetryableStream::ReadTrigger RetryableStream::JudgeRead(DLReadResult* result) {
  if (result->code != kDLSuccess) {
    DL_LOGW << "] read failed, level:" << level_ << ", " << ResultText(*result) << ", offset:" << offset_;
    return ReadTrigger::kFailed;
  }
  if (result->bytes == 0) {
    int64_t idleMs = std::chrono::duration_cast<std::chrono::milliseconds>(ContextNow() - lastProgressAt_).count();
    if (idleMs >= readTimeoutMs_) {
      timedOut_ = true;
      DL_LOGW << "] read timed out, level:" << level_ << ", idle ms:" << idleMs << ", offset:" << offset_;
      return ReadTrigger::kTimedOut;
    }
  }
  return ShouldDoDownloadLevelDegrade(result) ? ReadTrigger::kDrained : ReadTrigger::kNone;
}

bool RetryableStream::ShouldDoDownloadLevelDegrade(DLReadResult* result) {
  if (downgradeForbiddenHit_) return false;
  bool drain = calculator_->IsDrain();
  if (drain) {
    std::string description = calculator_->Describe();
    result->details["track_msg"] = description;
    result->details["is_drain"] = "1";
    DL_LOGI << "FLOWRATE-> drain, level:" << level_ << ", offset:" << offset_ << ", " << description;
  }
  return drain;
}

bool RetryableStream::ReadDowngradeForbidden() const {
  bool forbidden = request_.disableReadDowngrade;
  if (level_ == kDLLevelPcdn) {
    bool isLive = request_.isLive;
    forbidden = forbidden || (isLive && openSettings_.disablePcdnLiveReadDowngrade) ||
                (!isLive && openSettings_.usePcdnNg && openSettings_.disablePcdnNgReadDowngrade);
  }
  if (forbidden) {
    DL_LOGD << "FLOWRATE-> read downgrade forbidden, level:" << level_;
  }
  return forbidden;
}

bool RetryableStream::HandleReadDowngrade(ReadTrigger trigger) {
  static const char* const kTriggerNames[] = {"none", "failed", "timeout", "drain"};
  DLDownloadLevel from = level_;
  DL_LOGI << "FLOWRATE-> HandleReadDowngrade [" << PlayerId() << "] reason:" << kTriggerNames[static_cast<int>(trigger)]
          << ", level:" << from << ", offset:" << offset_;
  DLResultCode lastFailure(kDLFailure, kNoFilterSubCode);
  bool switched = false;
  DLDownloadLevel last = WalkLevels(from, false, [&](DLDownloadLevel next, bool /*moved*/) {
    LevelAttempt attempt = OpenAtLevel(next);
    if (attempt.executor) {
      std::shared_ptr<IDownloadExecutor> previous = std::move(executor_);
      InstallExecutor(std::move(attempt.executor), next);
      if (previous) previous->Close();
      ++downgradeCount_;
      ++readDowngrades_["read_downgrade_" + std::to_string(from) + "_" + std::to_string(next)];
      Commit(kStatsStageRead, "read_downgrade", next, attempt.result);
      switched = true;
      return true;
    }
    lastFailure = attempt.result;
    CommitFailedAttempt(kStatsStageRead, "read", next, attempt);
    return false;
  });
  if (switched) {
    DL_LOGI << "FLOWRATE-> HandleReadDowngrade success [" << PlayerId()
            << "] downgrade done with executor level:" << last;
    DL_LOGI << "FLOWRATE-> did HandleReadDowngrade: playerid[" << PlayerId() << "]"
            << " cur_level:" << level_;
    return true;
  }
  DL_LOGW << "FLOWRATE-> HandleReadDowngrade fail [" << PlayerId() << "] downgrade fail with executor level:"
          << last << ",open code:" << lastFailure.code << ",secondary code:" << lastFailure.subCode;
  DL_LOGI << "FLOWRATE-> did HandleReadDowngrade: playerid[" << PlayerId() << "]"
          << " cur_level:" << level_;
  return false;
}

// ---------------------------------------------------------------------------
// Seek, size, information, close.

DLResultCode RetryableStream::Seek(int64_t offset) {
  JoinOpener();
  if (closed_ || !executor_ || offset < 0) return DLResultCode(kDLFailure, kNotOpenSubCode);
  DLResultCode result = executor_->Seek(offset);
  if (result.IsSuccess()) {
    offset_ = offset;
    lastProgressAt_ = ContextNow();
    controller_->OnLevelChanged();
    calculator_->Reset();
  }
  DL_LOGD << "]seek offset:" << offset << ",resultCode:" << result.code;
  return result;
}

int64_t RetryableStream::GetFileSize() {
  JoinOpener();
  if (!executor_) return 0;
  if (fileSize_ <= 0) fileSize_ = executor_->GetFileSize();
  return fileSize_;
}

std::string RetryableStream::GetInfo(const std::string& key) {
  JoinOpener();
  if (key == "stream_end_info") {
    std::string info = StreamEndInfo();
    DL_LOGD << "GetInfo for STREAM_END:" << info;
    return info;
  }
  if (key == "is_timeout") {
    DL_LOGD << "GetInfo for kDLInfoIsTimeout:" << timedOut_;
    return timedOut_ ? "1" : "0";
  }
  if (key == "level_tracker") {
    std::string tracker = JoinLevels(levelHistory_);
    DL_LOGD << "GetInfo for LEVEL_TRACKER:" << tracker;
    return tracker;
  }
  if (key == "level_attempts") return JoinLevels(levelAttempts_);
  if (key == "error_message") return failureReason_;
  if (key == "error_kind") return failureKind_;
  if (key == "stream_type") return request_.streamType;
  // The serving executor's own name ("CACHE", "WISP", ...), for hosts that
  // report which channel served a request.
  if (key == "executor") return executor_ ? executor_->GetName() : std::string();
  if (key == "memory_usage") {
    std::string usage = executor_ ? executor_->GetInfo("memory_usage") : std::string();
    return usage.empty() ? "0" : usage;
  }
  return executor_ ? executor_->GetInfo(key) : std::string();
}

DLResultCode RetryableStream::Close() {
  if (closed_) return DLResultCode(kDLSuccess, 0);
  CancelOpening();
  JoinOpener();
  closed_ = true;
  if (executor_) {
    DL_LOGI << "[KeyFlow] close stream [cdn_ip:" << executor_->GetInfo("cdn_ip") << "][url:" << url_ << "]";
  }
  std::string endInfo = StreamEndInfo();
  std::string tunnelStats = "tunnel_id:" + std::to_string(tunnel_ ? tunnel_->GetTunnelID() : 0) +
                            ",sequence:" + std::to_string(GetSequence()) + ",level:" + std::to_string(level_) +
                            ",downloadSize:" + std::to_string(bytesRead_);
  DL_LOGI << "tunnelstat:" << tunnelStats;
  if (reporter_ && !url_.empty()) {
    reporter_->Report(kStatsCategory, "stream_end_info", endInfo);
    reporter_->Report(kStatsCategory, "dltunnelstat", tunnelStats);
  }
  CompleteSegmentWriter();
  if (executor_) {
    executor_->Close();
    executor_.reset();
  }
  opened_ = false;
  return DLResultCode(kDLSuccess, 0);
}

// ---------------------------------------------------------------------------
// Segment writing.

void RetryableStream::MaybeStartSegmentWriter() {
  if (!segmentWritingWanted_ || segmentWriter_ || level_ == kDLLevelCache || !executor_) return;
  int64_t fileSize = executor_->GetFileSize();
  if (fileSize <= 0) return;
  fileSize_ = fileSize;
  std::shared_ptr<URI> request;
  {
    wisp::MutexLock lock(&mutex_);
    request = uri_;
  }
  segmentWriter_ = storage::CacheWriter::CreateSegmentWriter(config_, request, static_cast<uint64_t>(fileSize));
  // One attempt per stream: a cache that cannot take the resource now will
  // not take it later in this stream either.
  segmentWritingWanted_ = segmentWriter_ != nullptr;
  DL_LOGD << "] segment writer " << (segmentWriter_ ? "created" : "not available") << ", file size:" << fileSize
          << ", offset:" << offset_;
}

void RetryableStream::CompleteSegmentWriter() {
  if (!segmentWriter_) return;
  storage::CacheWriter::CompleteSegmentWriter(std::move(segmentWriter_));
  segmentWriter_.reset();
}

// ---------------------------------------------------------------------------
// Statistics.

void RetryableStream::Commit(StatsStage stage, const std::string& event, DLDownloadLevel level,
                             const DLResultCode& result) {
  if (pipeline_ == nullptr) return;
  pipeline_->CommitStats(stage, event + ",level:" + std::to_string(level) + "," + ResultText(result) +
                                    ",offset:" + std::to_string(offset_));
}

std::string RetryableStream::JoinLevels(const std::vector<DLDownloadLevel>& levels) {
  std::string joined;
  for (DLDownloadLevel level : levels) {
    if (!joined.empty()) joined += ">";
    joined += std::to_string(level);
  }
  return joined;
}

std::string RetryableStream::StreamEndInfo() {
  std::string info = "url:" + url_ + ",level:" + std::to_string(level_) + "," + ResultText(openResult_) +
                     ",downloadSize:" + std::to_string(bytesRead_) + ",downloaded_size:" +
                     (executor_ ? executor_->GetInfo("downloaded_size") : std::string("0")) +
                     ",inlet_bytes:" + std::to_string(stats_->InletBytes()) +
                     ",downgrade:" + std::to_string(downgradeCount_) + ",read_downgrade_1_4:" +
                     std::to_string(readDowngrades_.count("read_downgrade_1_4") != 0
                                        ? readDowngrades_.at("read_downgrade_1_4")
                                        : 0);
  for (const auto& nameAndCount : readDowngrades_) {
    if (nameAndCount.first == "read_downgrade_1_4") continue;
    info += "," + nameAndCount.first + ":" + std::to_string(nameAndCount.second);
  }
  info += ",level_tracker:" + JoinLevels(levelHistory_) + ",is_timeout:" + (timedOut_ ? "1" : "0");
  return info;
}

}  // namespace downloader
