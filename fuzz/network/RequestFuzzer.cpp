// Input: the URL, then option texts (host, Range, timeouts, TLS, proxy) and a
// redirect's Location, each taken as a length-prefixed string. A request that
// cannot be sent says why; one that can has a host, a port in range, a path
// that starts with "/", no header carrying a line break, and a Location that
// resolves against its URL.
#include "RedirectLocation.h"
#include "RequestPlan.h"

#include <wisp/http/Options.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

constexpr size_t kLongestText = 4096;
constexpr int32_t kHighestPort = 65535;

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  wisp::http::Options options;
  const std::string url = input.ConsumeRandomLengthString(kLongestText);
  options.Set(wisp::http::option::kUrl, url);
  for (const char* option : {wisp::http::option::kHost, wisp::http::option::kOpenTimeoutMs,
                             wisp::http::option::kStallTimeoutMs, wisp::http::option::kRetryLimit,
                             wisp::http::option::kSpeedLimit, wisp::http::option::kProxy,
                             wisp::http::option::kTlsVerify}) {
    if (input.ConsumeBool()) options.Set(option, input.ConsumeRandomLengthString(kLongestText));
  }
  const std::string rangeText = input.ConsumeRandomLengthString(kLongestText);
  if (!rangeText.empty()) options.MutableHeaders().Add("Range", rangeText);
  const std::string location = input.ConsumeRandomLengthString(kLongestText);

  const auto plan =
      wisp::internal::RequestPlan::FromOptions(wisp::http::RequestType::kGet, options);
  if (plan.invalid.IsError()) {
    Check(!plan.invalid.message.empty());
    return 0;
  }
  Check(!plan.host.empty());
  Check(plan.port > 0 && plan.port <= kHighestPort);
  Check(!plan.pathAndQuery.empty() && plan.pathAndQuery.front() == '/');
  Check(plan.connectPort >= 0 && plan.connectPort <= kHighestPort);
  if (plan.hasRange) Check(plan.range.Start() >= 0);
  for (const auto& field : plan.headers.Fields()) {
    Check(field.first.find_first_of("\r\n") == std::string::npos);
    Check(field.second.find_first_of("\r\n") == std::string::npos);
  }
  if (!location.empty()) Check(!wisp::internal::ResolveLocation(plan.url, location).empty());
  return 0;
}
