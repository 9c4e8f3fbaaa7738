#include <gtest/gtest.h>

#include <vector>

#include "LiveSchedule.h"

namespace dlplay {
namespace {

// A live playlist as a server would show it: segments `first` to `last` of
// `seconds` each, 2-second target, open unless `ended`.
HlsPlaylist Window(uint64_t first, uint64_t last, bool ended = false, double seconds = 2) {
  HlsPlaylist playlist;
  playlist.targetDurationSeconds = 2;
  playlist.endList = ended;
  for (uint64_t sequence = first; sequence <= last; ++sequence) {
    HlsSegment segment;
    segment.sequence = sequence;
    segment.durationSeconds = seconds;
    segment.uri = "s" + std::to_string(sequence) + ".ts";
    playlist.segments.push_back(segment);
  }
  return playlist;
}

std::vector<uint64_t> Sequences(const std::vector<HlsSegment>& segments) {
  std::vector<uint64_t> sequences;
  for (const HlsSegment& segment : segments) sequences.push_back(segment.sequence);
  return sequences;
}

TEST(LiveScheduleTest, StartsThreeTargetDurationsBackAndPlaysEachSegmentOnce) {
  LiveSchedule schedule{LiveStart()};
  // 10 segments of 2 s: the last three cover the 6 s start point.
  EXPECT_EQ(Sequences(schedule.Take(Window(100, 109))), (std::vector<uint64_t>{107, 108, 109}));
  EXPECT_EQ(schedule.ReloadDelay(), std::chrono::milliseconds(2000));
  EXPECT_FALSE(schedule.Ended());

  // Nothing new: read again after half a target duration.
  EXPECT_TRUE(schedule.Take(Window(100, 109)).empty());
  EXPECT_EQ(schedule.ReloadDelay(), std::chrono::milliseconds(1000));

  // The window slid and two segments came: only those, in order.
  EXPECT_EQ(Sequences(schedule.Take(Window(102, 111))), (std::vector<uint64_t>{110, 111}));
  EXPECT_EQ(schedule.ReloadDelay(), std::chrono::milliseconds(2000));

  // Segments that slid out before a reading are gone; the rest still play once.
  EXPECT_EQ(Sequences(schedule.Take(Window(115, 118, true))), (std::vector<uint64_t>{115, 116, 117, 118}));
  EXPECT_TRUE(schedule.Ended());
}

TEST(LiveScheduleTest, StartPointInSegmentsOrSeconds) {
  LiveSchedule bySegments{LiveStart{LiveStart::Unit::kSegments, 1}};
  EXPECT_EQ(Sequences(bySegments.Take(Window(0, 5))), (std::vector<uint64_t>{5}));

  // 3.5 s back over 1.5-second segments: three segments are needed to cover it.
  LiveSchedule bySeconds{LiveStart{LiveStart::Unit::kSeconds, 3.5}};
  EXPECT_EQ(Sequences(bySeconds.Take(Window(0, 5, false, 1.5))), (std::vector<uint64_t>{3, 4, 5}));

  // Further back than the playlist reaches: from its first segment.
  LiveSchedule wholeWindow{LiveStart{LiveStart::Unit::kSegments, 50}};
  EXPECT_EQ(Sequences(wholeWindow.Take(Window(7, 8))), (std::vector<uint64_t>{7, 8}));

  // A playlist that has no segment yet starts at the first one that comes.
  LiveSchedule empty{LiveStart()};
  HlsPlaylist none = Window(0, 0);
  none.segments.clear();
  EXPECT_TRUE(empty.Take(none).empty());
  EXPECT_EQ(Sequences(empty.Take(Window(0, 1))), (std::vector<uint64_t>{0, 1}));
}

}  // namespace
}  // namespace dlplay
