#include <gtest/gtest.h>

#include <memory>

#include <downloader/Strategy/BufferDrainCalculator.h>
#include <downloader/Strategy/DrainCalculatorFactory.h>
#include <downloader/Strategy/FlowRateCalculator.h>

#include "support/MapConfig.h"

namespace downloader {
namespace {

using std::chrono::milliseconds;
using Clock = BufferDrainCalculator::Clock;

// Records samples `intervalMs` apart starting at a fixed origin.
void Feed(BufferDrainCalculator& calculator, std::initializer_list<uint64_t> samples, int intervalMs) {
  Clock::time_point at = Clock::time_point() + std::chrono::hours(1);
  for (uint64_t sample : samples) {
    calculator.RecordSample(sample, at);
    at += milliseconds(intervalMs);
  }
}

TEST(BufferDrainCalculatorTest, RingKeepsOnlyTheLastNSamplesAndItsDescription) {
  BufferDrainCalculator calculator(3, 10, 20000);
  calculator.SetBuffer(8000);
  // A burst, then three slow reads: only the slow ones count.
  Feed(calculator, {100000, 100000, 2, 3, 4}, 500);
  EXPECT_TRUE(calculator.IsDrain());
  EXPECT_EQ(calculator.Describe(),
            "donwload_1_buffer_8000_buffer_threshold_t_20000_cur_percent_9_threshold_percent_10");
}

TEST(BufferDrainCalculatorTest, ThresholdBoundaries) {
  // Same millisecond: the duration counts as 1 ms, the rate as 1000 x total.
  BufferDrainCalculator sameInstant(2, 10, 20000);
  Feed(sameInstant, {0, 0}, 0);
  EXPECT_TRUE(sameInstant.IsDrain());
  Feed(sameInstant, {1}, 0);  // 1000 x 1 > 10
  EXPECT_FALSE(sameInstant.IsDrain());

  // current_percent equal to the threshold drains (at or below).
  BufferDrainCalculator atThreshold(2, 10, 20000);
  Feed(atThreshold, {5, 5}, 1000);  // 1000 / 1000 x 10 = 10
  EXPECT_TRUE(atThreshold.IsDrain());

  // A buffer equal to its threshold is not low (strictly below).
  atThreshold.SetBuffer(20000);
  EXPECT_FALSE(atThreshold.IsDrain());
  atThreshold.SetBuffer(19999);
  EXPECT_TRUE(atThreshold.IsDrain());
  atThreshold.SetBuffer(-1);  // unknown: only the rate decides
  EXPECT_TRUE(atThreshold.IsDrain());
}

// Records which kind of calculator the factory said is in use.
class ScriptedControl : public FlowRateControl {
 public:
  int32_t OnReadHappened(int32_t, uint64_t) override { return 0; }
  int32_t CurrentAnswer() override { return 0; }
  std::string Describe() override { return ""; }
  void SetNewCalculatorInUse(bool inUse) override { newCalculatorInUse = inUse; }

  int newCalculatorInUse = -1;
};

TEST(DrainCalculatorFactoryTest, ChoosesByConfiguration) {
  auto control = std::make_shared<ScriptedControl>();
  auto byDefault = DrainCalculatorFactory::Create(nullptr, control);
  EXPECT_NE(dynamic_cast<FlowRateCalculator*>(byDefault.get()), nullptr);
  EXPECT_EQ(control->newCalculatorInUse, 1);

  auto config = std::make_shared<dltest::MapConfig>();
  config->Set("new_drain_caculator", "0");
  config->Set("read_retry_count", "5");
  config->Set("read_buffer_compaire_count", "2");
  auto ring = DrainCalculatorFactory::Create(config, control);
  auto* buffer = dynamic_cast<BufferDrainCalculator*>(ring.get());
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(control->newCalculatorInUse, 0);
  // A five-sample ring: four samples are not enough.
  Feed(*buffer, {0, 0, 0, 0}, 100);
  EXPECT_FALSE(buffer->IsDrain());
  Feed(*buffer, {0}, 100);
  EXPECT_TRUE(buffer->IsDrain());
  buffer->Reset();  // warms up again
  Feed(*buffer, {0, 0, 0, 0}, 100);
  EXPECT_FALSE(buffer->IsDrain());
}

}  // namespace
}  // namespace downloader
