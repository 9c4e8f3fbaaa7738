// Base fixture of the suites that talk to dlorigin (found through
// support/OriginUrl.h). Each test gets a client of its own.
#ifndef TESTS_WISP_ORIGINTEST_H_
#define TESTS_WISP_ORIGINTEST_H_

#include "RecordingListener.h"

#include <wisp/http/Options.h>
#include <wisp/http/WispClient.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

namespace wisptest {

struct OriginStats {
  int64_t requests = -1;
  int64_t bytesSent = -1;
};

class OriginTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // `pathAndQuery` starts with "/".
  std::string Url(const std::string& pathAndQuery) const { return origin_ + pathAndQuery; }
  // "127.0.0.1:<port>" of the origin.
  std::string HostPort() const;
  wisp::http::Options OptionsFor(const std::string& pathAndQuery) const;

  // Starts a request on the test's client and waits for its end.
  std::shared_ptr<RecordingListener> Fetch(const wisp::http::Options& options,
                                           wisp::http::RequestType type = wisp::http::RequestType::kGet);
  // Same, checking the body against the synthetic resource at `path`.
  std::shared_ptr<RecordingListener> FetchSynthetic(const std::string& path, const std::string& query,
                                                    wisp::http::Options options = {});
  // A tag no other run of any test has used: the origin outlives test runs.
  static std::string UniqueTag(const std::string& prefix);
  // What the origin counted under `tag`.
  OriginStats StatsFor(const std::string& tag);

  std::shared_ptr<wisp::http::WispClient> client_;
  std::string origin_;
};

}  // namespace wisptest

#endif  // TESTS_WISP_ORIGINTEST_H_
