// The soak's watchdog: every stream thread marks its progress in a slot; a
// thread of its own samples the process's resident memory and reports a
// stream that made no progress for longer than the hang limit, or memory above
// the bound, through the failure callback.
//
// Thread rules: slots are written by their stream thread and read by the
// watch thread (atomics, and the slot's mutex for the request text); Start and
// Stop from the main thread; mutex_ guards stopping_.
#ifndef BENCH_SOAK_STREAMWATCH_H_
#define BENCH_SOAK_STREAMWATCH_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace soak {

class StreamSlot {
 public:
  void Begin(std::string request);
  void Progress();
  void End();

  // Milliseconds since the last progress while a request runs; 0 when idle.
  int64_t StalledMs(std::chrono::steady_clock::time_point now) const;
  std::string Request() const;

 private:
  std::atomic<bool> busy_{false};
  std::atomic<int64_t> lastProgressNs_{0};
  mutable std::mutex mutex_;
  std::string request_;
};

class StreamWatch {
 public:
  using FailureCallback = std::function<void(const std::string& reason)>;

  StreamWatch(std::vector<StreamSlot>& slots, int64_t hangLimitMs, int64_t rssLimitKib, FailureCallback onFailure);
  ~StreamWatch();

  void Start();
  void Stop();
  int64_t PeakRssKib() const { return peakRssKib_.load(); }

 private:
  void Run();
  void Check();

  std::vector<StreamSlot>& slots_;
  const int64_t hangLimitMs_;
  const int64_t rssLimitKib_;
  FailureCallback onFailure_;
  std::atomic<int64_t> peakRssKib_{0};
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::thread thread_;
};

// The process's resident set now, in KiB (0 when unknown).
int64_t ResidentKib();

}  // namespace soak

#endif  // BENCH_SOAK_STREAMWATCH_H_
