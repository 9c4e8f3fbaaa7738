// How a final response is judged against its request, and the header text
// helpers underneath, independent of any backend.
#include "RequestPlan.h"
#include "ResponseCheck.h"

#include <wisp/http/Options.h>
#include <wisp/http/Range.h>

#include <gtest/gtest.h>

namespace wisp {
namespace internal {
namespace {

using http::ErrorKind;

RequestPlan SpecWithRange(const std::string& rangeHeader) {
  http::Options options;
  options.Set(http::option::kUrl, "http://example.test/a");
  if (!rangeHeader.empty()) options.MutableHeaders().Add("Range", rangeHeader);
  return RequestPlan::FromOptions(http::RequestType::kGet, options);
}

http::Headers Make(std::initializer_list<http::Headers::Field> fields) {
  http::Headers headers;
  for (const auto& field : fields) headers.Add(field.first, field.second);
  return headers;
}

TEST(ResponseCheckTest, RangedAnswerMustStartWhereAsked) {
  RequestPlan spec = SpecWithRange("bytes=100-199");
  auto good = CheckResponse(spec, 206, Make({{"Content-Range", "bytes 100-199/5000"}}), "", "");
  ASSERT_NE(good.response, nullptr);
  EXPECT_EQ(good.response->RangeStart(), 100);
  EXPECT_EQ(good.response->FileSize(), 5000);
  EXPECT_EQ(good.response->ContentLength(), 100);

  EXPECT_EQ(CheckResponse(spec, 206, Make({{"Content-Range", "bytes 0-99/5000"}}), "", "").error.kind,
            ErrorKind::kRangeNotHonoured);
  EXPECT_EQ(CheckResponse(spec, 206, Make({}), "", "").error.kind, ErrorKind::kRangeNotHonoured);
  EXPECT_EQ(CheckResponse(spec, 200, Make({{"Content-Length", "5000"}}), "", "").error.kind,
            ErrorKind::kRangeNotHonoured);
}

TEST(ResponseCheckTest, WholeAnswerIsRightForARangeFromZeroToTheEnd) {
  auto verdict = CheckResponse(SpecWithRange("bytes=0-"), 200, Make({{"Content-Length", "42"}}), "", "");
  ASSERT_NE(verdict.response, nullptr);
  EXPECT_EQ(verdict.response->FileSize(), 42);
  EXPECT_EQ(CheckResponse(SpecWithRange("bytes=0-9"), 200, Make({}), "", "").error.kind,
            ErrorKind::kRangeNotHonoured);
}

TEST(ResponseCheckTest, FailedStatusCarriesTheErrorCodeHeader) {
  auto verdict = CheckResponse(SpecWithRange(""), 403, Make({{"x-error-code", "403605"}}), "", "");
  EXPECT_EQ(verdict.response, nullptr);
  EXPECT_EQ(verdict.error.kind, ErrorKind::kHttpStatus);
  EXPECT_EQ(verdict.error.status, 403);
  EXPECT_EQ(verdict.error.detail, "403605");
  EXPECT_EQ(CheckResponse(SpecWithRange(""), 304, Make({}), "", "").error.kind, ErrorKind::kHttpStatus);
}

TEST(ResponseCheckTest, RangeTextsRoundTripAndRefuseWhatCannotBeChecked) {
  ContentRange range;
  ASSERT_TRUE(ParseContentRange("bytes 5-9/*", &range));
  EXPECT_EQ(range.total, http::Response::kUnknownSize);
  EXPECT_FALSE(ParseContentRange("bytes 9-5/100", &range));
  EXPECT_FALSE(ParseContentRange("bytes 5-9/9", &range));
  EXPECT_FALSE(ParseContentRange("bytes */100", &range));
  EXPECT_FALSE(ParseContentRange("items 0-1/2", &range));

  EXPECT_EQ(http::Range(10, 19).ToHeader(), "bytes=10-19");
  EXPECT_EQ(http::Range(10, 5).ToHeader(), "bytes=10-");
  http::Range parsed(0);
  ASSERT_TRUE(http::Range::Parse(" bytes=7-8 ", &parsed));
  EXPECT_EQ(parsed.Start(), 7);
  EXPECT_EQ(parsed.End(), 8);
  EXPECT_FALSE(http::Range::Parse("bytes=-500", &parsed));
  EXPECT_FALSE(http::Range::Parse("bytes=0-1,5-6", &parsed));
  EXPECT_EQ(SpecWithRange("bytes=0-1,5-6").invalid.kind, ErrorKind::kInvalidRequest);
}

TEST(ResponseCheckTest, RequestPlanSplitsTheUrl) {
  http::Options options;
  options.Set(http::option::kUrl, "HTTPS://[::1]:8443?q=1");
  options.Set(http::option::kHost, "10.0.0.1:81");
  RequestPlan spec = RequestPlan::FromOptions(http::RequestType::kGet, options);
  EXPECT_FALSE(spec.invalid.IsError()) << spec.invalid.String();
  EXPECT_TRUE(spec.secure);
  EXPECT_EQ(spec.host, "[::1]");
  EXPECT_EQ(spec.port, 8443);
  EXPECT_EQ(spec.pathAndQuery, "/?q=1");
  EXPECT_EQ(spec.connectHost, "10.0.0.1");
  EXPECT_EQ(spec.connectPort, 81);

  options.Set(http::option::kUrl, "http://user@host/");
  EXPECT_TRUE(RequestPlan::FromOptions(http::RequestType::kGet, options).invalid.IsError());
  options.Set(http::option::kUrl, "http://host:99999/");
  EXPECT_TRUE(RequestPlan::FromOptions(http::RequestType::kGet, options).invalid.IsError());
}

TEST(ResponseCheckTest, HeadersRefuseLineBreaksAndMatchNamesInAnyCase) {
  http::Headers headers;
  EXPECT_FALSE(headers.Add("X-Bad", "a\r\nInjected: 1"));
  EXPECT_TRUE(headers.Add("X-Twice", "1"));
  EXPECT_TRUE(headers.Add("x-twice", "2"));
  EXPECT_EQ(headers.Get("X-TWICE"), "1");
  EXPECT_TRUE(headers.Set("X-Twice", "3"));
  EXPECT_EQ(headers.Size(), 1u);
  EXPECT_EQ(headers.ToString(), "X-Twice: 3\r\n");
  int32_t status = 0;
  EXPECT_TRUE(ParseStatusLine("HTTP/2 204 \r\n", &status));
  EXPECT_EQ(status, 204);
}

}  // namespace
}  // namespace internal
}  // namespace wisp
