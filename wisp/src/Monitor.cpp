#include <wisp/http/Monitor.h>

#include "Telemetry.h"

#include <atomic>

namespace wisp {
namespace {

std::atomic<http::MonitorCallback> g_monitor{nullptr};

}  // namespace

namespace http {

void set_monitor_callback_func(MonitorCallback callback) { g_monitor.store(callback); }

}  // namespace http

namespace internal {

void NotifyMonitor(const http::MetricsInfo& metrics) {
  http::MonitorCallback callback = g_monitor.load();
  if (callback != nullptr) callback(metrics);
}

}  // namespace internal
}  // namespace wisp
