#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <downloader/Pipe/DownloadPipeline.h>
#include <downloader/Pipe/KestrelTunnel.h>
#include <downloader/Pipe/TunnelFinder.h>

#include "FakeChannel.h"
#include "Impls/RetryableStream.h"
#include "support/MapConfig.h"
#include "support/WaitFor.h"

namespace downloader {
namespace {

PulseData BufferPulse(int bufferMs) {
  PulseData pulse;
  PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, bufferMs);
  return pulse;
}

TEST(PipelineConcurrencyTest, HostUpdatesRaceWithStreamsComingAndGoing) {
  ConfigPtr config = std::make_shared<dltest::MapConfig>();
  std::shared_ptr<protocols::IReporter> reporter;
  auto tunnel = KestrelTunnel::CreateKestrelTunnel(ITunnelConfig(), config, reporter);
  std::atomic<bool> done{false};
  std::thread host([&] {
    int round = 0;
    while (!done.load()) {
      tunnel->NotifyPulseDataUpdated(BufferPulse(round));
      tunnel->UpdateBufferState(round % 2 ? kBufferStateBuffering : kBufferStateReady);
      tunnel->UpdateStreamingState(kStreamingStatePlaying);
      TunnelFinder::Shared().GetTunnelById(tunnel->GetTunnelID()).lock();
      ++round;
    }
  });
  for (int i = 0; i < 200; ++i) {
    std::shared_ptr<IStream> stream = tunnel->Acquire();
    stream->Open(URI::From("http://local.url/missing.ts", {{"stream_type", std::to_string(i % 3)}}));
    if (i % 2) tunnel->Release(stream);
  }
  done.store(true);
  host.join();
  KestrelTunnel::DestoryKestrelTunnel(tunnel);
}

TEST(PipelineConcurrencyTest, AStreamReadsWhileTheTunnelFeedsItsController) {
  const std::string content = dltest::PatternBytes(256 * 1024);
  dltest::FakeScript script;
  script.content = content;
  script.maxRead = 512;
  dltest::FakeFilter http(script);
  DownloadPipeline pipeline;
  pipeline.AddFilter(kDLLevelHttp, &http);
  std::shared_ptr<IStream> stream = pipeline.AcquireStream();
  ASSERT_TRUE(stream->Open(URI::From("http://cdn.example/a.ts", {})).IsSuccess());

  std::atomic<bool> done{false};
  std::thread tunnelSide([&] {
    int round = 0;
    while (!done.load()) {
      stream->OnPulseDataUpdated(BufferPulse(round++));
      stream->OnBufferStateUpdated(kBufferStateReady);
      stream->OnStreamingStateUpdated(kStreamingStatePlaying);
      stream->GetParam("stream_type");
    }
  });
  std::string data;
  std::vector<char> buffer(700);
  while (true) {
    DLReadResult result = stream->Read(buffer.data(), buffer.size());
    if (result.code != 0) break;
    data.append(buffer.data(), result.bytes);
  }
  done.store(true);
  tunnelSide.join();
  EXPECT_TRUE(dltest::SameBytes(data, content));
}

TEST(PipelineConcurrencyTest, ClosingDuringAnAsynchronousOpenStopsIt) {
  dltest::FakeScript blocking;
  blocking.openBlocks = true;
  dltest::FakeFilter cache(blocking);
  DownloadPipeline pipeline;
  pipeline.AddFilter(kDLLevelCache, &cache);
  std::shared_ptr<IStream> stream = pipeline.AcquireStream();
  ASSERT_TRUE(stream->OpenAsync(URI::From("http://cdn.example/a.ts", {})).IsSuccess());
  ASSERT_TRUE(dltest::WaitFor([&] { return cache.openOffsets().size() == 1; }));
  EXPECT_EQ(stream->IsOpenReady().code, kDLOpenPending);
  EXPECT_TRUE(stream->Close().IsSuccess());
  EXPECT_EQ(cache.closes(), 1);
  char byte = 0;
  EXPECT_EQ(stream->Read(&byte, 1).code, 1);
}

TEST(PipelineConcurrencyTest, AnAsynchronousOpenThatTakesTooLongTimesOut) {
  auto config = std::make_shared<dltest::MapConfig>();
  config->Set("async_open_timeout", "1");
  dltest::FakeScript blocking;
  blocking.openBlocks = true;
  dltest::FakeFilter cache(blocking);
  DownloadPipeline pipeline;
  pipeline.AddFilter(kDLLevelCache, &cache);
  pipeline.SetConfigure(config);
  std::shared_ptr<IStream> stream = pipeline.AcquireStream();
  ASSERT_TRUE(stream->OpenAsync(URI::From("http://cdn.example/a.ts", {})).IsSuccess());
  DLResultCode ready;
  ASSERT_TRUE(dltest::WaitFor([&] {
    ready = stream->IsOpenReady();
    return ready.code != kDLOpenPending;
  }));
  EXPECT_EQ(ready.subCode, RetryableStream::kOpenTimeoutSubCode);
  EXPECT_EQ(stream->IsOpenReady().subCode, RetryableStream::kOpenTimeoutSubCode);
}

}  // namespace
}  // namespace downloader
