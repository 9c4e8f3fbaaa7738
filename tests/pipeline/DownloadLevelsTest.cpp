#include <gtest/gtest.h>

#include <memory>

#include "Impls/DownloadLevels.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

TEST(DownloadLevelsTest, SettingRequestAndCacheTypeShapeTheMask) {
  const char* url = "http://cdn.example/a.ts";
  EXPECT_EQ(DownloadLevels::RequiredMask(nullptr, {}, url), 7u);
  auto config = std::make_shared<dltest::MapConfig>();
  config->Set("download_level", "4");
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {}, url), 6u);
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {{"cache_type", "0"}}, url), 6u);
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {{"cache_type", "2"}}, url), 7u);
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {{"download_level", "1"}}, url), 7u);
  config->Set("download_level", "1");
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {{"cache_type", "-1"}}, url), 7u);
}

TEST(DownloadLevelsTest, PastTheTopWrapsUnlessDowngradesAreForbidden) {
  bool hit = false;
  // Levels missing from the mask are stepped over.
  EXPECT_EQ(DownloadLevels::Next(kDLLevelPcdn, 5, false, &hit), kDLLevelHttp);
  EXPECT_EQ(DownloadLevels::Next(kDLLevelHttp, 6, false, &hit), kDLLevelLocalFile);
  EXPECT_FALSE(hit);
  EXPECT_EQ(DownloadLevels::Next(kDLLevelHttp, 6, true, &hit), kDLLevelHttp);
  EXPECT_TRUE(hit);
  hit = false;
  // Forbidding only matters past the top.
  EXPECT_EQ(DownloadLevels::Next(kDLLevelLocalFile, 6, true, &hit), kDLLevelHttp);
  EXPECT_FALSE(hit);
  EXPECT_EQ(DownloadLevels::Next(kDLLevelPcdn, 1, true, &hit), kDLLevelPcdn);
  EXPECT_TRUE(hit);
}

TEST(DownloadLevelsTest, PcdnOnlySwitchSparesLiveLocalAndAdvertisementRequests) {
  auto config = std::make_shared<dltest::MapConfig>();
  config->Set("use_pcdn_ng_disable_downgrade", "true");
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {}, "http://cdn.example/a.ts"), 1u);
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {{"is_live", "true"}}, "http://cdn.example/a.flv"), 7u);
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {}, "http://local.url/data/a.ts"), 7u);
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {}, "http://cdn.example/ad/x.ts?ccode=0902"), 7u);
  // "ccode=0902" before "/ad/" is not an advertisement.
  EXPECT_EQ(DownloadLevels::RequiredMask(config, {}, "http://cdn.example/x?ccode=0902/ad/a.ts"), 1u);
}

}  // namespace
}  // namespace downloader
