// How long a player waits when the level it reads from stalls: one process,
// one tunnel, streams opened one after another as a player opens segments.
//
//   stall_bench ORIGIN_URL PCDN_ENGINE WORK_FOLDER [--rounds=7] [--stalls=5] [--read-timeout-ms=1000]
//
// Each stall is a resource that dlorigin serves and the fake peer-CDN engine
// (PCDN_ENGINE, mapped as a host maps the real one) holds too. The engine is
// scripted to deliver the first kStallAfter bytes of every read and then
// nothing: the stream reads them from level 1, waits "read_timeout", goes down
// to HTTP at the same offset and reads on to the end. The real clock measures
// the time from the read that returned the stalled level's last byte to the
// read that returned the next level's first byte. Every byte the player gets
// is checked against the resource's, and every stream must have gone 1>4.
//
// Per stall, a line with the time and where it went, and two samples for
// bench/lib/sidebyside.py in milliseconds (its table shows whole ones, where
// seconds would hide the excess): "sample stall downloader MS" and
// "sample stall read_timeout MS". A first, unmeasured stall warms the process
// up (threads, connections, the engine). Exit status: 0; 1 on a wrong or
// missing byte or another road; 2 on bad arguments or setup.
#include <dlfcn.h>

#include <downloader/downloader.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SyntheticContent.h"

namespace stall {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int kExitWrongRoad = 1;
constexpr int kExitUsage = 2;
constexpr int64_t kResourceSize = 2 * 1024 * 1024 + 4321;
// Neither a multiple of the engine's pieces nor of the player's reads: the
// stall comes in the middle of both.
constexpr int64_t kStallAfter = 700001;
constexpr size_t kReadSize = 64 * 1024;
constexpr char kExpectedRoad[] = "1>4";
// Bounds a stream that neither ends nor fails, in read time-outs.
constexpr int kGiveUpAfterTimeouts = 30;

struct Options {
  std::string origin;
  std::string engine;
  std::string work;
  int rounds = 7;
  int stallsPerRound = 5;
  int64_t readTimeoutMs = 1000;
};

bool ParseOptions(int argc, char** argv, Options* options) {
  if (argc < 4) return false;
  options->origin = argv[1];
  options->engine = argv[2];
  options->work = argv[3];
  for (int i = 4; i < argc; ++i) {
    std::string arg = argv[i];
    size_t eq = arg.find('=');
    if (eq == std::string::npos) return false;
    std::string key = arg.substr(0, eq);
    long long value = std::atoll(arg.c_str() + eq + 1);
    if (key == "--rounds") {
      options->rounds = static_cast<int>(value);
    } else if (key == "--stalls") {
      options->stallsPerRound = static_cast<int>(value);
    } else if (key == "--read-timeout-ms") {
      options->readTimeoutMs = value;
    } else {
      return false;
    }
  }
  return options->rounds > 0 && options->stallsPerRound > 0 && options->readTimeoutMs > 0;
}

// A player's configuration: segment writing on, the bench's read time-out.
class PlayerConfig : public protocols::IConfigure {
 public:
  explicit PlayerConfig(int64_t readTimeoutMs) : readTimeout_(std::to_string(readTimeoutMs)) {}
  std::string GetValue(const std::string& group, const std::string& key, const std::string& def) override {
    if (group != "downloader_config") return def;
    if (key == "enable_segment_writer") return "true";
    if (key == "read_timeout") return readTimeout_;
    return def;
  }
  std::map<std::string, std::string> GetGroup(const std::string&) override { return {}; }

 private:
  const std::string readTimeout_;
};

// When the stream committed its read-stage events. The pipeline commits on
// the reading thread, but its contract allows any: mutex_ guards the list.
class ReadEvents {
 public:
  void Record(downloader::StatsStage stage, const std::string& text) {
    if (stage != downloader::kStatsStageRead) return;
    SteadyClock::time_point now = SteadyClock::now();
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back({text.substr(0, text.find(',')), now});
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
  }
  // The first event named `name` (any, when empty).
  std::optional<SteadyClock::time_point> First(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Event& event : events_) {
      if (name.empty() || event.name == name) return event.at;
    }
    return std::nullopt;
  }

 private:
  struct Event {
    std::string name;
    SteadyClock::time_point at;
  };
  std::mutex mutex_;
  std::vector<Event> events_;
};

// The fake engine, mapped into the process and scripted to stall every read.
class StallingEngine {
 public:
  bool Map(const std::string& path, const std::string& root) {
    if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) return false;
    set_ = reinterpret_cast<SetFunction>(dlsym(RTLD_DEFAULT, "PCDNSetByKV"));
    if (set_ == nullptr) return false;
    root_ = root;
    set_("fake-reset", "");
    set_("fake-root", root_.c_str());
    set_("fake-stall-after", std::to_string(kStallAfter).c_str());
    return true;
  }
  // Gives the engine the resource's bytes, as it would hold them after peers
  // sent them.
  void Hold(const std::string& path, uint64_t seed) const {
    std::vector<uint8_t> bytes(static_cast<size_t>(kResourceSize));
    dlorigin::FillSynthetic(seed, 0, bytes.data(), bytes.size());
    std::filesystem::path file = root_ + path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  void Forget(const std::string& path) const { std::filesystem::remove(root_ + path); }

 private:
  using SetFunction = int (*)(const char*, const char*);
  SetFunction set_ = nullptr;
  std::string root_;
};

// Where one stall's wait went, in seconds from the stalled level's last byte.
struct StallTimes {
  double firstByte = 0;
  // The walk's first step past the stalled level (the time-out noticed), and
  // the next level open; absent when the stream did not commit them.
  std::optional<double> timeoutNoticed;
  std::optional<double> nextLevelOpen;
};

double SecondsBetween(SteadyClock::time_point from, SteadyClock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

class StallBench {
 public:
  explicit StallBench(Options options) : options_(std::move(options)) {}
  int Run();

 private:
  // Reads one stalling resource to its end; false with *failure on a wrong
  // road or byte.
  bool RunStall(const std::string& name, StallTimes* times, std::string* failure);
  bool ReadThrough(downloader::IStream& stream, uint64_t seed, SteadyClock::time_point* lastByteAt,
                   SteadyClock::time_point* firstByteAt, std::string* failure);
  void Print(const std::string& label, const StallTimes& times) const;

  const Options options_;
  StallingEngine engine_;
  ReadEvents events_;
  std::shared_ptr<downloader::KestrelTunnel> tunnel_;
  std::vector<double> excessesMs_;
};

bool StallBench::ReadThrough(downloader::IStream& stream, uint64_t seed, SteadyClock::time_point* lastByteAt,
                             SteadyClock::time_point* firstByteAt, std::string* failure) {
  std::vector<uint8_t> buffer(kReadSize);
  const SteadyClock::time_point giveUpAt =
      SteadyClock::now() + std::chrono::milliseconds(kGiveUpAfterTimeouts * options_.readTimeoutMs);
  int64_t offset = 0;
  bool stalled = false;
  bool resumed = false;
  while (SteadyClock::now() < giveUpAt) {
    DLReadResult read = stream.Read(buffer.data(), buffer.size());
    const SteadyClock::time_point now = SteadyClock::now();
    if (read.code == kDLEndOfData) break;
    if (read.code != kDLSuccess) {
      *failure = "read failed at " + std::to_string(offset) + ", sub code " + downloader::SubCodeTag(read.subCode);
      return false;
    }
    if (read.bytes == 0) continue;
    if (offset + static_cast<int64_t>(read.bytes) > kResourceSize ||
        dlorigin::FirstSyntheticMismatch(seed, static_cast<uint64_t>(offset), buffer.data(), read.bytes) !=
            read.bytes) {
      *failure = "wrong bytes in the read at " + std::to_string(offset);
      return false;
    }
    if (stalled && !resumed) {
      *firstByteAt = now;
      resumed = true;
    }
    offset += static_cast<int64_t>(read.bytes);
    if (offset == kStallAfter) {
      *lastByteAt = now;
      stalled = true;
    }
  }
  if (offset != kResourceSize || !resumed) {
    *failure = "ended at " + std::to_string(offset) + " of " + std::to_string(kResourceSize) +
               (resumed ? "" : ", without a read ending where the level stalled");
    return false;
  }
  return true;
}

bool StallBench::RunStall(const std::string& name, StallTimes* times, std::string* failure) {
  const std::string path = "/syn/" + name;
  const uint64_t seed = dlorigin::SyntheticSeed(path);
  engine_.Hold(path, seed);
  events_.Clear();
  std::shared_ptr<downloader::IStream> stream = tunnel_->Acquire();
  bool passed = false;
  SteadyClock::time_point lastByteAt;
  SteadyClock::time_point firstByteAt;
  DLResultCode opened =
      stream->Open(downloader::URI::From(options_.origin + path + "?size=" + std::to_string(kResourceSize), {}));
  if (!opened.IsSuccess()) {
    *failure = "open failed, sub code " + downloader::SubCodeTag(opened.subCode);
  } else if (ReadThrough(*stream, seed, &lastByteAt, &firstByteAt, failure)) {
    const std::string road = stream->GetInfo("level_tracker");
    passed = road == kExpectedRoad;
    if (!passed) *failure = "went " + road + ", not " + kExpectedRoad;
  }
  stream->Close();
  tunnel_->Release(stream);
  engine_.Forget(path);
  if (!passed) return false;

  times->firstByte = SecondsBetween(lastByteAt, firstByteAt);
  // The levels the walk passes on its way down refuse or open; either is
  // the stream's first read-stage event, committed once the time-out ended
  // the stalled read.
  if (auto noticed = events_.First("")) times->timeoutNoticed = SecondsBetween(lastByteAt, *noticed);
  if (auto open = events_.First("read_downgrade")) times->nextLevelOpen = SecondsBetween(lastByteAt, *open);
  return true;
}

void StallBench::Print(const std::string& label, const StallTimes& times) const {
  const double timeout = options_.readTimeoutMs / 1000.0;
  auto ms = [](double seconds) { return seconds * 1000.0; };
  std::printf("%s: last byte -> next level's first byte %.1f ms, read_timeout + %.1f ms", label.c_str(),
              ms(times.firstByte), ms(times.firstByte - timeout));
  if (times.timeoutNoticed && times.nextLevelOpen) {
    std::printf(" (time-out noticed +%.1f, next level open +%.1f, its first read +%.1f)",
                ms(*times.timeoutNoticed - timeout), ms(*times.nextLevelOpen - *times.timeoutNoticed),
                ms(times.firstByte - *times.nextLevelOpen));
  }
  std::printf("\n");
}

int StallBench::Run() {
  std::filesystem::create_directories(options_.work + "/cache");
  downloader::storage::CacheWriter::SetCacheRoot(options_.work + "/cache");
  if (!engine_.Map(options_.engine, options_.work + "/engine")) {
    std::fprintf(stderr, "stall_bench: cannot map the engine %s: %s\n", options_.engine.c_str(), dlerror());
    return kExitUsage;
  }
  downloader::ConfigPtr config = std::make_shared<PlayerConfig>(options_.readTimeoutMs);
  std::shared_ptr<protocols::IReporter> reporter;
  tunnel_ = downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter);
  tunnel_->SetStatsCallback(
      [this](downloader::StatsStage stage, const std::string& text) { events_.Record(stage, text); });

  // Each resource has a name of its own: segment writing would otherwise
  // serve the next stream from the cache.
  const std::string prefix = "stall-" + std::to_string(SteadyClock::now().time_since_epoch().count()) + "-";
  int status = 0;
  StallTimes times;
  std::string failure;
  if (!RunStall(prefix + "warm-up.ts", &times, &failure)) {
    std::printf("warm-up: FAIL %s\n", failure.c_str());
    status = kExitWrongRoad;
  }
  for (int round = 0; round < options_.rounds && status == 0; ++round) {
    for (int k = 0; k < options_.stallsPerRound; ++k) {
      const std::string label = "round " + std::to_string(round + 1) + " stall " + std::to_string(k + 1);
      if (!RunStall(prefix + std::to_string(round) + "-" + std::to_string(k) + ".ts", &times, &failure)) {
        std::printf("%s: FAIL %s\n", label.c_str(), failure.c_str());
        status = kExitWrongRoad;
        break;
      }
      Print(label, times);
      excessesMs_.push_back(times.firstByte * 1000.0 - static_cast<double>(options_.readTimeoutMs));
      std::printf("sample stall downloader %.3f\nsample stall read_timeout %lld\n", times.firstByte * 1000.0,
                  static_cast<long long>(options_.readTimeoutMs));
    }
  }
  std::fflush(stdout);

  downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel_);
  tunnel_.reset();
  downloader::storage::CacheWriter::WaitForPendingWrites(static_cast<int64_t>(kGiveUpAfterTimeouts) *
                                                         options_.readTimeoutMs);
  downloader::storage::CacheWriter::SetCacheRoot("");
  if (status == 0 && !excessesMs_.empty()) {
    std::sort(excessesMs_.begin(), excessesMs_.end());
    std::printf("excess over read_timeout: median %.1f ms, min %.1f, max %.1f, %zu stalls\n",
                excessesMs_[excessesMs_.size() / 2], excessesMs_.front(), excessesMs_.back(), excessesMs_.size());
  }
  return status;
}

}  // namespace
}  // namespace stall

int main(int argc, char** argv) {
  stall::Options options;
  if (!stall::ParseOptions(argc, argv, &options)) {
    std::fprintf(stderr,
                 "usage: %s ORIGIN_URL PCDN_ENGINE WORK_FOLDER [--rounds=7] [--stalls=5] [--read-timeout-ms=1000]\n",
                 argv[0]);
    return stall::kExitUsage;
  }
  stall::StallBench bench(std::move(options));
  return bench.Run();
}
