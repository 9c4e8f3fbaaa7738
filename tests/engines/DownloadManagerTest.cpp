// The download manager: the latest-configuration snapshot, the parameter
// table and the completion listeners. The manager is one per process, so each
// test uses ids of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <downloader/Base/URIBuilder.h>
#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/DownloadManager.h>
#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Filter/WispTotals.h"
#include "Platform/ModuleLoader.h"
#include "engines/EngineFixture.h"
#include "support/LogCapture.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

std::shared_ptr<URI> UriFor(const std::string& url, URI::Params params) {
  URIBuilder builder = URIBuilder::New();
  builder.SetUrl(url);
  builder.params = std::move(params);
  return builder.Build();
}

DownloadManager& Manager() { return DownloadManager::GetInstance(); }

TEST(DownloadManagerTest, LatestConfigurationIsASnapshotOfTheLastNonEmptyOne) {
  auto latest = Manager().GetLatestConfigure();
  ASSERT_NE(latest, nullptr);
  EXPECT_EQ(ReadConfigInt(latest, kDownloaderConfigGroup, "download_level", 7), 7);

  auto first = std::make_shared<dltest::MapConfig>();
  first->Set("download_level", "5");
  auto second = std::make_shared<dltest::MapConfig>();
  second->Set("xcdn", "xcdn_vod", "true");
  Manager().AddNewConfig(first, 1);
  Manager().AddNewConfig(second, 2);
  Manager().AddNewConfig(nullptr, 3);
  EXPECT_EQ(Manager().GetLatestConfigure(), latest);  // never replaced
  EXPECT_EQ(ReadConfigInt(latest, kDownloaderConfigGroup, "download_level", 7), 7);
  EXPECT_TRUE(ReadConfigBool(latest, kXcdnGroup, "xcdn_vod", false));
  second->Set("xcdn", "xcdn_vod", "false");  // the host's later change is not seen
  EXPECT_TRUE(ReadConfigBool(latest, kXcdnGroup, "xcdn_vod", false));
  EXPECT_EQ(Manager().GetConfigById(3), nullptr);
  EXPECT_EQ(Manager().RemoveConfigById(3), 0);  // an empty entry is an entry
}

TEST(DownloadManagerTest, CdnBytesAreReportedOnlyWhileTheSwitchIsOnAndOnlyOnce) {
  auto off = std::make_shared<dltest::MapConfig>();
  Manager().AddNewConfig(off, 50);
  WispTotals::AddCdnBytes(500);
  int64_t result = 77;
  Manager().GetParam(0, DownloadManager::kParamCdnBytes, &result);
  EXPECT_EQ(result, 77);

  auto on = std::make_shared<dltest::MapConfig>();
  on->Set("enable_cdn_flow_report", "true");
  Manager().AddNewConfig(on, 50);
  int64_t total = static_cast<int64_t>(WispTotals::CdnBytes());
  Manager().GetParam(0, DownloadManager::kParamCdnBytes, &result);
  EXPECT_EQ(result, total);
  Manager().GetParam(0, DownloadManager::kParamCdnBytes, &result);
  EXPECT_EQ(result, 0);
  WispTotals::AddCdnBytes(20);
  Manager().GetParam(0, DownloadManager::kParamCdnBytes, &result);
  EXPECT_EQ(result, 20);
}

TEST(DownloadManagerTest, PcdnBytesComeFromTheEnginesTotal) {
  ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
  auto setTotal = [](const char* answer) {
    PcdnInterfaceHelper::dlPCDNSetByKV("fake-reply:total-download-details-bytes-vod", answer);
  };
  int64_t result = -1;
  setTotal("{\"total\":1000}");
  Manager().GetParam(0, DownloadManager::kParamPcdnBytes, &result);
  EXPECT_EQ(result, 1000);
  Manager().GetParam(0, DownloadManager::kParamPcdnBytes, &result);
  EXPECT_EQ(result, 0);
  setTotal("1500");
  Manager().GetParam(0, DownloadManager::kParamPcdnBytes, &result);
  EXPECT_EQ(result, 500);
  setTotal("not json");
  result = -1;
  Manager().GetParam(0, DownloadManager::kParamPcdnBytes, &result);
  EXPECT_EQ(result, 0);
  setTotal("{\"total\":1200}");  // the engine restarted its count
  Manager().GetParam(0, DownloadManager::kParamPcdnBytes, &result);
  EXPECT_EQ(result, 0);
  setTotal("{\"total\":1300}");
  Manager().GetParam(0, DownloadManager::kParamPcdnBytes, &result);
  EXPECT_EQ(result, 100);
}

TEST(DownloadManagerTest, CompletionGoesToTheListenerOfThePlayer) {
  std::vector<std::string> heardBy7;
  std::vector<std::string> heardByNoPlayer;
  Manager().RegisterDownloadCompleteListener(7, [&](std::shared_ptr<URI>) { heardBy7.push_back("old"); });
  Manager().RegisterDownloadCompleteListener(
      7, [&](std::shared_ptr<URI> uri) { heardBy7.push_back(uri->GetStringRep()); });
  Manager().OnDownloadComplete(UriFor("http://h/a.ts", {{"player_id", "7"}, {"preload_buffer", "true"}}));
  Manager().OnDownloadComplete(UriFor("http://h/b.ts", {{"player_id", "8"}}));
  Manager().OnDownloadComplete(UriFor("http://h/c.ts", {}));
  Manager().OnDownloadComplete(nullptr);
  EXPECT_EQ(heardBy7, std::vector<std::string>{"http://h/a.ts"});

  Manager().RegisterDownloadCompleteListener(-1, [&](std::shared_ptr<URI> uri) {
    heardByNoPlayer.push_back(uri->GetStringRep());
  });
  Manager().OnDownloadComplete(UriFor("http://h/d.ts", {}));
  EXPECT_EQ(heardByNoPlayer, std::vector<std::string>{"http://h/d.ts"});

  Manager().UnregisterDownloadCompleteListener(7);
  Manager().UnregisterDownloadCompleteListener(-1);
  Manager().OnDownloadComplete(UriFor("http://h/a.ts", {{"player_id", "7"}}));
  EXPECT_EQ(heardBy7.size(), 1u);
}

TEST(DownloadManagerTest, ListenerMayCallBackIntoTheManager) {
  bool reentered = false;
  Manager().RegisterDownloadCompleteListener(9, [&](std::shared_ptr<URI>) {
    Manager().UnregisterDownloadCompleteListener(9);
    reentered = true;
  });
  Manager().OnDownloadComplete(UriFor("http://h/a.ts", {{"player_id", "9"}}));
  EXPECT_TRUE(reentered);
}

TEST(DownloadManagerTest, EngineTraceIsRoutedToTheLogWhenConfigured) {
  ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEnginePath())) << platform::LastModuleError();
  auto config = std::make_shared<dltest::MapConfig>();
  config->Set("enable_pcdn_quill_callback", "true");
  dltest::LogCapture log;
  Manager().AddNewConfig(config, 60);
  EXPECT_TRUE(log.Contains("pcdn:fake pcdn trace attached"));
}

}  // namespace
}  // namespace downloader
