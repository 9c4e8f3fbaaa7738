#include <downloader/Strategy/Source.h>
#include <wisp/Mutex.h>

#include <utility>

#include "Base/StreamStats.h"
#include "Utils/context/LibraryContext.h"

namespace downloader {

int64_t Source::SteadyClockUs() { return LibraryContext::Current().clock().NowMicros(); }

Source::Source(NowFunction now) : now_(now ? std::move(now) : NowFunction(&SteadyClockUs)) {}

Source::~Source() = default;

Source::Inlet Source::InletSoFar() const {
  // The clock is read under the lock, so that intervals settled by
  // different threads never overlap or run backwards.
  wisp::MutexLock lock(&mutex_);
  const int64_t nowUs = now_();
  Inlet inlet;
  inlet.bytes = bytes_;
  inlet.receivingUs = receivingUs_ + (ClockRunningLocked() ? nowUs - runningSinceUs_ : 0);
  return inlet;
}

void Source::BeginReceiving() {
  wisp::MutexLock lock(&mutex_);
  const int64_t nowUs = now_();
  SettleLocked(nowUs);
  receiving_ = true;
  held_ = false;
}

void Source::EndReceiving() {
  wisp::MutexLock lock(&mutex_);
  const int64_t nowUs = now_();
  SettleLocked(nowUs);
  receiving_ = false;
}

void Source::HoldBack(bool held) {
  wisp::MutexLock lock(&mutex_);
  const int64_t nowUs = now_();
  SettleLocked(nowUs);
  held_ = held;
}

void Source::AddArrivedBytes(uint64_t bytes) {
  wisp::MutexLock lock(&mutex_);
  bytes_ += bytes;
  if (sink_ != nullptr) sink_->AddInletBytes(bytes);
}

void Source::RegisterStatsSink(std::shared_ptr<StreamStats> sink) {
  wisp::MutexLock lock(&mutex_);
  sink_ = std::move(sink);
}

void Source::SettleLocked(int64_t nowUs) {
  if (ClockRunningLocked()) receivingUs_ += nowUs - runningSinceUs_;
  runningSinceUs_ = nowUs;
}

}  // namespace downloader
