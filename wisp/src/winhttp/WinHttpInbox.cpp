#include "winhttp/WinHttpInbox.h"

#include <utility>

namespace wisp {
namespace internal {

bool WinHttpInbox::PostTask(Item task) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return false;
    queue_.push_back(std::move(task));
  }
  wake_.notify_one();
  return true;
}

void WinHttpInbox::PostEvent(Item event) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) return;
    queue_.push_back(std::move(event));
  }
  wake_.notify_one();
}

bool WinHttpInbox::Take(Clock::time_point deadline, bool draining, std::deque<Item>* items) {
  std::unique_lock<std::mutex> lock(mutex_);
  wake_.wait_until(lock, deadline, [this, draining] { return !queue_.empty() || (stopping_ && !draining); });
  items->swap(queue_);
  return !stopping_;
}

void WinHttpInbox::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
}

void WinHttpInbox::Close() {
  std::deque<Item> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    closed_ = true;
    dropped.swap(queue_);
  }
}

}  // namespace internal
}  // namespace wisp
