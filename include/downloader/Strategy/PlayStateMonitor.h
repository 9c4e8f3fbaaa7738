// The player-wide state of one tunnel, as its pulse data last told it: how
// much the player has buffered and the bit rate it plays. A tunnel feeds it
// every pulse; each stream's flow-rate controller consults it, so that a
// stream acquired between two pulses knows the player's buffer at once.
//
// Thread rules: any thread; mutex_ guards the values.
//
// Edge cases: before any pulse, and after a pulse without the entry, the
// buffered duration is -1 (unknown) and the bit rate 0 (unknown); a pulse
// without an entry keeps the value an earlier pulse gave.
#ifndef DOWNLOADER_STRATEGY_PLAYSTATEMONITOR_H_
#define DOWNLOADER_STRATEGY_PLAYSTATEMONITOR_H_

#include <cstdint>

#include <downloader/DownloaderExport.h>
#include <downloader/Pipe/PulseDataDef.h>
#include <wisp/Mutex.h>

namespace downloader {

class DOWNLOADER_EXPORT PlayStateMonitor {
 public:
  PlayStateMonitor();
  ~PlayStateMonitor();
  PlayStateMonitor(const PlayStateMonitor&) = delete;
  PlayStateMonitor& operator=(const PlayStateMonitor&) = delete;

  void OnPulseDataUpdated(const PulseData& data);

  // Milliseconds, -1 while unknown.
  int32_t BufferedDurationMs();
  // Bits per second, 0 while unknown.
  int64_t BitRate();

 private:
  wisp::Mutex mutex_;
  int32_t bufferedDurationMs_ GUARDED_BY(mutex_) = -1;
  int64_t bitRate_ GUARDED_BY(mutex_) = 0;
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_PLAYSTATEMONITOR_H_
