#include "RoadFixture.h"

#include <atomic>
#include <chrono>
#include <cstdio>

#include <downloader/Filter/WispDownloadExecutor.h>
#include <downloader/Storage/CacheWriter.h>

#include "SyntheticContent.h"
#include "support/OriginUrl.h"

namespace dltest {

void RoadFixture::SetUp() {
  origin_ = OriginUrlFromEnvironment();
  ASSERT_FALSE(origin_.empty())
      << "no origin: run through ctest, or start one with scripts/dlorigin-ctl.sh and set DLORIGIN_URL";
  config_ = std::make_shared<MapConfig>();
  config_->Set("enable_segment_writer", "true");
  reporter_ = std::make_shared<RecordingReporter>();
  downloader::storage::CacheWriter::SetCacheRoot(root_.path());
  downloader::ConfigPtr config = config_;
  std::shared_ptr<protocols::IReporter> reporter = reporter_;
  tunnel_ = downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter);
  tunnel_->SetStatsCallback([this](downloader::StatsStage, const std::string& text) {
    size_t at = text.find("level:");
    std::string level = text.substr(at + 6, text.find(',', at) - at - 6);
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(text.substr(0, text.find(',')) + "@" + level);
  });
}

void RoadFixture::TearDown() {
  if (tunnel_) downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel_);
  tunnel_.reset();
  downloader::storage::CacheWriter::SetCacheRoot("");
}

std::string RoadFixture::SyntheticUrl(const std::string& name, int64_t size, const std::string& query) const {
  return origin_ + "/syn/" + name + "?size=" + std::to_string(size) + (query.empty() ? "" : "&" + query);
}

std::string RoadFixture::SyntheticBytes(const std::string& name, int64_t size, int64_t offset) {
  std::string bytes(static_cast<size_t>(size - offset), '\0');
  dlorigin::FillSynthetic(dlorigin::SyntheticSeed("/syn/" + name), static_cast<uint64_t>(offset),
                          reinterpret_cast<uint8_t*>(&bytes[0]), bytes.size());
  return bytes;
}

std::string RoadFixture::UniqueName(const std::string& prefix) {
  static std::atomic<int> counter{0};
  auto now = std::chrono::system_clock::now().time_since_epoch();
  return prefix + "-" + std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count()) + "-" +
         std::to_string(counter.fetch_add(1));
}

int64_t RoadFixture::RequestsFor(const std::string& tag) {
  auto uri = downloader::URI::From(origin_ + "/stats?tag=" + tag, {});
  auto executor = std::make_shared<downloader::WispDownloadExecutor>(config_, nullptr, uri);
  if (!executor->Open(uri).IsSuccess()) return -1;
  std::string body;
  std::vector<char> buffer(4096);
  downloader::Packet packet(buffer.size());
  packet.SetBuffer(buffer.data());
  while (true) {
    DLReadResult result = executor->Read(packet);
    if (result.code != 0) break;
    body.append(buffer.data(), result.bytes);
  }
  executor->Close();
  long long requests = -1;
  long long bytesSent = -1;
  if (std::sscanf(body.c_str(), "requests=%lld bytes_sent=%lld", &requests, &bytesSent) != 2) return -1;
  return requests;
}

std::string RoadFixture::ReadToEnd(downloader::IStream& stream, DLReadResult* last, uint64_t packet) {
  std::string data;
  std::vector<char> buffer(packet);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  DLReadResult result;
  while (std::chrono::steady_clock::now() < deadline) {
    result = stream.Read(buffer.data(), buffer.size());
    if (result.code != 0) break;
    data.append(buffer.data(), result.bytes);
  }
  if (last) *last = result;
  return data;
}

std::string RoadFixture::ReadCount(downloader::IStream& stream, size_t count, uint64_t packet) {
  std::string data;
  std::vector<char> buffer(packet);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (data.size() < count && std::chrono::steady_clock::now() < deadline) {
    DLReadResult result = stream.Read(buffer.data(), std::min<uint64_t>(packet, count - data.size()));
    if (result.code != 0) break;
    data.append(buffer.data(), result.bytes);
  }
  return data;
}

int64_t RoadFixture::StoredSize(const std::string& url) {
  auto store = downloader::storage::CacheWriter::AcquireDataStore(config_, downloader::URI::From(url, {}));
  return store ? store->GetDownloadedSize() : 0;
}

std::vector<std::string> RoadFixture::Events() {
  std::lock_guard<std::mutex> lock(mutex_);
  return events_;
}

}  // namespace dltest
