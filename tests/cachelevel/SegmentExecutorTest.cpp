#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CacheRootFixture.h"
#include "FakeChannel.h"
#include "Filter/SegmentDownloadExecutor.h"
#include "Filter/SegmentDownloadFilter.h"
#include "Storage/SegmentReadSide.h"
#include "support/LogCapture.h"

namespace downloader {
namespace {

constexpr size_t kChunk = 131072;

class SegmentExecutorTest : public dltest::CacheRootFixture {
 protected:
  SegmentExecutorTest()
      : content_(dltest::PatternBytes(3 * kChunk + 777, 9)), uri_(URI::From("http://cdn.example/s/seg.ts", {})) {}

  std::shared_ptr<SegmentDownloadExecutor> Executor() { return std::make_shared<SegmentDownloadExecutor>(config_, uri_); }

  // Read sizes that take each path: inside one chunk, exactly a chunk, and
  // several whole chunks straight into the player's buffer.
  static constexpr size_t kReadSizes[] = {40000, kChunk, 2 * kChunk + 5000};

  static std::string ReadAll(IDownloadExecutor& executor, DLReadResult* last, size_t readSize = 40000) {
    std::string data;
    std::vector<char> buffer(readSize);
    Packet packet(buffer.size());
    packet.SetBuffer(buffer.data());
    while (true) {
      *last = executor.Read(packet);
      if (last->code != 0 || last->bytes == 0) return data;
      data.append(buffer.data(), last->bytes);
    }
  }

  const std::string content_;
  std::shared_ptr<URI> uri_;
};

TEST_F(SegmentExecutorTest, TheFilterRefusesPlaylistsAndLocalFilesEvenWhenStored) {
  SegmentDownloadFilter filter;
  auto playlist = URI::From("http://cdn.example/playlist/m3u8?v=1", {});
  Store(playlist, content_, content_.size());
  EXPECT_EQ(filter.ShouldRespond(playlist, nullptr).subCode, SegmentDownloadFilter::kInvalidUrlSubCode);
  EXPECT_EQ(filter.ShouldRespond(URI::From("http://local.url/a.ts", {}), nullptr).code, 1);
  EXPECT_TRUE(filter.ShouldRespond(uri_, nullptr).IsSuccess());
}

TEST_F(SegmentExecutorTest, NothingStoredWhereTheRequestStartsFailsTheOpenAtOnce) {
  EXPECT_EQ(Executor()->Open(uri_).subCode, storage::SegmentReadSide::kNotStoredSubCode);
  config_->Set("enable_cache_filter_range_start", "true");
  Store(uri_, content_, kChunk);
  auto ranged = URI::From(uri_->GetStringRep(), {{"range_start", std::to_string(2 * kChunk)}});
  EXPECT_EQ(Executor()->Open(ranged).code, 1);
}

TEST_F(SegmentExecutorTest, EveryReadSizeGetsTheStoredBytesFromWhereTheRequestStarts) {
  Store(uri_, content_, content_.size());
  auto ranged = URI::From(uri_->GetStringRep(), {{"range_start", "1000"}});
  for (size_t readSize : kReadSizes) {
    SCOPED_TRACE(readSize);
    config_->Set("enable_cache_filter_range_start", "false");
    auto executor = Executor();
    ASSERT_TRUE(executor->Open(ranged).IsSuccess());
    DLReadResult last;
    EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last, readSize), content_));
    EXPECT_EQ(last.code, kDLEndOfData);
    EXPECT_EQ(executor->GetInfo("downloaded_size"), std::to_string(content_.size()));

    config_->Set("enable_cache_filter_range_start", "true");
    executor = Executor();
    ASSERT_TRUE(executor->Open(ranged).IsSuccess());
    EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last, readSize), content_.substr(1000)));
    // A seek back inside a chunk read whole before.
    ASSERT_TRUE(executor->Seek(2 * kChunk + 3).IsSuccess());
    EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last, readSize), content_.substr(2 * kChunk + 3)));
  }
}

TEST_F(SegmentExecutorTest, OnlyTheBlockThatContinuesTheRunIsQueued) {
  auto executor = Executor();
  executor->OnOpen(10);
  dltest::LogCapture log;
  const uint8_t bytes[] = {1, 2, 3, 4, 5};
  auto block = [&] { return BufferChunk::AllocBufferChunk(bytes, sizeof(bytes)); };
  executor->OnSegmentBytes(100, block());
  EXPECT_TRUE(log.Contains("onsegmentbyte,invalid offset,size:5"));
  executor->OnSegmentBytes(0, block());
  executor->OnSegmentBytes(5, block());
  EXPECT_EQ(executor->GetInfo("downloaded_size"), "10");
  executor->Close();
  executor->OnSegmentBytes(10, block());
  EXPECT_TRUE(log.Contains("onsegmentbyte,closed"));
}

TEST_F(SegmentExecutorTest, AGapInTheStoreEndsTheReadsWithAnErrorAfterTheBytesBeforeIt) {
  Store(uri_, content_, 2 * kChunk);
  for (size_t readSize : kReadSizes) {
    SCOPED_TRACE(readSize);
    auto executor = Executor();
    ASSERT_TRUE(executor->Open(uri_).IsSuccess());
    DLReadResult last;
    EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last, readSize), content_.substr(0, 2 * kChunk)));
    EXPECT_EQ(last.code, 1);
    EXPECT_EQ(last.subCode, storage::SegmentReadSide::kNotStoredSubCode);
    // The end stays: a later read does not try the file again.
    EXPECT_EQ(ReadAll(*executor, &last, readSize), "");
    EXPECT_EQ(last.subCode, storage::SegmentReadSide::kNotStoredSubCode);
  }
}

TEST_F(SegmentExecutorTest, ReadsAfterCloseFailAndTheChunkBufferIsLetGo) {
  Store(uri_, content_, content_.size());
  auto executor = Executor();
  ASSERT_TRUE(executor->Open(uri_).IsSuccess());
  std::vector<char> buffer(1000);
  Packet packet(buffer.size());
  packet.SetBuffer(buffer.data());
  ASSERT_EQ(executor->Read(packet).bytes, buffer.size());
  EXPECT_GE(std::stoull(executor->GetInfo("memory_usage")), kChunk);
  executor->Close();
  EXPECT_EQ(executor->GetInfo("memory_usage"), "0");
  EXPECT_EQ(executor->Read(packet).code, 1);
}

}  // namespace
}  // namespace downloader
