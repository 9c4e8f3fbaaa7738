// dlplay's player: plays a URL through one tunnel of the library the way a
// video player does. A playlist is read through a stream, a variant chosen
// (master playlists), then every segment is read in order through a stream of
// its own, while the player's buffer is reported to the tunnel as pulse data.
// Like a player that requests the next segments before the current one is
// done, it opens the streams of the next `lookahead` segments while it reads
// one, so that their opening (and the library's read-ahead) overlaps the
// reading instead of following it.
//
// The media written out is what a decoder takes: each initialisation section
// once before the segments that need it, encrypted segments decrypted. A live
// playlist is read again on the schedule of LiveSchedule until it ends, the
// play's duration is up or the stop flag is set.
//
// Used from one thread.
#ifndef TOOLS_DLPLAY_PLAYER_H_
#define TOOLS_DLPLAY_PLAYER_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <fstream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <downloader/downloader.h>

#include "AesCbcDecryptor.h"
#include "ExitStatus.h"
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

  // When `*stop` turns true (from a signal handler, say), the play ends after
  // the read under way, as if the playlist had ended there.
  void SetStopFlag(const std::atomic<bool>* stop) { stop_ = stop; }

  // Segment writes land on the library's storage thread after the streams
  // have closed; a host that exits at once would lose the last segment's
  // bytes. Waits for them, up to a bound; false when they did not finish.
  static bool FinishCacheWrites();

  // The exit status of a play that Play() ended without a failed request (a
  // stream refused as unplayable, a playlist that does not parse).
  int PlayFailureStatus() const { return playFailureStatus_; }

 private:
  struct Fetch {
    RequestReport report;
    std::string body;          // kept for playlists, keys and maps only
    std::string effectiveUrl;  // after redirects; kept with the body
  };
  // A request whose stream has been opened and not yet read.
  struct OpenRequest {
    std::string url;
    int64_t rangeStart = -1;
    std::shared_ptr<downloader::IStream> stream;
    DLResultCode opened;
    std::chrono::steady_clock::time_point began;
    std::unique_ptr<AesCbcDecryptor> decryptor;  // null: the bytes are plain
  };

  bool PlayUntimed(const std::string& url, PlaySummary* summary, std::string* error);
  OpenRequest Open(const std::string& url, int64_t rangeStart, int64_t rangeEnd);
  // Reads the request to its end and closes its stream.
  Fetch ReadToEnd(OpenRequest& request, bool keepBody);
  void ReadBody(OpenRequest& request, bool keepBody, Sha256* digest, Fetch* fetch);
  static void DescribeLevels(downloader::IStream& stream, RequestReport* report);
  Fetch FetchResource(const std::string& url, int64_t rangeStart, int64_t rangeEnd, bool keepBody);
  void Discard(OpenRequest& request);
  OpenRequest OpenSegment(const HlsSegment& segment);
  bool ReadPlaylist(const std::string& url, HlsPlaylist* playlist, PlaySummary* summary, std::string* error);
  bool PlayLive(const std::string& url, HlsPlaylist playlist, PlaySummary* summary, std::string* error);
  bool PlayMedia(const std::vector<HlsSegment>& segments, PlaySummary* summary, std::string* error);
  // The key is at hand (fetched once per URI).
  bool LoadKey(const HlsKey& key, PlaySummary* summary, std::string* error);
  // Writes the segment's initialisation section unless it was the last one written.
  bool WriteMap(const HlsSegment& segment, PlaySummary* summary, std::string* error);
  void WriteMedia(const char* data, size_t length);
  bool StopDue() const;
  // Waits until `deadline`; false when the play is to stop first.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline) const;
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
  std::ostream* media_ = nullptr;  // out_, stdout, or none
  BytesSink sink_;
  const std::atomic<bool>* stop_ = nullptr;
  std::chrono::steady_clock::time_point playBegan_;
  std::chrono::steady_clock::time_point playlistReadAt_;
  // A live playlist's requests carry the library's live parameter.
  bool live_ = false;
  int segmentsPlayed_ = 0;
  int playFailureStatus_ = kExitFailure;
  std::unique_ptr<uint8_t[]> packet_;        // the read buffer, made on the first read
  std::map<std::string, AesBlock> keys_;      // by key URI
  std::map<HlsMap, std::string> mapBodies_;  // fetched maps
  HlsMap writtenMap_;

  // The simulated playback: media seconds downloaded against time played.
  double bufferedMediaMs_ = 0;
  bool playing_ = false;
  std::chrono::steady_clock::time_point playStarted_;
  uint64_t bitRate_ = 0;
};

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_PLAYER_H_
