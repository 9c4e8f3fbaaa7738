#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <downloader/Pipe/DownloadPipeline.h>
#include <downloader/Storage/CacheWriter.h>

#include "CacheRootFixture.h"
#include "FakeChannel.h"
#include "Filter/CacheDownloadExecutor.h"
#include "Filter/CacheDownloadFilter.h"
#include "Platform/FileSystem.h"

namespace downloader {
namespace {

constexpr size_t kChunk = 131072;
constexpr size_t kSize = 5 * kChunk + 1000;

bool FileExists(const std::string& path) {
  platform::FileInfo info;
  return platform::FileSystem::Default()->GetFileInfo(path, &info).ok();
}

// The real disk-cache level at 0 in front of a fake HTTP level at 4.
class CacheLevelTest : public dltest::CacheRootFixture {
 protected:
  CacheLevelTest() : content_(dltest::PatternBytes(kSize, 3)), http_(Serving(content_)) {
    config_->Set("enable_segment_writer", "true");
    pipeline_.AddFilter(kDLLevelCache, &cacheFilter_);
    pipeline_.AddFilter(kDLLevelHttp, &http_);
    pipeline_.SetConfigure(config_);
  }

  static dltest::FakeScript Serving(const std::string& content) {
    dltest::FakeScript script;
    script.content = content;
    script.maxRead = 10000;
    return script;
  }

  // Reads `uri` through a new stream, at most `limit` bytes; the level it
  // opened at in *level.
  std::string ReadThrough(const std::shared_ptr<URI>& uri, DLDownloadLevel* level = nullptr,
                          size_t limit = SIZE_MAX) {
    std::shared_ptr<IStream> stream = pipeline_.AcquireStream();
    EXPECT_TRUE(stream->Open(uri).IsSuccess());
    if (level) *level = static_cast<DLDownloadLevel>(std::stoi(stream->GetInfo("level_tracker").substr(0, 1)));
    std::string data;
    std::vector<char> buffer(65536);
    while (data.size() < limit) {
      DLReadResult result = stream->Read(buffer.data(), std::min(buffer.size(), limit - data.size()));
      if (result.code != 0) break;
      data.append(buffer.data(), result.bytes);
    }
    stream->Close();
    return data;
  }

  std::shared_ptr<URI> Request(const std::string& url) { return URI::From(url, {}); }

  const std::string content_;
  CacheDownloadFilter cacheFilter_;
  dltest::FakeFilter http_;
  DownloadPipeline pipeline_;
};

TEST_F(CacheLevelTest, WhatAStreamReadIsReplayedFromTheCacheLevel) {
  auto uri = Request("http://cdn.example/v/seg1.ts");
  DLDownloadLevel level;
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(uri, &level), content_));
  EXPECT_EQ(level, kDLLevelHttp);
  ASSERT_TRUE(dltest::WaitFor([&] { return StoredSize(uri) == static_cast<int64_t>(kSize); }));

  EXPECT_TRUE(dltest::SameBytes(ReadThrough(uri, &level), content_));
  EXPECT_EQ(level, kDLLevelCache);
  EXPECT_EQ(http_.openOffsets().size(), 1u);
}

TEST_F(CacheLevelTest, APartlyStoredResourceContinuesAtTheNextLevelWhereTheStoreEnds) {
  auto uri = Request("http://cdn.example/v/seg2.ts");
  Store(uri, content_, 2 * kChunk + 500);  // the partial third chunk is dropped
  DLDownloadLevel level;
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(uri, &level), content_));
  EXPECT_EQ(level, kDLLevelCache);
  EXPECT_EQ(http_.openOffsets(), std::vector<int64_t>{2 * kChunk});
  // The HTTP part was written behind the stored part: the next read is all cache.
  ASSERT_TRUE(dltest::WaitFor([&] { return StoredSize(uri) == static_cast<int64_t>(kSize); }));
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(uri, &level), content_));
  EXPECT_EQ(http_.openOffsets().size(), 1u);
}

TEST_F(CacheLevelTest, PlaylistsAreNeverWrittenToOrServedFromTheCache) {
  auto playlist = Request("http://cdn.example/v/index.m3u8");
  DLDownloadLevel level;
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(playlist, &level), content_));
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(playlist, &level), content_));
  EXPECT_EQ(level, kDLLevelHttp);
  EXPECT_EQ(http_.openOffsets().size(), 2u);
  EXPECT_FALSE(FileExists(storage::CacheWriter::CacheFilePath(*playlist)));
}

TEST_F(CacheLevelTest, SeparateTracksAreCachedOnlyWithTheCmafSwitch) {
  config_->Set("enable_segment_cmaf", "false");
  auto audio = Request("http://cdn.example/v/seg_audio_1.m4s");
  ReadThrough(audio);
  EXPECT_FALSE(FileExists(storage::CacheWriter::CacheFilePath(*audio)));
  config_->Set("force_segment_writer", "true");
  ReadThrough(audio);
  EXPECT_TRUE(dltest::WaitFor([&] { return StoredSize(audio) == static_cast<int64_t>(kSize); }));
}

TEST_F(CacheLevelTest, ARequestStartingPastZeroSkipsTheCacheUnlessRangesAreHonoured) {
  auto uri = Request("http://cdn.example/v/seg3.ts");
  Store(uri, content_, kSize);
  auto ranged = URI::From(uri->GetStringRep(), {{"range_start", "1000"}});
  DLDownloadLevel level;
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(ranged, &level), content_.substr(1000)));
  EXPECT_EQ(level, kDLLevelHttp);
  config_->Set("enable_cache_filter_range_start", "true");
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(ranged, &level), content_.substr(1000)));
  EXPECT_EQ(level, kDLLevelCache);
}

TEST_F(CacheLevelTest, WithoutACacheRootNothingIsWrittenOrServed) {
  storage::CacheWriter::SetCacheRoot("");
  auto uri = Request("http://cdn.example/v/seg4.ts");
  EXPECT_EQ(storage::CacheWriter::CacheFilePath(*uri), "");
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(uri), content_));
  DLDownloadLevel level;
  EXPECT_TRUE(dltest::SameBytes(ReadThrough(uri, &level), content_));
  EXPECT_EQ(level, kDLLevelHttp);
}

// The data-store path, for plain requests that segment writing does not
// cover.
class CacheStoreTest : public dltest::CacheRootFixture {
 protected:
  CacheStoreTest() : content_(dltest::PatternBytes(kSize, 5)) {
    config_->Set("enable_preload", "true");
    filter_.SetConfigure(config_);
  }
  std::string ReadAll(IDownloadExecutor& executor, DLReadResult* last) {
    std::string data;
    std::vector<char> buffer(50000);
    Packet packet(buffer.size());
    packet.SetBuffer(buffer.data());
    while (true) {
      *last = executor.Read(packet);
      if (last->code != 0) return data;
      data.append(buffer.data(), last->bytes);
    }
  }
  const std::string content_;
  CacheDownloadFilter filter_;
};

TEST_F(CacheStoreTest, IllegalUrlsAreRefusedWhateverTheSwitchesSay) {
  config_->Set("enable_segment_writer", "true");
  config_->Set("force_segment_writer", "true");
  for (const char* url : {"http://cdn.example/a.m3u8", "http://cdn.example/playlist/m3u8?x=1",
                          "http://local.url/a.ts", "http://cdn.example/a.flv.ts", "http://cdn.example/a.mp4.ts"}) {
    DLResultCode answer = filter_.ShouldRespond(URI::From(url, {}), nullptr);
    EXPECT_EQ(answer.code, 1) << url;
    EXPECT_EQ(answer.subCode, CacheDownloadFilter::kUnknownSubCode) << url;
  }
}

TEST_F(CacheStoreTest, AReadableStoreIsServedUntilItsFirstMissingByte) {
  auto uri = URI::From("http://cdn.example/p/movie.mp4", {});
  EXPECT_EQ(filter_.ShouldRespond(uri, nullptr).subCode, CacheDownloadFilter::kNotReadableSubCode);
  Store(uri, content_, 3 * kChunk);
  ASSERT_TRUE(filter_.ShouldRespond(uri, nullptr).IsSuccess());
  std::shared_ptr<IDownloadExecutor> executor = filter_.AcquireExecutor(uri);
  ASSERT_TRUE(executor);
  ASSERT_TRUE(executor->Open(uri).IsSuccess());
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last), content_.substr(0, 3 * kChunk)));
  EXPECT_EQ(last.code, 1);
  EXPECT_EQ(last.subCode, CacheDownloadFilter::kNotReadableSubCode);
  EXPECT_EQ(executor->GetInfo("downloaded_size"), std::to_string(3 * kChunk));
  EXPECT_EQ(executor->GetInfo("is_loaded_from_cache"), "1");

  config_->Set("enable_cache_store_lock", "true");
  EXPECT_EQ(filter_.ShouldRespond(uri, nullptr).subCode, CacheDownloadFilter::kNotReadableSubCode);
}

TEST_F(CacheStoreTest, RangeStartIsHonouredOnlyWithinTheStoredBytesAndWithTheSwitch) {
  auto uri = URI::From("http://cdn.example/p/movie2.mp4", {});
  Store(uri, content_, kSize);
  auto ranged = URI::From(uri->GetStringRep(), {{"range_start", "5000"}});
  auto executor = filter_.AcquireExecutor(ranged);
  ASSERT_TRUE(executor->Open(ranged).IsSuccess());
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last), content_));  // switch off: from 0
  EXPECT_EQ(last.code, 5);

  config_->Set("enable_cache_filter_range_start", "true");
  executor = filter_.AcquireExecutor(ranged);
  ASSERT_TRUE(executor->Open(ranged).IsSuccess());
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last), content_.substr(5000)));

  // Past the stored bytes but inside the resource: from 0.
  auto partial = URI::From("http://cdn.example/p/movie3.mp4", {});
  Store(partial, content_, 2 * kChunk);
  auto gap = URI::From(partial->GetStringRep(), {{"range_start", std::to_string(3 * kChunk)}});
  executor = filter_.AcquireExecutor(gap);
  ASSERT_TRUE(executor->Open(gap).IsSuccess());
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last), content_.substr(0, 2 * kChunk)));
}

}  // namespace
}  // namespace downloader
