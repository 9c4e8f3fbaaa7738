#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <downloader/Base/URIBuilder.h>
#include <downloader/Pipe/DownloadPipeline.h>

#include "FakeChannel.h"
#include "Impls/RetryableStream.h"
#include "support/LogCapture.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

using dltest::FakeFilter;
using dltest::FakeScript;

constexpr size_t kContentSize = 64 * 1024;
const int64_t kH404 = FourCharSubCode('H', '4', '0', '4');

class RecordingReporter : public protocols::IReporter {
 public:
  void Report(const std::string& category, const std::string& name, const std::string& text) override {
    std::lock_guard<std::mutex> lock(mutex_);
    records.push_back(category + "|" + name + "|" + text);
  }
  std::mutex mutex_;
  std::vector<std::string> records;
};

FakeScript Refusing() {
  FakeScript script;
  script.respond = DLResultCode(1, dltest::kFakeRefusal);
  return script;
}

FakeScript Serving(const std::string& content) {
  FakeScript script;
  script.content = content;
  return script;
}

// A pipeline of fake channels at levels 0, 1, 2 and 4.
class RetryableStreamTest : public ::testing::Test {
 protected:
  RetryableStreamTest()
      : content_(dltest::PatternBytes(kContentSize)),
        cache_(Refusing()),
        pcdn_(Refusing()),
        local_(Refusing()),
        http_(Refusing()),
        config_(std::make_shared<dltest::MapConfig>()),
        reporter_(std::make_shared<RecordingReporter>()) {
    pipeline_.AddFilter(kDLLevelCache, &cache_);
    pipeline_.AddFilter(kDLLevelPcdn, &pcdn_);
    pipeline_.AddFilter(kDLLevelLocalFile, &local_);
    pipeline_.AddFilter(kDLLevelHttp, &http_);
    pipeline_.SetConfigure(config_);
    pipeline_.SetReporter(reporter_);
    pipeline_.SetStatsCallback([this](StatsStage, const std::string& text) {
      std::lock_guard<std::mutex> lock(mutex_);
      events_.push_back(text.substr(0, text.find(',')) + "@" + LevelOf(text));
    });
  }

  static std::string LevelOf(const std::string& text) {
    size_t at = text.find("level:");
    return text.substr(at + 6, text.find(',', at) - at - 6);
  }

  std::shared_ptr<RetryableStream> Acquire() {
    return std::static_pointer_cast<RetryableStream>(pipeline_.AcquireStream());
  }

  std::shared_ptr<URI> Request(URI::Params params = {}) { return URI::From(kUrl, params); }

  // Reads until the end of the data or a failure; the failure, if any, in *last.
  std::string ReadAll(IStream& stream, DLReadResult* last = nullptr, uint64_t chunk = 3000) {
    std::string data;
    std::vector<char> buffer(chunk);
    for (int reads = 0; reads < 100000; ++reads) {
      DLReadResult result = stream.Read(buffer.data(), buffer.size());
      if (result.code == 0) {
        data.append(buffer.data(), result.bytes);
        continue;
      }
      if (last) *last = result;
      break;
    }
    return data;
  }

  std::vector<std::string> Events() {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
  }

  static constexpr const char* kUrl = "http://cdn.example/video/seg1.ts";
  const std::string content_;
  FakeFilter cache_, pcdn_, local_, http_;
  std::shared_ptr<dltest::MapConfig> config_;
  std::shared_ptr<RecordingReporter> reporter_;
  DownloadPipeline pipeline_;
  std::mutex mutex_;
  std::vector<std::string> events_;
};

TEST_F(RetryableStreamTest, OpenWalksDownTheMaskToTheFirstLevelThatOpens) {
  FakeScript failingOpen = Serving(content_);
  failingOpen.open = DLResultCode(1, dltest::kFakeOpenFailure);
  pcdn_.SetScript(failingOpen);
  http_.SetScript(Serving(content_));
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  EXPECT_EQ(stream->CurrentLevel(), kDLLevelHttp);
  EXPECT_EQ(Events(), (std::vector<std::string>{"init_level@0", "open_respond_error@0", "open_downgrade@1",
                                                "open_open_error@1", "open_downgrade@2", "open_respond_error@2",
                                                "open_downgrade@4"}));
  EXPECT_EQ(pcdn_.closes(), 1);
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream), content_));
  EXPECT_EQ(stream->GetInfo("level_tracker"), "4");
  EXPECT_EQ(stream->GetInfo("level_attempts"), "1>4") << "refusing filters are not attempts";
}

TEST_F(RetryableStreamTest, FailedOpenEverywhereEndsAndAnswersTheLastExecutorFailure) {
  FakeScript earlier = Serving(content_);
  earlier.open = DLResultCode(1, dltest::kFakeOpenFailure);
  earlier.reason = "earlier level";
  pcdn_.SetScript(earlier);
  FakeScript notFound = Serving(content_);
  notFound.open = DLResultCode(1, kH404);
  notFound.reason = "HTTP 404";
  local_.SetScript(notFound);
  auto stream = Acquire();
  DLResultCode result = stream->Open(Request());
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.subCode, kH404);  // not the HTTP filter's later refusal
  EXPECT_EQ(http_.asked(), 1);
  EXPECT_EQ(stream->GetInfo("error_message"), "HTTP 404") << "the reason goes with the failure answered";
  EXPECT_EQ(stream->GetInfo("error_kind"), "fake");
  pcdn_.SetScript(Refusing());

  local_.SetScript(Refusing());
  auto refused = Acquire();
  result = refused->Open(Request());
  EXPECT_EQ(result.subCode, dltest::kFakeRefusal);
  DLReadResult read = refused->Read(nullptr, 0);
  EXPECT_EQ(read.code, 1);
  EXPECT_TRUE(refused->Close().IsSuccess());
  EXPECT_TRUE(refused->Close().IsSuccess());
}

TEST_F(RetryableStreamTest, AFailedReadMovesToTheNextLevelAtTheSameOffset) {
  FakeScript failing = Serving(content_);
  failing.failAt = 10001;
  pcdn_.SetScript(failing);
  local_.SetScript(Serving(content_));
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  ASSERT_EQ(stream->CurrentLevel(), kDLLevelPcdn);
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream, &last), content_));
  EXPECT_EQ(last.code, 5);
  EXPECT_EQ(local_.openOffsets(), std::vector<int64_t>{10001});
  EXPECT_EQ(stream->GetInfo("level_tracker"), "1>2");
  EXPECT_EQ(stream->GetInfo("level_attempts"), "1>2");
  EXPECT_EQ(Events().back(), "read_downgrade@2");
  EXPECT_NE(stream->GetInfo("stream_end_info").find("read_downgrade_1_2:1"), std::string::npos);
}

TEST_F(RetryableStreamTest, AStallDrainsTheDefaultCalculatorAndTheNextLevelContinues) {
  config_->Set("flow_rate_sample_interval", "5");
  config_->Set("flow_rate_sample_wnd", "2");
  config_->Set("read_timeout", "600000");
  FakeScript stalling = Serving(content_);
  stalling.stallAt = 20000;
  stalling.stallWaitMs = 10;
  pcdn_.SetScript(stalling);
  http_.SetScript(Serving(content_));
  dltest::LogCapture log;
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream), content_));
  EXPECT_EQ(http_.openOffsets(), std::vector<int64_t>{20000});
  EXPECT_TRUE(log.Contains("FLOWRATE-> drain, level:1"));
  EXPECT_TRUE(log.Contains("reason:stall"));
  EXPECT_TRUE(log.Contains("FLOWRATE-> HandleReadDowngrade success ["));
  EXPECT_EQ(stream->GetInfo("is_timeout"), "0");
}

TEST_F(RetryableStreamTest, AReadThatWaitsPastTheReadTimeoutDowngrades) {
  config_->Set("new_drain_caculator", "0");
  config_->Set("read_retry_count", "100000");  // the ring never fills
  config_->Set("read_timeout", "30");
  FakeScript stalling = Serving(content_);
  stalling.stallAt = 5000;
  pcdn_.SetScript(stalling);
  local_.SetScript(Serving(content_));
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream), content_));
  EXPECT_EQ(local_.openOffsets(), std::vector<int64_t>{5000});
  EXPECT_EQ(stream->GetInfo("is_timeout"), "1");
}

TEST_F(RetryableStreamTest, PastTheTopLevelTheWalkWrapsToTheLowestLevel) {
  FakeScript failing = Serving(content_);
  failing.failAt = 30000;
  http_.SetScript(failing);
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  ASSERT_EQ(stream->CurrentLevel(), kDLLevelHttp);
  pcdn_.SetScript(Serving(content_));
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream), content_));
  EXPECT_EQ(pcdn_.openOffsets(), std::vector<int64_t>{30000});
  EXPECT_EQ(stream->GetInfo("level_tracker"), "4>1");
}

TEST_F(RetryableStreamTest, WhenNoOtherLevelOpensTheSameLevelIsReopenedOnceThenTheFailureShows) {
  FakeScript failing = Serving(content_);
  failing.failAt = 1000;
  http_.SetScript(failing);
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  DLReadResult last;
  std::string data = ReadAll(*stream, &last);
  EXPECT_TRUE(dltest::SameBytes(data, content_.substr(0, 1000)));
  EXPECT_EQ(last.code, 1);
  EXPECT_EQ(last.subCode, dltest::kFakeReadFailure);
  // Each downgrade walks 1, 2, 4 once and reopens 4 at 1000; one read tries
  // a bounded number of times before it shows the failure.
  std::vector<int64_t> offsets = http_.openOffsets();
  EXPECT_EQ(offsets, (std::vector<int64_t>{0, 1000, 1000, 1000, 1000}));
  EXPECT_EQ(pcdn_.asked(), 5);
}

TEST_F(RetryableStreamTest, PcdnOnlyRequestsNeverLeaveTheirLevel) {
  config_->Set("use_pcdn_ng_disable_downgrade", "true");
  FakeScript failing = Serving(content_);
  failing.failAt = 2000;
  pcdn_.SetScript(failing);
  local_.SetScript(Serving(content_));
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  EXPECT_EQ(stream->LevelMask(), 1u);
  EXPECT_EQ(cache_.asked(), 0);
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream, &last), content_.substr(0, 2000)));
  EXPECT_EQ(last.subCode, dltest::kFakeReadFailure);
  EXPECT_EQ(local_.asked(), 0);
  EXPECT_EQ(stream->GetInfo("level_tracker"), "1");

  pcdn_.SetScript(Refusing());
  auto refused = Acquire();
  EXPECT_EQ(refused->Open(Request()).subCode, dltest::kFakeRefusal);
  EXPECT_EQ(local_.asked(), 0);

  auto live = Acquire();
  ASSERT_TRUE(live->Open(Request({{"is_live", "true"}})).IsSuccess());
  EXPECT_EQ(live->CurrentLevel(), kDLLevelLocalFile);
}

TEST_F(RetryableStreamTest, ForbiddenReadDowngradesHandTheFailureToThePlayer) {
  FakeScript failing = Serving(content_);
  failing.failAt = 2000;
  failing.reason = "connection lost";
  pcdn_.SetScript(failing);
  local_.SetScript(Serving(content_));
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request({{"disable_read_downgrade", "true"}})).IsSuccess());
  DLReadResult last;
  EXPECT_EQ(ReadAll(*stream, &last).size(), 2000u);
  EXPECT_EQ(last.code, 1);
  EXPECT_TRUE(local_.openOffsets().empty());
  EXPECT_EQ(stream->GetInfo("error_message"), "connection lost") << "the reason of the failed read";

  // Live PCDN reads do not downgrade by default either.
  auto live = Acquire();
  ASSERT_TRUE(live->Open(Request({{"is_live", "true"}})).IsSuccess());
  EXPECT_EQ(ReadAll(*live, &last).size(), 2000u);
  EXPECT_TRUE(local_.openOffsets().empty());
}

TEST_F(RetryableStreamTest, ExecutorsSeeTheOffsetTheSettingsAndTheRequestsIdentity) {
  class NamedIdentifier : public URIIdentifier {
   public:
    std::string ID(const URI*) override { return "resource-7"; }
    std::string GroupID(const URI*) override { return "group"; }
  } identifier;
  FakeScript failing = Serving(content_);
  failing.failAt = 4096;
  pcdn_.SetScript(failing);
  local_.SetScript(Serving(content_));
  auto stream = Acquire();
  stream->SetStreamSettings({{"player_id", "9"}, {"stream_type", "1"}});
  URIBuilder builder = URIBuilder::New();
  builder.params["stream_type"] = "2";
  builder.params["track_info"] = "t1";
  ASSERT_TRUE(stream->Open(builder.SetUrl(kUrl).SetURIIdentifier(&identifier).Build()).IsSuccess());
  EXPECT_EQ(stream->GetParam("stream_type"), "2");
  EXPECT_EQ(stream->GetParam("player_id"), "9");
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream), content_));
  auto requests = local_.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0]->ID(), "resource-7");
  EXPECT_EQ(requests[0]->GetParams().at("track_info"), "t1");
  EXPECT_EQ(requests[0]->GetParams().at("player_id"), "9");
}

TEST_F(RetryableStreamTest, SeekMovesTheOffsetThatADowngradeReopensAt) {
  FakeScript failing = Serving(content_);
  failing.failAt = 50000;
  pcdn_.SetScript(failing);
  local_.SetScript(Serving(content_));
  auto stream = Acquire();
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  ASSERT_TRUE(stream->Seek(40000).IsSuccess());
  EXPECT_TRUE(dltest::SameBytes(ReadAll(*stream), content_.substr(40000)));
  EXPECT_EQ(local_.openOffsets(), std::vector<int64_t>{50000});
  EXPECT_EQ(stream->GetFileSize(), static_cast<int64_t>(kContentSize));
}

TEST_F(RetryableStreamTest, ClosingReportsTheStreamEndAndReleasesTheExecutor) {
  http_.SetScript(Serving(content_));
  auto stream = Acquire();
  EXPECT_EQ(stream->IsOpenReady().code, 1);  // nothing started
  ASSERT_TRUE(stream->Open(Request()).IsSuccess());
  EXPECT_EQ(stream->Open(Request()).subCode, RetryableStream::kBadRequestSubCode);  // a second open is refused
  std::vector<char> buffer(1000);
  ASSERT_EQ(stream->Read(buffer.data(), buffer.size()).bytes, 1000u);
  dltest::LogCapture log;
  EXPECT_TRUE(stream->Close().IsSuccess());
  EXPECT_EQ(http_.closes(), 1);
  EXPECT_TRUE(log.Contains("[KeyFlow] close stream [cdn_ip:"));
  EXPECT_TRUE(log.Contains("tunnelstat:"));
  std::vector<std::string> records;
  {
    std::lock_guard<std::mutex> lock(reporter_->mutex_);
    records = reporter_->records;
  }
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].rfind("downloader|stream_end_info|", 0), 0u);
  EXPECT_NE(records[0].find("downloadSize:1000"), std::string::npos);
  EXPECT_NE(records[0].find("read_downgrade_1_4:0"), std::string::npos);
  EXPECT_EQ(records[1].rfind("downloader|dltunnelstat|", 0), 0u);
  EXPECT_EQ(stream->Read(buffer.data(), buffer.size()).subCode, RetryableStream::kNotOpenSubCode);
}

}  // namespace
}  // namespace downloader
