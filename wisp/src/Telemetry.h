// The library's side of the process-wide gauges and of the monitor hook.
// Called by every backend's calls on their network thread.
#ifndef WISP_SRC_TELEMETRY_H_
#define WISP_SRC_TELEMETRY_H_

#include <wisp/http/Metrics.h>

#include <cstdint>

namespace wisp {
namespace internal {

void GaugeRequestStarted();
void GaugeBytesReceived(int64_t bytes);
// Counts the end of a request: failed, completed (its speed becomes the last
// speed) or cancelled.
void GaugeRequestEnded(const http::MetricsInfo& metrics);
// Hands the final metrics to the host's monitor callback, if one is set.
void NotifyMonitor(const http::MetricsInfo& metrics);

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_TELEMETRY_H_
