// What a player does with a live playlist (one without #EXT-X-ENDLIST) that
// it reads again and again: which segments to play after each reading, and
// how long to wait before the next one. It starts a little behind the live
// edge, plays every segment once in media sequence order, reads again after a
// target duration, and sooner (half of one) when a reading brought nothing new.
//
// It knows no clock: the caller hands it each reading and waits the delay it
// answers. Used from one thread.
#ifndef TOOLS_DLPLAY_LIVESCHEDULE_H_
#define TOOLS_DLPLAY_LIVESCHEDULE_H_

#include <chrono>
#include <cstdint>
#include <vector>

#include "HlsPlaylist.h"

namespace dlplay {

// Where a live play starts, counted back from the newest segment.
struct LiveStart {
  enum class Unit { kTargetDurations, kSegments, kSeconds };
  Unit unit = Unit::kTargetDurations;
  double amount = 3;
};

class LiveSchedule {
 public:
  explicit LiveSchedule(LiveStart start) : start_(start) {}

  // The segments of this reading not handed out before, in media sequence
  // order. The first reading hands out those from the start point on.
  std::vector<HlsSegment> Take(const HlsPlaylist& playlist);

  // How long after the last reading to read the playlist again.
  std::chrono::milliseconds ReloadDelay() const;

  // The last reading closed the playlist: no reading after it.
  bool Ended() const { return ended_; }

 private:
  size_t StartIndex(const HlsPlaylist& playlist) const;

  const LiveStart start_;
  bool started_ = false;
  uint64_t nextSequence_ = 0;
  bool lastBroughtNew_ = false;
  bool ended_ = false;
  double targetSeconds_ = 0;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_LIVESCHEDULE_H_
