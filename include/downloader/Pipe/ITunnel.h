// A player's handle on the downloader: one tunnel per playback. The player
// acquires one stream per media resource it opens and reports its buffering
// and streaming state and its periodic pulse data here; the tunnel forwards
// them to its streams. Every tunnel has a process-wide id (the first tunnel
// gets 1) under which TunnelFinder finds it.
//
// Thread rules: any thread. The stream queue is guarded by queueMutex_ and
// the pulse data by pulseMutex_; the two are never held together, and no
// stream is called while either is held. The id and sequence counters are
// atomic; the two states are atomic values.
//
// Edge cases: Release of a stream that is not queued only drops the
// reference; streams that died without Release stay queued as expired entries
// and are skipped; state and pulse updates without a live stream are stored
// and otherwise ignored.
#ifndef DOWNLOADER_PIPE_ITUNNEL_H_
#define DOWNLOADER_PIPE_ITUNNEL_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

#include <downloader/DownloaderExport.h>
#include <downloader/Impls/IStream.h>
#include <downloader/Pipe/ITunnelConfig.h>
#include <downloader/Pipe/PlayerState.h>
#include <downloader/Pipe/PulseDataDef.h>
#include <wisp/Mutex.h>

namespace downloader {

class DOWNLOADER_EXPORT ITunnel : public std::enable_shared_from_this<ITunnel> {
 public:
  explicit ITunnel(const ITunnelConfig& config);
  ITunnel(const ITunnel&) = delete;
  ITunnel& operator=(const ITunnel&) = delete;
  virtual ~ITunnel();

  uint64_t GetTunnelID() const { return tunnelId_; }

  // The base hands out nothing.
  virtual std::shared_ptr<IStream> Acquire();
  virtual void Release(std::shared_ptr<IStream> stream);
  virtual void UpdateBufferState(BufferState state);
  virtual void UpdateStreamingState(StreamingState state);
  virtual void NotifyPulseDataUpdated(const PulseData& data);

  BufferState GetBufferState() const { return bufferState_.load(); }
  StreamingState GetStreamingState() const { return streamingState_.load(); }
  PulseData GetPulseData();
  const ITunnelConfig& GetConfig() const { return config_; }

 protected:
  using StreamQueue = std::map<uint64_t, std::weak_ptr<IStream>>;

  virtual void ConfigIStream(std::shared_ptr<IStream>& stream);
  void AddToStreamQueue(std::shared_ptr<IStream>& stream);
  void RemoveFromStreamQueue(std::shared_ptr<IStream>& stream);
  // A copy of the queue, in acquisition order.
  StreamQueue CopyStreamQueue();
  // The stream a state change goes to: the first live stream whose
  // "stream_type" is 1 or 2, else the newest entry (if still alive).
  std::shared_ptr<IStream> ChooseStateReceiver();

 private:
  // Constant after construction.
  const uint64_t tunnelId_;
  const ITunnelConfig config_;

  std::atomic<BufferState> bufferState_{kBufferStateUnknown};
  std::atomic<StreamingState> streamingState_{kStreamingStateUnknown};
  std::atomic<uint64_t> streamSequence_{0};

  wisp::Mutex queueMutex_;
  StreamQueue streamQueue_ GUARDED_BY(queueMutex_);

  wisp::Mutex pulseMutex_;
  PulseData pulseData_ GUARDED_BY(pulseMutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_ITUNNEL_H_
