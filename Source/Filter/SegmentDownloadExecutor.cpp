#include "Filter/SegmentDownloadExecutor.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <utility>

#include <downloader/Base/BufferChunk.h>
#include <downloader/Storage/CacheWriter.h>
#include <wisp/Mutex.h>

#include "Base/ByteChannel.h"
#include "Utils/context/LibraryContext.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

// How long a read waits for bytes: "segment_control_timeout" when set, else
// "read_timeout". Read once, at construction: a read is on the player's hot
// path and the configuration does not change under a running request.
int64_t ReadWaitMs(const DownloaderSettings& settings) {
  int64_t waitMs = settings.segmentControlTimeoutMs;
  return waitMs > 0 ? waitMs : settings.readTimeoutMs;
}

int64_t NextJobId() {
  static std::atomic<int64_t> lastJobId{0};
  return ++lastJobId;
}

}  // namespace

SegmentDownloadExecutor::SegmentDownloadExecutor(ConfigPtr config, std::shared_ptr<URI> uri)
    : config_(std::move(config)),
      settings_(DownloaderSettings::Read(config_)),
      uri_(std::move(uri)),
      readWaitMs_(ReadWaitMs(settings_)),
      jobId_(NextJobId()),
      tag_("[diskcache][jobid" + std::to_string(jobId_) + "_SegmentDownloadExecutor]"),
      channel_(std::make_shared<ByteChannel>()) {}

SegmentDownloadExecutor::~SegmentDownloadExecutor() {
  StopReading();
  DL_LOGD << tag_ << "destruct";
}

DLResultCode SegmentDownloadExecutor::Open(const std::shared_ptr<URI>& uri) {
  const std::shared_ptr<URI>& request = uri ? uri : uri_;
  fileName_ = request ? storage::CacheWriter::CacheFilePath(*request) : std::string();
  DL_LOGD << tag_ << "open,file:" << fileName_ << ",is_async:" << 0;
  int64_t openTimeoutMs = settings_.segmentOpenTimeoutMs;
  int64_t rangeStart = request ? RequestParams::Read(request->GetParams()).rangeStart : 0;
  bool honourRange = settings_.enableCacheFilterRangeStart;
  int64_t startOffset = honourRange && rangeStart >= 1 ? rangeStart : 0;
  if (fileName_.empty()) {
    OnSegmentError(storage::SegmentReadSide::kNotStoredSubCode);
  } else {
    StartReading(startOffset);
  }
  Wait(openTimeoutMs);
  DL_LOGD << tag_ << "open,finish wait";
  wisp::MutexLock lock(&mutex_);
  if (startOffset > 0) {
    DL_LOGD << tag_ << "open,seek,result:" << !errorSeen_ << ",file_size:" << fileSize_;
  }
  DLResultCode result = OpenResultLocked();
  DL_LOGD << tag_ << "open,result:" << result.code;
  return result;
}

DLResultCode SegmentDownloadExecutor::OpenResultLocked() const {
  if (fileSize_ > 0 && !StartFailedLocked()) return DLResultCode(kDLSuccess, 0);
  return DLResultCode(kDLFailure, errorSeen_ ? errorSubCode_ : storage::SegmentReadSide::kNotStoredSubCode);
}

bool SegmentDownloadExecutor::StartFailedLocked() const {
  // The reading side delivers the first block before its thread can meet a
  // gap, so an error with nothing received is the start's own.
  return errorSeen_ && received_ == 0;
}

DLResultCode SegmentDownloadExecutor::OpenAsync(const std::shared_ptr<URI>& /*uri*/) {
  return DLResultCode(kDLFailure, 0);
}

DLResultCode SegmentDownloadExecutor::WaitOpenResult() { return DLResultCode(kDLFailure, 0); }

void SegmentDownloadExecutor::Wait(int64_t waitMs) {
  if (waitMs > 0) {
    DL_LOGD << tag_ << "start wait:" << waitMs;
  }
  Clock& clock = LibraryContext::Current().clock();
  const Clock::TimePoint deadline = clock.Now() + std::chrono::milliseconds(waitMs);
  wisp::MutexLock lock(&mutex_);
  auto settled = [this]() REQUIRES(mutex_) { return fileSize_ > 0 || errorSeen_ || closed_; };
  while (!settled() && clock.Now() < deadline) {
    if (!clock.WaitUntil(changed_, lock, std::min<Clock::TimePoint>(deadline, clock.Now() + ByteChannel::kWaitStep),
                         settled)) {
      DL_LOGD << tag_ << "wait once finish,false";
    }
  }
}

void SegmentDownloadExecutor::StartReading(int64_t offset) {
  StopReading();
  {
    wisp::MutexLock lock(&mutex_);
    channel_ = std::make_shared<ByteChannel>();
    startOffset_ = offset;
    readOffset_ = offset;
    received_ = 0;
    errorSeen_ = false;
    errorSubCode_ = 0;
  }
  wisp::MutexLock side(&readSideMutex_);
  auto readSide = std::make_unique<storage::SegmentReadSide>(fileName_, jobId_);
  int64_t fileSize = readSide->Open(offset);
  if (fileSize < 0) {
    OnSegmentError(storage::SegmentReadSide::kNotStoredSubCode);
    return;
  }
  readSide_ = std::move(readSide);
  OnOpen(fileSize);
}

void SegmentDownloadExecutor::StopReading() {
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    channel = channel_;
  }
  // A Read that waits in it returns now.
  if (channel != nullptr) channel->Close();
  wisp::MutexLock side(&readSideMutex_);
  readSide_.reset();
  chunk_ = storage::ChunkBuffer();
}

uint64_t SegmentDownloadExecutor::ReadFromStore(int64_t offset, Packet& packet) {
  wisp::MutexLock side(&readSideMutex_);
  if (!readSide_) return 0;
  uint64_t copied = CopyFromChunkBuffer(offset, packet);
  if (copied > 0) return copied;
  int64_t direct = readSide_->ReadRun(offset, static_cast<uint8_t*>(packet.GetBuffer()),
                                      static_cast<size_t>(packet.GetSize()));
  if (direct > 0) {
    CountReceived(static_cast<uint64_t>(direct));
    return static_cast<uint64_t>(direct);
  }
  if (direct == 0 && readSide_->ReadChunk(offset, &chunk_)) {
    CountReceived(static_cast<uint64_t>(chunk_.offset + static_cast<int64_t>(chunk_.size) - offset));
    return CopyFromChunkBuffer(offset, packet);
  }
  OnSegmentError(storage::SegmentReadSide::kNotStoredSubCode);
  return 0;
}

uint64_t SegmentDownloadExecutor::CopyFromChunkBuffer(int64_t offset, Packet& packet) {
  const int64_t chunkEnd = chunk_.offset + static_cast<int64_t>(chunk_.size);
  if (offset < chunk_.offset || offset >= chunkEnd) return 0;
  const uint64_t copied = std::min<uint64_t>(static_cast<uint64_t>(chunkEnd - offset), packet.GetSize());
  std::memcpy(packet.GetBuffer(), chunk_.bytes.get() + (offset - chunk_.offset), static_cast<size_t>(copied));
  DL_LOGT << tag_ << "read,cachebuffer,r:" << copied;
  return copied;
}

void SegmentDownloadExecutor::CountReceived(uint64_t bytes) {
  wisp::MutexLock lock(&mutex_);
  received_ += bytes;
}

DLReadResult SegmentDownloadExecutor::Read(Packet& packet) {
  DLReadResult result;
  std::shared_ptr<ByteChannel> channel;
  int64_t offset = 0;
  bool storeEnded = false;
  {
    wisp::MutexLock lock(&mutex_);
    DL_LOGT << tag_ << "read,offset:" << readOffset_;
    if (closed_ || fileSize_ <= 0) {
      result.Set(kDLFailure, 0, OpenResultLocked().subCode);
      return result;
    }
    if (readOffset_ >= fileSize_) {
      DL_LOGT << tag_ << "read,invalid offset";
      result.Set(kDLEndOfData, 0, 0);
      return result;
    }
    channel = channel_;
    offset = readOffset_;
    storeEnded = errorSeen_;
  }
  // Queued bytes come first: they continue the run the reads have taken so far.
  if (!storeEnded && channel->HeldBytes() == 0) {
    uint64_t copied = ReadFromStore(offset, packet);
    if (copied > 0) {
      wisp::MutexLock lock(&mutex_);
      readOffset_ += static_cast<int64_t>(copied);
      result.Set(kDLSuccess, copied, 0);
      return result;
    }
  }
  return ReadFromChannel(*channel, packet);
}

DLReadResult SegmentDownloadExecutor::ReadFromChannel(ByteChannel& channel, Packet& packet) {
  DLReadResult result;
  const Clock::TimePoint deadline = LibraryContext::Current().clock().Now() + std::chrono::milliseconds(readWaitMs_);
  const ByteChannel::ReadOutcome outcome =
      channel.Read(packet.GetBuffer(), static_cast<size_t>(packet.GetSize()), deadline);
  switch (outcome.status) {
    case ByteChannel::ReadStatus::kBytes: {
      wisp::MutexLock lock(&mutex_);
      readOffset_ += static_cast<int64_t>(outcome.bytes);
      DL_LOGT << tag_ << "read,queue read size:" << outcome.bytes;
      result.Set(kDLSuccess, outcome.bytes, 0);
      break;
    }
    case ByteChannel::ReadStatus::kEnded:
      DL_LOGD << tag_ << "read,empty with error";
      result.Set(outcome.end.code, 0, outcome.end.subCode);
      break;
    case ByteChannel::ReadStatus::kClosed: {
      wisp::MutexLock lock(&mutex_);
      result.Set(kDLFailure, 0, OpenResultLocked().subCode);
      break;
    }
    case ByteChannel::ReadStatus::kTimedOut:
      DL_LOGD << tag_ << "read,empty with timeout";
      result.Set(kDLSuccess, 0, 0);
      break;
  }
  return result;
}

DLResultCode SegmentDownloadExecutor::Seek(int64_t offset) {
  DL_LOGD << tag_ << "seek to " << offset;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_ || fileSize_ <= 0 || offset < 0) return DLResultCode(kDLFailure, OpenResultLocked().subCode);
  }
  StartReading(offset);
  wisp::MutexLock lock(&mutex_);
  return StartFailedLocked() ? DLResultCode(kDLFailure, errorSubCode_) : DLResultCode(kDLSuccess, 0);
}

int64_t SegmentDownloadExecutor::GetFileSize() {
  wisp::MutexLock lock(&mutex_);
  return fileSize_;
}

DLResultCode SegmentDownloadExecutor::Close() {
  DL_LOGD << tag_ << "handle close";
  {
    wisp::MutexLock lock(&mutex_);
    closed_ = true;
  }
  changed_.notify_all();
  // Closes the channel, so that a Read waiting on another thread returns.
  StopReading();
  return DLResultCode(kDLSuccess, 0);
}

void SegmentDownloadExecutor::SetHint(const std::string& /*hint*/) {}

std::string SegmentDownloadExecutor::GetInfo(const std::string& key) {
  if (key == "is_loaded_from_cache") return "1";
  if (key == "executor_name") return "segment_download_filter";
  if (key == "memory_usage") {
    uint64_t chunkBytes = 0;
    {
      wisp::MutexLock side(&readSideMutex_);
      chunkBytes = chunk_.capacity;
    }
    wisp::MutexLock lock(&mutex_);
    return std::to_string(chunkBytes + channel_->HeldBytes());
  }
  wisp::MutexLock lock(&mutex_);
  if (key == "downloaded_size") return std::to_string(received_);
  return std::string();
}

void SegmentDownloadExecutor::OnOpen(int64_t fileSize) {
  DL_LOGD << tag_ << "onOpen,file_size:" << fileSize;
  {
    wisp::MutexLock lock(&mutex_);
    fileSize_ = fileSize;
  }
  changed_.notify_all();
}

void SegmentDownloadExecutor::OnSegmentBytes(int64_t offset, std::shared_ptr<BufferChunk> bytes) {
  uint64_t size = bytes ? bytes->GetSize() : 0;
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) {
      DL_LOGD << tag_ << "onsegmentbyte,closed";
      return;
    }
    DL_LOGT << tag_ << "onsegmentbyte,current offset:" << startOffset_ << ",current size:" << received_
            << ",offset:" << offset << ",size:" << size;
    if (offset != startOffset_ + static_cast<int64_t>(received_) || size == 0) {
      DL_LOGD << tag_ << "onsegmentbyte,invalid offset,size:" << size;
      return;
    }
    received_ += size;
    channel = channel_;
    DL_LOGT << tag_ << "onsegmentbyte,append";
  }
  // One thread delivers, in offset order, so the writes keep that order outside the lock.
  channel->Write(bytes->GetData(), static_cast<size_t>(size));
}

void SegmentDownloadExecutor::OnSegmentError(int64_t subCode) {
  DL_LOGD << tag_ << "onError,sub_code:" << subCode;
  std::shared_ptr<ByteChannel> channel;
  {
    wisp::MutexLock lock(&mutex_);
    errorSeen_ = true;
    errorSubCode_ = subCode;
    channel = channel_;
  }
  if (channel != nullptr) channel->End(DLResultCode(kDLFailure, subCode));
  changed_.notify_all();
}

}  // namespace downloader
