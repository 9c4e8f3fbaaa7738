// Measurements of one request: where its time went and what it moved. Plain
// records, copied out of the library (IRequestCall::GetMetrics, the monitor
// callback); safe to keep and share.
#ifndef WISP_HTTP_METRICS_H_
#define WISP_HTTP_METRICS_H_

#include <wisp/http/Error.h>

#include <cstdint>
#include <string>
#include <vector>

namespace wisp {
namespace http {

// Microseconds from Start to the end of each phase of the attempt that
// answered; kNotReached for a phase that did not happen (no DNS or connect on
// a reused connection, no TLS over plain HTTP, no first byte yet).
struct TimingInfo {
  static constexpr int64_t kNotReached = -1;

  int64_t dnsUs = kNotReached;
  int64_t connectUs = kNotReached;
  int64_t tlsUs = kNotReached;
  int64_t firstByteUs = kNotReached;
  // Until the request ended (complete, failed, cancelled); kNotReached while running.
  int64_t totalUs = kNotReached;
};

struct MetricsInfo {
  uint64_t requestId = 0;
  std::string url;
  std::string effectiveUrl;
  std::string traceUrl;
  // Of the final response; 0 before it.
  int32_t httpStatus = 0;
  TimingInfo timing;
  // Body bytes delivered to the listener.
  int64_t bytesReceived = 0;
  // Body bytes per second since the response arrived; 0 before it.
  int64_t speedBytesPerSecond = 0;
  // Numeric address of the server that answered, or "".
  std::string serverAddress;
  // Addresses the transport tried to connect to, in order; the server only
  // for a request that reused a connection.
  std::vector<std::string> resolvedAddresses;
  bool connectionReused = false;
  int32_t redirects = 0;
  int32_t retries = 0;
  // kNone while running and after success.
  ErrorKind errorKind = ErrorKind::kNone;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_METRICS_H_
