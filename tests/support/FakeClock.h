// A clock for time-out tests. Its time stands still until the test moves it:
// by hand with Advance, or with AdvanceWhileWaited, after which a waiter that
// waited one short real slice without being woken moves the time on to the
// earliest deadline anyone waits for. A read time-out of seconds thus passes
// in a few slices of real time, while bytes, ends and closes still wake their
// waiters first. A test turns it on once what it waits for can only end by
// the time-out (the origin stalled, the engine stopped delivering), so that
// the steps before it never time out on a slow machine.
//
// FakeLibraryContext installs a library context with a fake clock for its
// life: make it before the objects under test and let it end after them.
//
// Thread rules: any thread. mutex_ guards the time and the deadlines waited
// for; it is never held while a waiter waits.
#ifndef TESTS_SUPPORT_FAKECLOCK_H_
#define TESTS_SUPPORT_FAKECLOCK_H_

#include <chrono>
#include <set>

#include "Utils/clock/Clock.h"
#include "Utils/context/LibraryContext.h"

namespace dltest {

class FakeClock : public downloader::Clock {
 public:
  // How long a waiter waits in real time before it looks at the time again.
  static constexpr std::chrono::milliseconds kRealSlice{5};

  FakeClock();

  TimePoint Now() override;
  void WaitUntil(wisp::CondVar& wakeUp, wisp::MutexLock& lock, TimePoint deadline) override;
  using Clock::WaitUntil;

  void Advance(Duration by);
  void AdvanceWhileWaited();

 private:
  wisp::Mutex mutex_;
  TimePoint now_ GUARDED_BY(mutex_);
  bool advanceWhileWaited_ GUARDED_BY(mutex_) = false;
  std::multiset<TimePoint> waitedFor_ GUARDED_BY(mutex_);
};

class FakeLibraryContext {
 public:
  FakeLibraryContext() : context_(clock_), current_(context_) {}

  FakeClock& clock() { return clock_; }

 private:
  FakeClock clock_;
  downloader::LibraryContext context_;
  downloader::LibraryContext::ScopedCurrent current_;
};

}  // namespace dltest

#endif  // TESTS_SUPPORT_FAKECLOCK_H_
