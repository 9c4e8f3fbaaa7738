#include <gtest/gtest.h>

#include "HlsPlaylist.h"
#include "UrlResolver.h"

namespace dlplay {
namespace {

TEST(UrlResolverTest, ResolvesLikeABrowserAndTellsPlaylistsByPath) {
  const std::string base = "http://h:8080/a/b/index.m3u8?token=1";
  EXPECT_EQ(ResolveUrl(base, "seg1.ts"), "http://h:8080/a/b/seg1.ts");
  EXPECT_EQ(ResolveUrl(base, "../c/seg1.ts?x=2"), "http://h:8080/a/c/seg1.ts?x=2");
  EXPECT_EQ(ResolveUrl(base, "//cdn/x.ts"), "http://cdn/x.ts");
  EXPECT_EQ(ResolveUrl(base, "./v/../w/./x.ts"), "http://h:8080/a/b/w/x.ts");
  EXPECT_EQ(ResolveUrl(base, "../../../../x.ts"), "http://h:8080/x.ts");
  EXPECT_EQ(ResolveUrl("http://h", "x.ts"), "http://h/x.ts");
  EXPECT_TRUE(LooksLikePlaylistUrl("http://h/a/index.m3u8?x=1"));
  EXPECT_FALSE(LooksLikePlaylistUrl("http://h/a/v.mp4?list=a.m3u8"));
}

TEST(HlsPlaylistTest, MasterPlaylistPicksTheHighestBandwidth) {
  const std::string text =
      "#EXTM3U\r\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=800000,CODECS=\"avc1.4d401f,mp4a.40.2\",RESOLUTION=640x360\r\n"
      "low/index.m3u8\r\n"
      "#EXT-X-STREAM-INF:RESOLUTION=1920x1080,BANDWIDTH=5000000\r\n"
      "high/index.m3u8\r\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=5000000\r\n"
      "same/index.m3u8\r\n";
  HlsPlaylist playlist;
  std::string error;
  ASSERT_TRUE(ParseHlsPlaylist(text, "http://h/v/master.m3u8", &playlist, &error)) << error;
  EXPECT_EQ(playlist.kind, HlsPlaylist::Kind::kMaster);
  ASSERT_EQ(playlist.variants.size(), 3u);
  EXPECT_EQ(playlist.variants[0].bandwidth, 800000u);
  EXPECT_EQ(playlist.variants[0].resolution, "640x360");
  EXPECT_EQ(playlist.BestVariant(), 1);
  EXPECT_EQ(playlist.variants[1].uri, "http://h/v/high/index.m3u8");
}

TEST(HlsPlaylistTest, MediaPlaylistSegmentsSequenceAndByteRanges) {
  const std::string text =
      "\xEF\xBB\xBF#EXTM3U\n"
      "#EXT-X-TARGETDURATION:4\n"
      "#EXT-X-MEDIA-SEQUENCE:7\n"
      "#EXTINF:4.0,\n"
      "seg0.ts\n"
      "# a comment between segments\n"
      "#EXTINF:3.5,title\n"
      "#EXT-X-BYTERANGE:1000@200\n"
      "all.ts\n"
      "#EXTINF:2,\n"
      "#EXT-X-BYTERANGE:500\n"
      "all.ts\n"
      "#EXT-X-ENDLIST\n";
  HlsPlaylist playlist;
  std::string error;
  ASSERT_TRUE(ParseHlsPlaylist(text, "http://h/v/index.m3u8", &playlist, &error)) << error;
  EXPECT_EQ(playlist.kind, HlsPlaylist::Kind::kMedia);
  EXPECT_TRUE(playlist.endList);
  EXPECT_DOUBLE_EQ(playlist.targetDurationSeconds, 4);
  ASSERT_EQ(playlist.segments.size(), 3u);
  EXPECT_EQ(playlist.segments[0].uri, "http://h/v/seg0.ts");
  EXPECT_EQ(playlist.segments[0].sequence, 7u);
  EXPECT_EQ(playlist.segments[0].rangeStart, -1);
  EXPECT_DOUBLE_EQ(playlist.segments[1].durationSeconds, 3.5);
  EXPECT_EQ(playlist.segments[1].rangeStart, 200);
  EXPECT_EQ(playlist.segments[1].rangeLength, 1000);
  EXPECT_EQ(playlist.segments[2].rangeStart, 1200);  // follows the previous range
  EXPECT_EQ(playlist.segments[2].rangeLength, 500);
  EXPECT_EQ(playlist.segments[2].sequence, 9u);
}

TEST(HlsPlaylistTest, RejectsWhatIsNotAPlaylist) {
  HlsPlaylist playlist;
  std::string error;
  EXPECT_FALSE(ParseHlsPlaylist("<html>", "http://h/", &playlist, &error));
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXTINF:1,\n", "http://h/", &playlist, &error));
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\nstray.ts\n", "http://h/", &playlist, &error));
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\na.m3u8\n#EXTINF:1,\nb.ts\n",
                                "http://h/", &playlist, &error));
  EXPECT_FALSE(error.empty());
  // A range whose end overflows a 64-bit offset, given outright or reached by following the previous one.
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXTINF:1,\n#EXT-X-BYTERANGE:9223372036854775807@5\na.ts\n", "http://h/",
                                &playlist, &error));
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXTINF:1,\n#EXT-X-BYTERANGE:9223372036854775800@0\na.ts\n"
                                "#EXTINF:1,\n#EXT-X-BYTERANGE:100\na.ts\n",
                                "http://h/", &playlist, &error));
}

}  // namespace
}  // namespace dlplay
