// Judges, while a stream reads, whether the level it reads from delivers too
// slowly for the player's buffer ("drains" it), so that the stream can move
// to the next download level.
//
// The stream feeds OnRead after every read and asks IsDrain before it
// decides. OnRead, SetBuffer, Reset, Update and IsDrain are called from the
// stream's reading thread only and are not synchronised; Describe may be
// called from any thread.
#ifndef DOWNLOADER_STRATEGY_DRAINCALCULATOR_H_
#define DOWNLOADER_STRATEGY_DRAINCALCULATOR_H_

#include <cstdint>
#include <string>

#include <downloader/DownloaderExport.h>

namespace downloader {

class DOWNLOADER_EXPORT DrainCalculator {
 public:
  virtual ~DrainCalculator();

  virtual bool IsDrain() = 0;
  // `sample`: the bytes the last read delivered. The two further values are
  // forwarded to a flow-rate controller by the calculators that have one.
  virtual void OnRead(uint64_t sample, int32_t value, uint64_t extra) = 0;
  // Recomputes the answer; the default does nothing.
  virtual void Update();
  // The player's buffered duration in milliseconds (-1: unknown).
  virtual void SetBuffer(int32_t bufferMs) = 0;
  // Forgets every sample.
  virtual void Reset() = 0;
  // Text describing the last decision; the default is "".
  virtual std::string Describe();
};

}  // namespace downloader

#endif  // DOWNLOADER_STRATEGY_DRAINCALCULATOR_H_
