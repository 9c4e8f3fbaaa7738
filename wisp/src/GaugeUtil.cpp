#include <wisp/http/GaugeUtil.h>

#include "Telemetry.h"

#include <atomic>

namespace wisp {
namespace {

std::atomic<int64_t> g_active{0};
std::atomic<int64_t> g_started{0};
std::atomic<int64_t> g_failed{0};
std::atomic<int64_t> g_bytes{0};
std::atomic<int64_t> g_lastSpeed{0};

}  // namespace

namespace http {

int64_t GaugeUtil::ActiveRequests() { return g_active.load(std::memory_order_relaxed); }
int64_t GaugeUtil::RequestsStarted() { return g_started.load(std::memory_order_relaxed); }
int64_t GaugeUtil::RequestsFailed() { return g_failed.load(std::memory_order_relaxed); }
int64_t GaugeUtil::BytesReceived() { return g_bytes.load(std::memory_order_relaxed); }
int64_t GaugeUtil::LastSpeed() { return g_lastSpeed.load(std::memory_order_relaxed); }

}  // namespace http

namespace internal {

void GaugeRequestStarted() {
  g_started.fetch_add(1, std::memory_order_relaxed);
  g_active.fetch_add(1, std::memory_order_relaxed);
}

void GaugeBytesReceived(int64_t bytes) { g_bytes.fetch_add(bytes, std::memory_order_relaxed); }

void GaugeRequestEnded(const http::MetricsInfo& metrics) {
  g_active.fetch_sub(1, std::memory_order_relaxed);
  switch (metrics.errorKind) {
    case http::ErrorKind::kNone:
      g_lastSpeed.store(metrics.speedBytesPerSecond, std::memory_order_relaxed);
      break;
    case http::ErrorKind::kCancelled:
      break;
    default:
      g_failed.fetch_add(1, std::memory_order_relaxed);
      break;
  }
}

}  // namespace internal
}  // namespace wisp
