// The queue into a WinHTTP client's network thread: tasks from callers and
// events from WinHTTP's status callbacks. Shared by the transport and its
// calls, so that a status callback arriving after the transport is gone (the
// system may hold a closed handle a while) finds a closed inbox, not freed
// memory.
//
// Thread-safe. Guarded by mutex_: every member.
#ifndef WISP_SRC_WINHTTP_WINHTTPINBOX_H_
#define WISP_SRC_WINHTTP_WINHTTPINBOX_H_

#include <chrono>
#include <deque>
#include <functional>

#include <wisp/Mutex.h>

namespace wisp {
namespace internal {

class WinHttpInbox {
 public:
  using Clock = std::chrono::steady_clock;
  using Item = std::function<void()>;

  // False, dropping the task, once stopping.
  bool PostTask(Item task);
  // Accepted until Close: a stop still waits for WinHTTP's last events.
  void PostEvent(Item event);
  // Waits until `deadline` for items (while stopping, only when `draining`)
  // and moves them to `items`. Returns false once stopping.
  bool Take(Clock::time_point deadline, bool draining, std::deque<Item>* items);
  void Stop();
  // Drops what is queued and everything posted later.
  void Close();

 private:
  wisp::Mutex mutex_;
  wisp::CondVar wake_;
  std::deque<Item> queue_ GUARDED_BY(mutex_);
  bool stopping_ GUARDED_BY(mutex_) = false;
  bool closed_ GUARDED_BY(mutex_) = false;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_WINHTTP_WINHTTPINBOX_H_
