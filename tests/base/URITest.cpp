#include <gtest/gtest.h>

#include <downloader/Base/URI.h>
#include <downloader/Base/URIBuilder.h>

namespace downloader {
namespace {

TEST(URITest, TypeIsTheFirstPatternOfTheTableFoundAnywhere) {
  EXPECT_EQ(URI::From("http://h/a/index.m3u8?x=1", {})->GetURIType(), kDLUrlM3u8);
  EXPECT_EQ(URI::From("http://h/a/seg1.ts", {})->GetURIType(), kDLUrlTs);
  EXPECT_EQ(URI::From("http://h/a/v.mp4", {})->GetURIType(), kDLUrlMp4);
  EXPECT_EQ(URI::From("", {})->GetURIType(), kDLUrlOther);
  EXPECT_EQ(URI::From("http://h/v.mp4?next=a.m3u8", {})->GetURIType(), kDLUrlM3u8);
  EXPECT_EQ(URI::From("http://h/table.tsv", {})->GetURIType(), kDLUrlTs);
  EXPECT_EQ(URI::From("http://h/A.M3U8", {})->GetURIType(), kDLUrlOther);
}

TEST(URITest, HashAndDefaultIdentity) {
  auto empty = URI::From("", {});
  EXPECT_EQ(empty->Hash(), 0xcbf29ce484222325ULL);
  EXPECT_EQ(empty->ID(), "14695981039346656037");
  EXPECT_EQ(empty->GroupID(), "");
  // FNV-1a of "a" is a published test vector.
  EXPECT_EQ(URI::From("a", {})->Hash(), 0xaf63dc4c8601ec8cULL);
  // Parameters do not take part in the identity.
  EXPECT_EQ(URI::From("http://h/x.ts", {{"player_id", "1"}})->ID(),
            URI::From("http://h/x.ts", {{"player_id", "2"}})->ID());
}

class ByType : public URIIdentifier {
 public:
  std::string ID(const URI* uri) override { return "id-" + std::to_string(uri->GetURIType()); }
  std::string GroupID(const URI* uri) override { return "group-" + std::to_string(uri->Hash() % 10); }
};

TEST(URITest, BuilderCarriesEverythingAndCustomIdentity) {
  ByType identifier;
  URIBuilder builder = URIBuilder::New();
  builder.params["range_start"] = "";
  auto uri = builder.SetUrl("http://h/s.ts").SetHttpHeader("X-A: 1").SetDuration(4000).SetURIIdentifier(&identifier).Build();
  EXPECT_EQ(uri->GetHttpHeader(), "X-A: 1");
  EXPECT_EQ(uri->ID(), "id-1");
  EXPECT_EQ(uri->GroupID(), "group-" + std::to_string(uri->Hash() % 10));

  URIBuilder copy = URIBuilder::FromURI(uri);
  auto rebuilt = copy.SetUrl("http://h/other.mp4").Build();
  EXPECT_TRUE(rebuilt->ContainsParamKey("range_start"));
  EXPECT_EQ(rebuilt->GetDuration(), 4000u);
  EXPECT_EQ(rebuilt->GetHttpHeader(), "");
  EXPECT_EQ(rebuilt->ID(), std::to_string(rebuilt->Hash()));
  EXPECT_EQ(copy.origin(), uri);
}

}  // namespace
}  // namespace downloader
