// The gateway's pure parts: what a Range header asks for, and how a playlist
// is rewritten so that a player fetches everything through the gateway.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Options.h"
#include "PlaylistRewriter.h"
#include "RangeHeader.h"

namespace dlplay {
namespace {

struct RangeCase {
  const char* header;
  int64_t size;
  bool satisfiable;
  int64_t start;
  int64_t end;
};

TEST(RangeHeaderTest, OneRangeResolvesAgainstTheSize) {
  const RangeCase cases[] = {
      {"bytes=0-", 1000, true, 0, 999},
      {"bytes=100-199", 1000, true, 100, 199},
      {" bytes=500- ", 1000, true, 500, 999},
      {"bytes=900-5000", 1000, true, 900, 999},  // the end is clamped to the resource
      {"bytes=-100", 1000, true, 900, 999},
      {"bytes=-5000", 1000, true, 0, 999},
      {"bytes=999-999", 1000, true, 999, 999},
      {"bytes=1000-", 1000, false, 0, 0},  // starts past the end: 416
      {"bytes=-0", 1000, false, 0, 0},
  };
  for (const RangeCase& c : cases) {
    ByteRangeRequest range = ParseRangeHeader(c.header);
    ASSERT_TRUE(range.present) << c.header;
    int64_t start = -1, end = -1;
    ASSERT_EQ(ResolveByteRange(range, c.size, &start, &end), c.satisfiable) << c.header;
    if (!c.satisfiable) continue;
    EXPECT_EQ(start, c.start) << c.header;
    EXPECT_EQ(end, c.end) << c.header;
  }
}

TEST(RangeHeaderTest, WhatIsNotOneByteRangeIsIgnored) {
  for (const char* header : {"", "bytes=", "bytes=0-1,5-6", "items=0-10", "bytes=abc-", "bytes=10-5", "bytes=5",
                             "bytes=-", "bytes=99999999999999999999-", "bytes=1-2x"}) {
    EXPECT_FALSE(ParseRangeHeader(header).present) << header;
  }
  int64_t start = -1, end = -1;
  ASSERT_TRUE(ResolveByteRange(ByteRangeRequest(), 10, &start, &end));
  EXPECT_EQ(start, 0);
  EXPECT_EQ(end, 9);
}

std::string Through(const std::string& url) { return "/play?url=" + PercentEncode(url); }

TEST(PlaylistRewriterTest, EveryUriOfAMediaPlaylistGoesThroughTheGateway) {
  const std::string text =
      "#EXTM3U\r\n"
      "#EXT-X-TARGETDURATION:2\r\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"../keys/k1.key\",IV=0x01\r\n"
      "#EXT-X-MAP:URI=\"init.mp4\",BYTERANGE=\"800@0\"\r\n"
      "# a comment with URI=\"x\" stays\r\n"
      "#EXTINF:2.0,\r\n"
      "  seg0.m4s  \r\n"
      "\r\n"
      "#EXTINF:2.0,\r\n"
      "https://cdn.example/other/seg1.m4s?token=a&b=c\r\n"
      "#EXT-X-KEY:METHOD=SAMPLE-AES,KEYFORMATURI=\"u\",URI=\"skd://drm\"\r\n"
      "#EXT-X-ENDLIST";
  const std::string base = "http://origin.example/v/a/index.m3u8";
  const std::string expected =
      "#EXTM3U\r\n"
      "#EXT-X-TARGETDURATION:2\r\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"" + Through("http://origin.example/v/keys/k1.key") + "\",IV=0x01\r\n"
      "#EXT-X-MAP:URI=\"" + Through("http://origin.example/v/a/init.mp4") + "\",BYTERANGE=\"800@0\"\r\n"
      "# a comment with URI=\"x\" stays\r\n"
      "#EXTINF:2.0,\r\n" + Through("http://origin.example/v/a/seg0.m4s") + "\r\n"
      "\r\n"
      "#EXTINF:2.0,\r\n" + Through("https://cdn.example/other/seg1.m4s?token=a&b=c") + "\r\n"
      "#EXT-X-KEY:METHOD=SAMPLE-AES,KEYFORMATURI=\"u\",URI=\"skd://drm\"\r\n"
      "#EXT-X-ENDLIST";
  EXPECT_EQ(RewritePlaylist(text, base, Through), expected);
}

TEST(PlaylistRewriterTest, VariantsRenditionsAndIFramePlaylistsOfAMasterGoThroughTheGateway) {
  const std::string text =
      "#EXTM3U\n"
      "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"aud\",NAME=\"en\",URI=\"audio/en.m3u8\"\n"
      "#EXT-X-I-FRAME-STREAM-INF:BANDWIDTH=100000,URI=\"/iframes.m3u8\"\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=300000,AUDIO=\"aud\"\n"
      "low/index.m3u8\n";
  const std::string expected =
      "#EXTM3U\n"
      "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"aud\",NAME=\"en\",URI=\"" + Through("http://o.example/m/audio/en.m3u8") +
      "\"\n"
      "#EXT-X-I-FRAME-STREAM-INF:BANDWIDTH=100000,URI=\"" + Through("http://o.example/iframes.m3u8") + "\"\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=300000,AUDIO=\"aud\"\n" + Through("http://o.example/m/low/index.m3u8") + "\n";
  EXPECT_EQ(RewritePlaylist(text, "http://o.example/m/master.m3u8", Through), expected);
}

TEST(PlaylistRewriterTest, PercentEncodingKeepsOnlyUnreservedBytes) {
  EXPECT_EQ(PercentEncode("http://h:8/a b?x=1&y=%2F~._-"), "http%3A%2F%2Fh%3A8%2Fa%20b%3Fx%3D1%26y%3D%252F~._-");
  EXPECT_EQ(PercentEncode(std::string("\xC3\xA9\0", 3)), "%C3%A9%00");
}

ParseOutcome Parse(std::vector<const char*> args, Options* options, std::string* error) {
  args.insert(args.begin(), "dlplay");
  return ParseOptions(static_cast<int>(args.size()), args.data(), options, error);
}

TEST(ServeCommandTest, ServeIsACommandOnlyInFirstPlaceAndListenTakesHostAndPort) {
  Options options;
  std::string error;
  ASSERT_EQ(Parse({"serve", "--listen", "127.0.0.1:0", "--cache", "/c"}, &options, &error), ParseOutcome::kRun)
      << error;
  EXPECT_TRUE(options.serve);
  EXPECT_EQ(options.listenHost, "127.0.0.1");
  EXPECT_EQ(options.listenPort, 0);
  EXPECT_EQ(options.cacheDir, "/c");

  ASSERT_EQ(Parse({"serve"}, &options, &error), ParseOutcome::kRun);
  EXPECT_EQ(options.listenHost, Options::kDefaultListenHost);
  EXPECT_EQ(options.listenPort, Options::kDefaultListenPort);

  ASSERT_EQ(Parse({"--cache", "/c", "serve"}, &options, &error), ParseOutcome::kRun);
  EXPECT_FALSE(options.serve);
  EXPECT_EQ(options.url, "serve");
  for (const char* listen : {"8080", ":8080", "h:", "h:65536", "h:-1"}) {
    EXPECT_EQ(Parse({"serve", "--listen", listen}, &options, &error), ParseOutcome::kError) << listen;
  }
}

}  // namespace
}  // namespace dlplay
