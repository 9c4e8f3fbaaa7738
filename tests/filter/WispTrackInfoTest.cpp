#include <gtest/gtest.h>

#include <string>

#include "Filter/WispTrackInfo.h"

namespace downloader {
namespace {

TEST(WispTrackInfoTest, MembersAreKeptAsTextAndWrittenBackInNameOrder) {
  WispTrackInfo::Record record;
  std::string reason;
  ASSERT_TRUE(WispTrackInfo::Parse(
      R"({"codec":"avc1.64001f,mp4a.40.2","gain":-1.5,"id":7,"lang":"日本語","default":false})", &record, &reason));
  EXPECT_EQ(record.size(), 5u);
  EXPECT_EQ(record["codec"], "avc1.64001f,mp4a.40.2");
  EXPECT_EQ(record["gain"], "-1.5");
  EXPECT_EQ(record["id"], "7");
  EXPECT_EQ(record["default"], "false");
  EXPECT_EQ(WispTrackInfo::ToText(record),
            R"({"codec":"avc1.64001f,mp4a.40.2","default":"false","gain":"-1.5","id":"7","lang":"日本語"})");

  ASSERT_TRUE(WispTrackInfo::Parse("{}", &record, &reason));
  EXPECT_TRUE(record.empty());
}

TEST(WispTrackInfoTest, TextThatIsNotAFlatObjectFailsWithAReasonAndAnEmptyRecord) {
  const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {"video", "not JSON"},
      {"{\"id\":\"\xff\"}", "not JSON"},  // not UTF-8
      {"42", "not an object"},
      {R"({"id":null})", "member \"id\" is not a string, number or boolean"},
  };
  for (const auto& c : cases) {
    WispTrackInfo::Record record = {{"left", "over"}};
    std::string reason;
    EXPECT_FALSE(WispTrackInfo::Parse(c.text, &record, &reason)) << c.text;
    EXPECT_TRUE(record.empty()) << c.text;
    EXPECT_EQ(reason, c.reason) << c.text;
  }
}

}  // namespace
}  // namespace downloader
