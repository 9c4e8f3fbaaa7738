// One request on the POSIX backend: a libcurl easy handle in its transport's
// multi handle. The network side (everything but the IRequestCall methods)
// runs on the transport's thread only; the IRequestCall methods post to it.
#ifndef WISP_SRC_CURL_CURLCALL_H_
#define WISP_SRC_CURL_CURLCALL_H_

#include "CallBase.h"

#include <wisp/http/Headers.h>

#include <curl/curl.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace wisp {
namespace internal {

class CurlTransport;

class CurlCall : public CallBase {
 public:
  // `owner` is used on the network thread only, where it is alive;
  // `transport` is how other threads reach it. The call counts itself in
  // `inProgress` (its transport's calls in progress) until it ends or is
  // destroyed.
  CurlCall(std::weak_ptr<CurlTransport> transport, CurlTransport* owner,
           std::shared_ptr<std::atomic<int32_t>> inProgress, RequestPlan spec);
  ~CurlCall() override;

  // --- Network thread.
  void OnTransferDone(CURLcode result);
  // Acts on whatever deadline has passed at `now`.
  void CheckDeadlines(Clock::time_point now);
  // The earliest time at which CheckDeadlines has something to do.
  Clock::time_point NextDeadline() const;
  void AbortForShutdown();

 private:
  // kBetweenAttempts: out of the multi handle, waiting for retryAt_ (or for
  // the decision to retry or fail).
  enum class Stage { kNotBegun, kTransferring, kBetweenAttempts, kDone };

  bool PostTask(std::function<void()> task) override;
  void Begin() override;
  void StopForCancel() override;
  void ApplyPause() override;
  std::shared_ptr<CurlCall> Self() { return std::static_pointer_cast<CurlCall>(shared_from_this()); }
  // Takes the call out of its transport's count, once; any thread.
  void LeaveInProgress();
  bool SetUpHandle();
  void StartAttempt();
  void EndTransfer();
  void FailOrRetry(const http::Error& error);
  void Fail(const http::Error& error);

  size_t OnHeaderLine(const char* data, size_t length);
  bool OnHeadersEnded();
  void ReportConnectionPhases();
  size_t OnBody(const char* data, size_t length);

  static size_t HeaderThunk(char* data, size_t size, size_t count, void* self);
  static size_t BodyThunk(char* data, size_t size, size_t count, void* self);
  static curl_socket_t OpenSocketThunk(void* self, curlsocktype purpose, curl_sockaddr* address);

  // Constant after construction.
  const std::weak_ptr<CurlTransport> transport_;
  CurlTransport* const owner_;
  const std::shared_ptr<std::atomic<int32_t>> inProgress_;

  std::atomic<bool> counted_{true};

  // Network thread only.
  Stage stage_ = Stage::kNotBegun;
  CURL* easy_ = nullptr;
  curl_slist* headerList_ = nullptr;
  curl_slist* connectTo_ = nullptr;
  int32_t redirects_ = 0;
  Clock::time_point attemptStart_;
  Clock::time_point lastProgress_;
  // Pause as the network side has applied it (the atomic flag in CallBase is
  // what callers set); libcurl holds the transfer while curlPaused_.
  bool pausedOnNetwork_ = false;
  bool curlPaused_ = false;
  // The response being received by the current attempt.
  int32_t status_ = 0;
  http::Headers headers_;
  // Head bytes of this attempt, redirects and interim responses included.
  size_t headBytes_ = 0;
  bool headersDone_ = false;
  http::Error pendingError_;
  char errorText_[CURL_ERROR_SIZE] = {};
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_CURL_CURLCALL_H_
