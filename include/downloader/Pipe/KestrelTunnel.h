// The library's tunnel. It owns a KestrelDownloadPipeline, hands each stream
// it acquires the tunnel itself, the tunnel's stream settings, its play-state
// monitor and the pipeline's wiring, and passes one stream each state change
// and every live stream each pulse.
//
//   auto tunnel = KestrelTunnel::CreateKestrelTunnel(ITunnelConfig(), config, reporter);
//   std::shared_ptr<IStream> stream = tunnel->Acquire();
//   stream->Open(uri); ... stream->Read(buffer, size) ... stream->Close();
//   tunnel->Release(stream);
//   KestrelTunnel::DestoryKestrelTunnel(tunnel);
//
// Thread rules as ITunnel. The setters are meant for the owner, before
// streams are acquired; settings and monitor are guarded by settingsMutex_ so
// that a late call is still safe.
//
// Lifetime: each stream holds its tunnel, so the pipeline outlives every
// stream; DestoryKestrelTunnel only unregisters the tunnel, and the tunnel
// dies with the last of the host's and the streams' references.
#ifndef DOWNLOADER_PIPE_KESTRELTUNNEL_H_
#define DOWNLOADER_PIPE_KESTRELTUNNEL_H_

#include <memory>

#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/DownloadPipeline.h>
#include <downloader/Pipe/ITunnel.h>
#include <downloader/Pipe/KestrelDownloadPipeline.h>
#include <downloader/Strategy/PlayStateMonitor.h>
#include <wisp/Mutex.h>

namespace downloader {

class DOWNLOADER_EXPORT KestrelTunnel : public ITunnel {
 public:
  explicit KestrelTunnel(const ITunnelConfig& config);
  ~KestrelTunnel() override;

  // Creates, wires (configuration, reporter, a play-state monitor) and
  // registers a tunnel.
  static std::shared_ptr<KestrelTunnel> CreateKestrelTunnel(const ITunnelConfig& config, ConfigPtr& configure,
                                                            std::shared_ptr<protocols::IReporter>& reporter);
  // Unregisters the tunnel; streams keep working.
  static void DestoryKestrelTunnel(const std::shared_ptr<KestrelTunnel>& tunnel);

  void SetConfigure(ConfigPtr& config);
  void SetReporter(std::shared_ptr<protocols::IReporter>& reporter);
  void SetStatsCallback(DownloadPipeline::StatsCallback callback);
  // Parameters every stream of the tunnel carries unless a request overrides
  // them (for instance "player_id").
  void SetStreamSettings(const StreamParams& settings);
  void SetPulseConsumer(std::shared_ptr<PlayStateMonitor> monitor);
  std::shared_ptr<PlayStateMonitor> GetPulseConsumer();

  std::shared_ptr<IStream> Acquire() override;
  void UpdateBufferState(BufferState state) override;
  void UpdateStreamingState(StreamingState state) override;
  void NotifyPulseDataUpdated(const PulseData& data) override;

 protected:
  void ConfigIStream(std::shared_ptr<IStream>& stream) override;

 private:
  // Constant after construction.
  const std::unique_ptr<KestrelDownloadPipeline> pipeline_;

  wisp::Mutex settingsMutex_;
  StreamParams streamSettings_ GUARDED_BY(settingsMutex_);
  std::shared_ptr<PlayStateMonitor> pulseConsumer_ GUARDED_BY(settingsMutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_KESTRELTUNNEL_H_
