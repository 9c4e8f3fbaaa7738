// A request's options, parsed and checked once, in the form the backends use.
#ifndef WISP_SRC_REQUESTPLAN_H_
#define WISP_SRC_REQUESTPLAN_H_

#include <wisp/http/Error.h>
#include <wisp/http/Headers.h>
#include <wisp/http/Options.h>
#include <wisp/http/Range.h>

#include <cstdint>
#include <string>

namespace wisp {
namespace internal {

struct RequestPlan {
  static constexpr int64_t kDefaultOpenTimeoutMs = 15000;
  static constexpr int64_t kDefaultStallTimeoutMs = 15000;
  static constexpr int32_t kMaxRedirects = 5;

  // Never fails: a request that cannot be sent carries its error in `invalid`,
  // and the backend reports it once the call is started.
  static RequestPlan FromOptions(http::RequestType type, const http::Options& options);

  http::RequestType type = http::RequestType::kGet;
  std::string url;
  // Scheme, host and port split out of `url`; path includes the query.
  bool secure = false;
  std::string host;
  int32_t port = 0;
  std::string pathAndQuery;

  http::Headers headers;
  // 0 = no limit.
  int64_t openTimeoutMs = kDefaultOpenTimeoutMs;
  int64_t stallTimeoutMs = kDefaultStallTimeoutMs;
  int32_t retryLimit = 0;
  int64_t speedLimit = 0;
  // Host to connect to instead of `host` ("" = none), and its port (0 = `port`).
  std::string connectHost;
  int32_t connectPort = 0;
  std::string traceUrl;
  // "host:port" of the proxy; empty = the backend's default. `directOnly`:
  // no proxy at all, whatever the system says.
  std::string proxy;
  bool directOnly = false;
  // "" = the system's authorities.
  std::string caFile;
  bool verifyTls = true;

  // The Range header of `headers`, when there is one.
  bool hasRange = false;
  http::Range range{0};

  http::Error invalid;
};

}  // namespace internal
}  // namespace wisp

#endif  // WISP_SRC_REQUESTPLAN_H_
