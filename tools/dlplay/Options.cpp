#include "Options.h"

#include <cstdlib>
#include <filesystem>

#include "ExitStatus.h"

namespace dlplay {
namespace {

// True with `number` set when all of `text` is a decimal number.
bool ParseWholeNumber(const std::string& text, int64_t* number) {
  if (text.empty()) return false;
  char* end = nullptr;
  long long value = std::strtoll(text.c_str(), &end, 10);
  if (end == nullptr || *end != '\0') return false;
  *number = value;
  return true;
}

bool SplitOnce(const std::string& text, char separator, std::string* left, std::string* right) {
  size_t at = text.find(separator);
  if (at == std::string::npos || at == 0) return false;
  *left = text.substr(0, at);
  *right = text.substr(at + 1);
  return true;
}

bool ParseRange(const std::string& text, Options* options) {
  std::string first, last;
  size_t dash = text.find('-');
  if (dash == std::string::npos) return false;
  first = text.substr(0, dash);
  last = text.substr(dash + 1);
  int64_t start = 0;
  if (!ParseWholeNumber(first, &start) || start < 0) return false;
  int64_t end = -1;
  if (!last.empty() && (!ParseWholeNumber(last, &end) || end < start)) return false;
  options->rangeStart = start;
  options->rangeEnd = end;
  return true;
}

bool ParseSetting(const std::string& text, Options* options) {
  std::string name, value, group, key;
  if (!SplitOnce(text, '=', &name, &value)) return false;
  if (!SplitOnce(name, '.', &group, &key)) return false;
  options->settings.push_back({group, {key, value}});
  return true;
}

// "N": N segments; "Ns": N seconds.
bool ParseLiveStart(const std::string& text, LiveStart* start) {
  bool seconds = !text.empty() && text.back() == 's';
  std::string number = seconds ? text.substr(0, text.size() - 1) : text;
  int64_t amount = 0;
  if (!ParseWholeNumber(number, &amount) || amount < 0) return false;
  start->unit = seconds ? LiveStart::Unit::kSeconds : LiveStart::Unit::kSegments;
  start->amount = static_cast<double>(amount);
  return true;
}

bool ParsePositiveSeconds(const std::string& text, double* seconds) {
  char* end = nullptr;
  double value = std::strtod(text.c_str(), &end);
  if (text.empty() || end == nullptr || *end != '\0' || !(value > 0)) return false;
  *seconds = value;
  return true;
}

// "HOST:PORT" (PORT 0: any free port).
bool ParseListen(const std::string& text, Options* options) {
  size_t colon = text.rfind(':');
  int64_t port = -1;
  if (colon == std::string::npos || colon == 0 || !ParseWholeNumber(text.substr(colon + 1), &port) || port < 0 ||
      port > 65535) {
    return false;
  }
  options->listenHost = text.substr(0, colon);
  options->listenPort = static_cast<int>(port);
  return true;
}

}  // namespace

std::string UsageText() {
  return "usage: dlplay [options] [URL]\n"
         "\n"
         "Plays URL (a media file or an HLS playlist) through the downloader the way a\n"
         "player would. Without URL, runs the demo: a synthetic HLS rendition served on\n"
         "loopback, played over HTTP with segment writing on, then again from the cache.\n"
         "\n"
         "  --cache DIR            disk cache folder (default " + DefaultCacheDir() + ")\n"
         "  --config FILE          settings, INI style: [group] then key = value lines\n"
         "  --set GROUP.KEY=VALUE  one setting, over the file (repeatable)\n"
         "  --param KEY=VALUE      a request parameter for every request (repeatable)\n"
         "  -o, --out PATH         save the media (segments in order, decrypted, each after its\n"
         "                         initialisation section); - (or /dev/stdout) writes it to stdout\n"
         "                         and every other line to stderr\n"
         "  --range A-B            read bytes A to B inclusive (B may be left out)\n"
         "  --reader-rate BYTES/S  read no faster than this, as a slow player\n"
         "  --buffer-ms N          the player's buffer to report to the tunnel\n"
         "  --variant N            the variant of a master playlist (default: highest bandwidth)\n"
         "  --lookahead N          segments opened ahead of the one being read (default 1, at most " +
             std::to_string(kMaxLookahead) + ")\n"
         "  --log FILE             the library's log lines (default: errors to stderr)\n"
         "  --report json          one JSON object per request on stdout (stderr with -o -)\n"
         "  --report-file FILE     the JSON report to FILE\n"
         "  --no-cache             read without the disk cache (with one, segments are written to it)\n"
         "  --live-start N|Ns      a live playlist starts N segments (Ns: N seconds) back from its\n"
         "                         newest segment (default: three target durations)\n"
         "  --duration SECONDS     stop the play after this long, between two segments (a live\n"
         "                         play otherwise runs to #EXT-X-ENDLIST; SIGINT/SIGTERM stop any\n"
         "                         play; the summary is printed either way)\n"
         "  --engine PATH          map a peer-CDN engine library before playing\n"
         + NetworkUsageText() + "  --version              the version of the library dlplay runs with\n"
         "  --help                 this text\n"
         "\n"
         "usage: dlplay serve [--listen HOST:PORT] [options]\n"
         "\n"
         "Serves http://HOST:PORT/play?url=<percent-encoded URL> (default 127.0.0.1:" +
             std::to_string(Options::kDefaultListenPort) + ", port 0: a free one):\n"
         "any player reads the URL through the downloader, playlists rewritten to come through it too.\n\n" +
         ExitStatusText();
}

std::string DefaultCacheDir() {
  namespace fs = std::filesystem;
  if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg != nullptr && *xdg != '\0') {
    return (fs::path(xdg) / "dlplay").string();
  }
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return (fs::path(home) / ".cache" / "dlplay").string();
  }
  std::error_code ignored;
  return (fs::temp_directory_path(ignored) / "dlplay-cache").string();
}

ParseOutcome ParseOptions(int argc, const char* const* argv, Options* options, std::string* error) {
  *options = Options();
  options->cacheDir = DefaultCacheDir();
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") return ParseOutcome::kHelp;
    const NetworkParse network = ParseNetworkOption(argc, argv, &i, &options->network, error);
    if (network == NetworkParse::kError) return ParseOutcome::kError;
    if (network == NetworkParse::kTaken) continue;
    if (arg == "-o") arg = "--out";
    if (i == 1 && arg == Options::kServeCommand) {
      options->serve = true;
      continue;
    }
    if (options->serve && arg == "--listen") {
      if (i + 1 >= argc || !ParseListen(argv[++i], options)) {
        *error = "--listen needs HOST:PORT";
        return ParseOutcome::kError;
      }
      continue;
    }
    if (arg == "--no-cache") {
      options->useCache = false;
      continue;
    }
    bool takesValue = arg.size() > 2 && arg.compare(0, 2, "--") == 0;
    if (!takesValue) {
      if (!options->url.empty()) {
        *error = "more than one URL: " + arg;
        return ParseOutcome::kError;
      }
      options->url = arg;
      continue;
    }
    if (i + 1 >= argc) {
      *error = arg + " needs a value";
      return ParseOutcome::kError;
    }
    std::string value = argv[++i];
    int64_t number = 0;
    bool ok = true;
    if (arg == "--cache") {
      options->cacheDir = value;
    } else if (arg == "--config") {
      options->configFile = value;
    } else if (arg == "--set") {
      ok = ParseSetting(value, options);
    } else if (arg == "--param") {
      std::string key, paramValue;
      ok = SplitOnce(value, '=', &key, &paramValue);
      if (ok) options->params[key] = paramValue;
    } else if (arg == "--out") {
      options->outPath = value;
    } else if (arg == "--range") {
      ok = ParseRange(value, options);
    } else if (arg == "--reader-rate") {
      ok = ParseWholeNumber(value, &number) && number > 0;
      options->readerRate = static_cast<uint64_t>(number);
    } else if (arg == "--buffer-ms") {
      ok = ParseWholeNumber(value, &number) && number >= 0;
      options->bufferMs = number;
    } else if (arg == "--variant") {
      ok = ParseWholeNumber(value, &number) && number >= 0 && number < (1 << 20);
      options->variant = static_cast<int>(number);
    } else if (arg == "--lookahead") {
      ok = ParseWholeNumber(value, &number) && number >= 0 && number <= kMaxLookahead;
      options->lookahead = static_cast<int>(number);
    } else if (arg == "--log") {
      options->logFile = value;
    } else if (arg == "--report") {
      ok = value == "json";
      options->jsonReport = ok;
    } else if (arg == "--live-start") {
      ok = ParseLiveStart(value, &options->liveStart);
    } else if (arg == "--duration") {
      ok = ParsePositiveSeconds(value, &options->durationSeconds);
    } else if (arg == "--report-file") {
      options->reportFile = value;
      options->jsonReport = true;
    } else if (arg == "--engine") {
      options->enginePath = value;
    } else {
      *error = "unknown option " + arg;
      return ParseOutcome::kError;
    }
    if (!ok) {
      *error = "bad value for " + arg + ": " + value;
      return ParseOutcome::kError;
    }
  }
  return ParseOutcome::kRun;
}

}  // namespace dlplay
