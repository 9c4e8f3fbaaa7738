// Process-wide gauges over every request of every client. Lock-free reads,
// callable from any thread; values are totals since the process started.
#ifndef WISP_HTTP_GAUGEUTIL_H_
#define WISP_HTTP_GAUGEUTIL_H_

#include <wisp/WispExport.h>

#include <cstdint>

namespace wisp {
namespace http {

class WISP_EXPORT GaugeUtil {
 public:
  GaugeUtil() = delete;

  // Requests started and not yet ended.
  static int64_t ActiveRequests();
  static int64_t RequestsStarted();
  // Requests that ended with OnError (cancelled ones excluded).
  static int64_t RequestsFailed();
  // Body bytes delivered to listeners.
  static int64_t BytesReceived();
  // Body rate of the most recent request that completed, bytes per second;
  // 0 before any.
  static int64_t LastSpeed();
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_GAUGEUTIL_H_
