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

#include <condition_variable>
#include <mutex>
#include <thread>

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
  mutable std::mutex mutex_;
  std::condition_variable idle_;
  bool closed_ = false;
  bool busy_ = false;
  std::thread::id busyThread_;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_LISTENERGATE_H_
