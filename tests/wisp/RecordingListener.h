// A listener that records what a request reported, checks the callback order
// and, when asked, every body byte against dlorigin's synthetic content.
// Tests wait on it with deadlines (condition variable), never with sleeps.
//
// Threads: callbacks come on wisp's network thread; everything else from the
// test's thread. Guarded by mutex_: every member but the constant ones.
#ifndef TESTS_WISP_RECORDINGLISTENER_H_
#define TESTS_WISP_RECORDINGLISTENER_H_

#include <wisp/http/IListener.h>
#include <wisp/http/IRequestCall.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace wisptest {

constexpr std::chrono::milliseconds kWait{30000};

enum class Event { kPhase, kResponse, kBytes, kError, kComplete };

class RecordingListener : public wisp::http::IListener {
 public:
  using BytesHook = std::function<void(wisp::http::IRequestCall* call, int64_t totalBytes)>;

  // Set up before Start.
  // Checks each byte against the synthetic resource at `path`, from the
  // response's RangeStart on.
  void VerifySynthetic(const std::string& path);
  void KeepBody() { keepBody_ = true; }
  // Runs on the network thread after each OnBytes is recorded, without the lock.
  void SetBytesHook(BytesHook hook) { bytesHook_ = std::move(hook); }
  // Counts callbacks that run on `thread` (the test's own, which calls Start
  // and Cancel and must never be called back on).
  void ForbidCallbacksOn(std::thread::id thread) { forbiddenThread_ = thread; }

  // Any callback after this is counted as a violation of Cancel's promise.
  void MarkCancelled();

  bool WaitForEnd(std::chrono::milliseconds timeout = kWait);
  bool WaitForBytes(int64_t atLeast, std::chrono::milliseconds timeout = kWait);

  bool Ended() const { return Locked(ended_); }
  bool Completed() const { return Locked(completed_); }
  wisp::http::Error Error() const { return Locked(error_); }
  std::shared_ptr<wisp::http::Response> Response() const { return Locked(response_); }
  int64_t Bytes() const { return Locked(bytes_); }
  // Body blocks holding a byte that differs from the synthetic content.
  int64_t Mismatches() const { return Locked(mismatches_); }
  std::string Body() const { return Locked(body_); }
  std::vector<std::pair<wisp::http::StatusPhase, int64_t>> Phases() const { return Locked(phases_); }
  int CallbacksAfterCancel() const { return Locked(callbacksAfterCancel_); }
  int CallbacksOnForbiddenThread() const { return Locked(callbacksOnForbiddenThread_); }
  // The threads that the callbacks came on, each once, in order of first use.
  std::vector<std::thread::id> CallbackThreads() const { return Locked(callbackThreads_); }
  // "" when the callbacks came in the documented order; else what went wrong.
  std::string OrderProblem() const { return Locked(orderProblem_); }

  void OnResponse(wisp::http::IRequestCall* call, std::shared_ptr<wisp::http::Response> response) override;
  void OnBytes(wisp::http::IRequestCall* call, const uint8_t* data, size_t length) override;
  void OnError(wisp::http::IRequestCall* call, const wisp::http::Error& error) override;
  void OnComplete(wisp::http::IRequestCall* call) override;
  void OnStatusPhase(wisp::http::IRequestCall* call, wisp::http::StatusPhase phase, int64_t value) override;

 private:
  // Appends `event`, checking it against the order. Under mutex_.
  void RecordLocked(Event event);
  // RecordLocked, then `update` of the members, under mutex_; wakes the waiters.
  template <typename Update>
  void Record(Event event, Update update);
  // A copy of `member`, taken under mutex_.
  template <typename T>
  T Locked(const T& member) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return member;
  }

  // Set before Start.
  bool verify_ = false;
  uint64_t seed_ = 0;
  bool keepBody_ = false;
  BytesHook bytesHook_;
  std::thread::id forbiddenThread_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Event> events_;
  std::vector<std::pair<wisp::http::StatusPhase, int64_t>> phases_;
  std::string orderProblem_;
  bool ended_ = false;
  bool completed_ = false;
  bool cancelled_ = false;
  int callbacksAfterCancel_ = 0;
  int callbacksOnForbiddenThread_ = 0;
  std::vector<std::thread::id> callbackThreads_;
  wisp::http::Error error_;
  std::shared_ptr<wisp::http::Response> response_;
  int64_t bytes_ = 0;
  int64_t mismatches_ = 0;
  std::string body_;
};

}  // namespace wisptest

#endif  // TESTS_WISP_RECORDINGLISTENER_H_
