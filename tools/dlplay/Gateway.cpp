#include "Gateway.h"

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <thread>

#include <wisp/Mutex.h>

#include "ExitStatus.h"
#include "GatewayTransfer.h"
#include "Gunzip.h"
#include "HlsPlaylist.h"
#include "LogSink.h"
#include "PlaylistRewriter.h"
#include "Player.h"
#include "RangeHeader.h"

namespace dlplay {
namespace {

constexpr char kPlayPath[] = "/play";
// "/play" or "/play/<name>": the name is for players that judge a URI by its extension, the query says what to fetch.
constexpr char kPlayPattern[] = R"(/play(/[^/]*)?)";
constexpr char kUtf8Bom[] = "\xEF\xBB\xBF";
constexpr char kPlaylistType[] = "application/vnd.apple.mpegurl";
constexpr char kTextType[] = "text/plain";
// A playlist is held whole to be rewritten; one larger than this is not a playlist a player can use either.
constexpr size_t kMaxPlaylistBytes = 16 * 1024 * 1024;
// Players keep connections alive between segments, each holding a worker.
constexpr size_t kWorkerThreads = 128;
constexpr size_t kKeepAliveRequests = 100000;
// A paused player holds the body's write this long before the gateway gives up on it.
constexpr time_t kWriteTimeoutSeconds = 120;
// A session nobody has used for this long (no stream open) is dropped with its tunnel.
constexpr std::chrono::minutes kSessionIdle(2);
constexpr auto kSignalCheckInterval = std::chrono::milliseconds(100);
constexpr int kStatusBadRequest = 400;
constexpr int kStatusRangeNotSatisfiable = 416;
constexpr int kStatusBadGateway = 502;

// What a player understands of the origin's refusal; anything else is the gateway's upstream failing.
int StatusForFailure(int64_t subCode) {
  for (int passed : {403, 404, 410}) {
    std::string digits = std::to_string(passed);
    if (subCode == downloader::FourCharSubCode('H', digits[0], digits[1], digits[2])) return passed;
  }
  return kStatusBadGateway;
}

bool IsPlaylistText(const std::vector<char>& head) {
  std::string text(head.begin(), head.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(head.size(), 16)));
  if (text.compare(0, sizeof(kUtf8Bom) - 1, kUtf8Bom) == 0) text.erase(0, sizeof(kUtf8Bom) - 1);
  return text.compare(0, sizeof(kPlaylistHeaderTag) - 1, kPlaylistHeaderTag) == 0;
}

std::string ContentTypeFor(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  std::string extension = path.substr(path.find_last_of('.') + 1);
  static const std::map<std::string, std::string> kTypes = {
      {"ts", "video/mp2t"}, {"mp4", "video/mp4"}, {"m4s", "video/iso.segment"}, {"m4a", "audio/mp4"},
      {"aac", "audio/aac"}, {"webm", "video/webm"}, {"mkv", "video/x-matroska"}, {"flv", "video/x-flv"}};
  auto found = kTypes.find(extension);
  return found != kTypes.end() ? found->second : "application/octet-stream";
}

void AnswerText(httplib::Response& response, int status, const std::string& text) {
  response.status = status;
  response.set_content(text + "\n", kTextType);
}

}  // namespace

Gateway::Gateway(const Options& options, std::shared_ptr<protocols::IConfigure> config,
                 std::shared_ptr<protocols::IReporter> reporter, std::ostream* jsonOut)
    : options_(options), config_(std::move(config)), reporter_(std::move(reporter)),
      server_(std::make_unique<httplib::Server>()), jsonOut_(jsonOut) {
  server_->new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
  server_->set_keep_alive_max_count(kKeepAliveRequests);
  server_->set_write_timeout(kWriteTimeoutSeconds);
  server_->set_default_headers({{"Access-Control-Allow-Origin", "*"},
                                {"Access-Control-Expose-Headers", "Content-Range, Content-Length, Accept-Ranges"}});
  server_->Get(kPlayPattern, [this](const httplib::Request& request, httplib::Response& response) {
    HandlePlay(request, response);
  });
  server_->Options(kPlayPattern, [this](const httplib::Request& request, httplib::Response& response) {
    HandlePreflight(request, response);
  });
}

Gateway::~Gateway() = default;

bool Gateway::Bind(const std::string& host, int port, std::string* error) {
  port_ = port == 0 ? server_->bind_to_any_port(host) : (server_->bind_to_port(host, port) ? port : -1);
  if (port_ > 0) return true;
  *error = "cannot listen on " + host + ":" + std::to_string(port);
  return false;
}

void Gateway::Serve() { server_->listen_after_bind(); }

void Gateway::Stop() { server_->stop(); }

void Gateway::HandlePreflight(const httplib::Request& request, httplib::Response& response) {
  std::string asked = request.get_header_value("Access-Control-Request-Headers");
  response.status = 204;
  response.set_header("Access-Control-Allow-Methods", "GET, HEAD, OPTIONS");
  response.set_header("Access-Control-Allow-Headers", asked.empty() ? "Range" : asked);
  response.set_header("Access-Control-Max-Age", "86400");
  LogRequest(request.method, response.status, "", RequestReport());
}

void Gateway::HandlePlay(const httplib::Request& request, httplib::Response& response) {
  std::string url = request.get_param_value("url");
  if (url.empty()) {
    AnswerText(response, kStatusBadRequest, "usage: /play?url=<percent-encoded URL>");
    LogRequest(request.method, kStatusBadRequest, "", RequestReport());
    return;
  }
  std::string sessionId = request.has_param("session")
                              ? request.get_param_value("session")
                              : "c" + request.remote_addr + ":" + std::to_string(request.remote_port);
  ByteRangeRequest range = ParseRangeHeader(request.get_header_value("Range"));
  // httplib would apply the request's range a second time to the body the
  // gateway gives it, which already starts where the range does.
  const_cast<httplib::Request&>(request).ranges.clear();

  std::string method = request.method;
  auto transfer = std::make_shared<GatewayTransfer>(
      SessionFor(sessionId), url,
      [this, method](int status, const std::string& contentRange, const RequestReport& report) {
        LogRequest(method, status, contentRange, report);
      });
  if (!transfer->Open(options_.params)) {
    int status = StatusForFailure(transfer->OpenSubCode());
    transfer->SetStatus(status);
    AnswerText(response, status, "cannot open " + url + " (" + downloader::SubCodeTag(transfer->OpenSubCode()) + ")");
    return;
  }
  int64_t size = transfer->FileSize();
  int64_t start = 0;
  int64_t end = size - 1;
  bool partial = range.present && size > 0;
  if (partial && !ResolveByteRange(range, size, &start, &end)) {
    transfer->SetStatus(kStatusRangeNotSatisfiable);
    response.set_header("Content-Range", "bytes */" + std::to_string(size));
    AnswerText(response, kStatusRangeNotSatisfiable, "range not satisfiable");
    return;
  }
  bool positioned = start == 0 ? transfer->Peek() : transfer->Seek(start);
  if (!positioned) {
    int status = StatusForFailure(transfer->OpenSubCode());
    transfer->SetStatus(status);
    AnswerText(response, status, "cannot read " + url);
    return;
  }
  bool gzipped = LooksGzipped(std::string(transfer->pending().begin(), transfer->pending().end()));
  if (start == 0 && (IsPlaylistText(transfer->pending()) || (gzipped && LooksLikePlaylistUrl(url)))) {
    ServePlaylist(*transfer, sessionId, gzipped, response);
    return;
  }
  ServeMedia(transfer, size, start, end, partial, response);
}

void Gateway::ServePlaylist(GatewayTransfer& transfer, const std::string& sessionId, bool gzipped,
                            httplib::Response& response) {
  std::string text, error;
  if (!transfer.ReadAll(&text, kMaxPlaylistBytes)) {
    transfer.SetStatus(kStatusBadGateway);
    AnswerText(response, kStatusBadGateway, "the playlist could not be read whole");
    return;
  }
  if (gzipped) {
    std::string plain;
    if (!Gunzip(text, &plain, &error)) {
      transfer.SetStatus(kStatusBadGateway);
      AnswerText(response, kStatusBadGateway, error);
      return;
    }
    text.swap(plain);
  }
  std::string base = transfer.EffectiveUrl();
  HlsPlaylist playlist;
  if (ParseHlsPlaylist(text, base, &playlist, &error)) transfer.session().NoteSegments(playlist);
  std::string rewritten =
      RewritePlaylist(text, base, [&sessionId](const std::string& absolute) { return PlayUri(absolute, sessionId); });
  response.status = 200;
  // A live playlist changes: every request must reach the origin again.
  response.set_header("Cache-Control", "no-cache");
  response.set_content(rewritten, kPlaylistType);
  transfer.SetStatus(response.status);
  transfer.CountSent(rewritten.size());
  transfer.MarkComplete();
}

void Gateway::ServeMedia(const std::shared_ptr<GatewayTransfer>& transfer, int64_t size, int64_t start, int64_t end,
                         bool partial, httplib::Response& response) {
  std::string type = ContentTypeFor(transfer->url());
  httplib::ContentProviderResourceReleaser release = [transfer](bool success) {
    if (success) transfer->MarkComplete();
  };
  if (size > 0) {
    response.status = partial ? 206 : 200;
    response.set_header("Accept-Ranges", "bytes");
    if (partial) {
      std::string contentRange =
          "bytes " + std::to_string(start) + "-" + std::to_string(end) + "/" + std::to_string(size);
      response.set_header("Content-Range", contentRange);
      transfer->SetContentRange(contentRange);
    }
    response.set_content_provider(
        static_cast<size_t>(end - start + 1), type,
        [transfer](size_t, size_t length, httplib::DataSink& sink) {
          // Short of the announced length, only a cut connection tells the player the body is not whole.
          return transfer->Pump(sink.write, length) == GatewayTransfer::PumpResult::kMore;
        },
        release);
  } else {
    response.status = 200;
    response.set_chunked_content_provider(
        type,
        [transfer](size_t, httplib::DataSink& sink) {
          GatewayTransfer::PumpResult pumped = transfer->Pump(sink.write, GatewayTransfer::kPieceSize);
          if (pumped == GatewayTransfer::PumpResult::kEnd) sink.done();
          return pumped != GatewayTransfer::PumpResult::kFailed;
        },
        release);
  }
  transfer->SetStatus(response.status);
}

std::shared_ptr<GatewaySession> Gateway::SessionFor(const std::string& id) {
  wisp::MutexLock lock(&mutex_);
  GatewaySession::Clock::time_point now = GatewaySession::Clock::now();
  for (auto it = sessions_.begin(); it != sessions_.end();) {
    it = it->first != id && it->second->IdleSince(now, kSessionIdle) ? sessions_.erase(it) : std::next(it);
  }
  std::shared_ptr<GatewaySession>& session = sessions_[id];
  if (!session) session = std::make_shared<GatewaySession>(config_, reporter_, std::to_string(++sessionsMade_));
  return session;
}

std::string Gateway::PlayUri(const std::string& absoluteUrl, const std::string& sessionId) {
  std::string path = absoluteUrl.substr(0, absoluteUrl.find_first_of("?#"));
  size_t slash = path.rfind('/');
  std::string name = slash == std::string::npos ? std::string() : path.substr(slash + 1);
  return std::string(kPlayPath) + (name.empty() ? "" : "/" + PercentEncode(name)) +
         "?session=" + PercentEncode(sessionId) + "&url=" + PercentEncode(absoluteUrl);
}

void Gateway::LogRequest(const std::string& method, int status, const std::string& contentRange,
                         const RequestReport& report) {
  wisp::MutexLock lock(&mutex_);
  std::fprintf(stderr, "dlplay serve: %s %d %llu level=%d cache_hit=%s ms=%lld%s%s %s\n", method.c_str(), status,
               static_cast<unsigned long long>(report.bytes), report.level, report.cacheHit ? "yes" : "no",
               static_cast<long long>(report.ms), contentRange.empty() ? "" : " ", contentRange.c_str(),
               report.url.c_str());
  if (jsonOut_ != nullptr && !report.url.empty()) *jsonOut_ << report.ToJson() << std::endl;
}

int RunGateway(const Options& options, std::shared_ptr<protocols::IConfigure> config,
               const std::atomic<bool>* stop) {
  if (!options.url.empty()) {
    std::fprintf(stderr, "dlplay: serve takes no URL (%s): players name theirs in /play?url=\n", options.url.c_str());
    return kExitUsage;
  }
  std::ofstream reportFile;
  std::ostream* jsonOut = nullptr;
  std::string error;
  if (!OpenJsonReport(options, &reportFile, &jsonOut, &error)) {
    std::fprintf(stderr, "dlplay: %s\n", error.c_str());
    return kExitUsage;
  }
  Gateway gateway(options, std::move(config), std::make_shared<LogReporter>(), jsonOut);
  if (!gateway.Bind(options.listenHost, options.listenPort, &error)) {
    std::fprintf(stderr, "dlplay: %s\n", error.c_str());
    return kExitUsage;
  }
  std::fprintf(stderr, "dlplay serve: listening on http://%s:%d%s?url=\n", options.listenHost.c_str(),
               gateway.port(), kPlayPath);
  std::fflush(stderr);
  std::thread server([&gateway] { gateway.Serve(); });
  // A signal handler can only set a flag; the server is stopped from here.
  while (!stop->load()) std::this_thread::sleep_for(kSignalCheckInterval);
  gateway.Stop();
  server.join();
  if (options.useCache && !Player::FinishCacheWrites()) {
    std::fprintf(stderr, "dlplay: the cache's last writes did not finish; the next play may miss them\n");
  }
  return 0;
}

}  // namespace dlplay
