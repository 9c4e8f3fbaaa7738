// The POSIX backend's network thread: one libcurl multi handle driven by one
// thread, which runs every transfer, every listener callback and every task
// that callers post (start, cancel, pause, resume). The multi handle keeps
// the connection pool and the DNS cache that the client's calls share.
//
// Threads: CreateCall, Post and Shutdown from any thread (Shutdown not from
// the network thread); Multi, Track and Untrack on the network thread only.
#ifndef WISP_SRC_CURL_CURLTRANSPORT_H_
#define WISP_SRC_CURL_CURLTRANSPORT_H_

#include "Transport.h"

#include <curl/curl.h>

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
