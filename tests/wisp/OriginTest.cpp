#include "OriginTest.h"

#include "support/OriginUrl.h"

#include <chrono>
#include <cstdio>

namespace wisptest {

void OriginTest::SetUp() {
  origin_ = dltest::OriginUrlFromEnvironment();
  ASSERT_FALSE(origin_.empty())
      << "no origin: run through ctest, or start one with scripts/dlorigin-ctl.sh and set DLORIGIN_URL";
  client_ = wisp::http::WispClient::Create();
}

void OriginTest::TearDown() { client_.reset(); }

std::string OriginTest::HostPort() const {
  const std::string scheme = "http://";
  return origin_.substr(scheme.size());
}

wisp::http::Options OriginTest::OptionsFor(const std::string& pathAndQuery) const {
  wisp::http::Options options;
  options.Set(wisp::http::option::kUrl, Url(pathAndQuery));
  return options;
}

std::shared_ptr<RecordingListener> OriginTest::Fetch(const wisp::http::Options& options,
                                                     wisp::http::RequestType type) {
  auto listener = std::make_shared<RecordingListener>();
  listener->KeepBody();
  auto call = client_->CreateRequestCaller(type, options);
  EXPECT_TRUE(call->Start(listener));
  EXPECT_TRUE(listener->WaitForEnd()) << "no end for " << options.Get(wisp::http::option::kUrl);
  return listener;
}

std::shared_ptr<RecordingListener> OriginTest::FetchSynthetic(const std::string& path, const std::string& query,
                                                              wisp::http::Options options) {
  options.Set(wisp::http::option::kUrl, Url(path + query));
  auto listener = std::make_shared<RecordingListener>();
  listener->VerifySynthetic(path);
  auto call = client_->CreateRequestCaller(wisp::http::RequestType::kGet, options);
  EXPECT_TRUE(call->Start(listener));
  EXPECT_TRUE(listener->WaitForEnd()) << "no end for " << path << query;
  return listener;
}

std::string OriginTest::UniqueTag(const std::string& prefix) {
  auto now = std::chrono::system_clock::now().time_since_epoch();
  return prefix + "-" + std::to_string(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

OriginStats OriginTest::StatsFor(const std::string& tag) {
  OriginStats stats;
  auto listener = Fetch(OptionsFor("/stats?tag=" + tag));
  long long requests = -1;
  long long bytesSent = -1;
  if (std::sscanf(listener->Body().c_str(), "requests=%lld bytes_sent=%lld", &requests, &bytesSent) == 2) {
    stats.requests = requests;
    stats.bytesSent = bytesSent;
  }
  return stats;
}

}  // namespace wisptest
