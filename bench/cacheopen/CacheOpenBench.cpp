// The fixed cost of starting a replay: a player's open of a cached resource
// through a tunnel, at the disk-cache level, and its reads until the first
// 64 KiB are in hand, then Close; beside open + pread of 64 KiB + close of the
// resource's cache file itself, with a warm page cache.
//
//   cache_open_bench DIRECTORY [rounds] [ours|pread]
//
// Stores one 4 MiB resource under DIRECTORY, then per round times each side
// kRepetitions times and prints the median as "sample open64k ours|pread
// SECONDS" (run.sh's report reads them) and a line for people. Even rounds
// run pread first, odd ones ours. With a third argument only that side runs,
// for profiling. Exits 1 when a read misses bytes or gets wrong ones.
#include <downloader/downloader.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr size_t kResourceSize = 4u << 20;
constexpr size_t kStorePiece = 64 * 1024;
constexpr size_t kFirstBytes = 64 * 1024;
constexpr int kRepetitions = 200;
constexpr int kDefaultRounds = 7;
constexpr int64_t kWriteTimeoutMs = 60000;
// Nothing listens there: the resource must come from the cache.
constexpr char kUrl[] = "http://127.0.0.1:9/cacheopen/segment.ts";

class BenchConfig : public protocols::IConfigure {
 public:
  std::string GetValue(const std::string& group, const std::string& key, const std::string& def) override {
    if (group == "downloader_config" && key == "enable_segment_writer") return "true";
    return def;
  }
  std::map<std::string, std::string> GetGroup(const std::string&) override { return {}; }
};

std::vector<uint8_t> Pattern(size_t size) {
  std::vector<uint8_t> bytes(size);
  uint32_t state = 2463534242u;
  for (auto& byte : bytes) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    byte = static_cast<uint8_t>(state);
  }
  return bytes;
}

bool StoreResource(const downloader::ConfigPtr& config, const std::vector<uint8_t>& content) {
  auto writer = downloader::storage::CacheWriter::CreateSegmentWriter(config, downloader::URI::From(kUrl, {}),
                                                                      content.size());
  if (!writer) return false;
  for (size_t offset = 0; offset < content.size(); offset += kStorePiece) {
    downloader::storage::CacheWriter::StoreSegmentBytes(writer, offset, content.data() + offset,
                                                        std::min(kStorePiece, content.size() - offset));
  }
  downloader::storage::CacheWriter::CompleteSegmentWriter(std::move(writer));
  return downloader::storage::CacheWriter::WaitForPendingWrites(kWriteTimeoutMs);
}

class Sides {
 public:
  Sides(std::shared_ptr<downloader::KestrelTunnel> tunnel, std::string cacheFile, const std::vector<uint8_t>& content)
      : tunnel_(std::move(tunnel)), cacheFile_(std::move(cacheFile)), content_(content), buffer_(kFirstBytes) {}

  // A player's open of the cached resource and its reads up to kFirstBytes.
  bool Ours() {
    std::shared_ptr<downloader::IStream> stream = tunnel_->Acquire();
    bool right = stream->Open(downloader::URI::From(kUrl, {})).IsSuccess();
    size_t have = 0;
    while (right && have < kFirstBytes) {
      DLReadResult read = stream->Read(reinterpret_cast<char*>(buffer_.data()) + have, kFirstBytes - have);
      if (read.code != kDLSuccess) break;
      have += read.bytes;
    }
    right = right && have == kFirstBytes && std::memcmp(buffer_.data(), content_.data(), kFirstBytes) == 0 &&
            stream->GetInfo("level_tracker") == "0";
    stream->Close();
    tunnel_->Release(stream);
    return right;
  }

  bool Pread() {
    int fd = open(cacheFile_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool right = pread(fd, buffer_.data(), kFirstBytes, 0) == static_cast<ssize_t>(kFirstBytes);
    close(fd);
    return right;
  }

 private:
  const std::shared_ptr<downloader::KestrelTunnel> tunnel_;
  const std::string cacheFile_;
  const std::vector<uint8_t>& content_;
  std::vector<uint8_t> buffer_;
};

// The median seconds of kRepetitions runs of `side`; negative when one failed.
double MedianSeconds(const std::function<bool()>& side) {
  std::vector<double> seconds;
  for (int i = 0; i < kRepetitions; ++i) {
    auto started = SteadyClock::now();
    if (!side()) return -1;
    seconds.push_back(std::chrono::duration<double>(SteadyClock::now() - started).count());
  }
  std::nth_element(seconds.begin(), seconds.begin() + kRepetitions / 2, seconds.end());
  return seconds[kRepetitions / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY [rounds] [ours|pread]\n", argv[0]);
    return 2;
  }
  int rounds = argc > 2 ? std::atoi(argv[2]) : kDefaultRounds;
  std::string only = argc > 3 ? argv[3] : "";
  downloader::storage::CacheWriter::SetCacheRoot(argv[1]);
  downloader::ConfigPtr config = std::make_shared<BenchConfig>();
  const std::vector<uint8_t> content = Pattern(kResourceSize);
  if (!StoreResource(config, content)) {
    std::fprintf(stderr, "storing the resource failed\n");
    return 1;
  }
  std::shared_ptr<protocols::IReporter> reporter;
  auto tunnel = downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter);
  Sides sides(tunnel, downloader::storage::CacheWriter::CacheFilePath(*downloader::URI::From(kUrl, {})), content);
  int failed = 0;
  for (int round = 0; round < rounds && !failed; ++round) {
    double ours = -1;
    double pread = -1;
    auto runOurs = [&] { ours = only == "pread" ? 0 : MedianSeconds([&] { return sides.Ours(); }); };
    auto runPread = [&] { pread = only == "ours" ? 0 : MedianSeconds([&] { return sides.Pread(); }); };
    if (round % 2 == 0) {
      runPread();
      runOurs();
    } else {
      runOurs();
      runPread();
    }
    if (ours < 0 || pread < 0) {
      std::fprintf(stderr, "round %d: %s read missed or got wrong bytes\n", round, ours < 0 ? "our" : "the pread");
      failed = 1;
      break;
    }
    std::printf("sample open64k ours %.9f\nsample open64k pread %.9f\n", ours, pread);
    std::printf("round %d: open + first 64 KiB %.1f us, open + pread %.1f us, %.1fx\n", round, ours * 1e6,
                pread * 1e6, pread > 0 ? ours / pread : 0.0);
    std::fflush(stdout);
  }
  downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel);
  return failed;
}
