// The player's state as the host reports it to a tunnel. The tunnel passes a
// change on to one of its streams without interpreting it; a stream's
// flow-rate controller reads it (a buffering player is starved, a paused one
// is not consuming).
#ifndef DOWNLOADER_PIPE_PLAYERSTATE_H_
#define DOWNLOADER_PIPE_PLAYERSTATE_H_

#include <cstdint>

namespace downloader {

enum BufferState : int32_t {
  kBufferStateUnknown = 0,
  // Playback has stopped to wait for data: the buffer is empty.
  kBufferStateBuffering = 1,
  // Enough is buffered to play.
  kBufferStateReady = 2,
};

enum StreamingState : int32_t {
  kStreamingStateUnknown = 0,
  kStreamingStatePlaying = 1,
  kStreamingStatePaused = 2,
  kStreamingStateStopped = 3,
};

}  // namespace downloader

#endif  // DOWNLOADER_PIPE_PLAYERSTATE_H_
