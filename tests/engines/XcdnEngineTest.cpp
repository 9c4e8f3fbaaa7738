// The XCDN binding with the fake engine beside the program: the binding maps
// it on first initialisation, the C exports drive it, and its analytics
// events reach the host through the adapters.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include <downloader/Stream/XcdnInterfaceHelper.h>

#include "Platform/ModuleLoader.h"
#include "engines/EngineFixture.h"
#include "engines/FakeXcdnEngine.h"
#include "support/TempDir.h"

namespace downloader {
namespace {

using Xcdn = XcdnInterfaceHelper;
using Pairs = std::map<std::string, std::string>;

std::string Property(intptr_t handle, const char* name) {
  char buffer[128] = {};
  if (Xcdn::dlXCdnGetProp(static_cast<uintptr_t>(handle), const_cast<char*>(name),
                          reinterpret_cast<uintptr_t>(buffer), sizeof(buffer)) != 0) {
    return "<none>";
  }
  return buffer;
}

TEST(XcdnEngineTest, InitMapsTheEngineAndTheCExportsDriveIt) {
  if (dltest::IsModuleMapped(platform::kXcdnModuleName)) GTEST_SKIP() << "engine already mapped in this process";
  EXPECT_EQ(cCacheDownload_Init("{\"biz\":1}"), 0u);
  EXPECT_TRUE(dltest::IsModuleMapped(platform::kXcdnModuleName));
  EXPECT_EQ(Xcdn::EnsureSymbolLoaded(), 1);
  EXPECT_EQ(Property(0, "init-config"), "{\"biz\":1}");
  EXPECT_EQ(cCacheDownload_StartDownload(1, 20, 300, 4000), 4321u);
  EXPECT_EQ(cCacheDownload_StopDownload(7), 7);
}

TEST(XcdnEngineTest, CreateSourceStartsTheEngineWhenUnbound) {
  if (dltest::IsModuleMapped(platform::kXcdnModuleName)) GTEST_SKIP() << "engine already mapped in this process";
  dltest::TempDir dir;
  const std::string file = dltest::WritePatternFile(dir.Join("a.mp4"), 3000);
  int handle = Xcdn::dlXCdnCreateSource(dir.Join("a.mp4").c_str());
  ASSERT_GE(handle, 1);
  EXPECT_EQ(Property(0, "init-count"), "1");
  EXPECT_EQ(Property(0, "init-config"), "");

  int64_t opened = 0;
  EXPECT_EQ(Xcdn::dlXCdnOpenSource(handle, "a", 6, &opened), 0);
  EXPECT_EQ(opened, 3000);
  EXPECT_EQ(Property(0, "last-flags"), "6");
  EXPECT_EQ(Xcdn::dlXCdnContentLength(handle, 0), 3000);
  std::string read;
  char buffer[1024];
  int64_t count = 0;
  do {
    ASSERT_EQ(Xcdn::dlXCdnReadSource(handle, buffer, &count, sizeof(buffer), 0), 0);
    read.append(buffer, static_cast<size_t>(count));
  } while (count > 0);
  EXPECT_TRUE(read == file);
  EXPECT_EQ(Xcdn::dlXCdnStopSource(handle), 0);
  // A second source does not start the engine again.
  Xcdn::dlXCdnCreateSource(dir.Join("a.mp4").c_str());
  EXPECT_EQ(Property(0, "init-count"), "1");
}

std::vector<std::pair<Pairs, Pairs>> g_mapEvents;
std::vector<std::string> g_jsonEvents;
std::vector<std::string> g_quillLines;
void RecordMap(const std::string&, const std::string&, const Pairs& dimensions, const Pairs& measures) {
  g_mapEvents.emplace_back(dimensions, measures);
}
void RecordJson(const char* json) { g_jsonEvents.emplace_back(json); }
void RecordQuill(int, const char* line) { g_quillLines.emplace_back(line); }

void EmitBeam(const char* measures, const char* dimensions) {
  EXPECT_EQ(Xcdn::dlXCdnSetProp2(kFakeXcdnEmitBeam, reinterpret_cast<uintptr_t>(measures),
                                 reinterpret_cast<uintptr_t>(dimensions)),
            0u);
}

TEST(XcdnEngineTest, BeamEventsReachTheHostThroughTheLastRegisteredAdapter) {
  ASSERT_EQ(cCacheDownload_Init(""), 0u);
  g_mapEvents.clear();
  g_jsonEvents.clear();
  Xcdn::dlXCdnSetBeamCallback(&RecordMap);
  EmitBeam("m1:5;", "d1:x;d2:y");
  ASSERT_EQ(g_mapEvents.size(), 1u);
  EXPECT_EQ(g_mapEvents[0].first, (Pairs{{"d1", "x"}}));
  EXPECT_EQ(g_mapEvents[0].second, (Pairs{{"m1", "5"}}));

  Xcdn::dlXCdnSetJsonBeamCallback(&RecordJson);
  EmitBeam("m1:6;", "d1:z;");
  EXPECT_EQ(g_mapEvents.size(), 1u);
  ASSERT_EQ(g_jsonEvents.size(), 1u);
  EXPECT_EQ(g_jsonEvents[0],
            "{\"type\":\"send_vpm\",\"module\":\"xcdn\",\"monitorPoint\":\"fake_point\","
            "\"dimensionValues\":{\"d1\":\"z\"},\"measureValues\":{\"m1\":\"6\"}}");

  g_quillLines.clear();
  Xcdn::dlXCdnSetQuillCallback(&RecordQuill);
  EXPECT_EQ(g_quillLines, std::vector<std::string>{"fake xcdn quill attached"});
}

}  // namespace
}  // namespace downloader
