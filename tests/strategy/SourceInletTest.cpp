#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Strategy/Source.h>

#include "Base/StreamStats.h"
#include "Strategy/FlowRateController.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

constexpr int64_t kMs = 1000;  // the clocks count microseconds

// A channel on a hand-driven clock: the test says when it receives, when it
// is held back and when bytes arrive.
class ScriptedChannel : public Source {
 public:
  explicit ScriptedChannel(const int64_t* nowUs) : Source([nowUs] { return *nowUs; }) {}
  using Source::AddArrivedBytes;
  using Source::BeginReceiving;
  using Source::EndReceiving;
  using Source::HoldBack;
  using Source::RegisterStatsSink;
};

class SourceInletTest : public ::testing::Test {
 protected:
  SourceInletTest()
      : config_(std::make_shared<dltest::MapConfig>()),
        channel_(std::make_shared<ScriptedChannel>(&nowUs_)),
        controller_([this] { return nowUs_; }) {}

  void Configure(StreamParams params) {
    controller_.Configure(config_, params, 0);
    controller_.SetInletSource(channel_);
  }
  // `steps` steps of `stepMs`, each bringing `bytes` from the network and
  // then one read by the player of `readBytes` that did not wait at all.
  int32_t Run(int steps, int64_t stepMs, uint64_t bytes, uint64_t readBytes) {
    int32_t answer = 0;
    for (int i = 0; i < steps; ++i) {
      nowUs_ += stepMs * kMs;
      if (bytes > 0) channel_->AddArrivedBytes(bytes);
      answer = controller_.OnReadHappened(0, readBytes);
    }
    return answer;
  }
  std::string Describe() { return controller_.Describe(); }

  int64_t nowUs_ = 1000000;
  std::shared_ptr<dltest::MapConfig> config_;
  std::shared_ptr<ScriptedChannel> channel_;
  FlowRateController controller_;
};

TEST_F(SourceInletTest, TheRateIsTheNetworksWhateverThePlayerReads) {
  Configure({{"bit_rate", "8000000"}});  // 1 MB/s
  auto stats = std::make_shared<StreamStats>();
  channel_->RegisterStatsSink(stats);
  channel_->BeginReceiving();

  // 100 kB/s from the network while every read is served at once from what
  // was queued: the reads alone would look infinitely fast.
  EXPECT_EQ(Run(20, 100, 10000, 64 * 1024), 1);
  EXPECT_NE(Describe().find("reason:slow"), std::string::npos) << Describe();
  EXPECT_NE(Describe().find("rate_bps:800000,"), std::string::npos) << Describe();

  // 2 MB/s from the network while the player reads a little at a time.
  controller_.OnLevelChanged();
  EXPECT_EQ(Run(20, 100, 200000, 100), 0);
  EXPECT_NE(Describe().find("rate_bps:16000000,"), std::string::npos) << Describe();

  EXPECT_EQ(stats->InletBytes(), 20u * 10000 + 20u * 200000);
  const Source::Inlet inlet = channel_->InletSoFar();
  EXPECT_EQ(inlet.bytes, stats->InletBytes());
  EXPECT_EQ(inlet.receivingUs, 40 * 100 * kMs);
}

TEST_F(SourceInletTest, OnlyReceivingTimeThatIsNotHeldBackCanStall) {
  Configure({});
  channel_->BeginReceiving();
  EXPECT_EQ(Run(5, 100, 50000, 4096), 0);

  // Paused because the queue is full: ten seconds without a byte are no stall.
  channel_->HoldBack(true);
  EXPECT_EQ(Run(10, 1000, 0, 4096), 0);
  channel_->HoldBack(false);

  // The download ended: nothing more arrives, and that is no stall either.
  channel_->EndReceiving();
  EXPECT_EQ(Run(10, 1000, 0, 4096), 0);
  channel_->HoldBack(false);  // a late resume does not restart an ended request
  EXPECT_EQ(Run(10, 1000, 0, 4096), 0);
  EXPECT_EQ(channel_->InletSoFar().receivingUs, 5 * 100 * kMs);

  // A new request that receives nothing for a whole window (3 x 1000 ms) stalls.
  channel_->BeginReceiving();
  EXPECT_EQ(Run(2, 1000, 0, 0), 0);
  EXPECT_EQ(Run(1, 1000, 0, 0), 1);
  EXPECT_NE(Describe().find("reason:stall"), std::string::npos) << Describe();
}

TEST_F(SourceInletTest, WithoutALiveSourceTheReadersWaitIsTheMeasureAgain) {
  Configure({{"bit_rate", "8000000"}});
  channel_->BeginReceiving();
  nowUs_ += 5000 * kMs;  // time before the level was taken does not count
  controller_.OnLevelChanged();
  EXPECT_EQ(Run(5, 100, 200000, 0), 0);

  channel_.reset();  // the stream let the executor go
  int32_t answer = 0;
  for (int i = 0; i < 200; ++i) answer = controller_.OnReadHappened(10 * kMs, 1000);  // 100 kB/s
  EXPECT_EQ(answer, 1);
  EXPECT_NE(Describe().find("reason:slow"), std::string::npos) << Describe();
}

}  // namespace
}  // namespace downloader
