// The stage of a stream's life that a statistics event belongs to. A stream
// commits each event through its pipeline's CommitStats as (stage, text),
// where the text starts with the event's name ("init_level",
// "open_open_error", "open_respond_error", "open_downgrade",
// "read_open_error", "read_respond_error", "read_downgrade") followed by
// ",key:value" pairs.
#ifndef DOWNLOADER_PIPE_STATSSTAGE_H_
#define DOWNLOADER_PIPE_STATSSTAGE_H_

#include <cstdint>

namespace downloader {

enum StatsStage : int32_t {
  kStatsStageOpen = 0,
  kStatsStageRead = 1,
  kStatsStageClose = 2,
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_STATSSTAGE_H_
