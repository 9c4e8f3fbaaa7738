#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <downloader/Pipe/DownloadPipeline.h>

#include "CacheRootFixture.h"
#include "FakeChannel.h"
#include "Filter/CacheDownloadFilter.h"

namespace downloader {
namespace {

constexpr size_t kSize = 40 * 131072 + 123;

std::string ReadAll(IStream& stream) {
  std::string data;
  std::vector<char> buffer(32768);
  while (true) {
    DLReadResult result = stream.Read(buffer.data(), buffer.size());
    if (result.code != 0) return data;
    data.append(buffer.data(), result.bytes);
  }
}

class CacheLevelConcurrencyTest : public dltest::CacheRootFixture {};

// Two streams of one resource at once: one downloads and writes, one replays
// what is already stored and continues over HTTP where the store ends.
TEST_F(CacheLevelConcurrencyTest, AReaderFollowsAWriterOfTheSameResource) {
  const std::string content = dltest::PatternBytes(kSize, 21);
  config_->Set("enable_segment_writer", "true");
  dltest::FakeScript script;
  script.content = content;
  script.maxRead = 20000;
  dltest::FakeFilter http(script);
  CacheDownloadFilter cache;
  DownloadPipeline pipeline;
  pipeline.AddFilter(kDLLevelCache, &cache);
  pipeline.AddFilter(kDLLevelHttp, &http);
  pipeline.SetConfigure(config_);
  auto uri = URI::From("http://cdn.example/c/seg.ts", {});

  std::string first, second;
  std::thread writerSide([&] {
    std::shared_ptr<IStream> stream = pipeline.AcquireStream();
    ASSERT_TRUE(stream->Open(uri).IsSuccess());
    first = ReadAll(*stream);
    stream->Close();
  });
  ASSERT_TRUE(dltest::WaitFor([&] { return StoredSize(uri) > 0; }));
  std::shared_ptr<IStream> stream = pipeline.AcquireStream();
  ASSERT_TRUE(stream->Open(uri).IsSuccess());
  second = ReadAll(*stream);
  stream->Close();
  writerSide.join();
  EXPECT_TRUE(dltest::SameBytes(first, content));
  EXPECT_TRUE(dltest::SameBytes(second, content));
}

TEST_F(CacheLevelConcurrencyTest, ClosingWhileTheReadingSideDeliversStopsIt) {
  const std::string content = dltest::PatternBytes(kSize, 22);
  auto uri = URI::From("http://cdn.example/c/seg2.ts", {});
  Store(uri, content, content.size());
  config_->Set("enable_segment_writer", "true");
  CacheDownloadFilter cache;
  DownloadPipeline pipeline;
  pipeline.AddFilter(kDLLevelCache, &cache);
  pipeline.SetConfigure(config_);
  for (int round = 0; round < 20; ++round) {
    std::shared_ptr<IStream> stream = pipeline.AcquireStream();
    ASSERT_TRUE(stream->Open(uri).IsSuccess());
    std::vector<char> buffer(1000);
    stream->Read(buffer.data(), buffer.size());
    stream->Close();
  }
}

}  // namespace
}  // namespace downloader
