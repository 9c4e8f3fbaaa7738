// The PCDN binding against no engine, then against the fake engine once the
// test (playing the host) maps it. Bound slots are never cleared, so the
// no-engine case is only meaningful in a process that has not mapped the
// engine yet; it skips itself otherwise.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Base/SmartDns.h"
#include "Platform/ModuleLoader.h"
#include "engines/EngineFixture.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace downloader {
namespace {

using Pcdn = PcdnInterfaceHelper;

std::string EngineAnswer(const std::string& key) {
  char buffer[256] = {};
  const char* answer = Pcdn::dlPCDNGet(key.c_str(), buffer, sizeof(buffer));
  return answer == nullptr ? std::string("<null>") : std::string(answer);
}

std::string TraceLine;
void RecordTrace(const char* text, int /*level*/) { TraceLine = text; }

class PcdnEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
    Pcdn::dlPCDNSetByKV("fake-reset", "");
    Pcdn::dlPCDNSetByKV("fake-root", dir_.path().c_str());
  }

  dltest::TempDir dir_;
};

TEST(PcdnBindingTest, WithoutEngineEveryWrapperAnswersItsFixedValueUntilTheHostMapsIt) {
  if (dltest::IsModuleMapped(platform::kPcdnModuleName)) GTEST_SKIP() << "engine already mapped in this process";
  dltest::LogCapture log;
  char buffer[64] = {};
  EXPECT_EQ(Pcdn::dlPCDNOpen("res", 0, ""), 0);
  EXPECT_EQ(Pcdn::dlPCDNRead(1, 0, "http://h/a.ts", 0, -1, "", &dltest::CollectRead), 0);
  EXPECT_EQ(Pcdn::dlPCDNClose(1), 0);
  EXPECT_EQ(Pcdn::dlPCDNSetMeta(1, 2, 3, 4.0f, "t", 5), 0);
  EXPECT_EQ(Pcdn::dlPCDNSetByKV("k", "v"), 0);
  EXPECT_EQ(Pcdn::dlPCDNGet("k", buffer, sizeof(buffer)), nullptr);
  EXPECT_EQ(Pcdn::dlPCDNGetByKV("k", "a", buffer, sizeof(buffer)), nullptr);
  EXPECT_EQ(Pcdn::dlPCDNSetTraceCallback(&RecordTrace), -1);
  EXPECT_EQ(Pcdn::dlPCDNNGGet("k", "a", buffer, sizeof(buffer)), nullptr);
  EXPECT_FALSE(Pcdn::EnsureSymbolLoaded());
  // Every binding wrapper retried (eight) plus the explicit call; the NG read
  // never binds.
  EXPECT_EQ(log.Matching("dlopen failed with path:" + std::string(platform::kPcdnModuleName)).size(), 9u);
  EXPECT_EQ(log.Matching("dlsym called with handler == nullptr").size(), 9u);

  ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
  EXPECT_GE(Pcdn::dlPCDNOpen("res", 0, ""), 1);
  EXPECT_TRUE(Pcdn::EnsureSymbolLoaded());
}

TEST_F(PcdnEngineTest, NGReadStaysUnboundThoughTheEngineExportsIt) {
  ASSERT_TRUE(Pcdn::EnsureSymbolLoaded());
  char buffer[16] = {};
  EXPECT_EQ(Pcdn::dlPCDNNGGet("k", "a", buffer, sizeof(buffer)), nullptr);
  EXPECT_FALSE(Pcdn::NGEnsureSymbolLoaded());
  EXPECT_EQ(EngineAnswer("fake-calls:PCDNNGGet"), "0");
}

TEST_F(PcdnEngineTest, ServesRangesByteExactlyThroughTheCallback) {
  const std::string file = dltest::WritePatternFile(dir_.Join("seg.ts"), 300000);
  Pcdn::dlPCDNSetByKV("fake-piece-size", "4093");

  int64_t middle = Pcdn::dlPCDNOpen("seg", 0, "");
  ASSERT_EQ(Pcdn::dlPCDNRead(middle, 0, "http://cdn.test/seg.ts?token=1", 1000, 199999, "", &dltest::CollectRead),
            0);
  ASSERT_TRUE(dltest::WaitForEnd(middle));
  dltest::ReadRecord record = dltest::RecordOf(middle);
  EXPECT_TRUE(record.done);
  EXPECT_TRUE(record.inOrder);
  EXPECT_EQ(record.firstOffset, 1000);
  EXPECT_EQ(record.endOffset, 200000);
  EXPECT_EQ(record.total, 300000);
  EXPECT_TRUE(record.bytes == file.substr(1000, 199000));

  EXPECT_EQ(Pcdn::dlPCDNClose(middle), 0);
  EXPECT_EQ(Pcdn::dlPCDNClose(middle), -1);  // the engine's answer, passed through
  EXPECT_EQ(Pcdn::dlPCDNRead(middle, 0, "http://cdn.test/seg.ts", 0, -1, "", &dltest::CollectRead), -1);
}

std::vector<std::string> KnownHosts(const std::string& host) {
  static const std::map<std::string, std::vector<std::string>> kHosts = {
      {"two.test", {"10.0.0.1", "10.0.0.2"}}, {"one.test", {"10.0.0.9"}}};
  auto found = kHosts.find(host);
  return found == kHosts.end() ? std::vector<std::string>() : found->second;
}

TEST(PcdnFinalUrlTest, AppendsResolvedAddressesJoinedByUnderscore) {
  SetHostResolver(&KnownHosts);
  EXPECT_EQ(Pcdn::dlCreateFinalUrl("http://two.test/a.ts?x=1"), "http://two.test/a.ts?x=1&ips=10.0.0.1_10.0.0.2");
  EXPECT_EQ(Pcdn::dlCreateFinalUrl("http://two.test/a.ts"), "http://two.test/a.ts?ips=10.0.0.1_10.0.0.2");
  EXPECT_EQ(Pcdn::dlCreateFinalUrl("https://one.test:8443/a"), "https://one.test:8443/a?ips=10.0.0.9");
  // Nothing known, or no host by the pattern: unchanged.
  EXPECT_EQ(Pcdn::dlCreateFinalUrl("http://none.test/a.ts"), "http://none.test/a.ts");
  EXPECT_EQ(Pcdn::dlCreateFinalUrl("rtmp://two.test/a"), "rtmp://two.test/a");
  EXPECT_EQ(Pcdn::dlCreateFinalUrl("http://two.test"), "http://two.test");
  SetHostResolver(nullptr);
}

TEST(PcdnFinalUrlTest, DefaultResolverUsesTheNetworkLibrarysLookup) {
  SetHostResolver(nullptr);
  EXPECT_EQ(Pcdn::dlCreateFinalUrl("http://127.0.0.1/a.ts"), "http://127.0.0.1/a.ts?ips=127.0.0.1");
}

TEST_F(PcdnEngineTest, ReadHandsTheEngineTheFinalUrl) {
  dltest::WritePatternFile(dir_.Join("a.ts"), 10);
  SetHostResolver(&KnownHosts);
  int64_t id = Pcdn::dlPCDNOpen("a", 0, "");
  Pcdn::dlPCDNRead(id, 0, "http://two.test/a.ts?k=v", 0, -1, "", &dltest::CollectRead);
  ASSERT_TRUE(dltest::WaitForEnd(id));
  EXPECT_EQ(EngineAnswer("fake-last-read-url"), "http://two.test/a.ts?k=v&ips=10.0.0.1_10.0.0.2");
  Pcdn::dlPCDNClose(id);
  SetHostResolver(nullptr);
}

TEST_F(PcdnEngineTest, PassThroughsAndTheirExtras) {
  EXPECT_EQ(Pcdn::dlPCDNSetMeta(9, -2, 1LL << 40, 1.5f, "meta", 3), 0);
  EXPECT_EQ(EngineAnswer("fake-last-meta"), "9,-2,1099511627776,1.5,meta,3");

  Pcdn::dlPCDNSetByKV("fake-reply:itf-progress:77", "0.25");
  char buffer[8] = {};
  EXPECT_STREQ(Pcdn::dlPCDNGetByKV("itf-progress", "77", buffer, sizeof(buffer)), "0.25");
  EXPECT_EQ(Pcdn::dlPCDNGetByKV("itf-progress", "78", buffer, sizeof(buffer)), nullptr);

  TraceLine.clear();
  EXPECT_EQ(Pcdn::dlPCDNSetTraceCallback(&RecordTrace), 0);
  EXPECT_EQ(TraceLine, "fake pcdn trace attached");
}

}  // namespace
}  // namespace downloader
