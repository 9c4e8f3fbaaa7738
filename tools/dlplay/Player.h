// dlplay's player: plays a URL through one tunnel of the library the way a
// video player does. A playlist is read through a stream, a variant chosen
// (master playlists), then every segment is read in order through a stream of
// its own, while the player's buffer is reported to the tunnel as pulse data.
// Like a player that requests the next segments before the current one is
// done, it opens the streams of the next `lookahead` segments while it reads
// one, so that their opening (and the library's read-ahead) overlaps the
// reading instead of following it.
//
// Used from one thread.
#ifndef TOOLS_DLPLAY_PLAYER_H_
#define TOOLS_DLPLAY_PLAYER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>

#include <downloader/downloader.h>

#include "HlsPlaylist.h"
#include "Options.h"
#include "PlayReport.h"
#include "Progress.h"

namespace dlplay {

class Sha256;

class Player {
 public:
  // Receives every segment's bytes in order with its URL and offset.
  using BytesSink = std::function<void(const std::string& url, uint64_t offset, const uint8_t* data, size_t length)>;

  Player(const Options& options, std::shared_ptr<protocols::IConfigure> config,
         std::shared_ptr<protocols::IReporter> reporter, std::ostream* jsonOut, bool quiet);
  ~Player();

  // A playlist (every segment) or one resource. False, with `error`, when the
  // URL could not be played at all; a failed segment is counted, not fatal.
  // The summary's time is the play's wall time.
  bool Play(const std::string& url, PlaySummary* summary, std::string* error);

  void SetBytesSink(BytesSink sink) { sink_ = std::move(sink); }

  // Segment writes land on the library's storage thread after the streams
  // have closed; a host that exits at once would lose the last segment's
  // bytes. Waits for them, up to a bound; false when they did not finish.
  static bool FinishCacheWrites();

 private:
  struct Fetch {
    RequestReport report;
    std::string body;  // kept for playlists only
  };
  // A request whose stream has been opened and not yet read.
  struct OpenRequest {
    std::string url;
    int64_t rangeStart = -1;
    std::shared_ptr<downloader::IStream> stream;
    DLResultCode opened;
    std::chrono::steady_clock::time_point began;
  };

  bool PlayUntimed(const std::string& url, PlaySummary* summary, std::string* error);
  OpenRequest Open(const std::string& url, int64_t rangeStart, int64_t rangeEnd);
  // Reads the request to its end and closes its stream.
  Fetch ReadToEnd(OpenRequest& request, bool keepBody);
  void ReadBody(OpenRequest& request, bool keepBody, Sha256* digest, Fetch* fetch);
  static void DescribeLevels(downloader::IStream& stream, RequestReport* report);
  Fetch FetchResource(const std::string& url, int64_t rangeStart, int64_t rangeEnd, bool keepBody);
  OpenRequest OpenSegment(const HlsSegment& segment);
  bool ReadPlaylist(const std::string& url, HlsPlaylist* playlist, PlaySummary* summary, std::string* error);
  bool PlayMedia(const HlsPlaylist& playlist, uint64_t bitRate, PlaySummary* summary);
  void Record(const RequestReport& report, PlaySummary* summary);
  void ReportPlayerState();
  void PaceReader(uint64_t bytesSoFar, std::chrono::steady_clock::time_point began);
  int BufferedMs() const;

  const Options options_;
  std::shared_ptr<protocols::IConfigure> config_;
  std::shared_ptr<protocols::IReporter> reporter_;
  std::shared_ptr<downloader::KestrelTunnel> tunnel_;
  std::ostream* jsonOut_;
  Progress progress_;
  std::ofstream out_;
  BytesSink sink_;

  // The simulated playback: media seconds downloaded against time played.
  double bufferedMediaMs_ = 0;
  bool playing_ = false;
  std::chrono::steady_clock::time_point playStarted_;
  uint64_t bitRate_ = 0;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_PLAYER_H_
