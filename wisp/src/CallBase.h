// The backend-independent half of a request call: the one-shot start, the
// listener and its gate, callback order, the retry policy, measurements and
// the end-of-request bookkeeping (gauges, monitor, log). Start, Cancel, Pause
// and Resume change state here and post the backend's matching step to its
// network thread; the backend moves the bytes and reports through the
// protected network-side methods, which keep the listener contract.
//
// Threads: the public methods and the "any thread" group may be called from
// any thread; the "network thread" group only from the backend's network
// thread, one at a time.
#ifndef WISP_SRC_CALLBASE_H_
#define WISP_SRC_CALLBASE_H_

#include "ListenerGate.h"
#include "RequestPlan.h"

#include <wisp/Mutex.h>
#include <wisp/http/IRequestCall.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace wisp {
namespace internal {

class CallBase : public http::IRequestCall, public std::enable_shared_from_this<CallBase> {
 public:
  using Clock = std::chrono::steady_clock;

  explicit CallBase(RequestPlan spec);
  ~CallBase() override;

  bool Start(std::shared_ptr<http::IListener> listener) final;
  void Cancel() final;
  void Pause() final;
  void Resume() final;

  uint64_t RequestId() const override { return requestId_; }
  bool IsPaused() const override { return paused_.load(std::memory_order_acquire); }
  http::MetricsInfo GetMetrics() const override;

  const RequestPlan& Spec() const { return spec_; }

 protected:
  // Any thread: runs `task` on the backend's network thread. False, dropping
  // it, when the client is gone or stopping.
  virtual bool PostTask(std::function<void()> task) = 0;

  // --- Network thread: the steps that the public operations post.
  // After Start: sends the request (or ends a call cancelled meanwhile with
  // FinishCancelled).
  virtual void Begin() = 0;
  // After Cancel of a started call: tears the transfer down, then FinishCancelled.
  virtual void StopForCancel() = 0;
  // After Pause or Resume: brings the transfer in line with IsPaused().
  virtual void ApplyPause() = 0;

  // --- Network thread.
  void ReportPhase(http::StatusPhase phase, int64_t value);
  // Both return false once the listener is silenced: stop the transfer.
  bool DeliverResponse(std::shared_ptr<http::Response> response);
  bool DeliverBytes(const uint8_t* data, size_t length);
  // Terminal: each ends the request once; later ones are ignored.
  void FinishWithError(const http::Error& error);
  void FinishComplete();
  void FinishCancelled();
  bool Finished() const { return finished_; }
  bool Responded() const { return responded_; }
  bool Silenced() const { return gate_.IsClosed(); }
  Clock::time_point StartTime() const { return startTime_; }
  int64_t MicrosSinceStart(Clock::time_point when) const;
  void NoteAddressTried(const std::string& address);
  void NoteConnection(const std::string& serverAddress, bool reused);
  // Start plus the open time-out, or Clock::time_point::max() without one.
  Clock::time_point OpenDeadline() const;
  // Decides whether a failure gets another attempt: only before the
  // response, only for failures of the network, within the retry limit and
  // the open time-out. When it returns true, the attempt is due at RetryAt().
  bool PlanRetry(const http::Error& error);
  Clock::time_point RetryAt() const { return retryAt_; }
  int32_t RetriesUsed() const { return retriesUsed_; }

 private:
  bool PostStep(void (CallBase::*step)());
  // Takes the listener and stamps the start time. False (listener untouched)
  // when already started, cancelled, or `listener` is null.
  bool ClaimStart(std::shared_ptr<http::IListener> listener);
  // Undoes ClaimStart when the network side could not be reached.
  void AbandonStart();
  // Silences the listener for good (see ListenerGate::Close). Returns true
  // when the call had been started and not yet cancelled.
  bool SilenceForCancel();

  // Fixes the final metrics, before the last callback so that the listener
  // sees them; returns them.
  http::MetricsInfo RecordEnd(const http::Error& error);
  // After the last callback: gauges, monitor, log; lets go of the listener.
  void Release(const http::MetricsInfo& final);
  void UpdateTiming(http::StatusPhase phase, int64_t value);

  // Constant after construction.
  const RequestPlan spec_;
  const uint64_t requestId_;

  ListenerGate gate_;
  std::atomic<bool> paused_{false};

  wisp::Mutex startMutex_;
  bool started_ GUARDED_BY(startMutex_) = false;
  bool cancelled_ GUARDED_BY(startMutex_) = false;

  // Written by ClaimStart before the network side hears of the call, then
  // network thread only.
  std::shared_ptr<http::IListener> listener_;
  Clock::time_point startTime_;
  bool responded_ = false;
  bool finished_ = false;
  int32_t retriesUsed_ = 0;
  Clock::time_point retryAt_;

  mutable wisp::Mutex metricsMutex_;
  http::MetricsInfo metrics_ GUARDED_BY(metricsMutex_);
  Clock::time_point responseTime_ GUARDED_BY(metricsMutex_);
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_CALLBASE_H_
