// Downloads one URL through wisp's default client and reports what it cost.
//
//   wisp_fetch URL                       count the body and drop it (as curl -o /dev/null)
//   wisp_fetch URL --reader-rate BYTES   hand the body to a reader thread that takes
//                                        BYTES per second, through a queue of 1 MiB rings
//                                        that pauses the request above 4 MiB
//
// Prints one line: "bytes=N seconds=S cpu_seconds=C rss_start_kib=A rss_peak_kib=B".
#include <wisp/wisp.h>

#include <sys/resource.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kRingBytes = 1 << 20;
// The request is paused while the queue holds more than this, and resumed
// once the reader has brought it under the low mark.
constexpr size_t kPauseAboveBytes = 4 << 20;
constexpr size_t kResumeBelowBytes = 1 << 20;
constexpr size_t kReaderChunkBytes = 64 * 1024;

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// "VmRSS" or "VmHWM" of this process, KiB.
long StatusKib(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, std::strlen(field), field) == 0) return std::atol(line.c_str() + std::strlen(field) + 1);
  }
  return -1;
}

// Body bytes, counted and, with a reader, queued for it. The network thread
// writes, the reader thread reads; guarded by mutex_.
class Sink : public wisp::http::IListener {
 public:
  explicit Sink(bool queueForReader) : queueForReader_(queueForReader) {}

  void OnResponse(wisp::http::IRequestCall*, std::shared_ptr<wisp::http::Response>) override {}
  void OnStatusPhase(wisp::http::IRequestCall*, wisp::http::StatusPhase, int64_t) override {}

  void OnBytes(wisp::http::IRequestCall* call, const uint8_t* data, size_t length) override {
    std::lock_guard<std::mutex> lock(mutex_);
    received_ += length;
    if (!queueForReader_) return;
    while (length > 0) {
      if (rings_.empty() || rings_.back()->Full()) {
        rings_.push_back(std::make_unique<wisp::RingBuffer>(kRingBytes, wisp::RingBuffer::kBounded));
      }
      size_t stored = rings_.back()->Write(data, length);
      data += stored;
      length -= stored;
      queued_ += stored;
    }
    if (queued_ > kPauseAboveBytes && !call->IsPaused()) call->Pause();
    changed_.notify_all();
  }

  void OnError(wisp::http::IRequestCall*, const wisp::http::Error& error) override {
    std::fprintf(stderr, "wisp_fetch: %s\n", error.String().c_str());
    End(false);
  }
  void OnComplete(wisp::http::IRequestCall*) override { End(true); }

  // Reader side: takes up to `length` bytes, waiting for some; 0 at the end.
  size_t Take(uint8_t* out, size_t length, wisp::http::IRequestCall* call) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return queued_ > 0 || ended_; });
    size_t taken = 0;
    while (taken < length && !rings_.empty()) {
      taken += rings_.front()->Read(out + taken, length - taken);
      if (!rings_.front()->Empty() || rings_.size() == 1) break;  // `out` is full, or the writer's ring
      rings_.pop_front();
    }
    queued_ -= taken;
    bool resume = queued_ < kResumeBelowBytes && call->IsPaused();
    lock.unlock();
    if (resume) call->Resume();
    return taken;
  }

  bool WaitEnd() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return ended_; });
    return ok_;
  }
  size_t Received() {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
  }

 private:
  void End(bool ok) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ended_ = true;
      ok_ = ok;
    }
    changed_.notify_all();
  }

  const bool queueForReader_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::unique_ptr<wisp::RingBuffer>> rings_;
  size_t queued_ = 0;
  size_t received_ = 0;
  bool ended_ = false;
  bool ok_ = false;
};

// Takes `rate` bytes per second until the sink runs dry at its end.
void ReadPaced(Sink* sink, wisp::http::IRequestCall* call, double rate) {
  std::unique_ptr<uint8_t[]> chunk(new uint8_t[kReaderChunkBytes]);
  const Clock::time_point begin = Clock::now();
  size_t total = 0;
  while (true) {
    size_t taken = sink->Take(chunk.get(), kReaderChunkBytes, call);
    if (taken == 0) return;
    total += taken;
    std::this_thread::sleep_until(begin + std::chrono::duration_cast<Clock::duration>(
                                              std::chrono::duration<double>(total / rate)));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && !(argc == 4 && std::strcmp(argv[2], "--reader-rate") == 0)) {
    std::fprintf(stderr, "usage: wisp_fetch URL [--reader-rate BYTES_PER_SECOND]\n");
    return 2;
  }
  const double readerRate = argc == 4 ? std::atof(argv[3]) : 0;
  const long rssStartKib = StatusKib("VmRSS:");
  const double cpuStart = CpuSeconds();
  const Clock::time_point begin = Clock::now();

  wisp::http::Options options;
  options.Set(wisp::http::option::kUrl, argv[1]);
  auto call = wisp::http::WispClient::Default()->CreateRequestCaller(wisp::http::RequestType::kGet, options);
  auto sink = std::make_shared<Sink>(readerRate > 0);
  if (!call->Start(sink)) return 1;
  std::thread reader;
  if (readerRate > 0) reader = std::thread(ReadPaced, sink.get(), call.get(), readerRate);
  const bool ok = sink->WaitEnd();
  if (reader.joinable()) reader.join();

  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  std::printf("bytes=%zu seconds=%.3f cpu_seconds=%.3f rss_start_kib=%ld rss_peak_kib=%ld\n", sink->Received(),
              seconds, CpuSeconds() - cpuStart, rssStartKib, StatusKib("VmHWM:"));
  return ok ? 0 : 1;
}
