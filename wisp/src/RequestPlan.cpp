#include "RequestPlan.h"

#include "TextUtil.h"

#include <algorithm>

namespace wisp {
namespace internal {
namespace {

using http::ErrorKind;

http::Error Invalid(const std::string& message) {
  http::Error error;
  error.kind = ErrorKind::kInvalidRequest;
  error.message = message;
  return error;
}

int64_t NonNegative(int64_t value) { return value < 0 ? 0 : value; }

// Splits "name", "name:port", "[v6]" or "[v6]:port". Returns false for an
// empty name or a bad port.
bool SplitHostPort(std::string_view text, std::string* host, int32_t* port) {
  std::string_view name = text;
  std::string_view portText;
  if (!text.empty() && text.front() == '[') {
    size_t close = text.find(']');
    if (close == std::string_view::npos) return false;
    name = text.substr(0, close + 1);
    std::string_view rest = text.substr(close + 1);
    if (!rest.empty()) {
      if (rest.front() != ':') return false;
      portText = rest.substr(1);
    }
  } else {
    size_t colon = text.rfind(':');
    if (colon != std::string_view::npos) {
      name = text.substr(0, colon);
      portText = text.substr(colon + 1);
    }
  }
  if (name.empty()) return false;
  int64_t number = 0;
  if (!portText.empty() && (!ParseDecimal(portText, &number) || number == 0 || number > 65535)) {
    return false;
  }
  *host = std::string(name);
  *port = static_cast<int32_t>(number);
  return true;
}

bool SplitUrl(RequestPlan* spec) {
  std::string_view url = Trim(spec->url);
  constexpr std::string_view kHttp = "http://";
  constexpr std::string_view kHttps = "https://";
  if (StartsWithNoCase(url, kHttps)) {
    spec->secure = true;
    url.remove_prefix(kHttps.size());
  } else if (StartsWithNoCase(url, kHttp)) {
    url.remove_prefix(kHttp.size());
  } else {
    return false;
  }
  size_t pathStart = std::min(url.find('/'), url.find('?'));
  std::string_view authority = url.substr(0, pathStart);
  if (authority.find('@') != std::string_view::npos) return false;
  if (!SplitHostPort(authority, &spec->host, &spec->port)) return false;
  if (spec->port == 0) spec->port = spec->secure ? 443 : 80;
  spec->pathAndQuery = pathStart == std::string_view::npos ? "/" : std::string(url.substr(pathStart));
  if (spec->pathAndQuery.front() == '?') spec->pathAndQuery.insert(0, "/");
  return spec->pathAndQuery.find_first_of(" \r\n") == std::string::npos;
}

bool IsOff(std::string_view text) { return text == "0" || text == "false"; }

// Fills the proxy fields from the option's text; false when it names none.
bool ParseProxy(std::string_view text, RequestPlan* spec) {
  text = Trim(text);
  if (text.empty()) return true;
  if (text == http::option::kProxyDirect) {
    spec->directOnly = true;
    return true;
  }
  constexpr std::string_view kHttp = "http://";
  if (StartsWithNoCase(text, kHttp)) text.remove_prefix(kHttp.size());
  if (!text.empty() && text.back() == '/') text.remove_suffix(1);
  std::string host;
  int32_t port = 0;
  if (text.find_first_of("/@") != std::string_view::npos || !SplitHostPort(text, &host, &port)) return false;
  spec->proxy = host + ":" + std::to_string(port != 0 ? port : 80);
  return true;
}

}  // namespace

RequestPlan RequestPlan::FromOptions(http::RequestType type, const http::Options& options) {
  namespace option = http::option;
  RequestPlan spec;
  spec.type = type;
  spec.url = options.Get(option::kUrl);
  spec.headers = options.GetHeaders();
  spec.openTimeoutMs = NonNegative(options.GetInt(option::kOpenTimeoutMs, kDefaultOpenTimeoutMs));
  spec.stallTimeoutMs = NonNegative(options.GetInt(option::kStallTimeoutMs, kDefaultStallTimeoutMs));
  spec.retryLimit = static_cast<int32_t>(std::min<int64_t>(
      NonNegative(options.GetInt(option::kRetryLimit, 0)), 1000));
  spec.speedLimit = NonNegative(options.GetInt(option::kSpeedLimit, 0));
  spec.traceUrl = options.Get(option::kTraceUrl);

  if (type != http::RequestType::kGet && type != http::RequestType::kHead) {
    spec.invalid = Invalid("unknown request type");
  } else if (!SplitUrl(&spec)) {
    spec.invalid = Invalid("not an absolute http(s) URL: " + spec.url);
  }
  std::string hostOption = options.Get(option::kHost);
  if (!hostOption.empty() && !spec.invalid.IsError() &&
      !SplitHostPort(Trim(hostOption), &spec.connectHost, &spec.connectPort)) {
    spec.invalid = Invalid("bad host option: " + hostOption);
  }
  const std::string proxyOption = options.Get(option::kProxy);
  if (!ParseProxy(proxyOption, &spec) && !spec.invalid.IsError()) {
    spec.invalid = Invalid("bad proxy option: " + proxyOption + " (want host:port or http://host:port)");
  }
  spec.caFile = options.Get(option::kCaFile);
  spec.verifyTls = !IsOff(Trim(options.Get(option::kTlsVerify)));
  if (spec.headers.Has(http::Range::kHeaderName)) {
    spec.hasRange = http::Range::Parse(spec.headers.Get(http::Range::kHeaderName), &spec.range);
    // A range whose answer cannot be checked could deliver bytes at a wrong offset.
    if (!spec.hasRange && !spec.invalid.IsError()) {
      spec.invalid = Invalid("unsupported Range header: " + spec.headers.Get(http::Range::kHeaderName));
    }
  }
  return spec;
}

}  // namespace internal
}  // namespace wisp
