#include <gtest/gtest.h>

#include <memory>
#include <string>
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
  // A copy shares the filters: its streams reach the same objects.
  DownloadPipeline copy(pipeline);
  std::shared_ptr<IStream> stream = copy.AcquireStream();
  ASSERT_TRUE(stream->Open(URI::From("http://cdn.example/a.ts", {})).IsSuccess());
  EXPECT_EQ(first.asked(), 1);
  copy.ReleaseStream(stream);
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

}  // namespace
}  // namespace downloader
