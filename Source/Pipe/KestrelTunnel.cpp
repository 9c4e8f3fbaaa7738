#include <downloader/Pipe/KestrelTunnel.h>

#include <utility>

#include <downloader/Pipe/TunnelFinder.h>
#include <wisp/Mutex.h>

#include "Impls/RetryableStream.h"
#include "Utils/log/LogMessage.h"

namespace downloader {

KestrelTunnel::KestrelTunnel(const ITunnelConfig& config)
    : ITunnel(config), pipeline_(new KestrelDownloadPipeline()) {}

KestrelTunnel::~KestrelTunnel() = default;

std::shared_ptr<KestrelTunnel> KestrelTunnel::CreateKestrelTunnel(const ITunnelConfig& config, ConfigPtr& configure,
                                                                  std::shared_ptr<protocols::IReporter>& reporter) {
  auto tunnel = std::make_shared<KestrelTunnel>(config);
  tunnel->SetConfigure(configure);
  tunnel->SetReporter(reporter);
  tunnel->SetPulseConsumer(std::make_shared<PlayStateMonitor>());
  TunnelFinder::Shared().AddTunnel(tunnel);
  DL_LOGI << "create tunnel, id:" << tunnel->GetTunnelID();
  return tunnel;
}

void KestrelTunnel::DestoryKestrelTunnel(const std::shared_ptr<KestrelTunnel>& tunnel) {
  if (!tunnel) return;
  DL_LOGI << "destroy tunnel, id:" << tunnel->GetTunnelID();
  TunnelFinder::Shared().RemoveTunnel(tunnel);
}

void KestrelTunnel::SetConfigure(ConfigPtr& config) { pipeline_->SetConfigure(config); }

void KestrelTunnel::SetReporter(std::shared_ptr<protocols::IReporter>& reporter) { pipeline_->SetReporter(reporter); }

void KestrelTunnel::SetStatsCallback(DownloadPipeline::StatsCallback callback) {
  pipeline_->SetStatsCallback(std::move(callback));
}

void KestrelTunnel::SetStreamSettings(const StreamParams& settings) {
  wisp::MutexLock lock(&settingsMutex_);
  streamSettings_ = settings;
}

void KestrelTunnel::SetPulseConsumer(std::shared_ptr<PlayStateMonitor> monitor) {
  wisp::MutexLock lock(&settingsMutex_);
  pulseConsumer_ = std::move(monitor);
}

std::shared_ptr<PlayStateMonitor> KestrelTunnel::GetPulseConsumer() {
  wisp::MutexLock lock(&settingsMutex_);
  return pulseConsumer_;
}

std::shared_ptr<IStream> KestrelTunnel::Acquire() {
  std::shared_ptr<IStream> stream = std::make_shared<RetryableStream>();
  AddToStreamQueue(stream);
  ConfigIStream(stream);
  DL_LOGD << "acquire stream, tunnel:" << GetTunnelID() << ", sequence:" << stream->GetSequence();
  return stream;
}

void KestrelTunnel::ConfigIStream(std::shared_ptr<IStream>& stream) {
  stream->SetTunnel(shared_from_this());
  StreamParams settings;
  std::shared_ptr<PlayStateMonitor> monitor;
  {
    wisp::MutexLock lock(&settingsMutex_);
    settings = streamSettings_;
    monitor = pulseConsumer_;
  }
  stream->SetStreamSettings(settings);
  stream->SetPulseConsumer(std::move(monitor));
  pipeline_->ConfigStream(stream);
}

void KestrelTunnel::UpdateBufferState(BufferState state) {
  ITunnel::UpdateBufferState(state);
  std::shared_ptr<IStream> receiver = ChooseStateReceiver();
  if (receiver) receiver->OnBufferStateUpdated(state);
}

void KestrelTunnel::UpdateStreamingState(StreamingState state) {
  ITunnel::UpdateStreamingState(state);
  std::shared_ptr<IStream> receiver = ChooseStateReceiver();
  if (receiver) receiver->OnStreamingStateUpdated(state);
}

void KestrelTunnel::NotifyPulseDataUpdated(const PulseData& data) {
  ITunnel::NotifyPulseDataUpdated(data);
  std::shared_ptr<PlayStateMonitor> monitor = GetPulseConsumer();
  if (monitor) monitor->OnPulseDataUpdated(data);
  for (const auto& sequenceAndStream : CopyStreamQueue()) {
    std::shared_ptr<IStream> stream = sequenceAndStream.second.lock();
    if (stream) stream->OnPulseDataUpdated(data);
  }
}

}  // namespace downloader
