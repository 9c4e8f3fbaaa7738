// The monitor hook: one callback per ended request (completed, failed or
// cancelled) with its final measurements, for the host's statistics.
#ifndef WISP_HTTP_MONITOR_H_
#define WISP_HTTP_MONITOR_H_

#include <wisp/WispExport.h>
#include <wisp/http/Metrics.h>

namespace wisp {
namespace http {

// Called on the network thread of the request's client, after the request's
// last listener callback. Keep it short; it must not block.
using MonitorCallback = void (*)(const MetricsInfo& metrics);

// Installs the callback (nullptr removes it). Any thread.
WISP_EXPORT void set_monitor_callback_func(MonitorCallback callback);

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_MONITOR_H_
