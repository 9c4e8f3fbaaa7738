#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <downloader/Pipe/KestrelTunnel.h>
#include <downloader/Pipe/TunnelFinder.h>

#include "support/MapConfig.h"

namespace downloader {
namespace {

// A stream that only records what the tunnel tells it.
class RecordingStream : public IStream {
 public:
  explicit RecordingStream(std::string streamType) : streamType_(std::move(streamType)) {}

  DLResultCode Open(const std::shared_ptr<URI>&) override { return DLResultCode(1, 0); }
  DLResultCode OpenAsync(const std::shared_ptr<URI>&) override { return DLResultCode(1, 0); }
  DLResultCode IsOpenReady() override { return DLResultCode(1, 0); }
  DLReadResult Read(void*, uint64_t) override { return DLReadResult(); }
  DLResultCode Seek(int64_t) override { return DLResultCode(1, 0); }
  int64_t GetFileSize() override { return 0; }
  DLResultCode Close() override { return DLResultCode(); }
  void OnBufferStateUpdated(BufferState state) override {
    std::lock_guard<std::mutex> lock(mutex_);
    bufferStates.push_back(state);
  }
  void OnStreamingStateUpdated(StreamingState state) override {
    std::lock_guard<std::mutex> lock(mutex_);
    streamingStates.push_back(state);
  }
  void OnPulseDataUpdated(const PulseData& data) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++pulses;
      lastPulse = data;
    }
    if (onPulse) onPulse();
  }
  std::string GetInfo(const std::string&) override { return std::string(); }
  std::string GetParam(const std::string& key) override { return key == "stream_type" ? streamType_ : ""; }
  void SetConfigure(ConfigPtr) override {}
  void SetReporter(std::shared_ptr<protocols::IReporter>) override {}
  void SetPipeline(DownloadPipeline*) override {}
  void SetTunnel(std::shared_ptr<ITunnel>) override {}
  void SetStreamSettings(const StreamParams&) override {}
  void SetPulseConsumer(std::shared_ptr<PlayStateMonitor>) override {}
  void SetSequence(uint64_t sequence) override { sequence_ = sequence; }
  uint64_t GetSequence() override { return sequence_; }

  std::mutex mutex_;
  std::vector<BufferState> bufferStates;
  std::vector<StreamingState> streamingStates;
  int pulses = 0;
  PulseData lastPulse;
  std::function<void()> onPulse;

  std::string streamType_;
  uint64_t sequence_ = 0;
};

// A KestrelTunnel that hands out recording streams, wired as usual.
class RecordingTunnel : public KestrelTunnel {
 public:
  RecordingTunnel() : KestrelTunnel(ITunnelConfig()) {}

  std::shared_ptr<RecordingStream> AcquireRecording(const std::string& streamType) {
    auto recording = std::make_shared<RecordingStream>(streamType);
    std::shared_ptr<IStream> stream = recording;
    AddToStreamQueue(stream);
    ConfigIStream(stream);
    return recording;
  }
};

std::shared_ptr<KestrelTunnel> CreateTunnel() {
  ConfigPtr config = std::make_shared<dltest::MapConfig>();
  std::shared_ptr<protocols::IReporter> reporter;
  return KestrelTunnel::CreateKestrelTunnel(ITunnelConfig(), config, reporter);
}

TEST(TunnelTest, IdsCountUpAndEachTunnelNumbersItsOwnStreams) {
  auto first = CreateTunnel();
  auto second = CreateTunnel();
  EXPECT_GE(first->GetTunnelID(), 1u);
  EXPECT_EQ(second->GetTunnelID(), first->GetTunnelID() + 1);
  EXPECT_EQ(first->Acquire()->GetSequence(), 0u);
  EXPECT_EQ(first->Acquire()->GetSequence(), 1u);
  EXPECT_EQ(second->Acquire()->GetSequence(), 0u);
  KestrelTunnel::DestoryKestrelTunnel(first);
  KestrelTunnel::DestoryKestrelTunnel(second);
}

TEST(TunnelTest, StateChangesGoToTheFirstAudioOrVideoStreamElseTheNewest) {
  auto tunnel = std::make_shared<RecordingTunnel>();
  tunnel->UpdateBufferState(kBufferStateBuffering);  // no stream: stored only
  EXPECT_EQ(tunnel->GetBufferState(), kBufferStateBuffering);

  auto plain = tunnel->AcquireRecording("0");
  auto audio = tunnel->AcquireRecording("2");
  auto video = tunnel->AcquireRecording("1");
  tunnel->UpdateBufferState(kBufferStateReady);
  tunnel->UpdateStreamingState(kStreamingStatePaused);
  EXPECT_TRUE(plain->bufferStates.empty());
  EXPECT_EQ(audio->bufferStates, std::vector<BufferState>{kBufferStateReady});
  EXPECT_EQ(audio->streamingStates, std::vector<StreamingState>{kStreamingStatePaused});
  EXPECT_TRUE(video->bufferStates.empty());

  auto plainTunnel = std::make_shared<RecordingTunnel>();
  auto older = plainTunnel->AcquireRecording("0");
  auto newer = plainTunnel->AcquireRecording("0");
  plainTunnel->UpdateBufferState(kBufferStateBuffering);
  EXPECT_TRUE(older->bufferStates.empty());
  EXPECT_EQ(newer->bufferStates.size(), 1u);
  // A dead newest stream (gone without Release) takes the change with it.
  newer.reset();
  plainTunnel->UpdateBufferState(kBufferStateReady);
  EXPECT_TRUE(older->bufferStates.empty());
}

TEST(TunnelTest, PulsesReachTheMonitorAndEveryLiveStreamOutsideTheQueueLock) {
  auto tunnel = std::make_shared<RecordingTunnel>();
  auto monitor = std::make_shared<PlayStateMonitor>();
  tunnel->SetPulseConsumer(monitor);
  EXPECT_EQ(monitor->BufferedDurationMs(), -1);  // unknown until a pulse says
  auto first = tunnel->AcquireRecording("0");
  tunnel->AcquireRecording("0");  // expired entry, skipped
  auto third = tunnel->AcquireRecording("1");
  // Calling back into the tunnel from a pulse would deadlock under the lock.
  first->onPulse = [&] {
    std::shared_ptr<IStream> self = first;
    tunnel->Release(self);
  };

  PulseData pulse;
  PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, 3500);
  PulseDataDef<int64_t>(kPulseBitRateKey).Write(&pulse, 2000000);
  tunnel->NotifyPulseDataUpdated(pulse);

  EXPECT_EQ(first->pulses, 1);
  EXPECT_EQ(third->pulses, 1);
  EXPECT_EQ(monitor->BufferedDurationMs(), 3500);
  EXPECT_EQ(monitor->BitRate(), 2000000);
  int stored = 0;
  EXPECT_TRUE(PulseDataDef<int>(kPulseBufferDurationKey).Read(tunnel->GetPulseData(), &stored));
  EXPECT_EQ(stored, 3500);

  // The released stream gets no further pulse; values a pulse leaves out are kept.
  tunnel->NotifyPulseDataUpdated(PulseData());
  EXPECT_EQ(first->pulses, 1);
  EXPECT_EQ(third->pulses, 2);
  EXPECT_EQ(monitor->BufferedDurationMs(), 3500);
}

TEST(TunnelTest, ReleasingTwiceRemovesOnceAndAnotherTunnelsStreamIsLeftAlone) {
  auto tunnel = std::make_shared<RecordingTunnel>();
  auto other = std::make_shared<RecordingTunnel>();
  auto mine = tunnel->AcquireRecording("0");
  auto theirs = other->AcquireRecording("0");  // same sequence number 0
  std::shared_ptr<IStream> theirsAsStream = theirs;
  tunnel->Release(theirsAsStream);
  PulseData pulse;
  tunnel->NotifyPulseDataUpdated(pulse);
  EXPECT_EQ(mine->pulses, 1);

  std::shared_ptr<IStream> mineAsStream = mine;
  tunnel->Release(mineAsStream);
  tunnel->Release(mineAsStream);
  tunnel->NotifyPulseDataUpdated(pulse);
  EXPECT_EQ(mine->pulses, 1);
}

TEST(TunnelTest, DestroyedTunnelIsUnregisteredWhileItsStreamsKeepItAlive) {
  auto tunnel = CreateTunnel();
  uint64_t id = tunnel->GetTunnelID();
  EXPECT_EQ(TunnelFinder::Shared().GetTunnelById(id).lock(), tunnel);
  std::shared_ptr<IStream> stream = tunnel->Acquire();
  std::weak_ptr<KestrelTunnel> weakTunnel = tunnel;

  KestrelTunnel::DestoryKestrelTunnel(tunnel);
  tunnel.reset();
  EXPECT_EQ(TunnelFinder::Shared().GetTunnelById(id).lock(), nullptr);
  EXPECT_FALSE(weakTunnel.expired());
  stream.reset();
  EXPECT_TRUE(weakTunnel.expired());
  EXPECT_EQ(TunnelFinder::Shared().GetTunnelById(0).lock(), nullptr);
}

}  // namespace
}  // namespace downloader
