// The POSIX backend's network threads: which thread a call lands on, and
// that calls on several threads behave like calls on one.
#include "OriginTest.h"
#include "RecordingListener.h"
#include "RequestPlan.h"
#include "curl/CurlTransportPool.h"

#include <wisp/http/IRequestCall.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace wisptest {
namespace {

using wisp::http::ErrorKind;
using wisp::http::IRequestCall;
using wisp::http::RequestType;
using wisp::internal::CurlTransportPool;
using wisp::internal::RequestPlan;

constexpr int32_t kThreads = 3;

class CurlTransportPoolTest : public OriginTest {
 protected:
  std::shared_ptr<IRequestCall> MakeCall(const std::string& pathAndQuery) {
    return pool_->CreateCall(RequestPlan::FromOptions(RequestType::kGet, OptionsFor(pathAndQuery)));
  }

  // The one thread that `listener` was called on; fails the test otherwise.
  static std::thread::id OnlyThread(const RecordingListener& listener) {
    std::vector<std::thread::id> threads = listener.CallbackThreads();
    EXPECT_EQ(threads.size(), 1u);
    return threads.empty() ? std::thread::id() : threads.front();
  }

  std::shared_ptr<CurlTransportPool> pool_ = CurlTransportPool::Create(kThreads);
};

TEST_F(CurlTransportPoolTest, CallsMadeOneAfterAnotherStayOnOneThreadAndReuseItsConnection) {
  // Kept alive on purpose: a call's end, not its destruction, gives its place back.
  std::vector<std::shared_ptr<IRequestCall>> calls;
  std::vector<std::shared_ptr<RecordingListener>> listeners;
  for (int i = 0; i < 3; ++i) {
    auto listener = std::make_shared<RecordingListener>();
    auto call = MakeCall("/syn/sequential?size=5000");
    ASSERT_TRUE(call->Start(listener));
    ASSERT_TRUE(listener->WaitForEnd());
    ASSERT_TRUE(listener->Completed()) << listener->Error().String();
    calls.push_back(call);
    listeners.push_back(listener);
    // A call dropped without being started gives its place back as well.
    MakeCall("/syn/never-started?size=1").reset();
  }
  const std::thread::id first = OnlyThread(*listeners[0]);
  const std::string firstPort = listeners[0]->Response()->GetHeaders().Get("X-Client-Port");
  EXPECT_FALSE(firstPort.empty());
  for (int i = 1; i < 3; ++i) {
    EXPECT_EQ(OnlyThread(*listeners[i]), first) << i;
    EXPECT_EQ(listeners[i]->Response()->GetHeaders().Get("X-Client-Port"), firstPort) << i;
  }
}

TEST_F(CurlTransportPoolTest, OverlappingCallsSpreadEvenlyAndEachCompletesWithItsBytes) {
  constexpr int kCallsPerThread = 8;
  constexpr int kCalls = kThreads * kCallsPerThread;
  std::vector<std::shared_ptr<IRequestCall>> calls;
  std::vector<std::shared_ptr<RecordingListener>> listeners;
  // All made before any starts, so that none has ended when the next is placed.
  for (int i = 0; i < kCalls; ++i) {
    calls.push_back(MakeCall("/syn/spread" + std::to_string(i) + "?size=" + std::to_string(300000 + i * 7919)));
  }
  for (int i = 0; i < kCalls; ++i) {
    auto listener = std::make_shared<RecordingListener>();
    listener->VerifySynthetic("/syn/spread" + std::to_string(i));
    listener->ForbidCallbacksOn(std::this_thread::get_id());
    ASSERT_TRUE(calls[i]->Start(listener));
    listeners.push_back(listener);
  }
  std::map<std::thread::id, int> callsPerThread;
  for (int i = 0; i < kCalls; ++i) {
    ASSERT_TRUE(listeners[i]->WaitForEnd()) << i;
    EXPECT_TRUE(listeners[i]->Completed()) << i << ": " << listeners[i]->Error().String();
    EXPECT_EQ(listeners[i]->Bytes(), 300000 + i * 7919) << i;
    EXPECT_EQ(listeners[i]->Mismatches(), 0) << i;
    EXPECT_EQ(listeners[i]->OrderProblem(), "") << i;
    EXPECT_EQ(listeners[i]->CallbacksOnForbiddenThread(), 0) << i;
    ++callsPerThread[OnlyThread(*listeners[i])];
  }
  EXPECT_EQ(callsPerThread.size(), static_cast<size_t>(kThreads));
  for (const auto& entry : callsPerThread) EXPECT_EQ(entry.second, kCallsPerThread);
}

TEST_F(CurlTransportPoolTest, ShutdownEndsTheRunningCallsOfEveryThreadAsCancelled) {
  constexpr int kCalls = 2 * kThreads;
  std::vector<std::shared_ptr<IRequestCall>> calls;
  std::vector<std::shared_ptr<RecordingListener>> listeners;
  for (int i = 0; i < kCalls; ++i) {
    auto listener = std::make_shared<RecordingListener>();
    auto call = MakeCall("/syn/shutdown" + std::to_string(i) + "?size=50000000&rate=2000000");
    ASSERT_TRUE(call->Start(listener));
    calls.push_back(call);
    listeners.push_back(listener);
  }
  std::map<std::thread::id, int> callsPerThread;
  for (int i = 0; i < kCalls; ++i) {
    ASSERT_TRUE(listeners[i]->WaitForBytes(1)) << i;
    ++callsPerThread[OnlyThread(*listeners[i])];
  }
  EXPECT_EQ(callsPerThread.size(), static_cast<size_t>(kThreads));

  pool_->Shutdown();
  for (int i = 0; i < kCalls; ++i) {
    ASSERT_TRUE(listeners[i]->Ended()) << i;
    EXPECT_EQ(listeners[i]->Error().kind, ErrorKind::kCancelled) << i;
    EXPECT_EQ(listeners[i]->OrderProblem(), "") << i;
  }
  // A call made after the shutdown cannot start.
  EXPECT_FALSE(MakeCall("/syn/after-shutdown?size=1")->Start(std::make_shared<RecordingListener>()));
}

}  // namespace
}  // namespace wisptest
