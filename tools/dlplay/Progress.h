// Progress of a play on stderr: a bar redrawn in place on a terminal, plain
// lines (one per request) otherwise.
//
// Called from the playing thread only.
#ifndef TOOLS_DLPLAY_PROGRESS_H_
#define TOOLS_DLPLAY_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <string>

namespace dlplay {

class Progress {
 public:
  explicit Progress(bool quiet);

  void BeginRequest(int index, int count, const std::string& name);
  // A request beside the counted ones (a playlist, a key, a map): named, not counted.
  void BeginSideRequest(const std::string& name);
  // Bytes of the current request so far and the level serving it.
  void Update(uint64_t requestBytes, int level);
  // True when the next Update would draw: the caller may skip working out
  // what to show until then.
  bool RedrawDue() const;
  void EndRequest(uint64_t requestBytes, int level, int code, const std::string& subTag);
  void Finish();
  // A line of its own on stderr, even when quiet (errors), clear of the bar.
  void PrintLine(const std::string& line);

 private:
  void Draw(uint64_t requestBytes, int level, bool force);

  const bool quiet_;
  const bool terminal_;
  int index_ = 0;
  int count_ = 0;
  int done_ = 0;  // counted requests ended; the bar is full when it reaches count_
  bool side_ = false;
  std::string name_;
  uint64_t totalBytes_ = 0;
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point lastDraw_;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_PROGRESS_H_
