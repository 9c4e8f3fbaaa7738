#include "GatewaySession.h"

#include <algorithm>

#include <wisp/Mutex.h>

namespace dlplay {
namespace {

// A live session lists new segments forever: the oldest durations go first.
constexpr size_t kMaxRememberedSegments = 4096;

}  // namespace

GatewaySession::GatewaySession(std::shared_ptr<protocols::IConfigure> config,
                               std::shared_ptr<protocols::IReporter> reporter, const std::string& playerId)
    : tunnel_(downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter)),
      lastUsed_(Clock::now()) {
  tunnel_->SetStreamSettings({{"player_id", playerId}});
}

GatewaySession::~GatewaySession() { downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel_); }

std::shared_ptr<downloader::IStream> GatewaySession::Acquire() {
  int bufferedMs;
  bool playing;
  {
    wisp::MutexLock lock(&mutex_);
    ++openStreams_;
    lastUsed_ = Clock::now();
    bufferedMs = BufferedMsLocked(lastUsed_);
    playing = playing_;
  }
  downloader::PulseData pulse;
  downloader::PulseDataDef<int>(downloader::kPulseBufferDurationKey).Write(&pulse, bufferedMs);
  tunnel_->NotifyPulseDataUpdated(pulse);
  tunnel_->UpdateBufferState(bufferedMs > 0 || !playing ? downloader::kBufferStateReady
                                                        : downloader::kBufferStateBuffering);
  return tunnel_->Acquire();
}

void GatewaySession::Release(std::shared_ptr<downloader::IStream> stream) {
  tunnel_->Release(stream);
  wisp::MutexLock lock(&mutex_);
  --openStreams_;
  lastUsed_ = Clock::now();
}

void GatewaySession::NoteSegments(const HlsPlaylist& playlist) {
  wisp::MutexLock lock(&mutex_);
  if (segmentSeconds_.size() + playlist.segments.size() > kMaxRememberedSegments) segmentSeconds_.clear();
  for (const HlsSegment& segment : playlist.segments) segmentSeconds_[segment.uri] = segment.durationSeconds;
}

void GatewaySession::Delivered(const std::string& url) {
  wisp::MutexLock lock(&mutex_);
  auto found = segmentSeconds_.find(url);
  if (found == segmentSeconds_.end()) return;
  if (!playing_) {
    playing_ = true;
    playStarted_ = Clock::now();
  }
  deliveredMediaMs_ += found->second * 1000.0;
}

bool GatewaySession::IdleSince(Clock::time_point now, Clock::duration idleFor) const {
  wisp::MutexLock lock(&mutex_);
  return openStreams_ == 0 && now - lastUsed_ > idleFor;
}

int GatewaySession::BufferedMsLocked(Clock::time_point now) const {
  double playedMs =
      playing_ ? std::chrono::duration<double, std::milli>(now - playStarted_).count() : 0.0;
  return static_cast<int>(std::max(0.0, deliveredMediaMs_ - playedMs));
}

}  // namespace dlplay
