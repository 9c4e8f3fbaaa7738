// A byte source as the flow-rate controller sees it: the bytes its channel
// delivered and the time the channel spent receiving them. This is the inlet
// of a stream measured where the bytes arrive, not where the player reads
// them, so a reader that is slow (or early) does not change it.
//
// A deriving channel tells the base when a request is receiving, when it is
// held back on purpose (its queue is full and the call is paused), and when
// bytes arrive. Only receiving time that is not held back counts: a finished,
// failed or paused request does not make the channel look slow.
//
// Thread rules: every member may be called from any thread (the channel's
// network thread delivers, the stream's thread reads the inlet and registers
// the stats sink); mutex_ guards the counters and the sink. It is held across
// no call out of this class but the clock and the sink's atomic counter.
//
// Edge cases:
// - BeginReceiving while receiving loses no time: the clock keeps running.
// - Every request begins unheld (BeginReceiving clears a hold left by the
//   last one); HoldBack(false) after EndReceiving does not restart the clock.
// - Bytes that arrive outside a request are counted; they add no time.
#ifndef DOWNLOADER_STRATEGY_SOURCE_H_
#define DOWNLOADER_STRATEGY_SOURCE_H_

#include <cstdint>
#include <functional>
#include <memory>

#include <downloader/DownloaderExport.h>
#include <wisp/Mutex.h>

namespace downloader {

class StreamStats;

class DOWNLOADER_EXPORT Source {
 public:
  // Microseconds on a monotonic clock.
  using NowFunction = std::function<int64_t()>;
  // The library context's monotonic clock in those units: what `now`
  // defaults to here and in the flow-rate controller.
  static int64_t SteadyClockUs();

  // What arrived since construction: both only grow.
  struct Inlet {
    uint64_t bytes = 0;
    int64_t receivingUs = 0;
  };

  // `now` defaults to SteadyClockUs.
  explicit Source(NowFunction now = NowFunction());
  virtual ~Source();
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  Inlet InletSoFar() const;

 protected:
  void BeginReceiving();
  void EndReceiving();
  void HoldBack(bool held);
  void AddArrivedBytes(uint64_t bytes);
  // Every later arrival is also counted in `sink` (replacing an earlier sink).
  void RegisterStatsSink(std::shared_ptr<StreamStats> sink);

 private:
  bool ClockRunningLocked() const REQUIRES(mutex_) { return receiving_ && !held_; }
  // Adds the running interval to receivingUs_ and restarts it at now.
  void SettleLocked(int64_t nowUs) REQUIRES(mutex_);

  // Constant after construction.
  const NowFunction now_;

  mutable wisp::Mutex mutex_;
  uint64_t bytes_ GUARDED_BY(mutex_) = 0;
  int64_t receivingUs_ GUARDED_BY(mutex_) = 0;
  int64_t runningSinceUs_ GUARDED_BY(mutex_) = 0;  // meaningful while the clock runs
  bool receiving_ GUARDED_BY(mutex_) = false;
  bool held_ GUARDED_BY(mutex_) = false;
  std::shared_ptr<StreamStats> sink_ GUARDED_BY(mutex_);
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_SOURCE_H_
