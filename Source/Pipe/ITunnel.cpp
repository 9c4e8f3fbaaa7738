#include <downloader/Pipe/ITunnel.h>
#include <wisp/Mutex.h>

#include <utility>
#include <vector>

#include "Utils/log/LogMessage.h"

namespace downloader {
namespace {

constexpr int32_t kStreamTypeVideo = 1;
constexpr int32_t kStreamTypeAudio = 2;

uint64_t NextTunnelId() {
  static std::atomic<uint64_t> lastTunnelId{0};
  return ++lastTunnelId;
}

bool TakesStateChanges(const std::shared_ptr<IStream>& stream) {
  int32_t streamType = ParseInt32(stream->GetParam("stream_type"));
  return streamType == kStreamTypeVideo || streamType == kStreamTypeAudio;
}

}  // namespace

ITunnel::ITunnel(const ITunnelConfig& config) : tunnelId_(NextTunnelId()), config_(config) {
  DL_LOGD << "tunnel created, id:" << tunnelId_;
}

ITunnel::~ITunnel() { DL_LOGD << "tunnel destroyed, id:" << tunnelId_; }

std::shared_ptr<IStream> ITunnel::Acquire() { return nullptr; }

void ITunnel::Release(std::shared_ptr<IStream> stream) {
  RemoveFromStreamQueue(stream);
  stream.reset();
}

void ITunnel::UpdateBufferState(BufferState state) { bufferState_.store(state); }

void ITunnel::UpdateStreamingState(StreamingState state) { streamingState_.store(state); }

void ITunnel::NotifyPulseDataUpdated(const PulseData& data) {
  wisp::MutexLock lock(&pulseMutex_);
  pulseData_ = data;
}

PulseData ITunnel::GetPulseData() {
  wisp::MutexLock lock(&pulseMutex_);
  return pulseData_;
}

void ITunnel::ConfigIStream(std::shared_ptr<IStream>& /*stream*/) {}

void ITunnel::AddToStreamQueue(std::shared_ptr<IStream>& stream) {
  if (!stream) return;
  uint64_t sequence = streamSequence_.fetch_add(1);
  stream->SetSequence(sequence);
  wisp::MutexLock lock(&queueMutex_);
  streamQueue_[sequence] = stream;
}

void ITunnel::RemoveFromStreamQueue(std::shared_ptr<IStream>& stream) {
  if (!stream) return;
  uint64_t sequence = stream->GetSequence();
  wisp::MutexLock lock(&queueMutex_);
  auto entry = streamQueue_.find(sequence);
  if (entry == streamQueue_.end()) return;
  // Compared by owner, without locking: another tunnel's stream may carry the
  // same sequence number.
  bool sameStream = !entry->second.owner_before(stream) && !stream.owner_before(entry->second);
  if (sameStream) streamQueue_.erase(entry);
}

ITunnel::StreamQueue ITunnel::CopyStreamQueue() {
  wisp::MutexLock lock(&queueMutex_);
  return streamQueue_;
}

std::shared_ptr<IStream> ITunnel::ChooseStateReceiver() {
  // Declared before the lock: a stream whose other holders let go meanwhile
  // is destroyed here, after the queue lock is released.
  std::vector<std::shared_ptr<IStream>> examined;
  wisp::MutexLock lock(&queueMutex_);
  for (const auto& sequenceAndStream : streamQueue_) {
    examined.push_back(sequenceAndStream.second.lock());
    if (examined.back() && TakesStateChanges(examined.back())) return examined.back();
  }
  if (streamQueue_.empty()) return nullptr;
  examined.push_back(streamQueue_.rbegin()->second.lock());
  return examined.back();
}

}  // namespace downloader
