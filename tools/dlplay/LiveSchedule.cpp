#include "LiveSchedule.h"

#include <algorithm>
#include <cmath>

namespace dlplay {
namespace {

// A playlist without a target duration is still read again, at this pace.
constexpr double kFallbackTargetSeconds = 1;

}  // namespace

size_t LiveSchedule::StartIndex(const HlsPlaylist& playlist) const {
  const std::vector<HlsSegment>& segments = playlist.segments;
  if (start_.unit == LiveStart::Unit::kSegments) {
    size_t back = static_cast<size_t>(std::max(0.0, start_.amount));
    return segments.size() > back ? segments.size() - back : 0;
  }
  double seconds = start_.unit == LiveStart::Unit::kSeconds ? start_.amount
                                                             : start_.amount * playlist.targetDurationSeconds;
  // Back from the edge until the segments from here on last `seconds`.
  double covered = 0;
  size_t index = segments.size();
  while (index > 0 && covered < seconds) {
    --index;
    covered += segments[index].durationSeconds;
  }
  return index;
}

std::vector<HlsSegment> LiveSchedule::Take(const HlsPlaylist& playlist) {
  std::vector<HlsSegment> fresh;
  size_t from = 0;
  if (!started_) {
    from = StartIndex(playlist);
    started_ = true;
    if (from < playlist.segments.size()) nextSequence_ = playlist.segments[from].sequence;
  }
  for (size_t i = from; i < playlist.segments.size(); ++i) {
    if (playlist.segments[i].sequence >= nextSequence_) fresh.push_back(playlist.segments[i]);
  }
  std::stable_sort(fresh.begin(), fresh.end(),
                   [](const HlsSegment& a, const HlsSegment& b) { return a.sequence < b.sequence; });
  if (!fresh.empty()) nextSequence_ = fresh.back().sequence + 1;
  lastBroughtNew_ = !fresh.empty();
  ended_ = playlist.endList;
  if (playlist.targetDurationSeconds > 0) targetSeconds_ = playlist.targetDurationSeconds;
  return fresh;
}

std::chrono::milliseconds LiveSchedule::ReloadDelay() const {
  double seconds = targetSeconds_ > 0 ? targetSeconds_ : kFallbackTargetSeconds;
  if (!lastBroughtNew_) seconds /= 2;
  return std::chrono::milliseconds(static_cast<int64_t>(std::llround(seconds * 1000)));
}

}  // namespace dlplay
