// Reads one URL to its end through a tunnel, as a player would, and prints
// what it read and from which levels:
//
//   road_fetch URL CACHE_FOLDER [--no-segment-writer]
//   bytes=1073741824 seconds=0.812 levels=4
//
// With segment writing on (the default), a first run over HTTP stores the
// resource under CACHE_FOLDER and a second run replays it from there; the
// program waits for the cache writes before it exits, so a run's wall time
// includes them.
#include <downloader/downloader.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kReadSize = 1 << 20;

class BenchConfig : public protocols::IConfigure {
 public:
  explicit BenchConfig(bool segmentWriter) : segmentWriter_(segmentWriter) {}
  std::string GetValue(const std::string& group, const std::string& key, const std::string& def) override {
    if (group == "downloader_config" && key == "enable_segment_writer") return segmentWriter_ ? "true" : "false";
    return def;
  }
  std::map<std::string, std::string> GetGroup(const std::string&) override { return {}; }

 private:
  const bool segmentWriter_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s URL CACHE_FOLDER [--no-segment-writer]\n", argv[0]);
    return 2;
  }
  bool segmentWriter = !(argc > 3 && std::strcmp(argv[3], "--no-segment-writer") == 0);
  downloader::storage::CacheWriter::SetCacheRoot(argv[2]);
  downloader::ConfigPtr config = std::make_shared<BenchConfig>(segmentWriter);
  std::shared_ptr<protocols::IReporter> reporter;
  auto tunnel = downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter);

  auto started = std::chrono::steady_clock::now();
  std::shared_ptr<downloader::IStream> stream = tunnel->Acquire();
  DLResultCode opened = stream->Open(downloader::URI::From(argv[1], {}));
  if (!opened.IsSuccess()) {
    std::fprintf(stderr, "open failed: %s\n", downloader::SubCodeTag(opened.subCode).c_str());
    return 1;
  }
  std::vector<char> buffer(kReadSize);
  unsigned long long bytes = 0;
  DLReadResult read;
  while ((read = stream->Read(buffer.data(), buffer.size())).code == kDLSuccess) bytes += read.bytes;
  std::string levels = stream->GetInfo("level_tracker");
  stream->Close();
  tunnel->Release(stream);
  downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel);
  downloader::storage::CacheWriter::WaitForPendingWrites(600000);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  std::printf("bytes=%llu seconds=%.3f levels=%s\n", bytes, seconds, levels.c_str());
  return read.code == kDLEndOfData ? 0 : 1;
}
