// What a hostile or broken server sends is refused before the client keeps
// it: heads beyond their bound, sizes beyond any file. The parsing is the one
// every backend uses (and the fuzzers drive); the suite at the bottom sends
// the same through a real connection.
#include "RequestPlan.h"
#include "ResponseCheck.h"
#include "ResponseHead.h"

#include <wisp/http/Options.h>

#include <gtest/gtest.h>

#include <string>

namespace wisp {
namespace internal {
namespace {

using http::ErrorKind;

RequestPlan PlainGet() {
  http::Options options;
  options.Set(http::option::kUrl, "http://example.test/a");
  return RequestPlan::FromOptions(http::RequestType::kGet, options);
}

ErrorKind KindOf(const ResponseVerdict& verdict) {
  return verdict.response != nullptr ? ErrorKind::kNone : verdict.error.kind;
}

ResponseVerdict CheckHead(const std::string& raw) {
  ResponseHead head;
  http::Error error;
  if (!ParseResponseHead(raw, &head, &error)) return ResponseVerdict{nullptr, error};
  return CheckResponse(PlainGet(), head.status, head.headers, "", "");
}

TEST(HostileResponseTest, OnlyTheLastResponseOfAHeadCounts) {
  ResponseHead head;
  http::Error error;
  ASSERT_TRUE(ParseResponseHead("HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\n"
                                "HTTP/1.1 302 Found\r\nLocation: /b\r\n\r\n"
                                "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n",
                                &head, &error));
  EXPECT_EQ(head.status, 200);
  EXPECT_FALSE(head.headers.Has("X-Early"));
  EXPECT_FALSE(head.headers.Has("Location"));
  EXPECT_EQ(head.headers.Get("Content-Length"), "7");
  EXPECT_FALSE(ParseResponseHead("Content-Length: 7\r\n\r\n", &head, &error));
  EXPECT_EQ(error.kind, ErrorKind::kInternal);
}

TEST(HostileResponseTest, AHeadAboveTheBoundIsRefusedWhateverItsShape) {
  const std::string status = "HTTP/1.1 200 OK\r\n";
  std::string manyLines = status;
  while (manyLines.size() <= kMaxResponseHeadBytes) manyLines += "X-Pad: " + std::string(100, 'p') + "\r\n";
  const std::string oneEndlessLine = status + "X-Long: " + std::string(kMaxResponseHeadBytes, 'l');
  for (const std::string& raw : {manyLines, oneEndlessLine}) {
    ResponseVerdict verdict = CheckHead(raw);
    EXPECT_EQ(KindOf(verdict), ErrorKind::kResponseRefused);
    EXPECT_NE(verdict.error.message.find("response head"), std::string::npos) << verdict.error.String();
  }
  EXPECT_EQ(KindOf(CheckHead(status + "X-Pad: " + std::string(1000, 'p') + "\r\n\r\n")), ErrorKind::kNone);
}

TEST(HostileResponseTest, SizesBeyondAnyFileAreRefused) {
  const std::string status = "HTTP/1.1 200 OK\r\n";
  for (const char* length : {"1099511627777", "9223372036854775807", "99999999999999999999999"}) {
    ResponseVerdict verdict = CheckHead(status + "Content-Length: " + length + "\r\n\r\n");
    EXPECT_EQ(KindOf(verdict), ErrorKind::kResponseRefused) << length;
    EXPECT_NE(verdict.error.message.find("beyond any file"), std::string::npos) << verdict.error.String();
  }
  EXPECT_EQ(KindOf(CheckHead(status + "Content-Length: 1099511627776\r\n\r\n")), ErrorKind::kNone);
  // Not a number at all: the size is unknown, as for a chunked body.
  ResponseVerdict garbled = CheckHead(status + "Content-Length: 12abc\r\n\r\n");
  ASSERT_NE(garbled.response, nullptr);
  EXPECT_EQ(garbled.response->FileSize(), http::Response::kUnknownSize);

  EXPECT_EQ(KindOf(CheckHead("HTTP/1.1 206 Partial\r\nContent-Range: bytes 0-9/9223372036854775807\r\n\r\n")),
            ErrorKind::kResponseRefused);
  EXPECT_EQ(KindOf(CheckHead("HTTP/1.1 206 Partial\r\nContent-Range: bytes 0-9/5000\r\n\r\n")), ErrorKind::kNone);
}

TEST(HostileResponseTest, CertificatesAreCheckedUnlessTurnedOff) {
  EXPECT_TRUE(PlainGet().verifyTls);
  http::Options options;
  options.Set(http::option::kUrl, "https://example.test/a");
  options.Set(http::option::kTlsVerify, "0");
  EXPECT_FALSE(RequestPlan::FromOptions(http::RequestType::kGet, options).verifyTls);
}

}  // namespace
}  // namespace internal
}  // namespace wisp
