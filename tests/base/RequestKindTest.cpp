#include <gtest/gtest.h>

#include "Base/RequestKind.h"

namespace downloader {
namespace {

// The playlist rules differ on purpose: the stream and the HTTP level look at
// how the URL ends, the segment cache refuses anything that mentions a
// playlist, a query included.
TEST(RequestKindTest, PlaylistEndsTheUrlButPlaylistTextIsNamedAnywhere) {
  EXPECT_TRUE(RequestKind::Of("http://cdn.example/live/index.m3u8").playlist);
  EXPECT_TRUE(RequestKind::Of("http://cdn.example/playlist/m3u8?id=7").playlist);
  const RequestKind withQuery = RequestKind::Of("http://cdn.example/index.m3u8?token=1");
  EXPECT_FALSE(withQuery.playlist);
  EXPECT_TRUE(withQuery.namesPlaylistText);
  const RequestKind segment = RequestKind::Of("http://cdn.example/seg-1.ts");
  EXPECT_FALSE(segment.playlist);
  EXPECT_FALSE(segment.namesPlaylistText);
  EXPECT_FALSE(RequestKind::Of("http://cdn.example/INDEX.M3U8").playlist);
}

TEST(RequestKindTest, LocalFilesAndAdvertisements) {
  EXPECT_TRUE(RequestKind::Of("http://local.url/sdcard/a.mp4").localFile);
  EXPECT_FALSE(RequestKind::Of("http://local.example/a.mp4").localFile);
  EXPECT_TRUE(RequestKind::Of("http://cdn.example/ad/a.mp4?ccode=0902").advertisement);
  // The code counts only behind the advertisement path.
  EXPECT_FALSE(RequestKind::Of("http://cdn.example/ccode=0902/ad/a.mp4").advertisement);
  EXPECT_FALSE(RequestKind::Of("http://cdn.example/ad/a.mp4").advertisement);
  const RequestKind empty = RequestKind::Of("");
  EXPECT_FALSE(empty.playlist || empty.namesPlaylistText || empty.localFile || empty.advertisement);
}

}  // namespace
}  // namespace downloader
