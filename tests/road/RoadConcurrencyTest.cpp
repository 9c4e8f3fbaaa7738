#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include <downloader/Pipe/TunnelFinder.h>

#include "FakeChannel.h"
#include "RoadFixture.h"

namespace downloader {
namespace {

class RoadConcurrencyTest : public dltest::RoadFixture {};

// The host destroys its tunnel while a player thread still reads: the stream
// keeps the tunnel (and its pipeline) alive and reads to the end.
TEST_F(RoadConcurrencyTest, DestroyingTheTunnelWhileAStreamReads) {
  const std::string name = UniqueName("destroy") + ".ts";
  const int64_t size = 2 * 1024 * 1024;
  std::shared_ptr<IStream> stream = tunnel_->Acquire();
  ASSERT_TRUE(stream->Open(URI::From(SyntheticUrl(name, size, "rate=4000000"), {})).IsSuccess());
  const uint64_t tunnelId = tunnel_->GetTunnelID();
  std::weak_ptr<KestrelTunnel> weakTunnel = tunnel_;

  std::atomic<bool> started{false};
  std::string data;
  std::thread player([&] {
    data = ReadCount(*stream, 100000);
    started.store(true);
    data += ReadToEnd(*stream);
  });
  while (!started.load()) std::this_thread::yield();
  PulseData pulse;
  PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, 1000);
  tunnel_->NotifyPulseDataUpdated(pulse);
  tunnel_->UpdateBufferState(kBufferStateBuffering);
  KestrelTunnel::DestoryKestrelTunnel(tunnel_);
  tunnel_.reset();
  EXPECT_EQ(TunnelFinder::Shared().GetTunnelById(tunnelId).lock(), nullptr);
  player.join();

  EXPECT_TRUE(dltest::SameBytes(data, SyntheticBytes(name, size)));
  EXPECT_FALSE(weakTunnel.expired());
  stream->Close();
  stream.reset();
  EXPECT_TRUE(weakTunnel.expired());
}

// Several players of one tunnel read at once while the host sends pulses and
// state changes.
TEST_F(RoadConcurrencyTest, StreamsOfOneTunnelReadTogetherUnderHostUpdates) {
  const int64_t size = 1500000;
  std::atomic<bool> done{false};
  std::thread host([&] {
    int round = 0;
    while (!done.load()) {
      PulseData pulse;
      PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, round++ % 40000);
      tunnel_->NotifyPulseDataUpdated(pulse);
      tunnel_->UpdateBufferState(round % 2 ? kBufferStateReady : kBufferStateBuffering);
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> players;
  std::vector<std::string> names, results(3);
  for (int i = 0; i < 3; ++i) names.push_back(UniqueName("together") + ".ts");
  for (int i = 0; i < 3; ++i) {
    players.emplace_back([&, i] {
      std::shared_ptr<IStream> stream = tunnel_->Acquire();
      URI::Params params{{"stream_type", std::to_string(i)}};
      if (stream->Open(URI::From(SyntheticUrl(names[i], size), params)).IsSuccess()) {
        results[i] = ReadToEnd(*stream, nullptr, 16384 + i);
      }
      stream->Close();
      tunnel_->Release(stream);
    });
  }
  for (std::thread& player : players) player.join();
  done.store(true);
  host.join();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(dltest::SameBytes(results[i], SyntheticBytes(names[i], size))) << i;
}

}  // namespace
}  // namespace downloader
