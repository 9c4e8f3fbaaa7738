// dlplay's command line.
#ifndef TOOLS_DLPLAY_OPTIONS_H_
#define TOOLS_DLPLAY_OPTIONS_H_

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "LiveSchedule.h"
#include "NetworkOptions.h"

namespace dlplay {

// Each stream opened ahead holds its own read-ahead; a few are plenty to hide
// the opening of the next segment.
constexpr int kMaxLookahead = 8;

struct Options {
  std::string url;  // empty: run the demo
  std::string cacheDir;
  std::string configFile;
  // (group, key, value) from --set, applied over the configuration file.
  std::vector<std::pair<std::string, std::pair<std::string, std::string>>> settings;
  std::map<std::string, std::string> params;  // --param, added to every request
  std::string outPath;
  int64_t rangeStart = -1;
  int64_t rangeEnd = -1;  // inclusive, -1: to the end
  uint64_t readerRate = 0;  // bytes per second, 0: as fast as possible
  int64_t bufferMs = -1;    // the player's buffer to report, -1: derived from the play
  std::string logFile;
  bool jsonReport = false;
  std::string enginePath;
  int variant = -1;  // -1: highest bandwidth
  // Segments whose streams are opened while an earlier one is still read.
  int lookahead = 1;
  // Live play, media output and cache.
  LiveStart liveStart;
  double durationSeconds = 0;  // the play stops after this long; 0: at the playlist's end
  std::string reportFile;      // the JSON report goes here, not to stdout
  bool useCache = true;
  // dlplay serve: the gateway and its loopback address.
  bool serve = false;
  std::string listenHost = kDefaultListenHost;
  int listenPort = kDefaultListenPort;
  static constexpr char kServeCommand[] = "serve";
  static constexpr char kDefaultListenHost[] = "127.0.0.1";
  static constexpr int kDefaultListenPort = 8788;

  // The media goes to stdout: nothing else may.
  bool MediaOnStdout() const { return outPath == kStdoutPath || outPath == kStdoutDevice; }
  static constexpr char kStdoutPath[] = "-";
  static constexpr char kStdoutDevice[] = "/dev/stdout";

  // -H, -A, -x, --cacert, -k, -s, -v.
  NetworkOptions network;
};

enum class ParseOutcome { kRun, kHelp, kError };

ParseOutcome ParseOptions(int argc, const char* const* argv, Options* options, std::string* error);

std::string UsageText();

// $XDG_CACHE_HOME/dlplay, else $HOME/.cache/dlplay, else a folder under the
// system's temporary directory.
std::string DefaultCacheDir();

}  // namespace dlplay

#endif  // TOOLS_DLPLAY_OPTIONS_H_
