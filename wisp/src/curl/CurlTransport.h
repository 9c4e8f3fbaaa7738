// One of the POSIX backend's network threads (see CurlTransportPool): one
// libcurl multi handle driven by one thread, which runs every transfer,
// every listener callback and every task that callers post (start, cancel,
// pause, resume) of the calls made on it. The multi handle keeps the
// connections and the DNS cache that those calls share.
//
// A call is in progress from its creation until it ends (before its last
// callback, so that a caller who starts the next call from there or after
// it sees the count without it) or, when it never ends, until it is
// destroyed. A call created and never started counts until destroyed.
//
// Threads: CreateCall, Post, CallsInProgress and Shutdown from any thread
// (Shutdown not from the network thread); Multi, Track and Untrack on the
// network thread only. The count of calls in progress is atomic.
#ifndef WISP_SRC_CURL_CURLTRANSPORT_H_
#define WISP_SRC_CURL_CURLTRANSPORT_H_

#include "Transport.h"

#include <curl/curl.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <unordered_map>
#include <vector>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {

class CurlCall;

class CurlTransport : public Transport, public std::enable_shared_from_this<CurlTransport> {
 public:
  static std::shared_ptr<CurlTransport> Create();
  ~CurlTransport() override;

  std::shared_ptr<http::IRequestCall> CreateCall(RequestPlan spec) override;
  void Shutdown() override;

  // Runs `task` on the network thread. False, dropping the task, once the
  // transport is shutting down.
  bool Post(std::function<void()> task);

  int32_t CallsInProgress() const { return callsInProgress_->load(std::memory_order_relaxed); }

  CURLM* Multi() const { return multi_; }
  void Track(std::shared_ptr<CurlCall> call);
  void Untrack(CurlCall* call);

 private:
  CurlTransport();
  void Run();
  // Returns false when the transport is stopping.
  bool RunPostedTasks();
  void ReapFinishedTransfers();
  void CheckDeadlines();
  int PollTimeoutMs() const;
  void EndAllCalls();

  // Constant after construction.
  CURLM* const multi_;
  // Shared with the calls, which may outlive the transport.
  const std::shared_ptr<std::atomic<int32_t>> callsInProgress_;

  std::thread thread_;

  wisp::Mutex mutex_;
  std::vector<std::function<void()>> tasks_ GUARDED_BY(mutex_);
  bool stopping_ GUARDED_BY(mutex_) = false;
  bool joined_ GUARDED_BY(mutex_) = false;

  // Network thread only: calls started and not ended.
  std::unordered_map<CurlCall*, std::shared_ptr<CurlCall>> active_;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_CURL_CURLTRANSPORT_H_
