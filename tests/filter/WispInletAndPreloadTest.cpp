#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <downloader/Filter/WispDownloadExecutor.h>
#include <downloader/Storage/CacheWriter.h>

#include "ExecutorReading.h"
#include "Base/StreamStats.h"
#include "Storage/SegmentFileWriter.h"
#include "WispOriginTest.h"
#include "support/TempDir.h"

namespace dltest {
namespace {

using downloader::URI;

// --- What the network delivered, as the flow-rate controller sees it -------

class WispInletTest : public WispOriginTest {};

TEST_F(WispInletTest, EveryBodyByteReachesTheInletAndTheStreamsStatsAndTheClockStopsAtTheEnd) {
  const int64_t size = 1500000;  // more than one ring
  auto executor = NewExecutor(SyntheticUrl("inlet", size));
  auto stats = std::make_shared<downloader::StreamStats>();
  executor->SetStatsSink(stats);
  ASSERT_EQ(executor->Open(uri_).code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  ExpectSynthetic(SeedOf("inlet"), 0, data);

  const downloader::Source::Inlet ended = executor->InletSoFar();
  EXPECT_EQ(ended.bytes, static_cast<uint64_t>(size));
  EXPECT_EQ(stats->InletBytes(), static_cast<uint64_t>(size));
  EXPECT_GT(ended.receivingUs, 0);
  EXPECT_EQ(executor->InletSoFar().receivingUs, ended.receivingUs) << "a finished request is not receiving";

  // A seek is a new request: its bytes add up, from where it starts.
  ASSERT_EQ(executor->Seek(size - 1000).code, kDLSuccess);
  data.clear();
  ASSERT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  EXPECT_EQ(executor->InletSoFar().bytes, static_cast<uint64_t>(size + 1000));
  EXPECT_EQ(stats->InletBytes(), static_cast<uint64_t>(size + 1000));
  executor->Close();
}

// --- "track_info" --------------------------------------------------------------

TEST_F(WispInletTest, TrackInfoIsKeptWhenWellFormedAndLoggedAndIgnoredOtherwise) {
  auto tracked = NewExecutor(SyntheticUrl("track", 3000),
                             {{"track_info", R"({"type":"video","id":2,"bit_rate":1500000,"key":true})"}});
  ASSERT_EQ(tracked->Open(uri_).code, kDLSuccess);
  EXPECT_EQ(tracked->GetInfo("track_info"), R"({"bit_rate":"1500000","id":"2","key":"true","type":"video"})");
  tracked->Close();

  // Which texts are refused is the parser's own test; here, that a refused
  // one costs the request nothing.
  auto executor = NewExecutor(SyntheticUrl("track", 3000), {{"track_info", R"({"nested":{"id":1}})"}});
  ASSERT_EQ(executor->Open(uri_).code, kDLSuccess);
  EXPECT_EQ(executor->GetInfo("track_info"), "");
  std::vector<uint8_t> data;
  EXPECT_EQ(ReadToEnd(executor.get(), 4096, &data).code, kDLEndOfData);
  EXPECT_EQ(data.size(), 3000u);
  executor->Close();
}

// --- The preload buffer ------------------------------------------------------

class WispPreloadTest : public WispOriginTest {
 protected:
  WispPreloadTest() { downloader::storage::CacheWriter::SetCacheRoot(root_.path()); }
  ~WispPreloadTest() override { downloader::storage::CacheWriter::SetCacheRoot(""); }

  // Stores the first `stored` bytes of the synthetic resource, as a preload
  // would have; returns how many the cache serves from offset 0.
  int64_t StorePrefix(const std::string& name, int64_t size, int64_t stored) {
    auto uri = URI::From(SyntheticUrl(name, size), {});
    auto writer = downloader::storage::CacheWriter::CreateSegmentWriter(config_, uri, static_cast<uint64_t>(size));
    EXPECT_TRUE(writer);
    if (!writer) return 0;
    std::vector<uint8_t> prefix(static_cast<size_t>(stored));
    dlorigin::FillSynthetic(SeedOf(name), 0, prefix.data(), prefix.size());
    writer->store(0, prefix.data(), prefix.size());
    writer->complete();
    auto store = downloader::storage::CacheWriter::AcquireDataStore(config_, uri);
    return store ? store->GetDownloadedSize() : 0;
  }

  // Opens asynchronously, reads everything, checks it byte for byte from
  // `start`; answers how many body bytes came over the network.
  int64_t AsyncReadAll(const std::string& name, int64_t size, const URI::Params& params, int64_t start = 0) {
    auto executor = NewExecutor(SyntheticUrl(name, size), params);
    EXPECT_EQ(executor->OpenAsync(uri_).code, kDLSuccess);
    EXPECT_EQ(executor->WaitOpenResult().code, kDLSuccess);
    std::vector<uint8_t> data;
    EXPECT_EQ(ReadToEnd(executor.get(), 50000, &data).code, kDLEndOfData);
    EXPECT_EQ(static_cast<int64_t>(data.size()), size - start);
    ExpectSynthetic(SeedOf(name), start, data);
    const int64_t fromNetwork = std::stoll(executor->GetInfo("downloaded_size"));
    executor->Close();
    return fromNetwork;
  }

  TempDir root_;
};

TEST_F(WispPreloadTest, StoredPreloadBytesComeFirstAndTheNetworkContinuesExactlyAfterThem) {
  config_->Set("enable_cache_buffer", "true");
  const int64_t size = 700000;
  const int64_t stored = StorePrefix("preload", size, 300000);
  ASSERT_GT(stored, 0);

  EXPECT_EQ(AsyncReadAll("preload", size, {{"preload_buffer", "true"}}), size - stored);

  // From an offset inside the stored part, and bounded by "cache_buffer_limit".
  EXPECT_EQ(AsyncReadAll("preload", size, {{"preload_buffer", "true"}, {"range_start", "1000"}}, 1000),
            size - stored);
  config_->Set("cache_buffer_limit", "5000");
  EXPECT_EQ(AsyncReadAll("preload", size, {{"preload_buffer", "true"}}), size - 5000);
}

TEST_F(WispPreloadTest, TheNetworkIsAskedForEverythingUnlessAllConditionsHold) {
  const int64_t size = 400000;
  ASSERT_GT(StorePrefix("preload-off", size, 200000), 0);
  // The switch is off.
  EXPECT_EQ(AsyncReadAll("preload-off", size, {{"preload_buffer", "true"}}), size);
  config_->Set("enable_cache_buffer", "true");
  // The request does not ask for it.
  EXPECT_EQ(AsyncReadAll("preload-off", size, {}), size);
  // Nothing is stored at the start.
  EXPECT_EQ(AsyncReadAll("preload-off", size, {{"preload_buffer", "true"}, {"range_start", "300000"}}, 300000),
            size - 300000);
  // A synchronous open never takes it.
  auto executor = NewExecutor(SyntheticUrl("preload-off", size), {{"preload_buffer", "true"}});
  ASSERT_EQ(executor->Open(uri_).code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadToEnd(executor.get(), 50000, &data).code, kDLEndOfData);
  EXPECT_EQ(executor->GetInfo("downloaded_size"), std::to_string(size));
  executor->Close();
}

TEST_F(WispPreloadTest, AFullyStoredResourceStillLeavesTheLastByteToTheNetwork) {
  config_->Set("enable_cache_buffer", "true");
  const int64_t size = 200000;
  ASSERT_EQ(StorePrefix("preload-full", size, size), size);
  EXPECT_EQ(AsyncReadAll("preload-full", size, {{"preload_buffer", "true"}}), 1);
  // A requested range ending inside the stored part: the range's last byte.
  auto executor = NewExecutor(SyntheticUrl("preload-full", size), {{"preload_buffer", "true"}, {"range_end", "9999"}});
  ASSERT_EQ(executor->OpenAsync(uri_).code, kDLSuccess);
  ASSERT_EQ(executor->WaitOpenResult().code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadToEnd(executor.get(), 4096, &data).code, kDLEndOfData);
  EXPECT_EQ(data.size(), 10000u);
  ExpectSynthetic(SeedOf("preload-full"), 0, data);
  EXPECT_EQ(executor->GetInfo("downloaded_size"), "1");
  executor->Close();
}

}  // namespace
}  // namespace dltest
