// Requests against dlorigin: what a listener hears for whole, ranged and
// failing requests, redirects, retries, connection reuse and host override.
#include "OriginTest.h"
#include "RecordingListener.h"
#include "support/WaitFor.h"

#include <wisp/http/GaugeUtil.h>
#include <wisp/http/Monitor.h>
#include <wisp/http/Range.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

namespace wisptest {
namespace {

using wisp::http::ErrorKind;
using wisp::http::Options;
using wisp::http::Range;
using wisp::http::RequestType;
using wisp::http::Response;
using wisp::http::StatusPhase;
namespace option = wisp::http::option;

Options WithRange(Options options, const Range& range) {
  options.MutableHeaders().Add(Range::kHeaderName, range.ToHeader());
  return options;
}

bool HasPhase(const RecordingListener& listener, StatusPhase phase, int64_t value) {
  auto phases = listener.Phases();
  return std::find(phases.begin(), phases.end(), std::make_pair(phase, value)) != phases.end();
}

using WispRequestTest = OriginTest;

TEST_F(WispRequestTest, GetDeliversTheWholeResourceInOrder) {
  const int64_t size = 300001;
  Options options = OptionsFor("/syn/whole?size=" + std::to_string(size));
  options.Set(option::kTraceUrl, "trace://whole");
  auto call = client_->CreateRequestCaller(RequestType::kGet, options);
  auto listener = std::make_shared<RecordingListener>();
  listener->VerifySynthetic("/syn/whole");
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForEnd());

  EXPECT_TRUE(listener->Completed()) << listener->Error().String();
  EXPECT_EQ(listener->OrderProblem(), "");
  EXPECT_EQ(listener->Bytes(), size);
  EXPECT_EQ(listener->Mismatches(), 0);
  auto response = listener->Response();
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(response->Status(), 200);
  EXPECT_EQ(response->FileSize(), size);
  EXPECT_EQ(response->ServerAddress(), "127.0.0.1");

  auto metrics = call->GetMetrics();
  EXPECT_EQ(metrics.bytesReceived, size);
  EXPECT_EQ(metrics.traceUrl, "trace://whole");
  EXPECT_GE(metrics.timing.firstByteUs, 0);
  EXPECT_GE(metrics.timing.totalUs, metrics.timing.firstByteUs);
  EXPECT_FALSE(metrics.resolvedAddresses.empty());
}

TEST_F(WispRequestTest, HeadAnswersTheSizeWithoutABody) {
  auto listener = Fetch(OptionsFor("/syn/head?size=4321"), RequestType::kHead);
  EXPECT_TRUE(listener->Completed()) << listener->Error().String();
  EXPECT_EQ(listener->Bytes(), 0);
  ASSERT_NE(listener->Response(), nullptr);
  EXPECT_EQ(listener->Response()->FileSize(), 4321);
}

TEST_F(WispRequestTest, RangedGetStartsAtTheOffsetAskedAndKnowsTheWholeSize) {
  auto closed = FetchSynthetic("/syn/ranged", "?size=100000", WithRange({}, Range(1000, 1999)));
  ASSERT_TRUE(closed->Completed()) << closed->Error().String();
  EXPECT_EQ(closed->Bytes(), 1000);
  EXPECT_EQ(closed->Mismatches(), 0);
  EXPECT_EQ(closed->Response()->Status(), 206);
  EXPECT_EQ(closed->Response()->RangeStart(), 1000);
  EXPECT_EQ(closed->Response()->FileSize(), 100000);
}

TEST_F(WispRequestTest, ChunkedBodyEndsWithUnknownFileSize) {
  auto listener = FetchSynthetic("/syn/chunked", "?size=200000&chunked=1");
  EXPECT_TRUE(listener->Completed()) << listener->Error().String();
  EXPECT_EQ(listener->Bytes(), 200000);
  EXPECT_EQ(listener->Mismatches(), 0);
  EXPECT_EQ(listener->Response()->FileSize(), Response::kUnknownSize);
}

struct FailureCase {
  const char* name;
  // Appended to the origin's URL, unless `url` is set.
  const char* pathAndQuery;
  const char* url;
  // Range header to send, when `rangeStart` >= 0.
  int64_t rangeStart;
  int64_t rangeEnd;
  const char* option;
  int64_t optionValue;
  ErrorKind kind;
  int32_t status;
  // Checked when set: the detail of a transport failure is the backend's own code.
  const char* detail;
  // Bytes delivered before the failure.
  int64_t bytes;
  // Part of the message, alike on every backend: what a host shows its user.
  const char* message;
};

void PrintTo(const FailureCase& failure, std::ostream* out) { *out << failure.name; }

class WispFailureTest : public OriginTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(WispFailureTest, ReportsTheKindAndNothingAfterIt) {
  const FailureCase& failure = GetParam();
  Options options;
  options.Set(option::kUrl, failure.url != nullptr ? std::string(failure.url) : Url(failure.pathAndQuery));
  if (failure.rangeStart >= 0) options = WithRange(options, Range(failure.rangeStart, failure.rangeEnd));
  if (failure.option != nullptr) options.Set(failure.option, failure.optionValue);
  auto listener = Fetch(options);

  ASSERT_TRUE(listener->Ended());
  EXPECT_FALSE(listener->Completed());
  EXPECT_EQ(listener->OrderProblem(), "");
  auto error = listener->Error();
  EXPECT_EQ(error.kind, failure.kind) << error.String();
  EXPECT_EQ(error.status, failure.status) << error.String();
  if (failure.detail != nullptr) {
    EXPECT_EQ(error.detail, failure.detail) << error.String();
  }
  EXPECT_EQ(listener->Bytes(), failure.bytes);
  EXPECT_NE(error.message.find(failure.message), std::string::npos) << error.String();
  // A failure that the headers decide never shows the listener a response.
  if (failure.bytes == 0) {
    EXPECT_EQ(listener->Response(), nullptr);
  }
}

const FailureCase kFailures[] = {
    {"NotFound", "/syn/f?status=404", nullptr, -1, -1, nullptr, 0, ErrorKind::kHttpStatus, 404, "", 0, "HTTP 404"},
    {"ForbiddenWithCdnDetail", "/syn/f?status=403&xerr=403605", nullptr, -1, -1, nullptr, 0,
     ErrorKind::kHttpStatus, 403, "403605", 0, "HTTP 403"},
    {"RangePastTheEnd", "/syn/f?size=1000", nullptr, 5000, -1, nullptr, 0, ErrorKind::kHttpStatus, 416, "", 0,
     "HTTP 416"},
    {"RangeIgnored", "/syn/f?size=10000&ignore_range=1", nullptr, 100, -1, nullptr, 0,
     ErrorKind::kRangeNotHonoured, 200, nullptr, 0, ""},
    {"NoHeadersWithinOpenTimeout", "/syn/f?delay_ms=5000", nullptr, -1, -1, option::kOpenTimeoutMs, 300,
     ErrorKind::kTimeout, 0, nullptr, 0, "timed out after 300 ms"},
    {"BodyStalls", "/syn/f?size=100000&stall_after=1000", nullptr, -1, -1, option::kStallTimeoutMs, 300,
     ErrorKind::kTimeout, 0, nullptr, 1000, "timed out after 300 ms"},
    {"ConnectionDroppedMidBody", "/syn/f?size=100000&drop_after=5000", nullptr, -1, -1, nullptr, 0,
     ErrorKind::kConnectionLost, 0, nullptr, 5000, ""},
    {"TooManyRedirects", "/syn/f?redirects=6", nullptr, -1, -1, nullptr, 0, ErrorKind::kTooManyRedirects, 0, nullptr,
     0, ""},
    {"HeadLinesWithoutEnd", "/syn/f?header_pad=400000", nullptr, -1, -1, nullptr, 0, ErrorKind::kResponseRefused, 0,
     nullptr, 0, ""},
// wine's WinHTTP drops a header line it will not hold and goes on; Windows
// fails the request with ERROR_WINHTTP_HEADER_SIZE_OVERFLOW.
#ifndef _WIN32
    {"EndlessHeaderLine", "/syn/f?header_line=400000", nullptr, -1, -1, nullptr, 0, ErrorKind::kResponseRefused, 0,
     nullptr, 0, ""},
#endif
    {"SizeBeyondAnyFile", "/syn/f?size=2000000000000", nullptr, -1, -1, nullptr, 0, ErrorKind::kResponseRefused, 200,
     nullptr, 0, "beyond any file"},
    {"NotHttp", nullptr, "ftp://127.0.0.1/file", -1, -1, nullptr, 0, ErrorKind::kInvalidRequest, 0, nullptr, 0,
     "ftp://127.0.0.1/file"},
    {"UnknownHost", nullptr, "http://wisp-test.invalid/x", -1, -1, nullptr, 0, ErrorKind::kDnsFailure, 0, nullptr, 0,
     "could not resolve host 'wisp-test.invalid'"},
    {"ConnectionRefused", nullptr, "http://127.0.0.1:1/x", -1, -1, nullptr, 0, ErrorKind::kConnectFailure, 0, nullptr,
     0, "connection refused"},
};

INSTANTIATE_TEST_SUITE_P(Failures, WispFailureTest, ::testing::ValuesIn(kFailures),
                         [](const ::testing::TestParamInfo<FailureCase>& info) { return info.param.name; });

TEST_F(WispRequestTest, TlsToAPlainServerFailsAsTls) {
  Options options;
  options.Set(option::kUrl, "https://" + HostPort() + "/syn/tls");
  auto listener = Fetch(options);
  EXPECT_EQ(listener->Error().kind, ErrorKind::kTlsFailure) << listener->Error().String();
}

// wine's WinHTTP ignores a request handle's proxy option (Windows honours it),
// so this runs on the POSIX backend only here.
#ifndef _WIN32
TEST_F(WispRequestTest, ProxyOptionSendsTheRequestToTheProxy) {
  // The origin, taken as the proxy, is asked for a URL whose host does not
  // resolve: it answers (not found), so the name was never looked up.
  Options options;
  options.Set(option::kUrl, "http://through-proxy.invalid/syn/proxied");
  options.Set(option::kProxy, "http://" + HostPort());
  auto listener = Fetch(options);
  EXPECT_EQ(listener->Error().kind, ErrorKind::kHttpStatus) << listener->Error().String();
}
#endif

TEST_F(WispRequestTest, MalformedProxyIsAnInvalidRequest) {
  Options options = OptionsFor("/syn/badproxy");
  options.Set(option::kProxy, "user@proxy:80");
  auto listener = Fetch(options);
  EXPECT_EQ(listener->Error().kind, ErrorKind::kInvalidRequest) << listener->Error().String();
  EXPECT_NE(listener->Error().message.find("proxy"), std::string::npos);
}

#ifdef _WIN32
TEST_F(WispRequestTest, CaFileIsRefusedOnWindows) {
  Options options = OptionsFor("/syn/cafile");
  options.Set(option::kCaFile, "C:\\ca.pem");
  auto listener = Fetch(options);
  EXPECT_EQ(listener->Error().kind, ErrorKind::kInvalidRequest) << listener->Error().String();
  EXPECT_NE(listener->Error().message.find("CA file"), std::string::npos);
}
#endif

TEST_F(WispRequestTest, FollowsUpToFiveRedirects) {
  auto call = client_->CreateRequestCaller(RequestType::kGet, OptionsFor("/syn/redirected?size=777&redirects=5"));
  auto listener = std::make_shared<RecordingListener>();
  listener->VerifySynthetic("/syn/redirected");
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForEnd());
  ASSERT_TRUE(listener->Completed()) << listener->Error().String();
  EXPECT_EQ(listener->Bytes(), 777);
  EXPECT_EQ(listener->Mismatches(), 0);
  EXPECT_EQ(listener->Response()->EffectiveUrl(), Url("/syn/redirected?size=777&redirects=0"));
  EXPECT_TRUE(HasPhase(*listener, StatusPhase::kRedirected, 5));
  EXPECT_EQ(call->GetMetrics().redirects, 5);
}

TEST_F(WispRequestTest, RetriesOnlyBeforeTheResponseAndUpToTheLimit) {
  Options options;
  options.Set(option::kUrl, "http://127.0.0.1:1/x");
  options.Set(option::kRetryLimit, 2);
  auto call = client_->CreateRequestCaller(RequestType::kGet, options);
  auto listener = std::make_shared<RecordingListener>();
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForEnd());
  EXPECT_EQ(listener->Error().kind, ErrorKind::kConnectFailure);
  EXPECT_TRUE(HasPhase(*listener, StatusPhase::kRetrying, 1));
  EXPECT_TRUE(HasPhase(*listener, StatusPhase::kRetrying, 2));
  EXPECT_EQ(call->GetMetrics().retries, 2);

  // Never once the body flows.
  const std::string tag = UniqueTag("noretry");
  options = OptionsFor("/syn/noretry?size=100000&drop_after=3000&tag=" + tag);
  options.Set(option::kRetryLimit, 3);
  auto flowing = Fetch(options);
  EXPECT_EQ(flowing->Error().kind, ErrorKind::kConnectionLost);
  EXPECT_EQ(StatsFor(tag).requests, 1);
}

TEST_F(WispRequestTest, ReusesTheConnectionForSequentialRequests) {
  std::vector<std::string> clientPorts;
  for (int i = 0; i < 3; ++i) {
    auto listener = Fetch(OptionsFor("/syn/reuse?size=1000"));
    ASSERT_TRUE(listener->Completed()) << listener->Error().String();
    clientPorts.push_back(listener->Response()->GetHeaders().Get("X-Client-Port"));
  }
  EXPECT_FALSE(clientPorts[0].empty());
  EXPECT_EQ(clientPorts[1], clientPorts[0]);
  EXPECT_EQ(clientPorts[2], clientPorts[0]);
}

TEST_F(WispRequestTest, HostOptionConnectsElsewhere) {
  const std::string port = HostPort().substr(HostPort().find(':') + 1);
  Options elsewhere;
  elsewhere.Set(option::kUrl, "http://wisp-origin.invalid:" + port + "/syn/override?size=2000");
  elsewhere.Set(option::kHost, "127.0.0.1");
  auto overridden = Fetch(elsewhere);
  ASSERT_TRUE(overridden->Completed()) << overridden->Error().String();
  EXPECT_EQ(overridden->Bytes(), 2000);
}

TEST_F(WispRequestTest, StartIsOneShot) {
  auto call = client_->CreateRequestCaller(RequestType::kGet, OptionsFor("/syn/once?size=10"));
  EXPECT_FALSE(call->Start(nullptr));
  auto listener = std::make_shared<RecordingListener>();
  ASSERT_TRUE(call->Start(listener));
  EXPECT_FALSE(call->Start(std::make_shared<RecordingListener>()));
  ASSERT_TRUE(listener->WaitForEnd());

  auto cancelled = client_->CreateRequestCaller(RequestType::kGet, OptionsFor("/syn/once?size=10"));
  cancelled->Cancel();
  EXPECT_FALSE(cancelled->Start(std::make_shared<RecordingListener>()));
}

std::atomic<uint64_t> g_monitoredRequest{0};

void RememberMonitored(const wisp::http::MetricsInfo& metrics) { g_monitoredRequest.store(metrics.requestId); }

TEST_F(WispRequestTest, MonitorAndGaugesSeeEveryEndedRequest) {
  wisp::http::set_monitor_callback_func(&RememberMonitored);
  const int64_t bytesBefore = wisp::http::GaugeUtil::BytesReceived();
  const int64_t startedBefore = wisp::http::GaugeUtil::RequestsStarted();
  auto call = client_->CreateRequestCaller(RequestType::kGet, OptionsFor("/syn/monitored?size=1234"));
  auto listener = std::make_shared<RecordingListener>();
  ASSERT_TRUE(call->Start(listener));
  ASSERT_TRUE(listener->WaitForEnd());
  // The monitor runs after the last listener callback, on the network thread.
  EXPECT_TRUE(dltest::WaitFor([&] { return g_monitoredRequest.load() == call->RequestId(); }, kWait));
  wisp::http::set_monitor_callback_func(nullptr);
  EXPECT_EQ(wisp::http::GaugeUtil::BytesReceived() - bytesBefore, 1234);
  EXPECT_EQ(wisp::http::GaugeUtil::RequestsStarted() - startedBefore, 1);
  EXPECT_EQ(wisp::http::GaugeUtil::ActiveRequests(), 0);
}

TEST_F(WispRequestTest, DnsLookupResolvesNamesAndFailsEmpty) {
  auto local = client_->DnsLookup("localhost");
  EXPECT_NE(std::find(local.begin(), local.end(), "127.0.0.1"), local.end());
  EXPECT_TRUE(client_->DnsLookup("wisp-test.invalid").empty());
}

}  // namespace
}  // namespace wisptest
