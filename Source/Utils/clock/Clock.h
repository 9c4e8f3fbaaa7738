// The library's one source of time, and the one wait that time-outs use, so
// that a test can drive every time-out with a clock of its own.
//
// Every deadline in the library is a TimePoint of the library context's clock
// (LibraryContext::clock()), and every wait for a deadline goes through
// WaitUntil in steps no longer than the waiter's own (a reader's 100 ms). A
// clock whose time moves on while a waiter waits therefore brings each waiter
// to its deadline, whatever the machine's own clock says.
//
// Thread rules: any thread; an implementation must be safe to call from all
// of them at once.
#ifndef DOWNLOADER_UTILS_CLOCK_CLOCK_H_
#define DOWNLOADER_UTILS_CLOCK_CLOCK_H_

#include <chrono>
#include <cstdint>

#include <wisp/Mutex.h>

namespace downloader {

class Clock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Duration = TimePoint::duration;

  virtual ~Clock() = default;

  // Never runs backwards.
  virtual TimePoint Now() = 0;

  // Waits on `wakeUp`, whose mutex `lock` holds, until it is notified (or
  // wakes spuriously) or this clock reaches `deadline`. The caller checks what
  // it waited for and the time again.
  virtual void WaitUntil(wisp::CondVar& wakeUp, wisp::MutexLock& lock, TimePoint deadline) = 0;

  // Waits until `done()` holds or this clock reaches `deadline`; answers
  // done(), as condition_variable::wait_until does. The analysis cannot see
  // that `lock` holds the mutex `done` reads under; `done` says so itself.
  template <typename Predicate>
  bool WaitUntil(wisp::CondVar& wakeUp, wisp::MutexLock& lock, TimePoint deadline,
                 Predicate done) NO_THREAD_SAFETY_ANALYSIS {
    while (!done()) {
      if (Now() >= deadline) return done();
      WaitUntil(wakeUp, lock, deadline);
    }
    return true;
  }

  // Microseconds since an arbitrary start, for intervals.
  int64_t NowMicros();

  // The machine's monotonic clock. Lives as long as the process.
  static Clock& Real();
};

}  // namespace downloader

#endif  // DOWNLOADER_UTILS_CLOCK_CLOCK_H_
