// A long run of many streams under every fault at once, checking every byte:
//
//   soak_host ORIGIN_URL WORK_FOLDER SECONDS [--tunnels=8] [--streams=8]
//             [--read-timeout-ms=2000] [--rss-limit-mib=0] [--round-ms=5000]
//             [--resources=24] [--seed=N] [--pcdn-engine=PATH]
//
// TUNNELS x STREAMS threads each read one resource after another through
// their tunnel, each request with a fault drawn from every kind dlorigin
// knows (and, with --pcdn-engine, from the fake peer-CDN engine, whose script
// changes every round). Segment writing is on; the cache lives in
// WORK_FOLDER/cache, and between rounds (every --round-ms, with no request in
// flight) some of its files are truncated, bit-cleared, overwritten with
// foreign bytes or removed; a round's start, like the run's end, closes the
// streams still reading, as a player that stops. Every byte a stream delivers
// is checked against the origin's synthetic content.
//
// The run fails (status 1) on a wrong byte, on data past or short of the
// resource's end reported as complete; (status 3) at once when a stream makes
// no progress for three read time-outs or resident memory passes the bound.
// Crashes and leaks are the sanitizers' to report. The summary goes to stdout.
#include <dlfcn.h>

#include <downloader/downloader.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "CacheDamage.h"
#include "FaultDraw.h"
#include "RoundGate.h"
#include "StreamWatch.h"
#include "SyntheticContent.h"

namespace soak {
namespace {

constexpr int kExitWrongData = 1;
constexpr int kExitUsage = 2;
constexpr int kExitWatchdog = 3;
constexpr int kHangReadTimeouts = 3;
constexpr int64_t kSmallestResource = 16 * 1024;
constexpr int64_t kResourceSpread = 1200 * 1024;
constexpr int64_t kLargestPacket = 256 * 1024;
constexpr int kFilesDamagedPerRound = 3;
constexpr int64_t kPendingWritesWaitMs = 30000;
constexpr size_t kFailuresShown = 20;

struct Options {
  std::string origin;
  std::string work;
  int64_t seconds = 0;
  int tunnels = 8;
  int streamsPerTunnel = 8;
  int64_t readTimeoutMs = 2000;
  int64_t rssLimitMib = 0;
  int64_t roundMs = 5000;
  int resources = 24;
  uint64_t seed = 0;
  std::string pcdnEngine;
};

bool ParseOptions(int argc, char** argv, Options* options) {
  if (argc < 4) return false;
  options->origin = argv[1];
  options->work = argv[2];
  options->seconds = std::atoll(argv[3]);
  options->seed = std::random_device()();
  for (int i = 4; i < argc; ++i) {
    std::string arg = argv[i];
    size_t eq = arg.find('=');
    if (eq == std::string::npos) return false;
    std::string key = arg.substr(0, eq);
    std::string value = arg.substr(eq + 1);
    if (key == "--tunnels") {
      options->tunnels = std::atoi(value.c_str());
    } else if (key == "--streams") {
      options->streamsPerTunnel = std::atoi(value.c_str());
    } else if (key == "--read-timeout-ms") {
      options->readTimeoutMs = std::atoll(value.c_str());
    } else if (key == "--rss-limit-mib") {
      options->rssLimitMib = std::atoll(value.c_str());
    } else if (key == "--round-ms") {
      options->roundMs = std::atoll(value.c_str());
    } else if (key == "--resources") {
      options->resources = std::atoi(value.c_str());
    } else if (key == "--seed") {
      options->seed = std::strtoull(value.c_str(), nullptr, 10);
    } else if (key == "--pcdn-engine") {
      options->pcdnEngine = value;
    } else {
      return false;
    }
  }
  return options->seconds > 0 && options->tunnels > 0 && options->streamsPerTunnel > 0 &&
         options->readTimeoutMs > 0 && options->roundMs > 0 && options->resources > 0;
}

class SoakConfig : public protocols::IConfigure {
 public:
  explicit SoakConfig(int64_t readTimeoutMs) : readTimeout_(std::to_string(readTimeoutMs)) {}
  std::string GetValue(const std::string& group, const std::string& key, const std::string& def) override {
    if (group != "downloader_config") return def;
    if (key == "enable_segment_writer" || key == "enable_cache_filter_range_start") return "true";
    if (key == "read_timeout") return readTimeout_;
    return def;
  }
  std::map<std::string, std::string> GetGroup(const std::string&) override { return {}; }

 private:
  const std::string readTimeout_;
};

// Keys a resource's cache file by its path alone, so that the requests for it
// share one file whatever faults their queries ask for.
class PathIdentifier : public downloader::URIIdentifier {
 public:
  std::string ID(const downloader::URI* uri) override {
    const std::string& url = uri->GetStringRep();
    return std::to_string(dlorigin::SyntheticSeed(std::string_view(url).substr(0, url.find('?'))));
  }
  std::string GroupID(const downloader::URI*) override { return std::string(); }
};

struct Resource {
  std::string path;
  int64_t size = 0;
  uint64_t seed = 0;
};

std::vector<Resource> MakeResources(int count) {
  std::vector<Resource> resources;
  for (int k = 0; k < count; ++k) {
    Resource resource;
    resource.path = "/syn/soak-" + std::to_string(k) + ".ts";
    resource.size = kSmallestResource + (static_cast<int64_t>(k) * 7919 * 131) % kResourceSpread;
    resource.seed = dlorigin::SyntheticSeed(resource.path);
    resources.push_back(resource);
  }
  return resources;
}

struct Tally {
  std::atomic<int64_t> requests{0};
  std::atomic<int64_t> completed{0};
  std::atomic<int64_t> openFailed{0};
  std::atomic<int64_t> readFailed{0};
  // Closed before their end when a round began or the run ended.
  std::atomic<int64_t> stopped{0};
  std::atomic<int64_t> bytesChecked{0};
  std::array<std::atomic<int64_t>, kFaultKindCount> faults{};
  std::atomic<int64_t> pcdnScripts{0};

  std::mutex mutex;
  std::vector<std::string> failures;

  void Fail(std::string what) {
    std::lock_guard<std::mutex> lock(mutex);
    failures.push_back(std::move(what));
  }
  size_t FailureCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return failures.size();
  }
};

// The fake peer-CDN engine, mapped the way a host maps the real one, serving
// the resources from files of its own.
class PcdnScript {
 public:
  bool Map(const std::string& enginePath, const std::string& root, const std::vector<Resource>& resources) {
    if (dlopen(enginePath.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) return false;
    set_ = reinterpret_cast<SetFunction>(dlsym(RTLD_DEFAULT, "PCDNSetByKV"));
    if (set_ == nullptr) return false;
    root_ = root;
    for (const Resource& resource : resources) {
      std::vector<uint8_t> bytes(static_cast<size_t>(resource.size));
      dlorigin::FillSynthetic(resource.seed, 0, bytes.data(), bytes.size());
      std::filesystem::path file = root + resource.path;
      std::filesystem::create_directories(file.parent_path());
      std::ofstream(file, std::ios::binary)
          .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    Serve();
    return true;
  }
  bool mapped() const { return set_ != nullptr; }

  // A new script for the next round: serve, fail opens, fail or stall reads.
  void Draw(std::mt19937_64& random) {
    Serve();
    switch (random() % 4) {
      case 0:
        break;
      case 1:
        set_("fake-fail-open", std::to_string(1 + random() % 8).c_str());
        break;
      case 2:
        set_("fake-fail-after", std::to_string(random() % (kSmallestResource + kResourceSpread)).c_str());
        break;
      default:
        set_("fake-stall-after", std::to_string(random() % (kSmallestResource + kResourceSpread)).c_str());
        break;
    }
  }

 private:
  using SetFunction = int (*)(const char*, const char*);

  void Serve() {
    set_("fake-reset", "");
    set_("fake-root", root_.c_str());
  }

  SetFunction set_ = nullptr;
  std::string root_;
};

class Soak {
 public:
  explicit Soak(Options options)
      : options_(std::move(options)),
        resources_(MakeResources(options_.resources)),
        slots_(static_cast<size_t>(options_.tunnels * options_.streamsPerTunnel)),
        damage_(options_.work + "/cache"),
        watch_(slots_, kHangReadTimeouts * options_.readTimeoutMs, options_.rssLimitMib * 1024,
               [this](const std::string& reason) { Abandon(reason); }) {}

  int Run();

 private:
  void StreamLoop(size_t index, downloader::ITunnel& tunnel);
  void ReadOnce(StreamSlot& slot, downloader::ITunnel& tunnel, std::mt19937_64& random);
  void ReadStream(downloader::IStream& stream, StreamSlot& slot, const Resource& resource, int64_t start,
                  const std::string& request, std::mt19937_64& random);
  void Rounds(std::chrono::steady_clock::time_point end);
  void PrintSummary(const std::string& verdict);
  [[noreturn]] void Abandon(const std::string& reason);

  const Options options_;
  const std::vector<Resource> resources_;
  std::vector<StreamSlot> slots_;
  CacheDamage damage_;
  PcdnScript pcdn_;
  PathIdentifier identifier_;
  RoundGate gate_;
  Tally tally_;
  std::atomic<bool> ending_{false};
  std::chrono::steady_clock::time_point started_;
  StreamWatch watch_;
};

void Soak::ReadStream(downloader::IStream& stream, StreamSlot& slot, const Resource& resource, int64_t start,
                      const std::string& request, std::mt19937_64& random) {
  std::vector<uint8_t> buffer(kLargestPacket);
  int64_t offset = start;
  while (true) {
    if (gate_.Closing() || ending_.load()) {
      tally_.stopped.fetch_add(1);
      return;
    }
    uint64_t packet = 1 + random() % kLargestPacket;
    DLReadResult read = stream.Read(buffer.data(), packet);
    if (read.code == kDLSuccess) {
      if (read.bytes == 0) continue;
      slot.Progress();
      if (read.bytes > packet || offset + static_cast<int64_t>(read.bytes) > resource.size) {
        tally_.Fail("data past the end at " + std::to_string(offset) + ": " + request);
        return;
      }
      size_t bad = dlorigin::FirstSyntheticMismatch(resource.seed, static_cast<uint64_t>(offset), buffer.data(),
                                                    read.bytes);
      if (bad != read.bytes) {
        tally_.Fail("wrong byte at " + std::to_string(offset + static_cast<int64_t>(bad)) + ": " + request);
        return;
      }
      offset += static_cast<int64_t>(read.bytes);
      tally_.bytesChecked.fetch_add(static_cast<int64_t>(read.bytes));
    } else if (read.code == kDLEndOfData) {
      if (offset != resource.size) {
        tally_.Fail("end of data at " + std::to_string(offset) + " of " + std::to_string(resource.size) + ": " +
                    request);
      } else {
        tally_.completed.fetch_add(1);
      }
      return;
    } else {
      tally_.readFailed.fetch_add(1);
      return;
    }
  }
}

void Soak::ReadOnce(StreamSlot& slot, downloader::ITunnel& tunnel, std::mt19937_64& random) {
  const Resource& resource = resources_[random() % resources_.size()];
  Fault fault = DrawFault(random, resource.size, options_.readTimeoutMs, pcdn_.mapped());
  int64_t start = random() % 4 == 0 ? static_cast<int64_t>(random() % resource.size) : 0;
  std::string url = options_.origin + resource.path + "?size=" + std::to_string(resource.size);
  if (!fault.query.empty()) url += "&" + fault.query;

  downloader::URIBuilder builder = downloader::URIBuilder::New();
  builder.SetUrl(url).SetURIIdentifier(&identifier_);
  // The peer-CDN level only where the fault asks for it: elsewhere the
  // origin's faults are what the stream is to meet.
  builder.params["download_level"] = fault.pcdnFirst ? "7" : "6";
  if (start > 0) builder.params["range_start"] = std::to_string(start);
  std::string request = url + " from " + std::to_string(start) + " (" + FaultName(fault.kind) + ")";

  tally_.requests.fetch_add(1);
  tally_.faults[static_cast<size_t>(fault.kind)].fetch_add(1);
  slot.Begin(request);
  std::shared_ptr<downloader::IStream> stream = tunnel.Acquire();
  if (stream->Open(builder.Build()).IsSuccess()) {
    slot.Progress();
    ReadStream(*stream, slot, resource, start, request, random);
  } else {
    tally_.openFailed.fetch_add(1);
  }
  stream->Close();
  tunnel.Release(stream);
  slot.End();
}

void Soak::StreamLoop(size_t index, downloader::ITunnel& tunnel) {
  std::mt19937_64 random(options_.seed + index + 1);
  while (!ending_.load()) {
    gate_.Enter();
    if (!ending_.load()) ReadOnce(slots_[index], tunnel, random);
    gate_.Leave();
  }
}

void Soak::Rounds(std::chrono::steady_clock::time_point end) {
  std::mt19937_64 random(options_.seed);
  std::mutex mutex;
  std::condition_variable never;
  std::unique_lock<std::mutex> lock(mutex);
  while (std::chrono::steady_clock::now() < end) {
    auto next = std::min(end, std::chrono::steady_clock::now() + std::chrono::milliseconds(options_.roundMs));
    // Paces the rounds; nothing notifies it.
    never.wait_until(lock, next);
    if (next == end) break;
    gate_.CloseAndDrain();
    // The storage thread may still write what the last streams read.
    if (!downloader::storage::CacheWriter::WaitForPendingWrites(kPendingWritesWaitMs)) {
      Abandon("the cache writes did not finish within " + std::to_string(kPendingWritesWaitMs) + " ms");
    }
    damage_.DamageSome(random, kFilesDamagedPerRound);
    if (pcdn_.mapped()) {
      pcdn_.Draw(random);
      tally_.pcdnScripts.fetch_add(1);
    }
    gate_.Open();
  }
}

void Soak::PrintSummary(const std::string& verdict) {
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
  std::printf("soak: verdict=%s seconds=%.1f seed=%llu tunnels=%d streams=%zu\n", verdict.c_str(), seconds,
              static_cast<unsigned long long>(options_.seed), options_.tunnels, slots_.size());
  std::printf("soak: requests=%lld completed=%lld stopped=%lld open_failed=%lld read_failed=%lld"
              " bytes_checked=%lld\n",
              static_cast<long long>(tally_.requests.load()), static_cast<long long>(tally_.completed.load()),
              static_cast<long long>(tally_.stopped.load()), static_cast<long long>(tally_.openFailed.load()),
              static_cast<long long>(tally_.readFailed.load()), static_cast<long long>(tally_.bytesChecked.load()));
  std::printf("soak: faults");
  for (size_t k = 0; k < kFaultKindCount; ++k) {
    std::printf(" %s=%lld", FaultName(static_cast<FaultKind>(k)), static_cast<long long>(tally_.faults[k].load()));
  }
  std::printf(" pcdn_scripts=%lld\nsoak: damage", static_cast<long long>(tally_.pcdnScripts.load()));
  for (size_t k = 0; k < kDamageKindCount; ++k) {
    std::printf(" %s=%lld", DamageName(static_cast<DamageKind>(k)), static_cast<long long>(damage_.counts()[k]));
  }
  std::printf("\nsoak: peak_rss_kib=%lld rss_limit_kib=%lld\n", static_cast<long long>(watch_.PeakRssKib()),
              static_cast<long long>(options_.rssLimitMib * 1024));
  std::lock_guard<std::mutex> lock(tally_.mutex);
  std::printf("soak: failures=%zu\n", tally_.failures.size());
  for (size_t i = 0; i < tally_.failures.size() && i < kFailuresShown; ++i) {
    std::printf("soak: failure %s\n", tally_.failures[i].c_str());
  }
  std::fflush(stdout);
}

void Soak::Abandon(const std::string& reason) {
  std::printf("soak: FAIL %s\n", reason.c_str());
  PrintSummary("abandoned");
  // Stuck threads cannot be joined: the run ends here.
  std::_Exit(kExitWatchdog);
}

int Soak::Run() {
  std::filesystem::create_directories(options_.work + "/cache");
  downloader::storage::CacheWriter::SetCacheRoot(options_.work + "/cache");
  if (!options_.pcdnEngine.empty() && !pcdn_.Map(options_.pcdnEngine, options_.work + "/pcdn", resources_)) {
    std::fprintf(stderr, "soak: cannot map the engine %s: %s\n", options_.pcdnEngine.c_str(), dlerror());
    return kExitUsage;
  }
  downloader::ConfigPtr config = std::make_shared<SoakConfig>(options_.readTimeoutMs);
  std::shared_ptr<protocols::IReporter> reporter;
  std::vector<std::shared_ptr<downloader::KestrelTunnel>> tunnels;
  for (int t = 0; t < options_.tunnels; ++t) {
    tunnels.push_back(downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter));
  }

  started_ = std::chrono::steady_clock::now();
  watch_.Start();
  std::vector<std::thread> streams;
  for (size_t k = 0; k < slots_.size(); ++k) {
    downloader::ITunnel& tunnel = *tunnels[k / static_cast<size_t>(options_.streamsPerTunnel)];
    streams.emplace_back([this, k, &tunnel] { StreamLoop(k, tunnel); });
  }
  Rounds(started_ + std::chrono::seconds(options_.seconds));
  ending_.store(true);
  for (std::thread& stream : streams) stream.join();
  watch_.Stop();

  for (auto& tunnel : tunnels) downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel);
  tunnels.clear();
  downloader::storage::CacheWriter::WaitForPendingWrites(kPendingWritesWaitMs);
  downloader::storage::CacheWriter::SetCacheRoot("");
  bool passed = tally_.FailureCount() == 0;
  PrintSummary(passed ? "pass" : "FAIL");
  return passed ? 0 : kExitWrongData;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
  soak::Options options;
  if (!soak::ParseOptions(argc, argv, &options)) {
    std::fprintf(stderr,
                 "usage: %s ORIGIN_URL WORK_FOLDER SECONDS [--tunnels=N] [--streams=M] [--read-timeout-ms=T]\n"
                 "       [--rss-limit-mib=R] [--round-ms=T] [--resources=K] [--seed=S] [--pcdn-engine=PATH]\n",
                 argv[0]);
    return soak::kExitUsage;
  }
  soak::Soak soak(std::move(options));
  return soak.Run();
}
