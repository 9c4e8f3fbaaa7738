#include "Demo.h"

#include <cstdio>
#include <filesystem>
#include <string>

#include "DemoOrigin.h"
#include "LogSink.h"
#include "PlayReport.h"
#include "Player.h"
#include "SyntheticContent.h"

namespace dlplay {
namespace {

constexpr int kDemoSegments = 30;
constexpr int64_t kDemoSegmentSize = 1024 * 1024;
constexpr int kDemoSegmentSeconds = 4;

// Checks every byte the player reads against the origin's content function.
class ContentCheck {
 public:
  void Check(const std::string& url, uint64_t offset, const uint8_t* data, size_t length) {
    std::string path = url.substr(0, url.find('?'));
    path = path.substr(path.find('/', path.find("://") + 3));
    uint64_t seed = dlorigin::SyntheticSeed(path);
    if (dlorigin::FirstSyntheticMismatch(seed, offset, data, length) != length) wrongBytes_ = true;
  }
  bool allRight() const { return !wrongBytes_; }

 private:
  bool wrongBytes_ = false;
};

struct DemoPlay {
  PlaySummary summary;
  bool contentRight = false;
  int64_t originRequests = 0;
};

bool PlayOnce(const Options& options, const std::shared_ptr<IniConfig>& config, const std::string& url,
              std::ostream* jsonOut, const DemoOrigin& origin, DemoPlay* play) {
  ContentCheck check;
  int64_t requestsBefore = origin.RequestCount();
  std::string error;
  {
    Player player(options, config, std::make_shared<LogReporter>(), jsonOut, false);
    player.SetBytesSink([&check](const std::string& segmentUrl, uint64_t offset, const uint8_t* data,
                                 size_t length) { check.Check(segmentUrl, offset, data, length); });
    if (!player.Play(url, &play->summary, &error)) {
      std::fprintf(stderr, "dlplay: demo: %s\n", error.c_str());
      return false;
    }
  }
  play->contentRight = check.allRight();
  play->originRequests = origin.RequestCount() - requestsBefore;
  return true;
}

}  // namespace

int RunDemo(const Options& options, const std::shared_ptr<IniConfig>& config, std::ostream* jsonOut) {
  namespace fs = std::filesystem;
  DemoOrigin origin;
  if (!origin.Start()) {
    std::fprintf(stderr, "dlplay: demo: cannot bind a loopback port\n");
    return 1;
  }
  // A cache of its own, empty, so that the first play really goes over HTTP.
  fs::path cacheDir = fs::path(options.cacheDir) / "demo";
  std::error_code ignored;
  fs::remove_all(cacheDir, ignored);
  fs::create_directories(cacheDir, ignored);
  downloader::DownloadManager::GetInstance().SetLocalCachePath(cacheDir.string().c_str());
  config->Set("downloader_config", "enable_segment_writer", "true");

  std::string url = origin.BaseUrl() + "/hls/demo/index.m3u8?segments=" + std::to_string(kDemoSegments) +
                    "&segment_size=" + std::to_string(kDemoSegmentSize) +
                    "&duration=" + std::to_string(kDemoSegmentSeconds);
  // With a JSON report on stdout, the human text goes to stderr.
  FILE* text = jsonOut != nullptr ? stderr : stdout;
  std::fprintf(text, "dlplay demo: %d segments of %lld bytes from %s\ncache: %s\n\n", kDemoSegments,
              static_cast<long long>(kDemoSegmentSize), url.c_str(), cacheDir.string().c_str());

  DemoPlay overHttp;
  DemoPlay fromCache;
  bool played = PlayOnce(options, config, url, jsonOut, origin, &overHttp);
  // The replay should find every segment of the first play.
  played = played && Player::FinishCacheWrites() &&
           PlayOnce(options, config, url, jsonOut, origin, &fromCache);
  origin.Stop();
  if (!played) return 1;

  std::fprintf(text, "%s\n", PlaySummary::FormatSideBySide("first play (HTTP)", overHttp.summary,
                                                    "second play (cache)", fromCache.summary)
                          .c_str());
  std::fprintf(text, "  %-18s %-22s %s\n", "content", overHttp.contentRight ? "every byte right" : "WRONG BYTES",
              fromCache.contentRight ? "every byte right" : "WRONG BYTES");
  std::fprintf(text, "  %-18s %-22lld %lld\n", "origin requests", static_cast<long long>(overHttp.originRequests),
              static_cast<long long>(fromCache.originRequests));

  bool allRight = overHttp.contentRight && fromCache.contentRight && overHttp.summary.failures() == 0 &&
                  fromCache.summary.failures() == 0 && fromCache.summary.cacheHits() == kDemoSegments;
  std::fprintf(text, "\n%s\n", allRight ? "demo: both plays read every byte right; the second came from the cache."
                                 : "demo: FAILED (see above)");
  return allRight ? 0 : 1;
}

}  // namespace dlplay
