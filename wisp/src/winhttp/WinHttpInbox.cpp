#include "winhttp/WinHttpInbox.h"

#include <utility>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {

bool WinHttpInbox::PostTask(Item task) {
  {
    wisp::MutexLock lock(&mutex_);
    if (stopping_) return false;
    queue_.push_back(std::move(task));
  }
  wake_.notify_one();
  return true;
}

void WinHttpInbox::PostEvent(Item event) {
  {
    wisp::MutexLock lock(&mutex_);
    if (closed_) return;
    queue_.push_back(std::move(event));
  }
  wake_.notify_one();
}

bool WinHttpInbox::Take(Clock::time_point deadline, bool draining, std::deque<Item>* items) {
  wisp::MutexLock lock(&mutex_);
  wake_.wait_until(lock, deadline,
                   [this, draining]() REQUIRES(mutex_) { return !queue_.empty() || (stopping_ && !draining); });
  items->swap(queue_);
  return !stopping_;
}

void WinHttpInbox::Stop() {
  {
    wisp::MutexLock lock(&mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
}

void WinHttpInbox::Close() {
  std::deque<Item> dropped;
  {
    wisp::MutexLock lock(&mutex_);
    stopping_ = true;
    closed_ = true;
    dropped.swap(queue_);
  }
}

}  // namespace internal
}  // namespace wisp
