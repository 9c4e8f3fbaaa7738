// The Windows backend's network thread: one asynchronous WinHTTP session and
// one thread that makes every WinHTTP call, runs every listener callback and
// every task that callers post (start, cancel, pause, resume). WinHTTP's own
// threads only turn its status callbacks into events on this thread's queue,
// so that listener calls never run on them, nor inside a caller's Start.
//
// Threads: CreateCall, Post and Shutdown from any thread (Shutdown not from
// the network thread); Session, Track and Untrack on the network thread only.
#ifndef WISP_SRC_WINHTTP_WINHTTPTRANSPORT_H_
#define WISP_SRC_WINHTTP_WINHTTPTRANSPORT_H_

#include "Transport.h"
#include "winhttp/WinHttpInbox.h"

#include <windows.h>
#include <winhttp.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <unordered_map>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {

class WinHttpCall;

class WinHttpTransport : public Transport, public std::enable_shared_from_this<WinHttpTransport> {
 public:
  static std::shared_ptr<WinHttpTransport> Create();
  ~WinHttpTransport() override;

  std::shared_ptr<http::IRequestCall> CreateCall(RequestPlan spec) override;
  void Shutdown() override;

  // A task from a caller. False, dropping it, once the transport is stopping.
  bool Post(std::function<void()> task) { return inbox_->PostTask(std::move(task)); }

  HINTERNET Session() const { return session_; }
  void Track(std::shared_ptr<WinHttpCall> call);
  void Untrack(WinHttpCall* call);

 private:
  using Clock = std::chrono::steady_clock;

  WinHttpTransport();
  void Run();
  // Runs what is queued, waiting until `deadline` for something to be (see
  // WinHttpInbox::Take). Returns false once the transport is stopping.
  bool RunQueued(Clock::time_point deadline, bool draining);
  void CheckDeadlines();
  Clock::time_point NextDeadline() const;
  void EndAllCalls();

  // Constant after construction.
  HINTERNET session_ = nullptr;
  const std::shared_ptr<WinHttpInbox> inbox_ = std::make_shared<WinHttpInbox>();

  std::thread thread_;

  wisp::Mutex mutex_;
  bool joined_ GUARDED_BY(mutex_) = false;

  // Network thread only: calls started whose WinHTTP handles are not all closed.
  std::unordered_map<WinHttpCall*, std::shared_ptr<WinHttpCall>> active_;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_WINHTTP_WINHTTPTRANSPORT_H_
