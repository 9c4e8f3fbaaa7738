#include "Player.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <iostream>
#include <thread>
#include <vector>

#include "Gunzip.h"
#include "LiveSchedule.h"
#include "Sha256.h"

namespace dlplay {
namespace {

using Clock = std::chrono::steady_clock;

// A read that waits takes its bytes straight from the network thread (one
// copy) and is woken once per packet: large packets mean few wake-ups per MiB.
constexpr size_t kReadPacketSize = 1 << 20;
constexpr std::chrono::milliseconds kStateReportInterval(500);
constexpr int64_t kPendingWritesTimeoutMs = 10000;
constexpr int32_t kPlayerId = 1;
constexpr char kTrue[] = "true";
// A signal is noticed within this while waiting for the next reading of a live playlist.
constexpr std::chrono::milliseconds kStopCheckInterval(100);
// Failed readings of a live playlist in a row before the play gives up.
constexpr int kLiveReadingAttempts = 3;

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
  if (options_.MediaOnStdout()) {
    media_ = &std::cout;
  } else if (!options_.outPath.empty()) {
    out_.open(options_.outPath, std::ios::binary | std::ios::trunc);
    media_ = &out_;
  }
}

Player::~Player() { downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel_); }

bool Player::Play(const std::string& url, PlaySummary* summary, std::string* error) {
  playBegan_ = Clock::now();
  bool played = PlayUntimed(url, summary, error);
  if (media_ != nullptr) media_->flush();
  summary->SetMilliseconds(MillisecondsSince(playBegan_));
  return played;
}

bool Player::PlayUntimed(const std::string& url, PlaySummary* summary, std::string* error) {
  if (media_ == &out_ && !out_) {
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
  std::string mediaUrl = url;
  if (playlist.kind == HlsPlaylist::Kind::kMaster) {
    int variant = options_.variant >= 0 ? options_.variant : playlist.BestVariant();
    if (variant < 0 || variant >= static_cast<int>(playlist.variants.size())) {
      *error = "no variant " + std::to_string(variant) + " in " + url;
      return false;
    }
    bitRate_ = playlist.variants[variant].bandwidth;
    mediaUrl = playlist.variants[variant].uri;
    if (!ReadPlaylist(mediaUrl, &playlist, summary, error)) return false;
    if (playlist.kind != HlsPlaylist::Kind::kMedia) {
      *error = mediaUrl + " is not a media playlist";
      return false;
    }
  }
  bool played = playlist.endList ? PlayMedia(playlist.segments, summary, error)
                                 : PlayLive(mediaUrl, std::move(playlist), summary, error);
  progress_.Finish();
  return played;
}

bool Player::ReadPlaylist(const std::string& url, HlsPlaylist* playlist, PlaySummary* summary,
                          std::string* error) {
  playlistReadAt_ = Clock::now();
  Fetch fetch = FetchResource(url, -1, -1, true);
  Record(fetch.report, summary);
  if (fetch.report.code != 0) {
    *error = "cannot read the playlist " + url + " (" + downloader::SubCodeTag(fetch.report.subCode) + ")";
    return false;
  }
  if (LooksGzipped(fetch.body)) {
    std::string plain;
    if (!Gunzip(fetch.body, &plain, error)) {
      *error = url + ": " + *error;
      return false;
    }
    fetch.body.swap(plain);
  }
  if (fetch.body.compare(0, sizeof(kPlaylistHeaderTag) - 1, kPlaylistHeaderTag) != 0 &&
      fetch.body.find(kPlaylistHeaderTag) == std::string::npos) {
    *error = url + " is not an HLS playlist";
    return false;
  }
  // Relative URIs are relative to where the playlist was found, after redirects.
  const std::string& base = fetch.effectiveUrl.empty() ? url : fetch.effectiveUrl;
  if (!ParseHlsPlaylist(fetch.body, base, playlist, error)) {
    *error = url + ": " + *error;
    return false;
  }
  return true;
}

bool Player::PlayLive(const std::string& url, HlsPlaylist playlist, PlaySummary* summary, std::string* error) {
  live_ = true;
  LiveSchedule schedule(options_.liveStart);
  int failedReadings = 0;
  for (;;) {
    Clock::time_point readAt = playlistReadAt_;
    if (failedReadings == 0 && !PlayMedia(schedule.Take(playlist), summary, error)) return false;
    if (schedule.Ended() || StopDue()) return true;
    if (!WaitUntil(readAt + schedule.ReloadDelay())) return true;
    // A live origin may miss a reading now and then; the last good playlist stands until the next one.
    HlsPlaylist reading;
    if (ReadPlaylist(url, &reading, summary, error)) {
      playlist = std::move(reading);
      failedReadings = 0;
    } else if (++failedReadings >= kLiveReadingAttempts) {
      return false;
    } else {
      std::fprintf(stderr, "dlplay: %s; reading it again\n", error->c_str());
    }
  }
}

bool Player::StopDue() const {
  if (stop_ != nullptr && stop_->load()) return true;
  return options_.durationSeconds > 0 &&
         std::chrono::duration<double>(Clock::now() - playBegan_).count() >= options_.durationSeconds;
}

bool Player::WaitUntil(Clock::time_point deadline) const {
  for (Clock::time_point now = Clock::now(); now < deadline; now = Clock::now()) {
    if (StopDue()) return false;
    std::this_thread::sleep_for(std::min<Clock::duration>(deadline - now, kStopCheckInterval));
  }
  return !StopDue();
}

bool Player::PlayMedia(const std::vector<HlsSegment>& segments, PlaySummary* summary, std::string* error) {
  // Refused before anything is written: bytes no decoder can use are worse than none.
  for (const HlsSegment& segment : segments) {
    if (segment.key.method == HlsKey::Method::kUnsupported) {
      *error = segment.uri + " is encrypted with METHOD=" + segment.key.methodName +
               ", which dlplay cannot decrypt (refused before writing it)";
      playFailureStatus_ = kExitUnsupportedStream;
      return false;
    }
  }
  size_t count = segments.size();
  int total = segmentsPlayed_ + static_cast<int>(count);
  size_t lookahead = static_cast<size_t>(options_.lookahead);
  std::deque<OpenRequest> opened;
  size_t nextToOpen = 0;
  bool played = true;
  for (size_t index = 0; index < count && !StopDue(); ++index) {
    progress_.BeginRequest(segmentsPlayed_ + 1, total, segments[index].uri);
    ReportPlayerState();
    bool keysAtHand = true;
    for (; keysAtHand && nextToOpen < count && nextToOpen <= index + lookahead; ++nextToOpen) {
      keysAtHand = LoadKey(segments[nextToOpen].key, summary, error);
      if (keysAtHand) opened.push_back(OpenSegment(segments[nextToOpen]));
    }
    if (!keysAtHand || !WriteMap(segments[index], summary, error)) {
      played = false;
      break;
    }
    OpenRequest request = std::move(opened.front());
    opened.pop_front();
    Fetch fetch = ReadToEnd(request, false);
    Record(fetch.report, summary);
    ++segmentsPlayed_;
    if (fetch.report.code == 0) bufferedMediaMs_ += segments[index].durationSeconds * 1000.0;
    if (!playing_) {
      playing_ = true;
      playStarted_ = Clock::now();
    }
  }
  for (OpenRequest& request : opened) Discard(request);
  return played;
}

bool Player::LoadKey(const HlsKey& key, PlaySummary* summary, std::string* error) {
  if (key.method != HlsKey::Method::kAes128 || keys_.count(key.uri) != 0) return true;
  Fetch fetch = FetchResource(key.uri, -1, -1, true);
  Record(fetch.report, summary);
  if (fetch.report.code != 0) {
    *error = "cannot read the key " + key.uri + " (" + downloader::SubCodeTag(fetch.report.subCode) + ")";
    return false;
  }
  if (fetch.body.size() != kAesBlockSize) {
    *error = "the key " + key.uri + " is " + std::to_string(fetch.body.size()) + " bytes, not " +
             std::to_string(kAesBlockSize);
    return false;
  }
  AesBlock bytes;
  std::copy(fetch.body.begin(), fetch.body.end(), bytes.begin());
  keys_[key.uri] = bytes;
  return true;
}

bool Player::WriteMap(const HlsSegment& segment, PlaySummary* summary, std::string* error) {
  const HlsMap& map = segment.map;
  if (map.uri.empty() || map == writtenMap_) return true;
  auto found = mapBodies_.find(map);
  if (found == mapBodies_.end()) {
    int64_t rangeEnd = map.rangeLength > 0 ? map.rangeStart + map.rangeLength - 1 : -1;
    Fetch fetch = FetchResource(map.uri, map.rangeStart, rangeEnd, true);
    Record(fetch.report, summary);
    if (fetch.report.code != 0) {
      *error = "cannot read the initialisation section " + map.uri + " (" +
               downloader::SubCodeTag(fetch.report.subCode) + ")";
      return false;
    }
    if (map.key.method == HlsKey::Method::kAes128) {
      // A playlist must give an encrypted section its IV; without one, the first segment's number is the best guess.
      if (!LoadKey(map.key, summary, error)) return false;
      AesCbcDecryptor decryptor(keys_.at(map.key.uri), map.key.IvFor(segment.sequence));
      std::string plain;
      decryptor.Update(reinterpret_cast<const uint8_t*>(fetch.body.data()), fetch.body.size(), &plain);
      if (!decryptor.Finish(&plain)) {
        *error = "the initialisation section " + map.uri + " does not decrypt with its key (bad padding)";
        return false;
      }
      fetch.body.swap(plain);
    }
    found = mapBodies_.emplace(map, std::move(fetch.body)).first;
  }
  WriteMedia(found->second.data(), found->second.size());
  writtenMap_ = map;
  return true;
}

void Player::WriteMedia(const char* data, size_t length) {
  if (media_ != nullptr) media_->write(data, static_cast<std::streamsize>(length));
}

void Player::Discard(OpenRequest& request) {
  request.stream->Close();
  tunnel_->Release(request.stream);
}

Player::OpenRequest Player::OpenSegment(const HlsSegment& segment) {
  int64_t rangeEnd = segment.rangeLength > 0 ? segment.rangeStart + segment.rangeLength - 1 : -1;
  OpenRequest request = Open(segment.uri, segment.rangeStart, rangeEnd);
  if (segment.key.method == HlsKey::Method::kAes128) {
    request.decryptor =
        std::make_unique<AesCbcDecryptor>(keys_.at(segment.key.uri), segment.key.IvFor(segment.sequence));
  }
  return request;
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
  if (keepBody) progress_.BeginSideRequest(url);
  OpenRequest request = Open(url, rangeStart, rangeEnd);
  return ReadToEnd(request, keepBody);
}

Player::OpenRequest Player::Open(const std::string& url, int64_t rangeStart, int64_t rangeEnd) {
  downloader::URIBuilder builder = downloader::URIBuilder::New();
  builder.params = options_.params;
  builder.params["player_id"] = std::to_string(kPlayerId);
  if (rangeStart >= 0) builder.params["range_start"] = std::to_string(rangeStart);
  if (rangeEnd >= 0) builder.params["range_end"] = std::to_string(rangeEnd);
  if (live_) builder.params["is_live"] = kTrue;
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
  if (keepBody) fetch.effectiveUrl = request.stream->GetInfo("effective_url");
  Discard(request);
  report.ms = MillisecondsSince(request.began);
  progress_.EndRequest(report.bytes, report.level, report.code, downloader::SubCodeTag(report.subCode));
  return fetch;
}

void Player::ReadBody(OpenRequest& request, bool keepBody, Sha256* digest, Fetch* fetch) {
  RequestReport& report = fetch->report;
  downloader::IStream& stream = *request.stream;
  // Kept from request to request and never zeroed: a playlist's segments
  // would otherwise each pay for a fresh megabyte's pages.
  if (packet_ == nullptr) packet_.reset(new uint8_t[kReadPacketSize]);
  uint8_t* const packet = packet_.get();
  uint64_t offset = request.rangeStart > 0 ? static_cast<uint64_t>(request.rangeStart) : 0;
  // A stream opened ahead may have waited: the pace runs from the first read.
  Clock::time_point readingBegan = Clock::now();
  Clock::time_point lastState = readingBegan;
  std::string plain;
  for (;;) {
    if (stop_ != nullptr && stop_->load()) return;
    DLReadResult result = stream.Read(packet, kReadPacketSize);
    if (result.code == kDLEndOfData) {
      if (request.decryptor && !request.decryptor->Finish(&plain)) {
        report.code = kDLFailure;
        std::fprintf(stderr, "dlplay: %s: does not decrypt with its key (bad padding)\n", request.url.c_str());
      }
      WriteMedia(plain.data(), plain.size());
      return;
    }
    if (result.code != kDLSuccess) {
      report.code = kDLFailure;
      report.subCode = result.subCode;
      return;
    }
    if (result.bytes == 0) continue;
    if (digest) digest->Update(packet, result.bytes);
    if (keepBody) fetch->body.append(reinterpret_cast<const char*>(packet), result.bytes);
    if (!keepBody && request.decryptor) {
      plain.clear();
      request.decryptor->Update(packet, result.bytes, &plain);
      WriteMedia(plain.data(), plain.size());
      plain.clear();
    } else if (!keepBody) {
      WriteMedia(reinterpret_cast<const char*>(packet), result.bytes);
    }
    if (!keepBody && sink_) sink_(request.url, offset, packet, result.bytes);
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
