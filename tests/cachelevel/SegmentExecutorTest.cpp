#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
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

  static std::string ReadAll(IDownloadExecutor& executor, DLReadResult* last) {
    std::string data;
    std::vector<char> buffer(40000);
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

TEST_F(SegmentExecutorTest, RangeStartCountsOnlyWithItsSwitch) {
  Store(uri_, content_, content_.size());
  auto ranged = URI::From(uri_->GetStringRep(), {{"range_start", "1000"}});
  auto executor = Executor();
  ASSERT_TRUE(executor->Open(ranged).IsSuccess());
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last), content_));

  config_->Set("enable_cache_filter_range_start", "true");
  executor = Executor();
  ASSERT_TRUE(executor->Open(ranged).IsSuccess());
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last), content_.substr(1000)));
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

TEST_F(SegmentExecutorTest, AGapInTheStoreEndsTheReadsWithAnErrorAfterTheQueuedBytes) {
  Store(uri_, content_, 2 * kChunk);
  auto executor = Executor();
  ASSERT_TRUE(executor->Open(uri_).IsSuccess());
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*executor, &last), content_.substr(0, 2 * kChunk)));
  EXPECT_EQ(last.code, 1);
  EXPECT_EQ(last.subCode, storage::SegmentReadSide::kNotStoredSubCode);
}

// Counts what the reading side delivers without consuming it.
class HoardingListener : public storage::SegmentReadListener {
 public:
  void OnOpen(int64_t) override {}
  void OnSegmentBytes(int64_t, std::shared_ptr<BufferChunk> bytes) override {
    uint64_t size = bytes->GetSize();
    std::lock_guard<std::mutex> lock(mutex_);
    delivered_ += size;
    maxUnconsumed_ = std::max(maxUnconsumed_, delivered_ - consumed_);
  }
  void OnSegmentError(int64_t) override { errors_.fetch_add(1); }
  uint64_t delivered() {
    std::lock_guard<std::mutex> lock(mutex_);
    return delivered_;
  }
  // Consumes up to `most` of what was delivered so far; how much that was.
  uint64_t Consume(uint64_t most) {
    std::lock_guard<std::mutex> lock(mutex_);
    uint64_t taken = std::min(most, delivered_ - consumed_);
    consumed_ += taken;
    return taken;
  }
  std::mutex mutex_;
  uint64_t delivered_ = 0;
  uint64_t consumed_ = 0;
  uint64_t maxUnconsumed_ = 0;
  std::atomic<int> errors_{0};
};

TEST_F(SegmentExecutorTest, TheReadingSideStaysWithinItsReadAheadOfTheConsumer) {
  const std::string big = dltest::PatternBytes(48 * kChunk, 11);
  Store(uri_, big, big.size());
  HoardingListener listener;
  storage::SegmentReadSide side(storage::CacheWriter::CacheFilePath(*uri_), 1, &listener);
  side.Start(0);
  ASSERT_TRUE(dltest::WaitFor([&] { return listener.delivered() >= storage::SegmentReadSide::kReadAhead; }));
  // Consumed in pieces much smaller than a block, as a player reads: each
  // crossing below the read-ahead has to wake the reading side.
  ASSERT_TRUE(dltest::WaitFor([&] {
    side.Consumed(listener.Consume(kChunk / 2));
    return listener.delivered() == big.size();
  }));
  side.Stop();
  EXPECT_LE(listener.maxUnconsumed_,
            storage::SegmentReadSide::kReadAhead + storage::SegmentReadSide::kChunksPerBlock * kChunk);
  EXPECT_EQ(listener.errors_.load(), 0);
}

}  // namespace
}  // namespace downloader
