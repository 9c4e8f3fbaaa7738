// The Windows backend's network thread: one asynchronous WinHTTP session and
// one thread that makes every WinHTTP call, runs every listener callback and
// every task that callers post (start, cancel, pause, resume). WinHTTP's own
// threads only turn its status callbacks into events on this thread's queue,
// so that listener calls never run on them, nor inside a caller's Start.
//
// Threads: CreateCall, Post, PostEvent and Shutdown from any thread (Shutdown
// not from the network thread); Session, Track and Untrack on the network
// thread only.
#ifndef WISP_SRC_WINHTTP_WINHTTPTRANSPORT_H_
#define WISP_SRC_WINHTTP_WINHTTPTRANSPORT_H_

#include "Transport.h"

#include <windows.h>
#include <winhttp.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace wisp {
namespace internal {

class WinHttpCall;

class WinHttpTransport : public Transport, public std::enable_shared_from_this<WinHttpTransport> {
 public:
  static std::shared_ptr<WinHttpTransport> Create();
  ~WinHttpTransport() override;

  std::shared_ptr<http::IRequestCall> CreateCall(RequestSpec spec) override;
  void Shutdown() override;

  // A task from a caller. False, dropping it, once the transport is stopping.
  bool Post(std::function<void()> task);
  // An event from WinHTTP; accepted until the thread has ended, because the
  // stop waits for the handles it closes.
  void PostEvent(std::function<void()> event);

  HINTERNET Session() const { return session_; }
  void Track(std::shared_ptr<WinHttpCall> call);
  void Untrack(WinHttpCall* call);

 private:
  using Clock = std::chrono::steady_clock;

  WinHttpTransport();
  void Run();
  // Runs what is queued, waiting until `deadline` for something to be (while
  // stopping, only when `draining`). Returns false once the transport is stopping.
  bool RunQueued(Clock::time_point deadline, bool draining);
  void CheckDeadlines();
  Clock::time_point NextDeadline() const;
  void EndAllCalls();

  // Constant after construction.
  HINTERNET session_ = nullptr;

  std::thread thread_;

  // Guarded by mutex_.
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> queue_;
  bool stopping_ = false;
  bool joined_ = false;

  // Network thread only: calls started whose WinHTTP handles are not all closed.
  std::unordered_map<WinHttpCall*, std::shared_ptr<WinHttpCall>> active_;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_WINHTTP_WINHTTPTRANSPORT_H_
