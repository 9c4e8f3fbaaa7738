// One HTTP request, made by WispClient::CreateRequestCaller. One-shot: started
// once, it ends by completion, by failure or by Cancel.
//
// Threads: every method may be called from any thread, including from inside
// the request's own listener.
//
// Lifetime: the call keeps its listener alive (a shared pointer) from Start
// until the call has ended and its network side has let go of it; the caller
// keeps the call alive for as long as it wants to use it. Dropping the last
// reference to a running call does not stop it: Cancel does.
#ifndef WISP_HTTP_IREQUESTCALL_H_
#define WISP_HTTP_IREQUESTCALL_H_

#include <wisp/WispExport.h>
#include <wisp/http/IListener.h>
#include <wisp/http/Metrics.h>

#include <cstdint>
#include <memory>

namespace wisp {
namespace http {

class WISP_EXPORT IRequestCall {
 public:
  virtual ~IRequestCall();

  // Sends the request; `listener` hears about it on the network thread.
  // Returns false, and never calls the listener, when the call was started
  // before, was cancelled, or `listener` is null. Failures of the request
  // itself (even a malformed URL) arrive through OnError, never through here.
  virtual bool Start(std::shared_ptr<IListener> listener) = 0;

  // Stops the request. When Cancel returns, the listener is not running on
  // another thread and will never be called again for this call; called from
  // inside the listener, the current callback finishes and no other follows.
  // Idempotent; harmless before Start and after the end. Do not call it while
  // holding a lock that the listener takes: Cancel may wait for a callback
  // that is running on the network thread.
  virtual void Cancel() = 0;

  // Process-wide unique id, fixed at creation, for logs.
  virtual uint64_t RequestId() const = 0;

  // Stops taking body bytes from the network, so that the caller's memory
  // stays bounded while its reader is behind: the server is held back by flow
  // control. A block already being delivered when Pause is called still
  // arrives. Time paused does not count towards the stall time-out. No-op
  // after the end.
  virtual void Pause() = 0;
  virtual void Resume() = 0;
  virtual bool IsPaused() const = 0;

  // A snapshot of the request's measurements so far.
  virtual MetricsInfo GetMetrics() const = 0;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_IREQUESTCALL_H_
