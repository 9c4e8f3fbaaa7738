#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <downloader/Filter/LocalFileFilter.h>
#include <downloader/Filter/SubCode.h>
#include <downloader/Storage/CacheWriter.h>

#include "FakeChannel.h"
#include "Filter/CacheDownloadFilter.h"
#include "Filter/IPcdnDownloadFilter.h"
#include "RoadFixture.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

namespace downloader {
namespace {

using dltest::SameBytes;

constexpr int64_t kSegmentSize = 3 * 1024 * 1024 + 4321;
const int64_t kH404 = FourCharSubCode('H', '4', '0', '4');

class RoadTest : public dltest::RoadFixture {
 protected:
  std::shared_ptr<IStream> OpenStream(const std::string& url, URI::Params params = {}, DLResultCode* opened = nullptr) {
    std::shared_ptr<IStream> stream = tunnel_->Acquire();
    DLResultCode result = stream->Open(URI::From(url, params));
    if (opened) {
      *opened = result;
    } else {
      EXPECT_TRUE(result.IsSuccess()) << SubCodeTag(result.subCode);
    }
    return stream;
  }
  void Finish(std::shared_ptr<IStream> stream) {
    stream->Close();
    tunnel_->Release(stream);
  }
};

TEST_F(RoadTest, ASegmentReadOverHttpIsReplayedFromTheCacheWithoutTheOrigin) {
  const std::string name = UniqueName("seg") + ".ts";
  const std::string tag = UniqueName("tag");
  const std::string url = SyntheticUrl(name, kSegmentSize, "tag=" + tag);
  const std::string expected = SyntheticBytes(name, kSegmentSize);

  auto first = OpenStream(url);
  EXPECT_EQ(first->GetInfo("level_tracker"), "4");
  EXPECT_EQ(first->GetInfo("level_attempts"), "0>4") << "the cache was opened and missed";
  EXPECT_TRUE(SameBytes(ReadToEnd(*first), expected));
  Finish(first);
  ASSERT_TRUE(dltest::WaitFor([&] { return StoredSize(url) == kSegmentSize; }));

  auto second = OpenStream(url);
  EXPECT_EQ(second->GetInfo("level_tracker"), "0");
  EXPECT_EQ(second->GetInfo("level_attempts"), "0");
  EXPECT_EQ(second->GetInfo("is_loaded_from_cache"), "1");
  DLReadResult last;
  EXPECT_TRUE(SameBytes(ReadToEnd(*second, &last, 10000), expected));
  EXPECT_EQ(last.code, 5);
  Finish(second);
  EXPECT_EQ(RequestsFor(tag), 1);
  EXPECT_FALSE(reporter_->Named("stream_end_info").empty());
}

TEST_F(RoadTest, AnHttpFailureWalksEveryLevelAndReachesTheHostAsH404) {
  const std::string tag = UniqueName("tag");
  DLResultCode opened;
  auto stream = OpenStream(SyntheticUrl(UniqueName("missing") + ".ts", 1000, "status=404&tag=" + tag), {}, &opened);
  EXPECT_EQ(opened.code, 1);
  EXPECT_EQ(opened.subCode, kH404) << SubCodeTag(opened.subCode);
  EXPECT_EQ(Events(), (std::vector<std::string>{"init_level@0", "open_open_error@0", "open_downgrade@1",
                                                "open_respond_error@1", "open_downgrade@2", "open_respond_error@2",
                                                "open_downgrade@4", "open_open_error@4"}));
  EXPECT_EQ(RequestsFor(tag), 1);
  Finish(stream);
}

TEST_F(RoadTest, ALocalFileIsServedAtItsLevelAndAMissingOneFailsWithItsOwnReason) {
  const std::string path = root_.Join("local.ts");
  const std::string content = dltest::PatternBytes(300000, 4);
  std::ofstream(path, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
  auto stream = OpenStream(std::string(LocalFileFilter::kLocalUrlPrefix) + path);
  EXPECT_EQ(stream->GetInfo("level_tracker"), "2");
  EXPECT_TRUE(SameBytes(ReadToEnd(*stream), content));
  Finish(stream);

  DLResultCode opened;
  auto missing = OpenStream(std::string(LocalFileFilter::kLocalUrlPrefix) + root_.Join("none.ts"), {}, &opened);
  EXPECT_EQ(opened.code, 1);
  // The HTTP level refuses local URLs after the local level failed: the
  // local executor's reason stands.
  EXPECT_NE(opened.subCode, FourCharSubCode('R', 'L', 'A', 'D'));
  EXPECT_NE(opened.subCode, CacheDownloadFilter::kUnknownSubCode);
  EXPECT_EQ(Events().back(), "open_respond_error@4");
  Finish(missing);
}

TEST_F(RoadTest, AConnectionDroppedMidStreamContinuesAtTheSameOffset) {
  const std::string name = UniqueName("drop") + ".ts";
  const int64_t size = 1000000;
  auto stream = OpenStream(SyntheticUrl(name, size, "drop_after=300000"));
  EXPECT_TRUE(SameBytes(ReadToEnd(*stream, nullptr, 7000), SyntheticBytes(name, size)));
  EXPECT_EQ(stream->GetInfo("level_tracker"), "4>4>4>4");
  Finish(stream);
}

TEST_F(RoadTest, AStalledConnectionTimesOutAndTheNextLevelContinues) {
  // Every read has this bound, not only the one at the stall: leave the
  // reads before it room on a loaded machine.
  config_->Set("read_timeout", "1500");
  const std::string name = UniqueName("stall") + ".ts";
  const int64_t size = 700000;
  auto stream = OpenStream(SyntheticUrl(name, size, "stall_after=250000"));
  EXPECT_TRUE(SameBytes(ReadToEnd(*stream, nullptr, 10000), SyntheticBytes(name, size)));
  EXPECT_EQ(stream->GetInfo("level_tracker"), "4>4>4");
  Finish(stream);
}

TEST_F(RoadTest, ALevelSlowerThanTheBitRateDrainsAndTheReadContinuesWhereItWas) {
  config_->Set("flow_rate_sample_interval", "100");
  const std::string name = UniqueName("slow") + ".ts";
  const int64_t size = 300000;
  dltest::LogCapture log(DL_LOG_INFO);
  auto stream = OpenStream(SyntheticUrl(name, size, "rate=400000"), {{"bit_rate", "80000000"}});
  EXPECT_TRUE(SameBytes(ReadToEnd(*stream, nullptr, 3000), SyntheticBytes(name, size)));
  EXPECT_TRUE(log.Contains("reason:slow"));
  EXPECT_NE(stream->GetInfo("level_tracker"), "4");
  Finish(stream);
}

TEST_F(RoadTest, PcdnOnlyRequestsNeverReachHttpButLiveOnesDo) {
  config_->Set("use_pcdn_ng_disable_downgrade", "true");
  const std::string tag = UniqueName("tag");
  const std::string name = UniqueName("pcdn") + ".ts";
  DLResultCode opened;
  auto stream = OpenStream(SyntheticUrl(name, 5000, "tag=" + tag), {}, &opened);
  EXPECT_EQ(opened.subCode, IPcdnDownloadFilter::kNoEngineSubCode);
  EXPECT_EQ(Events(), (std::vector<std::string>{"init_level@1", "open_respond_error@1"}));
  Finish(stream);
  EXPECT_EQ(RequestsFor(tag), 0);

  auto live = OpenStream(SyntheticUrl(name, 5000, "tag=" + tag), {{"is_live", "true"}});
  EXPECT_TRUE(SameBytes(ReadToEnd(*live), SyntheticBytes(name, 5000)));
  Finish(live);
  EXPECT_EQ(RequestsFor(tag), 1);
}

TEST_F(RoadTest, TheBufferStateReachesTheVideoStreamAndDecidesItsDrain) {
  config_->Set("flow_rate_sample_interval", "100");
  const std::string name = UniqueName("state") + ".ts";
  const int64_t size = 600000;
  auto video = OpenStream(SyntheticUrl(name, size, "rate=400000"), {{"bit_rate", "80000000"}, {"stream_type", "1"}});
  auto newest = tunnel_->Acquire();  // stream_type 0, acquired later
  PulseData pulse;
  PulseDataDef<int>(kPulseBufferDurationKey).Write(&pulse, 30000);
  tunnel_->NotifyPulseDataUpdated(pulse);

  std::string data = ReadCount(*video, 250000, 3000);
  EXPECT_EQ(video->GetInfo("level_tracker"), "4") << "a full buffer does not drain";
  tunnel_->UpdateBufferState(kBufferStateBuffering);
  data += ReadToEnd(*video, nullptr, 3000);
  EXPECT_TRUE(SameBytes(data, SyntheticBytes(name, size)));
  EXPECT_NE(video->GetInfo("level_tracker"), "4") << "buffering drains the slow level";
  Finish(video);
  Finish(newest);
}

TEST_F(RoadTest, AnAsynchronousOpenThroughTheTunnel) {
  const std::string name = UniqueName("async") + ".ts";
  std::shared_ptr<IStream> stream = tunnel_->Acquire();
  ASSERT_TRUE(stream->OpenAsync(URI::From(SyntheticUrl(name, 100000, "delay_ms=150"), {})).IsSuccess());
  DLResultCode ready;
  ASSERT_TRUE(dltest::WaitFor([&] {
    ready = stream->IsOpenReady();
    return ready.code != kDLOpenPending;
  }));
  EXPECT_TRUE(ready.IsSuccess());
  EXPECT_TRUE(SameBytes(ReadToEnd(*stream), SyntheticBytes(name, 100000)));
  Finish(stream);
}

}  // namespace
}  // namespace downloader
