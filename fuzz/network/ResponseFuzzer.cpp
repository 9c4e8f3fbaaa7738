// Input: one byte that shapes the request (no range, a range from 0, a range
// from an offset), then the raw response head. Whatever the head, the checks
// refuse it with a reason or accept it with a response that keeps their
// promises: a success status, the bytes at the offset asked, sizes within
// bounds, a Location that resolves to an absolute URL.
#include "RedirectLocation.h"
#include "RequestPlan.h"
#include "ResponseCheck.h"
#include "ResponseHead.h"

#include <wisp/http/Options.h>
#include <wisp/http/Range.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using wisp::http::Response;

constexpr int64_t kLargestResourceBytes = int64_t{1} << 40;
constexpr int64_t kOffsetStep = 997;

void Check(bool condition) {
  if (!condition) std::abort();
}

wisp::internal::RequestPlan PlanFor(uint8_t shape, int64_t* start) {
  wisp::http::Options options;
  options.Set(wisp::http::option::kUrl, "http://origin.test/dir/a.ts?k=v");
  switch (shape % 3) {
    case 0:
      *start = -1;
      break;
    case 1:
      *start = 0;
      break;
    default:
      *start = shape * kOffsetStep;
      break;
  }
  if (*start >= 0) options.MutableHeaders().Add("Range", wisp::http::Range(*start).ToHeader());
  return wisp::internal::RequestPlan::FromOptions(wisp::http::RequestType::kGet, options);
}

void CheckContentRange(const std::string& value) {
  wisp::internal::ContentRange range;
  if (!wisp::internal::ParseContentRange(value, &range)) return;
  Check(range.first >= 0 && range.last >= range.first);
  Check(range.total == Response::kUnknownSize || range.total > range.last);
}

void CheckLocation(const std::string& base, const std::string& location) {
  if (location.empty()) return;
  std::string resolved = wisp::internal::ResolveLocation(base, location);
  Check(!resolved.empty());
  if (location.find("://") == std::string::npos) Check(resolved.rfind("http:", 0) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  int64_t start = -1;
  const wisp::internal::RequestPlan plan = PlanFor(data[0], &start);
  const std::string_view raw(reinterpret_cast<const char*>(data + 1), size - 1);

  wisp::internal::ResponseHead head;
  wisp::http::Error error;
  if (!wisp::internal::ParseResponseHead(raw, &head, &error)) {
    Check(error.IsError());
    return 0;
  }
  CheckContentRange(head.headers.Get("Content-Range"));
  CheckLocation(plan.url, head.headers.Get("Location"));

  wisp::internal::ResponseVerdict verdict = wisp::internal::CheckResponse(plan, head.status, head.headers, "", "");
  Check((verdict.response != nullptr) != verdict.error.IsError());
  if (verdict.response == nullptr) return 0;
  const Response& response = *verdict.response;
  Check(response.Status() >= 200 && response.Status() < 300);
  if (start > 0) Check(response.RangeStart() == start);
  Check(response.FileSize() >= Response::kUnknownSize && response.FileSize() <= kLargestResourceBytes);
  Check(response.ContentLength() >= Response::kUnknownSize && response.ContentLength() <= kLargestResourceBytes);
  return 0;
}
