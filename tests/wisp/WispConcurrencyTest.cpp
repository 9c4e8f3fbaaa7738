// Many requests on one client, Cancel from both sides of the network thread,
// pause and client shutdown: the parts of wisp where threads meet.
#include "OriginTest.h"
#include "RecordingListener.h"

#include <wisp/http/IRequestCall.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace wisptest {
namespace {

using wisp::http::ErrorKind;
using wisp::http::IRequestCall;
using wisp::http::RequestType;

using WispConcurrencyTest = OriginTest;

// A request that completes after every request started before it on the
// same client has had its network-side work done, so a cancelled call's
// stray callbacks would have arrived by then.
void DrainNetworkThread(wisp::http::WispClient* client, const std::string& url) {
  wisp::http::Options options;
  options.Set(wisp::http::option::kUrl, url);
  auto listener = std::make_shared<RecordingListener>();
  auto call = client->CreateRequestCaller(RequestType::kGet, options);
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForEnd());
  ASSERT_TRUE(listener->Completed()) << listener->Error().String();
}

TEST_F(WispConcurrencyTest, SixtyFourConcurrentRequestsOnOneClient) {
  constexpr int kRequests = 64;
  std::vector<std::shared_ptr<IRequestCall>> calls;
  std::vector<std::shared_ptr<RecordingListener>> listeners;
  for (int i = 0; i < kRequests; ++i) {
    const std::string path = "/syn/concurrent" + std::to_string(i);
    auto listener = std::make_shared<RecordingListener>();
    listener->VerifySynthetic(path);
    listener->ForbidCallbacksOn(std::this_thread::get_id());
    auto call = client_->CreateRequestCaller(
        RequestType::kGet, OptionsFor(path + "?size=" + std::to_string(20000 + i * 7919)));
    ASSERT_TRUE(call->Start(listener));
    calls.push_back(call);
    listeners.push_back(listener);
  }
  for (int i = 0; i < kRequests; ++i) {
    ASSERT_TRUE(listeners[i]->WaitForEnd()) << i;
    EXPECT_TRUE(listeners[i]->Completed()) << i << ": " << listeners[i]->Error().String();
    EXPECT_EQ(listeners[i]->Bytes(), 20000 + i * 7919) << i;
    EXPECT_EQ(listeners[i]->Mismatches(), 0) << i;
    EXPECT_EQ(listeners[i]->OrderProblem(), "") << i;
    EXPECT_EQ(listeners[i]->CallbacksOnForbiddenThread(), 0) << i;
  }
}

TEST_F(WispConcurrencyTest, NoCallbackAfterCancelReturns) {
  auto listener = std::make_shared<RecordingListener>();
  auto call = client_->CreateRequestCaller(RequestType::kGet, OptionsFor("/syn/cancelled?size=50000000&rate=4000000"));
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForBytes(1));
  call->Cancel();
  listener->MarkCancelled();

  DrainNetworkThread(client_.get(), Url("/syn/after-cancel?size=100"));
  EXPECT_EQ(listener->CallbacksAfterCancel(), 0);
  EXPECT_FALSE(listener->Ended());
  EXPECT_EQ(call->GetMetrics().errorKind, ErrorKind::kCancelled);
}

TEST_F(WispConcurrencyTest, CancelFromInsideTheListenerStopsAtOnce) {
  auto listener = std::make_shared<RecordingListener>();
  auto call = client_->CreateRequestCaller(RequestType::kGet, OptionsFor("/syn/self-cancel?size=20000000"));
  std::weak_ptr<RecordingListener> weakListener = listener;
  listener->SetBytesHook([weakListener](IRequestCall* self, int64_t) {
    self->Cancel();
    if (auto strong = weakListener.lock()) strong->MarkCancelled();
  });
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForBytes(1));

  DrainNetworkThread(client_.get(), Url("/syn/after-self-cancel?size=100"));
  EXPECT_EQ(listener->CallbacksAfterCancel(), 0);
  EXPECT_FALSE(listener->Ended());
}

TEST_F(WispConcurrencyTest, CancelRacingTheEndIsNeverFollowedByACallback) {
  constexpr int kRounds = 40;
  std::vector<std::shared_ptr<RecordingListener>> listeners;
  for (int round = 0; round < kRounds; ++round) {
    auto listener = std::make_shared<RecordingListener>();
    listener->ForbidCallbacksOn(std::this_thread::get_id());
    auto call = client_->CreateRequestCaller(RequestType::kGet,
                                             OptionsFor("/syn/race?size=" + std::to_string(1000 * (round + 1))));
    ASSERT_TRUE(call->Start(listener));
    // Let some rounds get further before the cancel races them.
    if (round % 2 == 1) listener->WaitForBytes(1);
    call->Cancel();
    listener->MarkCancelled();
    listeners.push_back(listener);
  }
  DrainNetworkThread(client_.get(), Url("/syn/after-race?size=100"));
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_EQ(listeners[round]->CallbacksAfterCancel(), 0) << round;
    EXPECT_EQ(listeners[round]->CallbacksOnForbiddenThread(), 0) << round;
    EXPECT_EQ(listeners[round]->OrderProblem(), "") << round;
  }
}

TEST_F(WispConcurrencyTest, PauseHoldsTheBodyInTheNetworkWhileTheOriginSends) {
  constexpr int64_t kSize = 16 << 20;
  // libcurl hands over at most one receive block after the pause is asked.
  constexpr int64_t kOneBlock = 512 * 1024;
  // Bytes that the origin must have written beyond what the client took, to
  // show that the rest waits in the socket buffers and not in the library.
  constexpr int64_t kHeldByNetwork = 256 * 1024;
  const std::string tag = UniqueTag("paused");
  auto listener = std::make_shared<RecordingListener>();
  listener->VerifySynthetic("/syn/paused");
  auto call = client_->CreateRequestCaller(
      RequestType::kGet, OptionsFor("/syn/paused?tag=" + tag + "&size=" + std::to_string(kSize)));
  auto pausedOnce = std::make_shared<std::atomic<bool>>(false);
  listener->SetBytesHook([pausedOnce](IRequestCall* self, int64_t) {
    if (!pausedOnce->exchange(true)) self->Pause();
  });
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForBytes(1));
  const int64_t atPause = listener->Bytes();

  OriginStats stats;
  auto deadline = std::chrono::steady_clock::now() + kWait;
  do {
    stats = StatsFor(tag);
  } while (stats.bytesSent < atPause + kHeldByNetwork && std::chrono::steady_clock::now() < deadline);
  EXPECT_GE(stats.bytesSent, atPause + kHeldByNetwork);
  EXPECT_LE(listener->Bytes(), atPause + kOneBlock);
  EXPECT_FALSE(listener->Ended());

  call->Resume();
  ASSERT_TRUE(listener->WaitForEnd());
  EXPECT_TRUE(listener->Completed()) << listener->Error().String();
  EXPECT_EQ(listener->Bytes(), kSize);
  EXPECT_EQ(listener->Mismatches(), 0);
}

TEST_F(WispConcurrencyTest, ClientShutdownEndsRunningRequestsAsCancelled) {
  auto listener = std::make_shared<RecordingListener>();
  auto call = client_->CreateRequestCaller(RequestType::kGet, OptionsFor("/syn/shutdown?size=50000000&rate=2000000"));
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForBytes(1));
  client_.reset();
  ASSERT_TRUE(listener->Ended());
  EXPECT_EQ(listener->Error().kind, ErrorKind::kCancelled);
  EXPECT_EQ(listener->OrderProblem(), "");
  // The call outlives its client harmlessly.
  call->Pause();
  call->Cancel();
}

}  // namespace
}  // namespace wisptest
