#include "ListenerGate.h"

namespace wisp {
namespace internal {

bool ListenerGate::Enter() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) return false;
  busy_ = true;
  busyThread_ = std::this_thread::get_id();
  return true;
}

void ListenerGate::Leave() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    busy_ = false;
  }
  idle_.notify_all();
}

bool ListenerGate::Close() {
  std::unique_lock<std::mutex> lock(mutex_);
  bool closedNow = !closed_;
  closed_ = true;
  if (busy_ && busyThread_ != std::this_thread::get_id()) {
    idle_.wait(lock, [this] { return !busy_; });
  }
  return closedNow;
}

bool ListenerGate::IsClosed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

}  // namespace internal
}  // namespace wisp
