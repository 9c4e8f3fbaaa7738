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
  // A reference that is only a query or a fragment keeps the base's path.
  EXPECT_EQ(ResolveUrl(base, "?token=2"), "http://h:8080/a/b/index.m3u8?token=2");
  EXPECT_EQ(ResolveUrl(base, "/root.ts"), "http://h:8080/root.ts");
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

// The tags a decoder depends on: each segment carries the map and key in force
// when it was listed, and the timeline marks given just before it.
TEST(HlsPlaylistTest, SegmentsCarryTheirMapKeyAndTimelineMarks) {
  const std::string text =
      "#EXTM3U\n"
      "#EXT-X-MEDIA-SEQUENCE:5\n"
      "#EXT-X-MAP:URI=\"init.mp4\",BYTERANGE=\"720@16\"\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"../keys/k1\",IV=0x000102030405060708090a0b0c0d0e0f\n"
      "#EXT-X-PROGRAM-DATE-TIME:2026-11-23T10:00:00.000Z\n"
      "#EXTINF:2,\n"
      "a.m4s\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"https://k/k2\"\n"
      "#EXTINF:2,\n"
      "b.m4s\n"
      "#EXT-X-DISCONTINUITY\n"
      "#EXT-X-MAP:URI=\"init2.mp4\"\n"
      "#EXT-X-KEY:METHOD=NONE\n"
      "#EXTINF:2,\n"
      "c.m4s\n"
      "#EXT-X-KEY:METHOD=SAMPLE-AES,URI=\"k3\"\n"
      "#EXTINF:2,\n"
      "d.m4s\n";
  HlsPlaylist playlist;
  std::string error;
  // The base is where the playlist was found after a redirect, not where it was asked for.
  ASSERT_TRUE(ParseHlsPlaylist(text, "http://moved/live/v1/index.m3u8", &playlist, &error)) << error;
  ASSERT_EQ(playlist.segments.size(), 4u);
  const HlsSegment& a = playlist.segments[0];
  const HlsSegment& b = playlist.segments[1];
  const HlsSegment& c = playlist.segments[2];
  const HlsSegment& d = playlist.segments[3];
  EXPECT_EQ(a.uri, "http://moved/live/v1/a.m4s");
  EXPECT_EQ(a.map.uri, "http://moved/live/v1/init.mp4");
  EXPECT_EQ(a.map.rangeStart, 16);
  EXPECT_EQ(a.map.rangeLength, 720);
  EXPECT_TRUE(a.map == b.map);
  EXPECT_EQ(a.map.key.method, HlsKey::Method::kNone);  // declared before the first key
  EXPECT_EQ(a.key.method, HlsKey::Method::kAes128);
  EXPECT_EQ(a.key.uri, "http://moved/live/keys/k1");
  EXPECT_EQ(a.programDateTime, "2026-11-23T10:00:00.000Z");
  EXPECT_FALSE(a.discontinuity);
  EXPECT_EQ(b.key.uri, "https://k/k2");
  EXPECT_FALSE(b.key.hasIv);
  EXPECT_TRUE(b.programDateTime.empty());
  EXPECT_TRUE(c.discontinuity);
  EXPECT_EQ(c.map.uri, "http://moved/live/v1/init2.mp4");
  EXPECT_EQ(c.map.rangeStart, -1);
  EXPECT_EQ(c.map.key.uri, "https://k/k2");  // encrypted with the key in force where it was declared
  EXPECT_EQ(c.key.method, HlsKey::Method::kNone);
  EXPECT_FALSE(d.discontinuity);
  EXPECT_EQ(d.key.method, HlsKey::Method::kUnsupported);
  EXPECT_EQ(d.key.methodName, "SAMPLE-AES");
  EXPECT_EQ(d.sequence, 8u);
}

TEST(HlsKeyTest, IvIsTheAttributeElseTheSequenceNumberBigEndian) {
  HlsKey key;
  key.method = HlsKey::Method::kAes128;
  AesBlock expected{};
  expected[15] = 0x2a;
  EXPECT_EQ(key.IvFor(42), expected);
  expected = AesBlock{};
  expected[8] = 0x01;
  expected[15] = 0x02;
  EXPECT_EQ(key.IvFor(0x0100000000000002ULL), expected);

  HlsPlaylist playlist;
  std::string error;
  // A short IV is a number: it lands at the block's end.
  ASSERT_TRUE(ParseHlsPlaylist("#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"k\",IV=0X1F\n#EXTINF:1,\na.ts\n",
                               "http://h/", &playlist, &error))
      << error;
  expected = AesBlock{};
  expected[15] = 0x1f;
  EXPECT_EQ(playlist.segments[0].key.IvFor(42), expected);
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
  // Keys and maps that a player could not use.
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXT-X-KEY:METHOD=AES-128\n", "http://h/", &playlist, &error));
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"k\",IV=0xZZ\n", "http://h/",
                                &playlist, &error));
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"k\",IV=0x" + std::string(33, '1') +
                                    "\n",
                                "http://h/", &playlist, &error));
  EXPECT_FALSE(ParseHlsPlaylist("#EXTM3U\n#EXT-X-MAP:BYTERANGE=\"10@0\"\n", "http://h/", &playlist, &error));
}

}  // namespace
}  // namespace dlplay
