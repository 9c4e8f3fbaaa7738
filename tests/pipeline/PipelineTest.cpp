#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <downloader/Pipe/DownloadPipeline.h>
#include <downloader/Pipe/KestrelDownloadPipeline.h>

#include "FakeChannel.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

class RecordingReporter : public protocols::IReporter {
 public:
  void Report(const std::string&, const std::string&, const std::string&) override {}
};

// Remembers the configuration and reporter it was given.
class WiredFilter : public dltest::FakeFilter {
 public:
  WiredFilter() : FakeFilter(dltest::FakeScript()) {}
  const ConfigPtr& config() const { return config_; }
  const std::shared_ptr<protocols::IReporter>& reporter() const { return reporter_; }
};

class CheckingPipeline : public DownloadPipeline {
 public:
  explicit CheckingPipeline(std::vector<WiredFilter*> filters) : filters_(std::move(filters)) {}
  bool everyFilterHadConfigFirst = false;
  int updates = 0;

 private:
  void UpdateGlobalConfig(ConfigPtr config) override {
    ++updates;
    everyFilterHadConfigFirst = true;
    for (WiredFilter* filter : filters_) everyFilterHadConfigFirst &= filter->config() == config;
  }
  std::vector<WiredFilter*> filters_;
};

std::vector<DLDownloadLevel> VisitedLevels(DownloadPipeline& pipeline) {
  std::vector<DLDownloadLevel> levels;
  pipeline.AccessFilter([&](DLDownloadLevel level, IDownloadFilter*) {
    levels.push_back(level);
    return false;
  });
  return levels;
}

TEST(DownloadPipelineTest, FirstFilterOfALevelStaysAndLaterOnesStillGetTheWiring) {
  DownloadPipeline pipeline;
  auto config = std::make_shared<dltest::MapConfig>();
  auto reporter = std::make_shared<RecordingReporter>();
  pipeline.SetConfigure(config);
  pipeline.SetReporter(reporter);
  WiredFilter first, second;
  pipeline.AddFilter(kDLLevelHttp, &first);
  pipeline.AddFilter(kDLLevelHttp, &second);
  pipeline.AddFilter(kDLLevelCache, nullptr);

  EXPECT_EQ(second.config(), config);
  EXPECT_EQ(second.reporter(), reporter);
  std::vector<IDownloadFilter*> visited;
  pipeline.AccessFilter([&](DLDownloadLevel, IDownloadFilter* filter) {
    visited.push_back(filter);
    return false;
  });
  EXPECT_EQ(visited, std::vector<IDownloadFilter*>{&first});
}

TEST(DownloadPipelineTest, VisitsInAscendingLevelOrderAndStopsWhenTheVisitorSaysSo) {
  DownloadPipeline pipeline;
  WiredFilter http, local, cache, pcdn;
  pipeline.AddFilter(kDLLevelHttp, &http);
  pipeline.AddFilter(kDLLevelLocalFile, &local);
  pipeline.AddFilter(kDLLevelCache, &cache);
  pipeline.AddFilter(kDLLevelPcdn, &pcdn);
  EXPECT_EQ(VisitedLevels(pipeline),
            (std::vector<DLDownloadLevel>{kDLLevelCache, kDLLevelPcdn, kDLLevelLocalFile, kDLLevelHttp}));

  int calls = 0;
  pipeline.AccessFilter([&](DLDownloadLevel level, IDownloadFilter*) {
    ++calls;
    return level == kDLLevelPcdn;
  });
  EXPECT_EQ(calls, 2);
  pipeline.AccessFilter(DownloadPipeline::FilterVisitor());
}

TEST(DownloadPipelineTest, KestrelPipelineHoldsCachePcdnLocalFileAndHttpInThatOrder) {
  KestrelDownloadPipeline pipeline;
  EXPECT_EQ(VisitedLevels(pipeline),
            (std::vector<DLDownloadLevel>{kDLLevelCache, kDLLevelPcdn, kDLLevelLocalFile, kDLLevelHttp}));
  // Until an engine is bound, the PCDN level refuses everything.
  pipeline.AccessFilter([](DLDownloadLevel level, IDownloadFilter* filter) {
    if (level != kDLLevelPcdn) return false;
    EXPECT_EQ(filter->ShouldRespond(URI::From("http://cdn.example/a.ts", {}), nullptr).code, 1);
    return true;
  });
}

TEST(DownloadPipelineTest, ConfigurationReachesEveryFilterBeforeTheGlobalHook) {
  WiredFilter cache, http;
  CheckingPipeline pipeline({&cache, &http});
  pipeline.AddFilter(kDLLevelCache, &cache);
  pipeline.AddFilter(kDLLevelHttp, &http);
  pipeline.SetConfigure(std::make_shared<dltest::MapConfig>());
  EXPECT_EQ(pipeline.updates, 1);
  EXPECT_TRUE(pipeline.everyFilterHadConfigFirst);
}

TEST(DownloadPipelineTest, StatsGoToTheCallbackOnlyOnceOneIsSet) {
  DownloadPipeline pipeline;
  pipeline.CommitStats(kStatsStageOpen, "init_level,level:0");
  std::vector<std::pair<StatsStage, std::string>> events;
  pipeline.SetStatsCallback([&](StatsStage stage, const std::string& text) { events.emplace_back(stage, text); });
  pipeline.CommitStats(kStatsStageRead, "read_downgrade,level:4");
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].first, kStatsStageRead);
  EXPECT_EQ(events[0].second, "read_downgrade,level:4");
}

TEST(DownloadPipelineTest, AcquiredStreamsAreWiredToThePipelineAndItsCopies) {
  DownloadPipeline pipeline;
  dltest::FakeScript script;
  script.content = "abc";
  dltest::FakeFilter filter(script);
  pipeline.AddFilter(kDLLevelCache, &filter);
  DownloadPipeline copy(pipeline);
  std::vector<std::string> events;
  copy.SetStatsCallback([&](StatsStage, const std::string& text) { events.push_back(text); });

  std::shared_ptr<IStream> stream = copy.AcquireStream();
  ASSERT_TRUE(stream->Open(URI::From("http://cdn.example/a.ts", {})).IsSuccess());
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events[0].rfind("init_level,level:0", 0), 0u) << events[0];
  // The copy shares the filter: its stream reached the same object.
  EXPECT_EQ(filter.asked(), 1);
  copy.ReleaseStream(stream);
}

}  // namespace
}  // namespace downloader
