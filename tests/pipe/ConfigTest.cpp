#include <gtest/gtest.h>

#include <memory>

#include <downloader/Pipe/ConfigReader.h>
#include <downloader/Pipe/PseudoConfig.h>

#include "support/LogCapture.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

TEST(ConfigTest, TextConversionRules) {
  EXPECT_EQ(ParseInt32("12abc"), 12);
  EXPECT_EQ(ParseInt32("abc"), 0);
  EXPECT_EQ(ParseInt32(""), 0);
  EXPECT_EQ(ParseInt32("  -7"), -7);
  EXPECT_EQ(ParseInt32("99999999999"), INT32_MAX);
  EXPECT_EQ(ParseInt64("99999999999"), 99999999999LL);
  EXPECT_TRUE(ParseBool("true"));
  EXPECT_TRUE(ParseBool("1"));
  for (const char* no : {"TRUE", "True", "yes", "64", "", "01"}) EXPECT_FALSE(ParseBool(no)) << no;
}

TEST(ConfigTest, ReadersSeeDefaultsStoredValuesAndAbsentConfig) {
  auto host = std::make_shared<dltest::MapConfig>();
  host->Set("read_timeout", "12abc");
  host->Set("enable_segment_writer", "TRUE");
  host->Set("enable_preload", "1");
  ConfigPtr config = host;
  EXPECT_EQ(ReadConfigInt64(config, kDownloaderConfigGroup, "read_timeout", 5), 12);
  EXPECT_EQ(ReadConfigInt(config, kDownloaderConfigGroup, "download_level", 7), 7);
  EXPECT_FALSE(ReadConfigBool(config, kDownloaderConfigGroup, "enable_segment_writer", true));
  EXPECT_TRUE(ReadConfigBool(config, kDownloaderConfigGroup, "enable_preload", false));
  EXPECT_TRUE(ReadConfigBool(config, kDownloaderConfigGroup, "missing", true));
  EXPECT_EQ(ReadConfigInt(nullptr, kDownloaderConfigGroup, "download_level", 7), 7);

  StreamParams params{{"player_id", "3"}, {"is_live", ""}, {"range_end", "x"}};
  EXPECT_EQ(ReadParamInt(params, "player_id", -1), 3);
  EXPECT_EQ(ReadParamInt(params, "cache_type", -1), -1);
  EXPECT_FALSE(ReadParamBool(params, "is_live", true));  // present but empty
  EXPECT_EQ(ReadParamInt64(params, "range_end", -1), 0);
}

TEST(ConfigTest, PseudoConfigAnswersItsFiveGroupsOnly) {
  auto host = std::make_shared<dltest::MapConfig>();
  host->Set("downloader_config", "download_level", "5");
  host->Set("xcdn", "xcdn_vod", "true");
  host->Set("other_group", "k", "v");
  PseudoConfig pseudo;
  EXPECT_EQ(pseudo.GetValue("downloader_config", "download_level", "7"), "7");
  pseudo.Snapshot(host);
  pseudo.Snapshot(nullptr);
  EXPECT_EQ(pseudo.GetValue("downloader_config", "download_level", "7"), "5");
  EXPECT_EQ(pseudo.GetValue("Downloader_config", "download_level", "7"), "7");
  EXPECT_EQ(pseudo.GetValue("xcdn", "xcdn_vod", "false"), "true");
  EXPECT_EQ(pseudo.GetValue("other_group", "k", "d"), "d");
  EXPECT_TRUE(pseudo.GetGroup("downloader_config").empty());

  // A later snapshot replaces whole groups: keys gone from the host go too.
  auto second = std::make_shared<dltest::MapConfig>();
  pseudo.Snapshot(second);
  EXPECT_EQ(pseudo.GetValue("downloader_config", "download_level", "7"), "7");
}

TEST(ConfigTest, RefreshConfigStoresMaskedBitsThatReadBackFalse) {
  dltest::LogCapture capture;
  auto pseudo = std::make_shared<PseudoConfig>();
  EXPECT_FALSE(pseudo->refreshConfig(""));
  EXPECT_FALSE(pseudo->refreshConfig("64"));  // enable bit clear
  EXPECT_FALSE(pseudo->refreshConfig("0"));
  EXPECT_FALSE(pseudo->refreshConfig("4294967295"));
  EXPECT_EQ(pseudo->GetValue("downloader_config", "enable_mp", "none"), "none");

  EXPECT_TRUE(pseudo->refreshConfig("96"));
  EXPECT_EQ(pseudo->GetValue("downloader_config", "enable_mp", ""), "64");
  EXPECT_EQ(pseudo->GetValue("downloader_config", "force_mp_on", ""), "0");
  ConfigPtr config = pseudo;
  EXPECT_FALSE(ReadConfigBool(config, kDownloaderConfigGroup, "enable_mp", true));
  EXPECT_TRUE(capture.Contains("pseudoconfig,refresh_dsp:96"));
  EXPECT_TRUE(capture.Contains("pseudoconfig,refresh_dsp,cfg:96"));
  EXPECT_TRUE(capture.Contains("pseudoconfig,refresh_dsp,enable_switch"));
}

}  // namespace
}  // namespace downloader
