// Many streams in one process, as a host playing several tunnels at once:
// TUNNELS tunnels of STREAMS streams each, every stream reading its own file
// to the end on its own thread, and the process's cost of doing so:
//
//   scale_host URL_PREFIX CACHE_FOLDER [TUNNELS [STREAMS]]   (default 8 x 8)
//   bytes=4294967296 streams=64 failed=0 seconds=3.210 cpu_seconds=4.100 peak_rss_kib=65536
//
// Stream k (0-based, tunnel-major) reads URL_PREFIX + "/f<k>.bin". Segment
// writing is off: the figure is the network road's, not the disk's. The peak
// RSS is the whole process's (ru_maxrss), start-up included.
#include <sys/resource.h>

#include <downloader/downloader.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

// A player's read size; the host's buffers count in its RSS as a player's would.
constexpr size_t kReadSize = 64 * 1024;
constexpr int kDefaultTunnels = 8;
constexpr int kDefaultStreamsPerTunnel = 8;

class BenchConfig : public protocols::IConfigure {
 public:
  std::string GetValue(const std::string& group, const std::string& key, const std::string& def) override {
    if (group == "downloader_config" && key == "enable_segment_writer") return "false";
    return def;
  }
  std::map<std::string, std::string> GetGroup(const std::string&) override { return {}; }
};

double CpuSeconds(const rusage& usage) {
  return usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
}

// Reads the stream's resource to its end; returns the bytes read, or -1 when
// the open or a read failed.
long long ReadToEnd(downloader::IStream& stream, const std::string& url) {
  if (!stream.Open(downloader::URI::From(url, {})).IsSuccess()) return -1;
  std::vector<char> buffer(kReadSize);
  long long bytes = 0;
  DLReadResult read;
  while ((read = stream.Read(buffer.data(), buffer.size())).code == kDLSuccess) bytes += read.bytes;
  stream.Close();
  return read.code == kDLEndOfData ? bytes : -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s URL_PREFIX CACHE_FOLDER [TUNNELS [STREAMS]]\n", argv[0]);
    return 2;
  }
  const std::string prefix = argv[1];
  const int tunnelCount = argc > 3 ? std::atoi(argv[3]) : kDefaultTunnels;
  const int streamsPerTunnel = argc > 4 ? std::atoi(argv[4]) : kDefaultStreamsPerTunnel;
  downloader::storage::CacheWriter::SetCacheRoot(argv[2]);
  downloader::ConfigPtr config = std::make_shared<BenchConfig>();
  std::shared_ptr<protocols::IReporter> reporter;

  std::vector<std::shared_ptr<downloader::KestrelTunnel>> tunnels;
  std::vector<std::shared_ptr<downloader::IStream>> streams;
  for (int t = 0; t < tunnelCount; ++t) {
    tunnels.push_back(downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter));
    for (int s = 0; s < streamsPerTunnel; ++s) streams.push_back(tunnels.back()->Acquire());
  }

  auto started = std::chrono::steady_clock::now();
  std::atomic<long long> bytes{0};
  std::atomic<int> failed{0};
  std::vector<std::thread> readers;
  for (size_t k = 0; k < streams.size(); ++k) {
    readers.emplace_back([&, k] {
      long long read = ReadToEnd(*streams[k], prefix + "/f" + std::to_string(k) + ".bin");
      if (read < 0) {
        failed.fetch_add(1);
      } else {
        bytes.fetch_add(read);
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

  for (size_t k = 0; k < streams.size(); ++k) tunnels[k / streamsPerTunnel]->Release(streams[k]);
  streams.clear();
  for (auto& tunnel : tunnels) downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("bytes=%lld streams=%d failed=%d seconds=%.3f cpu_seconds=%.3f peak_rss_kib=%ld\n", bytes.load(),
              tunnelCount * streamsPerTunnel, failed.load(), seconds, CpuSeconds(usage), usage.ru_maxrss);
  return failed.load() == 0 ? 0 : 1;
}
