#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include <downloader/Base/HeartPacemaker.h>

#include "support/LogCapture.h"
#include "support/WaitFor.h"

namespace downloader {
namespace {

std::atomic<int> g_callbackCalls{0};

HeartbeatInfo InfoForOddPlayers(int32_t pid) {
  ++g_callbackCalls;
  if (pid % 2 == 0) return {};
  return {{"pid", std::to_string(pid)}};
}

class HeartPacemakerTest : public ::testing::Test {
 protected:
  void SetUp() override { g_callbackCalls = 0; }
  void TearDown() override { HeartPacemaker::SetHeartbeatCallback(nullptr); }

  PacemakerParams Params(int32_t pid, std::atomic<int>* beats) {
    PacemakerParams params;
    params.pid = pid;
    params.sid = 9;
    params.duration = 1;
    params.consumer = [beats](const HeartbeatInfo&) { ++*beats; };
    return params;
  }
};

TEST_F(HeartPacemakerTest, ConsumerGetsOnlyNonEmptyMaps) {
  HeartPacemaker::SetHeartbeatCallback(&InfoForOddPlayers);
  std::atomic<int> oddBeats{0};
  std::atomic<int> evenBeats{0};
  auto odd = HeartPacemaker::Create();
  auto even = HeartPacemaker::Create();
  odd->Start(Params(3, &oddBeats));
  even->Start(Params(4, &evenBeats));
  ASSERT_TRUE(dltest::WaitFor([&] { return oddBeats >= 3 && g_callbackCalls >= 8; }));
  odd->Stop();
  even->Stop();
  EXPECT_EQ(evenBeats.load(), 0);
}

TEST_F(HeartPacemakerTest, WithoutCallbackBeatsKeepGoingButReachNoConsumer) {
  std::atomic<int> beats{0};
  auto pacemaker = HeartPacemaker::Create();
  {
    dltest::LogCapture verbose(DL_LOG_DEBUG);
    pacemaker->Start(Params(1, &beats));
    ASSERT_TRUE(dltest::WaitFor([&] { return verbose.Matching("heart beating with pid:1, sid:9, duration:1").size() >= 3; }));
    pacemaker->Stop();
    EXPECT_TRUE(verbose.Contains("heart beat for pid:1, sid:9 started"));
    EXPECT_TRUE(verbose.Contains("heart beat for pid:1, sid:9 stopped"));
    verbose.Clear();
    pacemaker->Stop();  // second stop: nothing, not even a line
    EXPECT_FALSE(verbose.Contains("stopped"));
  }
  EXPECT_EQ(beats.load(), 0);
}

// Stop racing a due beat: once Stop returns, no consumer call runs or follows.
TEST_F(HeartPacemakerTest, NoBeatAfterStopEvenWhenOneWasDue) {
  HeartPacemaker::SetHeartbeatCallback(&InfoForOddPlayers);
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> beats{0};
    std::atomic<bool> stopReturned{false};
    std::atomic<bool> beatAfterStop{false};
    auto pacemaker = HeartPacemaker::Create();
    PacemakerParams params = Params(5, &beats);
    params.duration = 0;  // always due
    params.consumer = [&](const HeartbeatInfo&) {
      if (stopReturned) beatAfterStop = true;
      ++beats;
    };
    pacemaker->Start(params);
    ASSERT_TRUE(dltest::WaitFor([&] { return beats.load() > round % 3; }));
    pacemaker->Stop();
    stopReturned = true;
    std::this_thread::yield();
    EXPECT_FALSE(beatAfterStop.load());
  }
}

// A second Start swaps the timer without a stop step: no "stopped" line, and the
// first timer beats no more. A Stop from inside the consumer is safe.
TEST_F(HeartPacemakerTest, RestartReplacesTheTimerWithoutStoppingAndStopFromConsumerIsSafe) {
  HeartPacemaker::SetHeartbeatCallback(&InfoForOddPlayers);
  auto pacemaker = HeartPacemaker::Create();
  std::atomic<int> first{0};
  std::atomic<int> second{0};
  dltest::LogCapture log(DL_LOG_INFO);
  pacemaker->Start(Params(7, &first));
  ASSERT_TRUE(dltest::WaitFor([&] { return first >= 1; }));
  PacemakerParams params = Params(7, &second);
  std::weak_ptr<HeartPacemaker> weak = pacemaker;
  params.consumer = [&second, weak](const HeartbeatInfo&) {
    ++second;
    if (auto self = weak.lock()) self->Stop();
  };
  pacemaker->Start(params);
  int firstAtRestart = first.load();
  const std::string stopped = "heart beat for pid:7, sid:9 stopped";
  // The consumer's Stop logs its line after the beat counted itself.
  ASSERT_TRUE(dltest::WaitFor([&] { return second >= 1 && log.Contains(stopped); }));
  pacemaker->Stop();  // the consumer stopped it already: nothing more
  EXPECT_EQ(first.load(), firstAtRestart);
  EXPECT_EQ(second.load(), 1);
  EXPECT_EQ(log.Matching("started").size(), 2u);
  EXPECT_EQ(log.Matching(stopped).size(), 1u) << "only the consumer's Stop: a restart is not a stop";
}

}  // namespace
}  // namespace downloader
