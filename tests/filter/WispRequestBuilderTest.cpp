#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <downloader/Base/URIBuilder.h>

#include "Filter/WispRequestBuilder.h"
#include "Filter/WispTotals.h"
#include "support/LogCapture.h"
#include "support/MapConfig.h"

namespace downloader {
namespace {

using wisp::http::option::kOpenTimeoutMs;
using wisp::http::option::kRetryLimit;
using wisp::http::option::kSpeedLimit;
using wisp::http::option::kUrl;

class WispRequestBuilderTest : public ::testing::Test {
 protected:
  void TearDown() override { WispTotals::SetLastDownloadSpeed(0); }

  WispRequest Build(const std::string& url, URI::Params params = {}, const std::string& header = "",
                    int64_t seekOffset = WispRequestBuilder::kNoSeek) {
    URIBuilder builder = URIBuilder::New();
    builder.SetUrl(url).SetHttpHeader(header);
    builder.params = std::move(params);
    return WispRequestBuilder(config_, builder.Build(), "test").Build(seekOffset, 2500);
  }

  std::shared_ptr<dltest::MapConfig> config_ = std::make_shared<dltest::MapConfig>();
};

TEST_F(WispRequestBuilderTest, PlayerIdGoesIntoEveryUrlButPlaylists) {
  EXPECT_EQ(Build("http://cdn/v/seg1.ts?k=1", {{"player_id", "7"}}).options.Get(kUrl),
            "http://cdn/v/seg1.ts?k=1&dl_player_id=7");
  EXPECT_EQ(Build("http://cdn/v/seg1.ts").url, "http://cdn/v/seg1.ts?dl_player_id=-1");
  EXPECT_EQ(Build("http://cdn/playlist/m3u8/a", {{"player_id", "7"}}).url, "http://cdn/playlist/m3u8/a");
}

TEST_F(WispRequestBuilderTest, RangeOnlyWhenTheRequestNamesOneOrASeekAsks) {
  EXPECT_FALSE(Build("http://cdn/a.ts").options.GetHeaders().Has("Range"));
  EXPECT_EQ(Build("http://cdn/a.ts", {{"range_start", "0"}}).options.GetHeaders().Get("Range"), "bytes=0-");
  WispRequest bounded = Build("http://cdn/a.ts", {{"range_start", "100"}, {"range_end", "199"}});
  EXPECT_EQ(bounded.options.GetHeaders().Get("Range"), "bytes=100-199");
  EXPECT_EQ(bounded.rangeStart, 100);
  WispRequest seek = Build("http://cdn/a.ts", {{"range_start", "100"}, {"range_end", "999"}}, "", 500);
  EXPECT_EQ(seek.options.GetHeaders().Get("Range"), "bytes=500-999");
  EXPECT_EQ(seek.rangeStart, 500);
}

TEST_F(WispRequestBuilderTest, PlayStartConfigScalesSpeedLimitAndBitRate) {
  WispTotals::SetLastDownloadSpeed(1000000);
  EXPECT_FALSE(Build("http://cdn/a.ts").options.Has(kSpeedLimit)) << "no scale set";
  config_->Set("wisp_play_start_config", "speed_scale", "1.5");
  EXPECT_EQ(Build("http://cdn/a.ts").options.GetInt(kSpeedLimit, 0), 1500000);
  WispTotals::SetLastDownloadSpeed(0);
  EXPECT_FALSE(Build("http://cdn/a.ts").options.Has(kSpeedLimit));

  WispRequest plain = Build("http://cdn/a.ts", {{"bit_rate", "1500"}});
  EXPECT_EQ(plain.options.GetInt("bit_rate", 0), 1500);
  EXPECT_EQ(plain.options.GetInt("player_duration", 0), 2500);
  config_->Set("wisp_play_start_config", "bit_rate_factor", "0.5");
  EXPECT_EQ(Build("http://cdn/a.ts", {{"bit_rate", "1500"}}).options.GetInt("bit_rate", 0), 750);
}

TEST_F(WispRequestBuilderTest, LiveRequestsCarryOpenTimeoutAndRetryLimit) {
  EXPECT_FALSE(Build("http://cdn/a.flv").options.Has(kOpenTimeoutMs)) << "not live";
  WispRequest live = Build("http://cdn/a.flv?t=1", {{"is_live", "1"}});
  EXPECT_EQ(live.options.GetInt(kOpenTimeoutMs, 0), 20000);
  EXPECT_EQ(live.options.GetInt(kRetryLimit, 0), 50);
  EXPECT_TRUE(live.options.Has("live_flv"));
  config_->Set("http_downloader_kit", "live_open_timeout", "3000");
  config_->Set("http_downloader_kit", "live_retry_limit", "2");
  live = Build("http://cdn/a.m3u8", {{"is_live", "true"}});
  EXPECT_EQ(live.options.GetInt(kOpenTimeoutMs, 0), 3000);
  EXPECT_EQ(live.options.GetInt(kRetryLimit, 0), 2);
  EXPECT_FALSE(live.options.Has("live_flv"));
}

TEST_F(WispRequestBuilderTest, HeadersPassedInTheUriTextAreAdded) {
  WispRequest request = Build("http://cdn/a.ts", {}, "Referer:http://x/y&X-Speed-Up:1&Cookie:a=b");
  const wisp::http::Headers& headers = request.options.GetHeaders();
  EXPECT_EQ(headers.Get("Referer"), "http://x/y");
  EXPECT_EQ(headers.Get("Cookie"), "a=b");
  EXPECT_TRUE(request.speedUp);
  EXPECT_FALSE(Build("http://cdn/a.ts", {}, "Referer:r").speedUp);
}

TEST_F(WispRequestBuilderTest, HeaderTextWithALineBreakRefusesTheRequest) {
  dltest::LogCapture log;
  // Without the refusal the second line would become a header of its own.
  for (const char* text : {"Referer:r\r\nX-Injected:1", "Referer:r\nX-Injected:1", "X-A:1&Referer:r\r"}) {
    WispRequest request = Build("http://cdn/a.ts", {}, text);
    EXPECT_NE(request.refusal, "") << text;
    EXPECT_FALSE(request.options.GetHeaders().Has("X-Injected")) << text;
  }
  EXPECT_TRUE(log.Contains("refused http header text with CR or LF"));
  EXPECT_EQ(Build("http://cdn/a.ts", {}, "Referer:r").refusal, "");

  config_->Set("http_downloader_kit", "user_agent", "player/2\r\nX-Injected: 1");
  WispRequest agent = Build("http://cdn/a.ts");
  EXPECT_NE(agent.refusal, "");
  EXPECT_FALSE(agent.options.GetHeaders().Has("X-Injected"));
  EXPECT_TRUE(log.Contains("refused the user_agent setting with CR or LF"));
}

TEST_F(WispRequestBuilderTest, TransportSettingsReachTheRequest) {
  using namespace wisp::http::option;
  WispRequest plain = Build("https://cdn/a.ts");
  EXPECT_FALSE(plain.options.Has(kProxy));
  EXPECT_FALSE(plain.options.Has(kCaFile));
  EXPECT_FALSE(plain.options.Has(kTlsVerify)) << "certificates are checked unless the host says otherwise";
  EXPECT_FALSE(plain.options.GetHeaders().Has("User-Agent"));

  config_->Set("http_downloader_kit", "proxy", "proxy.lan:3128");
  config_->Set("http_downloader_kit", "ca_file", "/etc/ca.pem");
  config_->Set("http_downloader_kit", "tls_insecure", "yes");  // only "true" or "1" turns checks off
  config_->Set("http_downloader_kit", "user_agent", "player/2");
  WispRequest set = Build("https://cdn/a.ts");
  EXPECT_EQ(set.options.Get(kProxy), "proxy.lan:3128");
  EXPECT_EQ(set.options.Get(kCaFile), "/etc/ca.pem");
  EXPECT_FALSE(set.options.Has(kTlsVerify));
  EXPECT_EQ(set.options.GetHeaders().Get("User-Agent"), "player/2");

  config_->Set("http_downloader_kit", "tls_insecure", "true");
  EXPECT_EQ(Build("https://cdn/a.ts").options.Get(kTlsVerify), "0");
  // The request's own header text wins over the setting.
  WispRequest own = Build("https://cdn/a.ts", {}, "User-Agent:mine");
  EXPECT_EQ(own.options.GetHeaders().Get("User-Agent"), "mine");
  EXPECT_EQ(own.options.GetHeaders().Fields().size(), 1u);
}

}  // namespace
}  // namespace downloader
