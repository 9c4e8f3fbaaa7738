#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <downloader/Base/URIBuilder.h>
#include <downloader/Filter/SubCode.h>
#include <downloader/Filter/WispDownloadExecutor.h>
#include <downloader/Filter/WispDownloadFilter.h>
#include <downloader/Pipe/DownloadManager.h>

#include "Base/Sha256.h"
#include "ExecutorContract.h"
#include "ExecutorReading.h"
#include "Filter/WispTotals.h"
#include "WispOriginTest.h"
#include "support/FakeClock.h"
#include "support/LogCapture.h"

namespace dltest {
namespace {

using downloader::URI;
using downloader::WispDownloadExecutor;

// --- The contract, against dlorigin ----------------------------------------

class WispExecutorFactory : public ExecutorFactory {
 public:
  void SetUp() override {
    origin_ = OriginUrlFromEnvironment();
    ASSERT_FALSE(origin_.empty()) << "no origin: run through ctest, or set DLORIGIN_URL";
    auto config = std::make_shared<MapConfig>();
    // Longer than the contract waits for a read that Close must end.
    config->Set("read_timeout", "60000");
    filter_.SetConfigure(config);
  }
  std::shared_ptr<downloader::IDownloadExecutor> NewExecutor() override {
    return filter_.AcquireExecutor(URI::From(origin_ + "/syn/contract", {}));
  }
  ContractResource MakeResource(int64_t size) override {
    const std::string path = "/syn/contract-" + std::to_string(size);
    return {origin_ + path + "?size=" + std::to_string(size), dlorigin::SyntheticSeed(path), ""};
  }
  std::string MissingUrl() override { return origin_ + "/syn/missing?status=404"; }
  std::string RangeEndSkipReason() override { return ""; }
  ContractResource MakeUnknownLengthResource(int64_t size) override {
    ContractResource resource = MakeResource(size);
    resource.url += "&chunked=1";
    return resource;
  }
  ContractResource MakeStallingResource(int64_t size, int64_t delivered) override {
    ContractResource resource = MakeResource(size);
    resource.url += "&stall_after=" + std::to_string(delivered);
    return resource;
  }

 private:
  std::string origin_;
  downloader::WispDownloadFilter filter_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Wisp, ExecutorContractTest, WispExecutorFactory);

// --- Failures, through real responses -----------------------------------------

class WispDownloadExecutorTest : public WispOriginTest {
 protected:
  // Opens `url` and expects a failure with `tag`.
  void ExpectOpenFailure(const std::string& url, const URI::Params& params, const std::string& tag) {
    DLResultCode opened;
    auto executor = OpenExecutor(url, params, &opened);
    EXPECT_EQ(opened.code, kDLFailure) << url;
    EXPECT_EQ(SubCodeTag(opened.subCode), tag) << url;
    DLReadResult read = ReadOnce(executor.get(), 4096);
    EXPECT_EQ(read.code, kDLFailure) << "a read after a failed open names the failure too";
    EXPECT_EQ(read.subCode, opened.subCode);
    executor->Close();
  }
};

TEST_F(WispDownloadExecutorTest, FailureRowsThroughRealResponses) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"status=404", "H404"}, {"status=416", "H416"}, {"status=501", "H400"},
      {"status=502", "H502"}, {"status=418", "H5XX"}, {"status=403&xerr=403605", "C605"},
      {"status=403&xerr=403700", "H403"}, {"status=403", "H403"},
  };
  for (const auto& row : rows) ExpectOpenFailure(SyntheticUrl("fail", 1000, row.first), {}, row.second);
  ExpectOpenFailure(SyntheticUrl("ignored-range", 5000, "ignore_range=1"), {{"range_start", "100"}}, "HORD");
  // Nothing listens on port 1 of the loopback.
  ExpectOpenFailure("http://127.0.0.1:1/syn/x", {}, "H4XX");
}

TEST_F(WispDownloadExecutorTest, FailuresSayWhyInWordsAndNameTheirKind) {
  struct Row {
    std::string url;
    std::string header;
    std::string tag;
    std::string kind;
    std::string reason;
  };
  const std::vector<Row> rows = {
      {SyntheticUrl("unauthorized", 1000, "status=401"), "", "H5XX", "http status", "HTTP 401"},
      {"http://dl-test-host.invalid/syn/x", "", "H4XX", "dns failure", "could not resolve host 'dl-test-host.invalid'"},
      {"http://127.0.0.1:1/syn/x", "", "H4XX", "connect failure", "connection refused"},
      {SyntheticUrl("injected", 1000), "Referer:r\r\nX-Injected:1", "HHDR", "invalid request", "CR or LF"},
      {SyntheticUrl("vast", 2000000000000), "", "HBIG", "response refused", "beyond any file"},
  };
  for (const Row& row : rows) {
    uri_ = downloader::URIBuilder::New().SetUrl(row.url).SetHttpHeader(row.header).Build();
    auto executor = std::make_shared<WispDownloadExecutor>(config_, reporter_, uri_);
    EXPECT_EQ(executor->GetInfo("error_message"), "") << "nothing failed yet";
    DLResultCode opened = executor->Open(uri_);
    EXPECT_EQ(SubCodeTag(opened.subCode), row.tag) << row.url;
    EXPECT_EQ(executor->GetInfo("error_kind"), row.kind) << row.url;
    EXPECT_NE(executor->GetInfo("error_message").find(row.reason), std::string::npos)
        << row.url << ": " << executor->GetInfo("error_message");
    executor->Close();
  }
}

TEST_F(WispDownloadExecutorTest, LiveOpenTimesOutWithGdtoAndTheTimedOutFlag) {
  LogCapture log;
  config_->Set("http_downloader_kit", "live_open_timeout", "200");
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("slow", 1000, "delay_ms=3000"), {{"is_live", "1"}}, &opened);
  EXPECT_EQ(opened.code, kDLFailure);
  EXPECT_EQ(SubCodeTag(opened.subCode), "GDTO");
  EXPECT_EQ(executor->GetInfo("is_timeout"), "1");
  EXPECT_TRUE(log.Contains("WISPDownloadExecutor open timeout"));
  executor->Close();
}

TEST_F(WispDownloadExecutorTest, ConnectionLostMidBodyEndsTheReadsAfterTheBytesThatCame) {
  LogCapture log;
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("dropped", 500000, "drop_after=100000"), {}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  std::vector<uint8_t> data;
  DLReadResult last = ReadToEnd(executor.get(), 65536, &data);
  EXPECT_EQ(data.size(), 100000u);
  ExpectSynthetic(SeedOf("dropped"), 0, data);
  EXPECT_EQ(last.code, kDLFailure);
  EXPECT_EQ(SubCodeTag(last.subCode), "H4XX");
  EXPECT_TRUE(log.Contains("] period WispDownloadExecutor error, errorCode:"));
  executor->Close();
}

// --- Reading -----------------------------------------------------------------

TEST_F(WispDownloadExecutorTest, RequestedRangeEndsTheData) {
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("range", 10000), {{"range_start", "100"}, {"range_end", "199"}}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  EXPECT_EQ(executor->GetFileSize(), 10000) << "the whole resource's size, not the range's";
  std::vector<uint8_t> data;
  EXPECT_EQ(ReadToEnd(executor.get(), 4096, &data).code, kDLEndOfData);
  ASSERT_EQ(data.size(), 100u);
  ExpectSynthetic(SeedOf("range"), 100, data);
  executor->Close();
}

TEST_F(WispDownloadExecutorTest, StalledOriginEndsTheReadAtTheReadTimeout) {
  FakeLibraryContext fake;
  LogCapture log;
  config_->Set("read_timeout", "300");
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("stalled", 100000, "stall_after=1000"), {}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadBytes(executor.get(), 1000, 4096, &data).code, kDLSuccess);
  EXPECT_EQ(executor->GetInfo("is_timeout"), "0");
  // Every byte before the stall is read: only the time-out ends the next read.
  fake.clock().AdvanceWhileWaited();
  DLReadResult stalled = ReadOnce(executor.get(), 4096);
  EXPECT_EQ(stalled.code, kDLFailure);
  EXPECT_EQ(SubCodeTag(stalled.subCode), "GDTO");
  EXPECT_EQ(stalled.bytes, 0u);
  EXPECT_EQ(executor->GetInfo("is_timeout"), "1");
  EXPECT_EQ(executor->GetInfo("error_kind"), "timeout");
  EXPECT_EQ(executor->GetInfo("error_message"), "timed out after 300 ms waiting for data");
  EXPECT_TRUE(log.Contains("error?? "));
  executor->Close();
}

TEST_F(WispDownloadExecutorTest, FastReadAnswersAtOnceWithNothingQueued) {
  // A read that waited would wait ten minutes.
  config_->Set("read_timeout", "600000");
  config_->Set("fast_read_duration", "20");
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("fast", 100000, "stall_after=0"), {}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  DLReadResult read = ReadOnce(executor.get(), 4096);
  EXPECT_EQ(read.code, kDLSuccess);
  EXPECT_EQ(read.bytes, 0u);
  EXPECT_EQ(executor->GetInfo("is_timeout"), "0");
  executor->Close();
}

TEST_F(WispDownloadExecutorTest, AsyncOpenThenWaitGivesTheOpenFailure) {
  auto failing = NewExecutor(SyntheticUrl("async", 5000, "status=404"));
  EXPECT_EQ(failing->OpenAsync(uri_).code, kDLSuccess);
  EXPECT_EQ(SubCodeTag(failing->WaitOpenResult().subCode), "H404");
  EXPECT_FALSE(failing->IsReady());
  failing->Close();
}

// --- Statistics --------------------------------------------------------------

TEST_F(WispDownloadExecutorTest, InfoKeysAfterAFullDownload) {
  const int64_t size = 200000;
  const uint64_t cdnBytesBefore = downloader::WispTotals::CdnBytes();
  DLResultCode opened;
  auto executor = OpenExecutor(
      SyntheticUrl("info", size),
      {{"player_id", "7"}, {"job_type", "1"}, {"buffer_duration", "3000"}, {"channelType", "2"}, {"bit_rate", "1500"}},
      &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  executor->SetPlayerBufferDuration(2500);

  EXPECT_EQ(executor->GetInfo("downloaded_size"), std::to_string(size));
  EXPECT_EQ(executor->GetInfo("download_size"), std::to_string(size));
  EXPECT_EQ(executor->GetInfo("effective_url"), SyntheticUrl("info", size) + "&dl_player_id=7");
  EXPECT_GT(std::stoll(executor->GetInfo("download_speed")), 0);
  EXPECT_EQ(executor->GetInfo("memory_usage"), "0") << "every drained node is freed";
  EXPECT_EQ(executor->GetInfo("player_event"),
            "@BizType>wisp^job_type>1^open_buffer>3000^channelType>2^extChannelVol>0^cur_buffer>2500^bitRate>1500");
  EXPECT_GE(downloader::WispTotals::CdnBytes() - cdnBytesBefore, static_cast<uint64_t>(size));

  downloader::WispTotals::SetLastDownloadSpeed(0);
  executor->Close();
  EXPECT_GT(downloader::WispTotals::LastDownloadSpeed(), 0) << "Close keeps the speed for the next request";
  EXPECT_EQ(executor->GetInfo("memory_usage"), "0");
  EXPECT_EQ(executor->GetInfo("download_size"), std::to_string(size)) << "the record outlives Close";
}

// What the HTTP level fetches is what the manager reports as CDN bytes since
// its last query.
TEST_F(WispDownloadExecutorTest, FetchedBytesReachTheManagersCdnReport) {
  downloader::DownloadManager& manager = downloader::DownloadManager::GetInstance();
  auto config = std::make_shared<MapConfig>();
  config->Set("enable_cdn_flow_report", "true");
  manager.AddNewConfig(config, 4009);
  int64_t sinceLastQuery = -1;
  manager.GetParam(0, downloader::DownloadManager::kParamCdnBytes, &sinceLastQuery);

  const int64_t size = 150000;
  DLResultCode opened;
  auto executor = OpenExecutor(SyntheticUrl("cdn-total", size), {}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  executor->Close();

  manager.GetParam(0, downloader::DownloadManager::kParamCdnBytes, &sinceLastQuery);
  EXPECT_GE(sinceLastQuery, size);
  manager.RemoveConfigById(4009);
}

// Counts the records of a "wispLastReports" text.
size_t RecordCount(const std::string& text) {
  size_t count = 0;
  for (size_t at = text.find("\"effectiveUrl\""); at != std::string::npos; at = text.find("\"effectiveUrl\"", at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(WispDownloadExecutorTest, CloseReportsTheLastThreeRequestsOfThePlayer) {
  const URI::Params params = {{"player_id", "424242"}};
  for (int request = 1; request <= 4; ++request) {
    DLResultCode opened;
    auto executor = OpenExecutor(SyntheticUrl("report-" + std::to_string(request), 1000), params, &opened);
    ASSERT_EQ(opened.code, kDLSuccess);
    std::vector<uint8_t> data;
    ReadToEnd(executor.get(), 4096, &data);
    if (request == 4) executor->SetHint("pcdn_not_respond");
    if (request == 3) executor->SetHint("pcdn_not_respond!");
    executor->Close();
  }
  auto reports = reporter_->Named("wispLastReports");
  ASSERT_EQ(reports.size(), 4u);
  EXPECT_EQ(reports[0].category, "downloader");
  EXPECT_EQ(RecordCount(reports[0].text), 1u);
  EXPECT_EQ(RecordCount(reports[3].text), 3u);
  const std::string& last = reports[3].text;
  EXPECT_EQ(last.find("report-1?"), std::string::npos) << "the oldest is dropped";
  EXPECT_LT(last.find("report-2?"), last.find("report-3?"));
  EXPECT_LT(last.find("report-3?"), last.find("report-4?"));
  EXPECT_NE(last.find("\"downloadSize\":\"1000\""), std::string::npos) << last;
  EXPECT_EQ(last.rfind("\"pcdnNotRespond\":\"1\""), last.find("\"pcdnNotRespond\":\"1\"")) << "only the exact hint";
  EXPECT_NE(last.find("\"pcdnNotRespond\":\"1\""), std::string::npos);
  EXPECT_EQ(reporter_->Named("lastSpeedInfo").size(), 4u);
}

TEST_F(WispDownloadExecutorTest, NoReportForPreloadsOrWhenSwitchedOff) {
  DLResultCode opened;
  auto preload = OpenExecutor(SyntheticUrl("preload", 100), {{"preload", "1"}}, &opened);
  preload->Close();
  config_->Set("http_downloader_kit", "report_last", "false");
  auto off = OpenExecutor(SyntheticUrl("off", 100), {}, &opened);
  off->Close();
  EXPECT_TRUE(reporter_->Records().empty());
}

TEST_F(WispDownloadExecutorTest, SampledHashIsTheSha256OfUrlOffsetAndBody) {
  LogCapture log;
  config_->Set("hash_check_sample", "101");  // every draw is below it
  const int64_t size = 300000;
  const std::string url = SyntheticUrl("hashed", size);
  DLResultCode opened;
  auto executor = OpenExecutor(url, {}, &opened);
  ASSERT_EQ(opened.code, kDLSuccess);
  std::vector<uint8_t> data;
  ASSERT_EQ(ReadToEnd(executor.get(), 65536, &data).code, kDLEndOfData);
  executor->Close();

  downloader::Sha256 expected;
  expected.Update(url + "&dl_player_id=-1");
  expected.Update("0");
  expected.Update(data.data(), data.size());
  EXPECT_TRUE(log.Contains("] hash result:" + expected.FinalHex() + ", start offset:0, end offset:" +
                           std::to_string(size) + ", total:" + std::to_string(size)));
}

}  // namespace
}  // namespace dltest
