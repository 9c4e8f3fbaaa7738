#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Strategy/FlowRateController.h"
#include "support/LogCapture.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

constexpr int32_t kMs = 1000;  // OnReadHappened takes microseconds

class FlowRateControllerTest : public ::testing::Test {
 protected:
  FlowRateControllerTest() : config_(std::make_shared<dltest::MapConfig>()) {}

  void Configure(StreamParams params = {}, uint64_t durationMs = 0) {
    controller_.Configure(config_, params, durationMs);
  }
  // `reads` reads of `bytes` each, each waiting `waitMs`; the last answer.
  int32_t Feed(int reads, uint64_t bytes, int32_t waitMs) {
    int32_t answer = 0;
    for (int i = 0; i < reads; ++i) answer = controller_.OnReadHappened(waitMs * kMs, bytes);
    return answer;
  }

  std::shared_ptr<dltest::MapConfig> config_;
  FlowRateController controller_;
};

TEST_F(FlowRateControllerTest, AReaderWaitingAWholeWindowWithoutABytePlusAnUnknownBufferIsAStall) {
  Configure();
  controller_.SetNewCalculatorInUse(true);  // judgement changes are logged only then
  dltest::LogCapture log;
  EXPECT_EQ(Feed(10, 4096, 1), 0);
  EXPECT_EQ(controller_.BufferedDurationMs(), -1);
  EXPECT_EQ(Feed(2, 0, 1000), 0);  // 2 s of the 3 s window
  EXPECT_EQ(Feed(1, 0, 1000), 1);
  EXPECT_NE(controller_.Describe().find("reason:stall"), std::string::npos) << controller_.Describe();
  EXPECT_EQ(controller_.CurrentAnswer(), 1);
  EXPECT_TRUE(log.Contains("FLOWRATE-> judgement changed, drain:1"));
  // A byte ends the stall; a new level starts from nothing.
  EXPECT_EQ(Feed(1, 1, 1), 0);
  Feed(3, 0, 1000);
  controller_.OnLevelChanged();
  EXPECT_EQ(controller_.CurrentAnswer(), 0);
}

TEST_F(FlowRateControllerTest, BelowTheBitRateAfterASampleIntervalOfWaitingIsTooSlow) {
  Configure({{"bit_rate", "8000000"}});  // 1 MB/s
  // 100 kB/s: each 1000-byte read waits 10 ms.
  EXPECT_EQ(Feed(99, 1000, 10), 0);  // 990 ms of waiting: too early to judge
  EXPECT_EQ(Feed(1, 1000, 10), 1);
  EXPECT_NE(controller_.Describe().find("reason:slow"), std::string::npos) << controller_.Describe();
  // Fast enough again once the window is full of fast reads.
  EXPECT_EQ(Feed(400, 20000, 10), 0);
}

TEST_F(FlowRateControllerTest, AFullEnoughOrPausedPlayerNeverDrains) {
  Configure({{"bit_rate", "8000000"}, {"buffer", "20000"}});
  EXPECT_EQ(Feed(200, 1000, 10), 0);
  EXPECT_NE(controller_.Describe().find("reason:buffered"), std::string::npos);
  Configure({{"bit_rate", "8000000"}, {"buffer", "19999"}});
  EXPECT_EQ(Feed(200, 1000, 10), 1);
  controller_.OnStreamingStateUpdated(kStreamingStatePaused);
  EXPECT_EQ(controller_.CurrentAnswer(), 0);
  controller_.OnStreamingStateUpdated(kStreamingStatePlaying);
  EXPECT_EQ(controller_.CurrentAnswer(), 1);
}

TEST_F(FlowRateControllerTest, TheBufferComesFromPulseThenMonitorThenRequestAndBufferingMeansEmpty) {
  auto monitor = std::make_shared<PlayStateMonitor>();
  controller_.SetPlayStateMonitor(monitor);
  Configure({{"buffer_duration", "500"}});
  EXPECT_EQ(controller_.BufferedDurationMs(), 500);
  Configure({{"buffer", "700"}, {"buffer_duration", "500"}});
  EXPECT_EQ(controller_.BufferedDurationMs(), 700);
  PulseData pulse;
  PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, 9000);
  monitor->OnPulseDataUpdated(pulse);
  EXPECT_EQ(controller_.BufferedDurationMs(), 9000);
  PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, 4000);
  controller_.OnPulseDataUpdated(pulse);
  EXPECT_EQ(controller_.BufferedDurationMs(), 4000);
  controller_.OnBufferStateUpdated(kBufferStateBuffering);
  EXPECT_EQ(controller_.BufferedDurationMs(), 0);
  controller_.OnBufferStateUpdated(kBufferStateReady);
  config_->Set("let_pluse", "false");
  Configure({{"buffer", "700"}});
  EXPECT_EQ(controller_.BufferedDurationMs(), 700);
}

TEST_F(FlowRateControllerTest, TheBitRateMayComeFromTheResourcesSizeOverItsDuration) {
  Configure({}, 10000);
  controller_.OnFileSizeKnown(10 * 1000 * 1000);  // 8 Mbit/s over 10 s
  EXPECT_EQ(Feed(100, 1000, 10), 1);
  EXPECT_NE(controller_.Describe().find("bit_rate:8000000"), std::string::npos) << controller_.Describe();

  PulseData pulse;
  PulseDataDef<int64_t>(kPulseBitRateKey).Write(&pulse, 100000);
  controller_.OnPulseDataUpdated(pulse);
  EXPECT_EQ(controller_.CurrentAnswer(), 0);
}

TEST_F(FlowRateControllerTest, TheWindowFollowsTheConfiguredInterval) {
  config_->Set("flow_rate_sample_interval", "100");
  config_->Set("flow_rate_sample_wnd", "2");
  Configure();
  EXPECT_EQ(Feed(1, 0, 199), 0);
  EXPECT_EQ(Feed(1, 0, 1), 1);
}

}  // namespace
}  // namespace downloader
