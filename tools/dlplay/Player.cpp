#include "Player.h"

#include <algorithm>
#include <deque>
#include <thread>
#include <vector>

#include "Sha256.h"

namespace dlplay {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kReadPacketSize = 64 * 1024;
constexpr std::chrono::milliseconds kStateReportInterval(500);
constexpr int64_t kPendingWritesTimeoutMs = 10000;
constexpr int32_t kPlayerId = 1;
constexpr char kPlaylistHeader[] = "#EXTM3U";

int64_t MillisecondsSince(Clock::time_point began) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count();
}

}  // namespace

Player::Player(const Options& options, std::shared_ptr<protocols::IConfigure> config,
               std::shared_ptr<protocols::IReporter> reporter, std::ostream* jsonOut, bool quiet)
    : options_(options), config_(std::move(config)), reporter_(std::move(reporter)), jsonOut_(jsonOut),
      progress_(quiet) {
  tunnel_ = downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config_, reporter_);
  tunnel_->SetStreamSettings({{"player_id", std::to_string(kPlayerId)}});
  if (!options_.outPath.empty()) out_.open(options_.outPath, std::ios::binary | std::ios::trunc);
}

Player::~Player() { downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel_); }

bool Player::Play(const std::string& url, PlaySummary* summary, std::string* error) {
  Clock::time_point began = Clock::now();
  bool played = PlayUntimed(url, summary, error);
  summary->SetMilliseconds(MillisecondsSince(began));
  return played;
}

bool Player::PlayUntimed(const std::string& url, PlaySummary* summary, std::string* error) {
  if (!options_.outPath.empty() && !out_) {
    *error = "cannot write " + options_.outPath;
    return false;
  }
  if (!LooksLikePlaylistUrl(url)) {
    progress_.BeginRequest(1, 1, url);
    Fetch fetch = FetchResource(url, options_.rangeStart, options_.rangeEnd, false);
    Record(fetch.report, summary);
    progress_.Finish();
    return true;
  }
  HlsPlaylist playlist;
  if (!ReadPlaylist(url, &playlist, summary, error)) return false;
  uint64_t bitRate = 0;
  if (playlist.kind == HlsPlaylist::Kind::kMaster) {
    int variant = options_.variant >= 0 ? options_.variant : playlist.BestVariant();
    if (variant < 0 || variant >= static_cast<int>(playlist.variants.size())) {
      *error = "no variant " + std::to_string(variant) + " in " + url;
      return false;
    }
    bitRate = playlist.variants[variant].bandwidth;
    std::string mediaUrl = playlist.variants[variant].uri;
    if (!ReadPlaylist(mediaUrl, &playlist, summary, error)) return false;
    if (playlist.kind != HlsPlaylist::Kind::kMedia) {
      *error = mediaUrl + " is not a media playlist";
      return false;
    }
  }
  bool played = PlayMedia(playlist, bitRate, summary);
  progress_.Finish();
  return played;
}

bool Player::ReadPlaylist(const std::string& url, HlsPlaylist* playlist, PlaySummary* summary,
                          std::string* error) {
  Fetch fetch = FetchResource(url, -1, -1, true);
  Record(fetch.report, summary);
  if (fetch.report.code != 0) {
    *error = "cannot read the playlist " + url + " (" + downloader::SubCodeTag(fetch.report.subCode) + ")";
    return false;
  }
  if (fetch.body.compare(0, sizeof(kPlaylistHeader) - 1, kPlaylistHeader) != 0 &&
      fetch.body.find(kPlaylistHeader) == std::string::npos) {
    *error = url + " is not an HLS playlist";
    return false;
  }
  return ParseHlsPlaylist(fetch.body, url, playlist, error);
}

bool Player::PlayMedia(const HlsPlaylist& playlist, uint64_t bitRate, PlaySummary* summary) {
  bitRate_ = bitRate;
  size_t count = playlist.segments.size();
  size_t lookahead = static_cast<size_t>(options_.lookahead);
  std::deque<OpenRequest> opened;
  size_t nextToOpen = 0;
  for (size_t index = 0; index < count; ++index) {
    progress_.BeginRequest(static_cast<int>(index + 1), static_cast<int>(count), playlist.segments[index].uri);
    ReportPlayerState();
    for (; nextToOpen < count && nextToOpen <= index + lookahead; ++nextToOpen) {
      opened.push_back(OpenSegment(playlist.segments[nextToOpen]));
    }
    OpenRequest request = std::move(opened.front());
    opened.pop_front();
    Fetch fetch = ReadToEnd(request, false);
    Record(fetch.report, summary);
    if (fetch.report.code == 0) bufferedMediaMs_ += playlist.segments[index].durationSeconds * 1000.0;
    if (!playing_) {
      playing_ = true;
      playStarted_ = Clock::now();
    }
  }
  return true;
}

Player::OpenRequest Player::OpenSegment(const HlsSegment& segment) {
  int64_t rangeEnd = segment.rangeLength > 0 ? segment.rangeStart + segment.rangeLength - 1 : -1;
  return Open(segment.uri, segment.rangeStart, rangeEnd);
}

int Player::BufferedMs() const {
  if (options_.bufferMs >= 0) return static_cast<int>(options_.bufferMs);
  double played = playing_ ? static_cast<double>(MillisecondsSince(playStarted_)) : 0;
  return static_cast<int>(std::max(0.0, bufferedMediaMs_ - played));
}

void Player::ReportPlayerState() {
  int bufferedMs = BufferedMs();
  downloader::PulseData pulse;
  downloader::PulseDataDef<int>(downloader::kPulseBufferDurationKey).Write(&pulse, bufferedMs);
  if (bitRate_ > 0) {
    downloader::PulseDataDef<int64_t>(downloader::kPulseBitRateKey).Write(&pulse, static_cast<int64_t>(bitRate_));
  }
  tunnel_->NotifyPulseDataUpdated(pulse);
  tunnel_->UpdateBufferState(bufferedMs > 0 || !playing_ ? downloader::kBufferStateReady
                                                         : downloader::kBufferStateBuffering);
}

void Player::PaceReader(uint64_t bytesSoFar, Clock::time_point began) {
  if (options_.readerRate == 0) return;
  // A slow player: it takes bytes no faster than its rate.
  auto due = began + std::chrono::microseconds(bytesSoFar * 1000000 / options_.readerRate);
  std::this_thread::sleep_until(due);
}

Player::Fetch Player::FetchResource(const std::string& url, int64_t rangeStart, int64_t rangeEnd, bool keepBody) {
  OpenRequest request = Open(url, rangeStart, rangeEnd);
  return ReadToEnd(request, keepBody);
}

Player::OpenRequest Player::Open(const std::string& url, int64_t rangeStart, int64_t rangeEnd) {
  downloader::URIBuilder builder = downloader::URIBuilder::New();
  builder.params = options_.params;
  builder.params["player_id"] = std::to_string(kPlayerId);
  if (rangeStart >= 0) builder.params["range_start"] = std::to_string(rangeStart);
  if (rangeEnd >= 0) builder.params["range_end"] = std::to_string(rangeEnd);
  builder.SetHttpHeader(RequestHeaderText(options_.network));
  std::shared_ptr<downloader::URI> uri = builder.SetUrl(url).Build();

  OpenRequest request;
  request.url = url;
  request.rangeStart = rangeStart;
  request.began = Clock::now();
  request.stream = tunnel_->Acquire();
  request.opened = request.stream->Open(uri);
  return request;
}

Player::Fetch Player::ReadToEnd(OpenRequest& request, bool keepBody) {
  Fetch fetch;
  RequestReport& report = fetch.report;
  report.url = request.url;
  // Only the JSON report shows the digest; hashing every byte otherwise would
  // cost the reading thread about as much as the download itself, and even
  // setting a digest up costs a lookup in the crypto library per request.
  std::unique_ptr<Sha256> digest = jsonOut_ != nullptr ? std::make_unique<Sha256>() : nullptr;
  if (request.opened.code != kDLSuccess) {
    report.code = kDLFailure;
    report.subCode = request.opened.subCode;
  } else {
    ReadBody(request, keepBody, digest.get(), &fetch);
  }
  DescribeLevels(*request.stream, &report);
  if (digest) report.sha256 = digest->HexDigest();
  request.stream->Close();
  tunnel_->Release(request.stream);
  report.ms = MillisecondsSince(request.began);
  progress_.EndRequest(report.bytes, report.level, report.code, downloader::SubCodeTag(report.subCode));
  return fetch;
}

void Player::ReadBody(OpenRequest& request, bool keepBody, Sha256* digest, Fetch* fetch) {
  RequestReport& report = fetch->report;
  downloader::IStream& stream = *request.stream;
  std::vector<uint8_t> packet(kReadPacketSize);
  uint64_t offset = request.rangeStart > 0 ? static_cast<uint64_t>(request.rangeStart) : 0;
  // A stream opened ahead may have waited: the pace runs from the first read.
  Clock::time_point readingBegan = Clock::now();
  Clock::time_point lastState = readingBegan;
  for (;;) {
    DLReadResult result = stream.Read(packet.data(), packet.size());
    if (result.code == kDLEndOfData) return;
    if (result.code != kDLSuccess) {
      report.code = kDLFailure;
      report.subCode = result.subCode;
      return;
    }
    if (result.bytes == 0) continue;
    if (digest) digest->Update(packet.data(), result.bytes);
    if (keepBody) fetch->body.append(reinterpret_cast<const char*>(packet.data()), result.bytes);
    if (!keepBody && out_) out_.write(reinterpret_cast<const char*>(packet.data()), result.bytes);
    if (!keepBody && sink_) sink_(request.url, offset, packet.data(), result.bytes);
    offset += result.bytes;
    report.bytes += result.bytes;
    if (progress_.RedrawDue()) {
      std::vector<int> served = ParseLevelTrail(stream.GetInfo("level_tracker"));
      progress_.Update(report.bytes, served.empty() ? -1 : served.back());
    }
    PaceReader(report.bytes, readingBegan);
    if (Clock::now() - lastState > kStateReportInterval) {
      ReportPlayerState();
      lastState = Clock::now();
    }
  }
}

void Player::DescribeLevels(downloader::IStream& stream, RequestReport* report) {
  report->levels = ParseLevelTrail(stream.GetInfo("level_attempts"));
  std::vector<int> served = ParseLevelTrail(stream.GetInfo("level_tracker"));
  report->level = served.empty() ? -1 : served.back();
  report->downgrades = served.empty() ? 0 : static_cast<int>(served.size()) - 1;
  report->executor = stream.GetInfo("executor");
  report->cacheHit = report->code == 0 && report->level == kDLLevelCache;
  if (report->code != 0) {
    report->errorKind = stream.GetInfo("error_kind");
    report->errorMessage = stream.GetInfo("error_message");
  }
}

bool Player::FinishCacheWrites() {
  return downloader::storage::CacheWriter::WaitForPendingWrites(kPendingWritesTimeoutMs);
}

void Player::Record(const RequestReport& report, PlaySummary* summary) {
  summary->Add(report);
  if (report.code != 0) progress_.PrintLine("dlplay: " + report.FailureLine());
  if (jsonOut_ != nullptr) *jsonOut_ << report.ToJson() << std::endl;
}

}  // namespace dlplay
