#include "Utils/clock/Clock.h"

namespace downloader {
namespace {

class RealClock : public Clock {
 public:
  TimePoint Now() override { return std::chrono::steady_clock::now(); }

  void WaitUntil(wisp::CondVar& wakeUp, wisp::MutexLock& lock, TimePoint deadline) override {
    wakeUp.wait_until(lock, deadline);
  }
};

}  // namespace

int64_t Clock::NowMicros() {
  return std::chrono::duration_cast<std::chrono::microseconds>(Now().time_since_epoch()).count();
}

Clock& Clock::Real() {
  // Never destroyed: threads that outlive static destruction may still ask it.
  static Clock* const real = new RealClock();
  return *real;
}

}  // namespace downloader
