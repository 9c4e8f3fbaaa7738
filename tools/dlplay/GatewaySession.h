// One player session of the gateway: the tunnel every request of the session
// reads through, and the playback the gateway infers from what it served, fed
// to the tunnel as a player would feed it (buffer duration and state before
// each stream is opened). A player is taken to play media in real time from
// its first delivered segment on; each segment delivered in full adds the
// duration its playlist gave it to the buffer.
//
// Thread-safe: the gateway's worker threads share a session. mutex_ guards
// segmentSeconds_, the playback fields, openStreams_ and lastUsed_; the tunnel
// is called outside it (it is thread-safe itself).
#ifndef TOOLS_DLPLAY_GATEWAYSESSION_H_
#define TOOLS_DLPLAY_GATEWAYSESSION_H_

#include <chrono>
#include <map>
#include <memory>
#include <string>

#include <downloader/downloader.h>
#include <wisp/Mutex.h>

#include "HlsPlaylist.h"

namespace dlplay {

class GatewaySession {
 public:
  using Clock = std::chrono::steady_clock;

  GatewaySession(std::shared_ptr<protocols::IConfigure> config, std::shared_ptr<protocols::IReporter> reporter,
                 const std::string& playerId);
  ~GatewaySession();
  GatewaySession(const GatewaySession&) = delete;
  GatewaySession& operator=(const GatewaySession&) = delete;

  // A stream of the session's tunnel, not yet opened.
  std::shared_ptr<downloader::IStream> Acquire();
  void Release(std::shared_ptr<downloader::IStream> stream);

  // The durations of a media playlist's segments, for the buffer estimate.
  void NoteSegments(const HlsPlaylist& playlist);
  // The resource at `url` reached the player in full.
  void Delivered(const std::string& url);

  // No stream open and none for `idleFor`: the session may be dropped.
  bool IdleSince(Clock::time_point now, Clock::duration idleFor) const;

 private:
  int BufferedMsLocked(Clock::time_point now) const REQUIRES(mutex_);

  std::shared_ptr<downloader::KestrelTunnel> tunnel_;

  mutable wisp::Mutex mutex_;
  std::map<std::string, double> segmentSeconds_ GUARDED_BY(mutex_);  // by absolute URL
  double deliveredMediaMs_ GUARDED_BY(mutex_) = 0;
  bool playing_ GUARDED_BY(mutex_) = false;
  Clock::time_point playStarted_ GUARDED_BY(mutex_);
  int openStreams_ GUARDED_BY(mutex_) = 0;
  Clock::time_point lastUsed_ GUARDED_BY(mutex_);
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_GATEWAYSESSION_H_
