// The host program of the README: reads a URL through a tunnel to its end.
// Run it twice with the same cache folder: the first run reads over HTTP, the
// second from the disk cache, with the same bytes.
#include <downloader/downloader.h>

#include <cstdio>
#include <vector>

class HostConfig : public protocols::IConfigure {
 public:
  std::string GetValue(const std::string& group, const std::string& key, const std::string& def) override {
    return group == "downloader_config" && key == "enable_segment_writer" ? "true" : def;
  }
  std::map<std::string, std::string> GetGroup(const std::string&) override { return {}; }
};

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: %s URL CACHE_FOLDER\n", argv[0]), 2;
  downloader::storage::CacheWriter::SetCacheRoot(argv[2]);
  downloader::ConfigPtr config = std::make_shared<HostConfig>();
  std::shared_ptr<protocols::IReporter> reporter;  // none
  auto tunnel = downloader::KestrelTunnel::CreateKestrelTunnel(downloader::ITunnelConfig(), config, reporter);

  std::shared_ptr<downloader::IStream> stream = tunnel->Acquire();
  DLResultCode opened = stream->Open(downloader::URI::From(argv[1], {}));
  if (!opened.IsSuccess()) return std::fprintf(stderr, "open: %s\n", downloader::SubCodeTag(opened.subCode).c_str()), 1;
  std::vector<char> buffer(1 << 16);
  unsigned long long bytes = 0, fnv = 14695981039346656037ULL;
  DLReadResult read;
  while ((read = stream->Read(buffer.data(), buffer.size())).code == kDLSuccess) {
    for (uint64_t i = 0; i < read.bytes; ++i) fnv = (fnv ^ static_cast<unsigned char>(buffer[i])) * 1099511628211ULL;
    bytes += read.bytes;
  }
  std::printf("%llu bytes, fnv1a %016llx, levels %s\n", bytes, fnv, stream->GetInfo("level_tracker").c_str());

  stream->Close();
  tunnel->Release(stream);
  downloader::KestrelTunnel::DestoryKestrelTunnel(tunnel);
  downloader::storage::CacheWriter::WaitForPendingWrites(10000);  // keep the cache's last bytes
  return read.code == kDLEndOfData ? 0 : 1;
}
