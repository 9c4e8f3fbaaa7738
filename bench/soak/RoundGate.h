// Splits a soak into rounds: stream threads enter the gate for each request;
// between rounds the round thread closes it, waits until no request is in
// flight, does its work on the quiet cache, and opens it again.
//
// Thread rules: any thread; mutex_ guards active_ and closed_; closing_
// mirrors closed_ for readers that only ask.
#ifndef BENCH_SOAK_ROUNDGATE_H_
#define BENCH_SOAK_ROUNDGATE_H_

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace soak {

class RoundGate {
 public:
  void Enter() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !closed_; });
    ++active_;
  }
  void Leave() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (--active_ == 0) changed_.notify_all();
  }
  // True while the round thread waits for the requests in flight: they may
  // stop early, as a player stops reading.
  bool Closing() const { return closing_.load(); }
  void CloseAndDrain() {
    std::unique_lock<std::mutex> lock(mutex_);
    closed_ = true;
    closing_.store(true);
    changed_.wait(lock, [this] { return active_ == 0; });
  }
  void Open() {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = false;
    closing_.store(false);
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int active_ = 0;
  bool closed_ = false;
  std::atomic<bool> closing_{false};
};

}  // namespace soak

#endif  // BENCH_SOAK_ROUNDGATE_H_
