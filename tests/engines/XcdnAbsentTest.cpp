// The XCDN binding in a process where the engine can be neither found nor
// loaded, and its beam adapters on their own.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include <downloader/Stream/XcdnInterfaceHelper.h>

#include "Platform/ModuleLoader.h"
#include "Stream/XcdnBeamAdapter.h"
#include "engines/EngineFixture.h"
#include "support/LogCapture.h"

namespace downloader {
namespace {

using Xcdn = XcdnInterfaceHelper;
using Pairs = std::map<std::string, std::string>;

class XcdnAbsentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (dltest::IsModuleMapped(platform::kXcdnModuleName)) GTEST_SKIP() << "an engine is mapped in this process";
  }
};

TEST_F(XcdnAbsentTest, EachWrapperLogsOnceAndAnswersItsFailureValue) {
  dltest::LogCapture log;
  int64_t count = 0;
  char buffer[8] = {};
  EXPECT_EQ(Xcdn::dlXCdnReadSource(1, buffer, &count, sizeof(buffer), 0), -1);
  EXPECT_EQ(log.Matching("xcdn no soload:").size(), 1u);
  EXPECT_EQ(Xcdn::dlXCdnGetProp(1, nullptr, 0, 0), 0xFFFFFFFFu);
  EXPECT_EQ(log.Matching("xcdn no soload:").size(), 2u);

  int64_t opened = 0;
  EXPECT_EQ(Xcdn::dlXCdnOpenSource(1, "r", 0, &opened), -1);
  EXPECT_EQ(Xcdn::dlXCdnContentLength(1, 0), -1);
  EXPECT_EQ(Xcdn::dlXCdnStopSource(1), -1);
  EXPECT_EQ(Xcdn::dlXCdnSetProp2(1, 0, 0), 0xFFFFFFFFu);
  EXPECT_EQ(Xcdn::dlXCdnSetProp(1, 0, 0), 0xFFFFFFFFu);
  EXPECT_EQ(Xcdn::dlXCdnDownloaded("http://h/a.mp4", 0, 0, 0), -1);
  EXPECT_EQ(Xcdn::EnsureSymbolLoaded(), 0);
}

TEST_F(XcdnAbsentTest, InitAndTheCExportsFailWhenTheEngineCannotBeLoaded) {
  EXPECT_EQ(cCacheDownload_Init("{}"), 0xFFFFFFFFu);
  EXPECT_EQ(cCacheDownload_StartDownload(1, 2, 3, 4), 0xFFFFFFFFu);
  EXPECT_EQ(cCacheDownload_StopDownload(0), -1);
  EXPECT_FALSE(dltest::IsModuleMapped(platform::kXcdnModuleName));
}

std::vector<std::string> g_jsonEvents;
void RecordJson(const char* json) { g_jsonEvents.emplace_back(json); }

std::vector<std::pair<Pairs, Pairs>> g_mapEvents;
void RecordMap(const std::string& module, const std::string& point, const Pairs& dimensions, const Pairs& measures) {
  EXPECT_EQ(module, "m");
  EXPECT_EQ(point, "p");
  g_mapEvents.emplace_back(dimensions, measures);
}

TEST_F(XcdnAbsentTest, RegistrationStoresTheHostCallbacksEvenWithoutEngine) {
  g_jsonEvents.clear();
  g_mapEvents.clear();
  Xcdn::dlXCdnSetBeamCallback(&RecordMap);
  Xcdn::dlXCdnSetJsonBeamCallback(&RecordJson);

  XcdnBeamAdapter::XcdnJsonBeamCallback("m", "p", "x:2;y:3", "a:1;b:2;");
  ASSERT_EQ(g_jsonEvents.size(), 1u);
  EXPECT_EQ(g_jsonEvents[0],
            "{\"type\":\"send_vpm\",\"module\":\"m\",\"monitorPoint\":\"p\","
            "\"dimensionValues\":{\"a\":\"1\",\"b\":\"2\"},\"measureValues\":{\"x\":\"2\"}}");

  XcdnBeamAdapter::XcdnBeamCallback("m", "p", "x:2;", "");
  ASSERT_EQ(g_mapEvents.size(), 1u);
  EXPECT_TRUE(g_mapEvents[0].first.empty());
  EXPECT_EQ(g_mapEvents[0].second, (Pairs{{"x", "2"}}));

  XcdnBeamAdapter::SetHostCallback(nullptr);
  XcdnBeamAdapter::SetHostJsonCallback(nullptr);
  XcdnBeamAdapter::XcdnBeamCallback("m", "p", "x:2;", "a:1;");
  XcdnBeamAdapter::XcdnJsonBeamCallback("m", "p", "x:2;", "a:1;");
  EXPECT_EQ(g_mapEvents.size(), 1u);
  EXPECT_EQ(g_jsonEvents.size(), 1u);
}

TEST(XcdnBeamPairsTest, EveryItemNeedsItsSemicolon) {
  EXPECT_EQ(XcdnBeamAdapter::ParsePairs("a:1;b:2"), (Pairs{{"a", "1"}}));
  EXPECT_EQ(XcdnBeamAdapter::ParsePairs("a:1;b:2;"), (Pairs{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(XcdnBeamAdapter::ParsePairs("url:http://h/x;n:5;"), (Pairs{{"url", "http://h/x"}, {"n", "5"}}));
  EXPECT_EQ(XcdnBeamAdapter::ParsePairs("a:1;a:2;"), (Pairs{{"a", "1"}}));
  EXPECT_TRUE(XcdnBeamAdapter::ParsePairs("").empty());
  EXPECT_TRUE(XcdnBeamAdapter::ParsePairs("novalue;").empty());
}

}  // namespace
}  // namespace downloader
