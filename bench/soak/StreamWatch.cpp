#include "StreamWatch.h"

#include <unistd.h>

#include <cstdio>

namespace soak {
namespace {

constexpr std::chrono::milliseconds kSampleInterval(250);

int64_t NowNs(std::chrono::steady_clock::time_point at) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(at.time_since_epoch()).count();
}

}  // namespace

int64_t ResidentKib() {
  FILE* statm = std::fopen("/proc/self/statm", "r");
  if (statm == nullptr) return 0;
  long long totalPages = 0;
  long long residentPages = 0;
  int fields = std::fscanf(statm, "%lld %lld", &totalPages, &residentPages);
  std::fclose(statm);
  return fields == 2 ? residentPages * (sysconf(_SC_PAGESIZE) / 1024) : 0;
}

void StreamSlot::Begin(std::string request) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    request_ = std::move(request);
  }
  Progress();
  busy_.store(true);
}

void StreamSlot::Progress() { lastProgressNs_.store(NowNs(std::chrono::steady_clock::now())); }

void StreamSlot::End() { busy_.store(false); }

int64_t StreamSlot::StalledMs(std::chrono::steady_clock::time_point now) const {
  if (!busy_.load()) return 0;
  return (NowNs(now) - lastProgressNs_.load()) / 1000000;
}

std::string StreamSlot::Request() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return request_;
}

StreamWatch::StreamWatch(std::vector<StreamSlot>& slots, int64_t hangLimitMs, int64_t rssLimitKib,
                         FailureCallback onFailure)
    : slots_(slots), hangLimitMs_(hangLimitMs), rssLimitKib_(rssLimitKib), onFailure_(std::move(onFailure)) {}

StreamWatch::~StreamWatch() { Stop(); }

void StreamWatch::Start() { thread_ = std::thread([this] { Run(); }); }

void StreamWatch::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void StreamWatch::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!wake_.wait_for(lock, kSampleInterval, [this] { return stopping_; })) {
    lock.unlock();
    Check();
    lock.lock();
  }
}

void StreamWatch::Check() {
  int64_t rss = ResidentKib();
  if (rss > peakRssKib_.load()) peakRssKib_.store(rss);
  if (rssLimitKib_ > 0 && rss > rssLimitKib_) {
    onFailure_("resident memory " + std::to_string(rss) + " KiB above the bound of " +
               std::to_string(rssLimitKib_) + " KiB");
  }
  auto now = std::chrono::steady_clock::now();
  for (size_t i = 0; i < slots_.size(); ++i) {
    int64_t stalled = slots_[i].StalledMs(now);
    if (stalled > hangLimitMs_) {
      onFailure_("stream " + std::to_string(i) + " made no progress for " + std::to_string(stalled) +
                 " ms: " + slots_[i].Request());
    }
  }
}

}  // namespace soak
