#include <gtest/gtest.h>

#include <vector>

#include "IniConfig.h"
#include "Options.h"

namespace dlplay {
namespace {

ParseOutcome Parse(std::vector<const char*> args, Options* options, std::string* error) {
  args.insert(args.begin(), "dlplay");
  return ParseOptions(static_cast<int>(args.size()), args.data(), options, error);
}

TEST(OptionsTest, EveryOptionReachesItsField) {
  Options options;
  std::string error;
  ASSERT_EQ(Parse({"--cache", "/c", "--set", "downloader_config.enable_segment_writer=true", "--param",
                   "player_id=3", "--range", "100-199", "--reader-rate", "1000000", "--buffer-ms", "8000",
                   "--report", "json", "--variant", "1", "--lookahead", "0", "http://h/index.m3u8"},
                  &options, &error),
            ParseOutcome::kRun)
      << error;
  EXPECT_EQ(options.cacheDir, "/c");
  ASSERT_EQ(options.settings.size(), 1u);
  EXPECT_EQ(options.settings[0].first, "downloader_config");
  EXPECT_EQ(options.settings[0].second.first, "enable_segment_writer");
  EXPECT_EQ(options.settings[0].second.second, "true");
  EXPECT_EQ(options.params.at("player_id"), "3");
  EXPECT_EQ(options.rangeStart, 100);
  EXPECT_EQ(options.rangeEnd, 199);
  EXPECT_EQ(options.readerRate, 1000000u);
  EXPECT_EQ(options.bufferMs, 8000);
  EXPECT_TRUE(options.jsonReport);
  EXPECT_EQ(options.variant, 1);
  EXPECT_EQ(options.lookahead, 0);
  EXPECT_EQ(options.url, "http://h/index.m3u8");
}

TEST(OptionsTest, BadInputIsAnErrorNotAGuess) {
  Options options;
  std::string error;
  EXPECT_EQ(Parse({"--help"}, &options, &error), ParseOutcome::kHelp);
  EXPECT_EQ(Parse({}, &options, &error), ParseOutcome::kRun);
  EXPECT_TRUE(options.url.empty());  // the demo
  for (std::vector<const char*> bad : std::vector<std::vector<const char*>>{
           {"--range", "9-3"}, {"--range", "x-"}, {"--reader-rate", "0"}, {"--set", "nogroup=1"},
           {"--report", "xml"}, {"--lookahead", "9"}, {"--lookahead", "-1"}, {"--cache"}, {"--bogus", "1"},
           {"a", "b"}, {"--param", "=v"}}) {
    EXPECT_EQ(Parse(bad, &options, &error), ParseOutcome::kError) << bad[0];
    EXPECT_FALSE(error.empty());
  }
  ASSERT_EQ(Parse({"--range", "5-"}, &options, &error), ParseOutcome::kRun);
  EXPECT_EQ(options.rangeEnd, -1);
}

TEST(IniConfigTest, GroupsKeysCommentsAndErrors) {
  IniConfig config;
  std::string error;
  ASSERT_TRUE(config.LoadText("# settings\n[downloader_config]\n enable_segment_writer = true \n; x\n"
                              "[http_downloader_kit]\nreport_last=false\n",
                              &error))
      << error;
  EXPECT_EQ(config.GetValue("downloader_config", "enable_segment_writer", ""), "true");
  EXPECT_EQ(config.GetValue("http_downloader_kit", "report_last", ""), "false");
  EXPECT_EQ(config.GetValue("xcdn", "x", "d"), "d");
  EXPECT_EQ(config.GetGroup("downloader_config").size(), 1u);
  EXPECT_FALSE(config.LoadText("orphan = 1\n", &error));
  EXPECT_NE(error.find("line 1"), std::string::npos);
  EXPECT_FALSE(config.LoadText("[g]\njust words\n", &error));
}

TEST(OptionsTest, LivePlayOutputAndCacheOptions) {
  Options options;
  std::string error;
  ASSERT_EQ(Parse({"-o", "-", "--no-cache", "--live-start", "12s", "--duration", "2.5", "--report-file", "r.json",
                   "http://h/live.m3u8"},
                  &options, &error),
            ParseOutcome::kRun)
      << error;
  EXPECT_TRUE(options.MediaOnStdout());
  EXPECT_FALSE(options.useCache);
  EXPECT_EQ(options.liveStart.unit, LiveStart::Unit::kSeconds);
  EXPECT_DOUBLE_EQ(options.liveStart.amount, 12);
  EXPECT_DOUBLE_EQ(options.durationSeconds, 2.5);
  EXPECT_EQ(options.reportFile, "r.json");
  EXPECT_TRUE(options.jsonReport);
  ASSERT_EQ(Parse({"--live-start", "4", "--out", "a.ts"}, &options, &error), ParseOutcome::kRun) << error;
  EXPECT_EQ(options.liveStart.unit, LiveStart::Unit::kSegments);
  EXPECT_FALSE(options.MediaOnStdout());
  EXPECT_TRUE(options.useCache);
  ASSERT_EQ(Parse({"--out", "/dev/stdout"}, &options, &error), ParseOutcome::kRun) << error;
  EXPECT_TRUE(options.MediaOnStdout());
  for (std::vector<const char*> bad : std::vector<std::vector<const char*>>{
           {"--live-start", "s"}, {"--live-start", "-2"}, {"--duration", "0"}, {"--duration", "5x"}, {"-o"}}) {
    EXPECT_EQ(Parse(bad, &options, &error), ParseOutcome::kError) << bad[0];
  }
}

}  // namespace
}  // namespace dlplay
