// Downloads one URL through the HTTP level's executor, the way a stream
// reads it: WispDownloadFilter -> WispDownloadExecutor::Open -> Read with
// packets of a fixed size until the end of the data.
//
//   executor_fetch URL PACKET_BYTES [--log]    --log: the library's debug lines to stderr
//
// Prints one line: "bytes=N seconds=S cpu_seconds=C reads=R". Exits non-zero
// when a read fails.
#include <downloader/downloader.h>

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void PrintLine(int /*level*/, const char* line) { std::fputs(line, stderr); }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && !(argc == 4 && std::string(argv[3]) == "--log")) {
    std::fprintf(stderr, "usage: %s URL PACKET_BYTES [--log]\n", argv[0]);
    return 2;
  }
  if (argc == 4) {
    dl_set_quill_callback(&PrintLine);
    dl_set_log_level(DL_LOG_DEBUG);
  }
  const std::string url = argv[1];
  const uint64_t packetBytes = std::strtoull(argv[2], nullptr, 10);
  if (packetBytes == 0) {
    std::fprintf(stderr, "packet size must be above 0\n");
    return 2;
  }

  downloader::WispDownloadFilter filter;
  std::shared_ptr<downloader::URI> uri = downloader::URI::From(url, {});
  std::shared_ptr<downloader::IDownloadExecutor> executor = filter.AcquireExecutor(uri);
  downloader::Packet packet(packetBytes);
  packet.Alloc();

  const auto start = std::chrono::steady_clock::now();
  const double cpuStart = CpuSeconds();
  DLResultCode opened = executor->Open(uri);
  if (!opened.IsSuccess()) {
    std::fprintf(stderr, "open failed: %s\n", downloader::SubCodeTag(opened.subCode).c_str());
    return 1;
  }
  uint64_t bytes = 0;
  uint64_t reads = 0;
  DLReadResult result;
  do {
    result = executor->Read(packet);
    bytes += result.bytes;
    ++reads;
  } while (result.code == kDLSuccess);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double cpuSeconds = CpuSeconds() - cpuStart;
  executor->Close();
  if (result.code != kDLEndOfData) {
    std::fprintf(stderr, "read failed after %llu bytes: code %d %s\n", static_cast<unsigned long long>(bytes),
                 result.code, downloader::SubCodeTag(result.subCode).c_str());
    return 1;
  }
  std::printf("bytes=%llu seconds=%.4f cpu_seconds=%.4f reads=%llu\n", static_cast<unsigned long long>(bytes),
              seconds, cpuSeconds, static_cast<unsigned long long>(reads));
  return 0;
}
