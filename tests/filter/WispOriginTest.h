// Base fixture of the HTTP executor's suites that talk to dlorigin: builds
// executors with a configuration and a reporter of the test's own, against
// the run's origin.
#ifndef TESTS_FILTER_WISPORIGINTEST_H_
#define TESTS_FILTER_WISPORIGINTEST_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include <downloader/Base/URI.h>
#include <downloader/Filter/WispDownloadExecutor.h>

#include "SyntheticContent.h"
#include "support/MapConfig.h"
#include "support/OriginUrl.h"
#include "support/RecordingReporter.h"

namespace dltest {

class WispOriginTest : public ::testing::Test {
 protected:
  void SetUp() override {
    origin_ = OriginUrlFromEnvironment();
    ASSERT_FALSE(origin_.empty())
        << "no origin: run through ctest, or start one with scripts/dlorigin-ctl.sh and set DLORIGIN_URL";
  }

  // A synthetic resource of `size` bytes at /syn/<name>, with extra query text (faults).
  std::string SyntheticUrl(const std::string& name, int64_t size, const std::string& query = "") const {
    return origin_ + "/syn/" + name + "?size=" + std::to_string(size) + (query.empty() ? "" : "&" + query);
  }
  static uint64_t SeedOf(const std::string& name) { return dlorigin::SyntheticSeed("/syn/" + name); }

  std::shared_ptr<downloader::WispDownloadExecutor> NewExecutor(const std::string& url,
                                                                const downloader::URI::Params& params = {}) {
    uri_ = downloader::URI::From(url, params);
    return std::make_shared<downloader::WispDownloadExecutor>(config_, reporter_, uri_);
  }
  // NewExecutor, then Open with the same URI.
  std::shared_ptr<downloader::WispDownloadExecutor> OpenExecutor(const std::string& url,
                                                                 const downloader::URI::Params& params,
                                                                 DLResultCode* opened) {
    auto executor = NewExecutor(url, params);
    *opened = executor->Open(uri_);
    return executor;
  }

  std::string origin_;
  std::shared_ptr<MapConfig> config_ = std::make_shared<MapConfig>();
  std::shared_ptr<RecordingReporter> reporter_ = std::make_shared<RecordingReporter>();
  std::shared_ptr<downloader::URI> uri_;
};

}  // namespace dltest

#endif  // TESTS_FILTER_WISPORIGINTEST_H_
