#include "support/FakeClock.h"

#include <algorithm>

namespace dltest {

constexpr std::chrono::milliseconds FakeClock::kRealSlice;

// Starts where the real clock stands, so that no deadline computed from it
// lies before the epoch.
FakeClock::FakeClock() : now_(downloader::Clock::Real().Now()) {}

FakeClock::TimePoint FakeClock::Now() {
  wisp::MutexLock guard(&mutex_);
  return now_;
}

void FakeClock::WaitUntil(wisp::CondVar& wakeUp, wisp::MutexLock& lock, TimePoint deadline) {
  std::multiset<TimePoint>::iterator waiting;
  {
    wisp::MutexLock guard(&mutex_);
    if (deadline <= now_) return;
    waiting = waitedFor_.insert(deadline);
  }
  const bool woken = wakeUp.wait_for(lock, kRealSlice) == std::cv_status::no_timeout;
  wisp::MutexLock guard(&mutex_);
  if (!woken && advanceWhileWaited_) now_ = std::max(now_, *waitedFor_.begin());
  waitedFor_.erase(waiting);
}

void FakeClock::Advance(Duration by) {
  wisp::MutexLock guard(&mutex_);
  now_ += by;
}

void FakeClock::AdvanceWhileWaited() {
  wisp::MutexLock guard(&mutex_);
  advanceWhileWaited_ = true;
}

}  // namespace dltest
