// Level 1 with the fake PCDN engine mapped, the way a host maps the real one:
// the PCDN executor against the executor contract, the dispatcher's choices,
// a segment served end to end through a tunnel, and a failing engine read
// continued over HTTP at the same offset. Bound engine slots are never
// cleared, so everything here lives in a program that maps the engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <downloader/Base/HeartPacemaker.h>
#include <downloader/Filter/PcdnDownloadExecutor.h>
#include <downloader/Filter/SubCode.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Base/ByteChannel.h"
#include "FakeChannel.h"
#include "Filter/IPcdnDownloadFilter.h"
#include "Platform/FileSystem.h"
#include "Platform/ModuleLoader.h"
#include "RoadFixture.h"
#include "SyntheticContent.h"
#include "engines/EngineFixture.h"
#include "filter/ExecutorContract.h"
#include "support/FakeClock.h"
#include "support/MapConfig.h"
#include "support/TempDir.h"
#include "support/WaitFor.h"

namespace downloader {
namespace {

using Pcdn = PcdnInterfaceHelper;

constexpr int64_t kSegmentSize = 3 * 1024 * 1024 + 4321;
// An address, not a name: the executor resolves the host before it asks the
// engine, and a name no resolver knows may take the resolver's whole timeout.
constexpr char kEngineHost[] = "http://127.0.0.1";

std::string EngineAnswer(const std::string& key) {
  char buffer[256] = {};
  const char* answer = Pcdn::dlPCDNGet(key.c_str(), buffer, sizeof(buffer));
  return answer == nullptr ? std::string() : std::string(answer);
}

int64_t EngineCalls(const std::string& name) { return std::atoll(EngineAnswer("fake-calls:" + name).c_str()); }

// Maps the fake engine and points it at `root`, with no script left over.
void MapEngineServing(const std::string& root) {
  ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
  ASSERT_TRUE(Pcdn::EnsureSymbolLoaded());
  Pcdn::dlPCDNSetByKV("fake-reset", "");
  Pcdn::dlPCDNSetByKV("fake-root", root.c_str());
}

// Writes the origin's synthetic bytes for `path` (as served under
// http://<host><path>) below `root`.
uint64_t WriteSynthetic(const std::string& root, const std::string& path, int64_t size) {
  const uint64_t seed = dlorigin::SyntheticSeed(path);
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  dlorigin::FillSynthetic(seed, 0, bytes.data(), bytes.size());
  const std::string file = root + path;
  platform::FileSystem::Default()->CreateDirs(file.substr(0, file.rfind('/')));
  std::ofstream out(file, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return seed;
}

class PcdnExecutorFactory : public dltest::ExecutorFactory {
 public:
  void SetUp() override {
    MapEngineServing(dir_.path());
    // Longer than the contract waits for a read that Close must end.
    config_->Set("read_timeout", "60000");
  }
  std::shared_ptr<IDownloadExecutor> NewExecutor() override {
    return std::make_shared<PcdnDownloadExecutor>(config_, nullptr);
  }
  dltest::ContractResource MakeResource(int64_t size) override {
    const std::string path = "/resource-" + std::to_string(size) + ".ts";
    dltest::ContractResource resource;
    resource.seed = WriteSynthetic(dir_.path(), path, size);
    resource.url = kEngineHost + path;
    return resource;
  }
  std::string MissingUrl() override { return std::string(kEngineHost) + "/missing.ts"; }
  std::string RangeEndSkipReason() override {
    return "the engine is asked for every byte from the offset to the end of the resource";
  }
  dltest::ContractResource MakeUnknownLengthResource(int64_t) override {
    return {"", 0, "the test engine serves files and tells their size with the first piece"};
  }
  dltest::ContractResource MakeStallingResource(int64_t size, int64_t delivered) override {
    Pcdn::dlPCDNSetByKV("fake-stall-after", std::to_string(delivered).c_str());
    return MakeResource(size);
  }

 private:
  std::shared_ptr<dltest::MapConfig> config_ = std::make_shared<dltest::MapConfig>();
  dltest::TempDir dir_;
};

}  // namespace
}  // namespace downloader

namespace dltest {
INSTANTIATE_TYPED_TEST_SUITE_P(Pcdn, ExecutorContractTest, downloader::PcdnExecutorFactory);
}  // namespace dltest

namespace downloader {
namespace {

class PcdnExecutorTest : public ::testing::Test {
 protected:
  void SetUp() override { MapEngineServing(dir_.path()); }
  dltest::TempDir dir_;
};

TEST_F(PcdnExecutorTest, DispatcherServesOnlyRequestsThatMayUseTheEngine) {
  auto config = std::make_shared<dltest::MapConfig>();
  IPcdnDownloadFilter filter;
  filter.SetConfigure(config);
  auto answer = [&](const std::string& url, URI::Params params = {}) {
    return filter.ShouldRespond(URI::From(url, params), nullptr).subCode;
  };
  EXPECT_EQ(answer("http://cdn.test/a.ts"), 0);
  EXPECT_EQ(answer("http://local.url/data/a.ts"), IPcdnDownloadFilter::kLocalUrlSubCode);
  EXPECT_EQ(answer("http://cdn.test/a.ts", {{"force_cdn", "true"}}), IPcdnDownloadFilter::kForceCdnSubCode);
  EXPECT_EQ(answer("http://cdn.test/list.m3u8"), IPcdnDownloadFilter::kPlaylistSubCode);
  config->Set("enable_m3u8_mp", "true");
  EXPECT_EQ(answer("http://cdn.test/list.m3u8"), 0);
  config->Set("downloader_info", "canUseP2P", "false");
  EXPECT_EQ(answer("http://cdn.test/a.ts"), IPcdnDownloadFilter::kP2pNotAllowedSubCode);
  EXPECT_EQ(filter.ShouldRespond(nullptr, nullptr).code, kDLFailure);
}

TEST_F(PcdnExecutorTest, EngineFailuresBecomeFourCharacterCodes) {
  const std::string url = std::string(kEngineHost) + "/seg.ts";
  WriteSynthetic(dir_.path(), "/seg.ts", 300000);

  Pcdn::dlPCDNSetByKV("fake-fail-open", "1");
  auto refused = std::make_shared<PcdnDownloadExecutor>(nullptr, nullptr);
  EXPECT_EQ(refused->Open(URI::From(url, {})).subCode, PcdnDownloadExecutor::kOpenFailedSubCode);
  refused->Close();

  Pcdn::dlPCDNSetByKV("fake-fail-after", "100000");
  Pcdn::dlPCDNSetByKV("fake-piece-size", "30000");
  auto failing = std::make_shared<PcdnDownloadExecutor>(nullptr, nullptr);
  ASSERT_EQ(failing->Open(URI::From(url, {})).code, kDLSuccess);
  std::vector<uint8_t> data;
  DLReadResult last = dltest::ReadToEnd(failing.get(), 65536, &data);
  EXPECT_EQ(data.size(), 100000u);
  EXPECT_EQ(last.code, kDLFailure);
  EXPECT_EQ(SubCodeTag(last.subCode), "PRDE");
  EXPECT_EQ(dltest::ReadOnce(failing.get(), 4096).subCode, last.subCode) << "the failure stands";
  failing->Close();
}

TEST_F(PcdnExecutorTest, AStalledEngineTimesTheReadOutAndCloseEndsTheDownload) {
  dltest::FakeLibraryContext fake;
  WriteSynthetic(dir_.path(), "/stall.ts", 200000);
  Pcdn::dlPCDNSetByKV("fake-stall-after", "50000");
  auto config = std::make_shared<dltest::MapConfig>();
  // Also bounds the open: room for the engine's delivery thread to start
  // under a loaded machine or wine.
  config->Set("read_timeout", "2000");
  auto executor = std::make_shared<PcdnDownloadExecutor>(config, nullptr);
  ASSERT_EQ(executor->Open(URI::From(std::string(kEngineHost) + "/stall.ts", {})).code, kDLSuccess);
  // The engine has handed over all it will: only the time-out ends the reads.
  ASSERT_TRUE(dltest::WaitFor([] { return std::atoll(EngineAnswer("fake-stalled").c_str()) > 0; }));
  fake.clock().AdvanceWhileWaited();
  std::vector<uint8_t> data;
  DLReadResult last = dltest::ReadToEnd(executor.get(), 65536, &data);
  EXPECT_EQ(data.size(), 50000u);
  EXPECT_EQ(SubCodeTag(last.subCode), "PRTO");
  EXPECT_EQ(executor->GetInfo("is_timeout"), "1");
  const int64_t closes = EngineCalls("PCDNClose");
  EXPECT_EQ(executor->Close().code, kDLSuccess);
  EXPECT_EQ(EngineCalls("PCDNClose"), closes + 1);
}

TEST_F(PcdnExecutorTest, AResourceLargerThanTheQueueBoundArrivesWhole) {
  const int64_t size = static_cast<int64_t>(ByteChannel::kPauseAboveBytes) * 2 + 777;
  const uint64_t seed = WriteSynthetic(dir_.path(), "/big.ts", size);
  auto executor = std::make_shared<PcdnDownloadExecutor>(nullptr, nullptr);
  const int64_t readsBefore = EngineCalls("PCDNRead");
  ASSERT_EQ(executor->Open(URI::From(std::string(kEngineHost) + "/big.ts", {})).code, kDLSuccess);
  // Nothing read yet, so what arrived is queued: past the bound, delivery
  // has paused, and reading on must resume it.
  ASSERT_TRUE(dltest::WaitFor([&] {
    return std::stoull(executor->GetInfo("downloaded_size")) > ByteChannel::kPauseAboveBytes;
  }));
  std::vector<uint8_t> data;
  DLReadResult last = dltest::ReadToEnd(executor.get(), 1 << 20, &data);
  EXPECT_EQ(last.code, kDLEndOfData);
  ASSERT_EQ(static_cast<int64_t>(data.size()), size);
  dltest::ExpectSynthetic(seed, 0, data);
  EXPECT_GE(EngineCalls("PCDNRead") - readsBefore, 2) << "delivery paused and resumed";
  executor->Close();
}

HeartbeatInfo BeatFor(int32_t pid) { return {{"pid", std::to_string(pid)}, {"buffer", "1200"}}; }

TEST_F(PcdnExecutorTest, HeartbeatsReachTheEngineWhileOpen) {
  dltest::FakeLibraryContext fake;
  HeartPacemaker::SetHeartbeatCallback(&BeatFor);
  WriteSynthetic(dir_.path(), "/beat.ts", 1000);
  auto executor = std::make_shared<PcdnDownloadExecutor>(nullptr, nullptr);
  const int64_t before = EngineCalls("PCDNSetByKV");
  ASSERT_EQ(executor->Open(URI::From(std::string(kEngineHost) + "/beat.ts", {{"player_id", "7"}})).code, kDLSuccess);
  fake.clock().AdvanceWhileWaited();
  EXPECT_TRUE(dltest::WaitFor([&] { return EngineCalls("PCDNSetByKV") > before; },
                              std::chrono::milliseconds(3 * PcdnDownloadExecutor::kDefaultHeartbeatMs)));
  executor->Close();
  HeartPacemaker::SetHeartbeatCallback(nullptr);
}

// --- Through a tunnel ------------------------------------------------------

class PcdnRoadTest : public dltest::RoadFixture {
 protected:
  void SetUp() override {
    RoadFixture::SetUp();
    if (HasFatalFailure()) return;
    MapEngineServing(engineRoot_.path());
  }

  // A segment the origin serves and the engine holds too.
  std::string Segment(const std::string& name, const std::string& tag) {
    WriteSynthetic(engineRoot_.path(), "/syn/" + name, kSegmentSize);
    return SyntheticUrl(name, kSegmentSize, "tag=" + tag);
  }

  dltest::TempDir engineRoot_;
};

TEST_F(PcdnRoadTest, LevelOneServesASegmentWithoutTheOrigin) {
  const std::string name = UniqueName("pcdn") + ".ts";
  const std::string tag = UniqueName("tag");
  const std::string url = Segment(name, tag);
  auto stream = tunnel_->Acquire();
  ASSERT_TRUE(stream->Open(URI::From(url, {})).IsSuccess());
  EXPECT_EQ(stream->GetInfo("level_tracker"), "1");
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadToEnd(*stream, &last, 10000), SyntheticBytes(name, kSegmentSize)));
  EXPECT_EQ(last.code, kDLEndOfData);
  stream->Close();
  tunnel_->Release(stream);
  EXPECT_EQ(RequestsFor(tag), 0);
}

TEST_F(PcdnRoadTest, AnEngineFailureMidwayContinuesOverHttpAtTheSameOffset) {
  const int64_t failAfter = 1000003;
  const std::string name = UniqueName("pcdnfail") + ".ts";
  const std::string tag = UniqueName("tag");
  const std::string url = Segment(name, tag);
  Pcdn::dlPCDNSetByKV("fake-fail-after", std::to_string(failAfter).c_str());
  auto stream = tunnel_->Acquire();
  ASSERT_TRUE(stream->Open(URI::From(url, {})).IsSuccess());
  EXPECT_EQ(stream->GetInfo("level_tracker"), "1");
  DLReadResult last;
  EXPECT_TRUE(dltest::SameBytes(ReadToEnd(*stream, &last, 65536), SyntheticBytes(name, kSegmentSize)));
  EXPECT_EQ(last.code, kDLEndOfData);
  EXPECT_EQ(stream->GetInfo("level_tracker"), "1>4");
  stream->Close();
  tunnel_->Release(stream);
  EXPECT_EQ(RequestsFor(tag), 1);
  const std::vector<std::string> events = Events();
  EXPECT_NE(std::find(events.begin(), events.end(), "read_downgrade@4"), events.end());
}

}  // namespace
}  // namespace downloader
