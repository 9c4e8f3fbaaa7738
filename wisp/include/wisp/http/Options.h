// What a request asks for: a string-keyed options map plus the request's
// header fields. Filled by the caller, copied into the call by
// WispClient::CreateRequestCaller; a plain value type.
//
// Keys that this library does not know are kept and ignored, so that a caller
// can pass strategy hints meant for other transports.
#ifndef WISP_HTTP_OPTIONS_H_
#define WISP_HTTP_OPTIONS_H_

#include <wisp/WispExport.h>
#include <wisp/http/Headers.h>

#include <cstdint>
#include <map>
#include <string>

namespace wisp {
namespace http {

enum class RequestType : int32_t {
  kGet = 0,
  // Headers only: OnResponse, then OnComplete, never OnBytes.
  kHead = 1,
};

// Option keys. Values are text; numbers are decimal.
namespace option {
// Absolute http:// or https:// URL. Required.
constexpr const char kUrl[] = "url";
// Milliseconds from Start to the final response's headers, retries included.
// Default 15000; 0 or less means no limit.
constexpr const char kOpenTimeoutMs[] = "open_timeout";
// Milliseconds without a body byte before the request fails with kTimeout.
// Time spent paused does not count. Default 15000; 0 or less means no limit.
constexpr const char kStallTimeoutMs[] = "stall_timeout";
// Further attempts after a failure before the response (DNS, connect, a
// connection lost before the headers). Never after the first byte. Default 0.
constexpr const char kRetryLimit[] = "retry_limit";
// Cap on the body rate, bytes per second. 0 or less means none.
constexpr const char kSpeedLimit[] = "speed_limit";
// Connect to this host ("name" or "name:port") instead of the URL's, keeping
// the URL's host in the Host header.
constexpr const char kHost[] = "host";
// The caller's trace URL; carried into MetricsInfo::traceUrl and log lines.
constexpr const char kTraceUrl[] = "trace_url";
// Proxy for the request: "host:port" or "http://host:port". "direct" sends
// the request to the origin even where the system names a proxy. Absent or
// empty: the backend's default, which on POSIX (libcurl) honours the
// http_proxy, https_proxy, all_proxy and no_proxy environment variables, and
// on Windows (WinHTTP) uses the system's WinHTTP proxy setting and ignores
// those variables.
constexpr const char kProxy[] = "proxy";
constexpr const char kProxyDirect[] = "direct";
// PEM file of the certificate authorities trusted for https, instead of the
// system's. The Windows backend cannot use one: a request that names it fails
// with kInvalidRequest there (add the authority to the system store instead).
constexpr const char kCaFile[] = "ca_file";
// "0" or "false" turns off the check of the server's certificate and name.
// Anything else, or absent: checked.
constexpr const char kTlsVerify[] = "tls_verify";
}  // namespace option

class WISP_EXPORT Options {
 public:
  void Set(const std::string& key, const std::string& value);
  void Set(const std::string& key, int64_t value);
  void Set(const std::string& key, const char* value) { Set(key, std::string(value)); }

  bool Has(const std::string& key) const;
  // The value, or `fallback` when the key is absent.
  std::string Get(const std::string& key, const std::string& fallback = "") const;
  // The value as a decimal integer, or `fallback` when absent or not a number.
  int64_t GetInt(const std::string& key, int64_t fallback) const;

  const std::map<std::string, std::string>& Values() const { return values_; }

  Headers& MutableHeaders() { return headers_; }
  const Headers& GetHeaders() const { return headers_; }

 private:
  std::map<std::string, std::string> values_;
  Headers headers_;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_OPTIONS_H_
