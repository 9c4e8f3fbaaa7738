#include "ListenerGate.h"
#include <wisp/Mutex.h>

namespace wisp {
namespace internal {

bool ListenerGate::Enter() {
  wisp::MutexLock lock(&mutex_);
  if (closed_) return false;
  busy_ = true;
  busyThread_ = std::this_thread::get_id();
  return true;
}

void ListenerGate::Leave() {
  {
    wisp::MutexLock lock(&mutex_);
    busy_ = false;
  }
  idle_.notify_all();
}

bool ListenerGate::Close() {
  wisp::MutexLock lock(&mutex_);
  bool closedNow = !closed_;
  closed_ = true;
  if (busy_ && busyThread_ != std::this_thread::get_id()) {
    idle_.wait(lock, [this]() REQUIRES(mutex_) { return !busy_; });
  }
  return closedNow;
}

bool ListenerGate::IsClosed() const {
  wisp::MutexLock lock(&mutex_);
  return closed_;
}

}  // namespace internal
}  // namespace wisp
