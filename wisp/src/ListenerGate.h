// Lets a call's listener be silenced from any thread with a guarantee: once
// Close returns, no listener callback runs on another thread and none starts.
//
// The network side brackets every listener callback with Enter/Leave. Close
// waits for a callback running on another thread; a callback running on the
// closing thread (a listener cancelling its own call) is left to finish.
//
// Thread-safe. Guarded by mutex_: every member.
#ifndef WISP_SRC_LISTENERGATE_H_
#define WISP_SRC_LISTENERGATE_H_

#include <thread>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {

class ListenerGate {
 public:
  // False once closed: the callback must not be made.
  bool Enter();
  void Leave();
  // Idempotent. Returns true for the call that closed the gate.
  bool Close();
  bool IsClosed() const;

 private:
  mutable wisp::Mutex mutex_;
  wisp::CondVar idle_;
  bool closed_ GUARDED_BY(mutex_) = false;
  bool busy_ GUARDED_BY(mutex_) = false;
  std::thread::id busyThread_ GUARDED_BY(mutex_);
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_LISTENERGATE_H_
