// Repeats one action at a fixed interval for as long as a playback lasts: on
// each beat it asks the host's process-wide callback for a player's heartbeat
// map and hands a non-empty map to the consumer given at Start.
//
// Beats run one after another on the pacemaker's own timer thread, one
// interval after the end of the previous beat, and never overlap. A pending
// beat holds the pacemaker alive: call Stop to end it.
//
// Thread rules: Start and Stop come from the owner's thread (not concurrently
// with each other). Stop joins the timer thread, so when it returns no beat
// is running and none will run; called from inside the consumer it only marks
// the stop. Start on a beating pacemaker replaces its timer the same way,
// without stopping the pacemaker: the earlier timer's thread ends with no
// further beat. SetHeartbeatCallback must be called before pacemakers start.
// mutex_ guards params_ and timer_ (a beat posts its successor to timer_).
#ifndef DOWNLOADER_BASE_HEARTPACEMAKER_H_
#define DOWNLOADER_BASE_HEARTPACEMAKER_H_

#include <atomic>
#include <memory>

#include <downloader/Base/PacemakerParams.h>
#include <downloader/DownloaderExport.h>
#include <wisp/Mutex.h>

namespace downloader {

class MessageLooper;

class DOWNLOADER_EXPORT HeartPacemaker : public std::enable_shared_from_this<HeartPacemaker> {
 public:
  using HeartbeatCallback = HeartbeatInfo (*)(int32_t pid);

  static std::shared_ptr<HeartPacemaker> Create();
  ~HeartPacemaker();

  static void SetHeartbeatCallback(HeartbeatCallback callback);
  // The callback's map for `pid`, or an empty map without a callback.
  static HeartbeatInfo GetHeartbeatInfo(int32_t pid);

  // Starts beating on a new timer; an earlier timer is ended, not stopped
  // (no "stopped" line).
  void Start(const PacemakerParams& params);
  // Does nothing (and logs nothing) when not beating.
  void Stop();

 private:
  HeartPacemaker();
  static void Heartbeat(std::shared_ptr<HeartPacemaker> self, PacemakerParams params);
  // Posts the next beat to the current timer unless stopped, or unless the
  // calling beat ran on a timer that has since been replaced.
  void ScheduleNext(const PacemakerParams& params);

  PacemakerParams params_ GUARDED_BY(mutex_);
  std::shared_ptr<MessageLooper> timer_ GUARDED_BY(mutex_);
  // Set by Start and Stop; a beat tests it before posting the next one.
  std::atomic<bool> stopped_{true};
  wisp::Mutex mutex_;
};

}  // namespace downloader

#endif  // DOWNLOADER_BASE_HEARTPACEMAKER_H_
