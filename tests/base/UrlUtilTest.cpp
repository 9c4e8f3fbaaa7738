#include <gtest/gtest.h>

#include "Base/UrlUtil.h"

namespace downloader {
namespace {

TEST(UrlUtilTest, AddQueryParamPicksTheSeparatorAndKeepsTheFragment) {
  EXPECT_EQ(UrlUtil::AddQueryParam("http://h/a.ts", "p", "1"), "http://h/a.ts?p=1");
  EXPECT_EQ(UrlUtil::AddQueryParam("http://h/a.ts?x=2", "p", "1"), "http://h/a.ts?x=2&p=1");
  EXPECT_EQ(UrlUtil::AddQueryParam("http://h/a.ts?", "p", "1"), "http://h/a.ts?p=1");
  EXPECT_EQ(UrlUtil::AddQueryParam("http://h/a.ts?x=2&", "p", "1"), "http://h/a.ts?x=2&p=1");
  EXPECT_EQ(UrlUtil::AddQueryParam("http://h/a.ts#t=3", "p", "-1"), "http://h/a.ts?p=-1#t=3");
  EXPECT_EQ(UrlUtil::AddQueryParam("http://h/a.ts?x#y?z", "p", "1"), "http://h/a.ts?x&p=1#y?z");
}

TEST(UrlUtilTest, HostDropsUserInfoAndPort) {
  EXPECT_EQ(UrlUtil::Host("http://cdn.example:8080/a?b"), "cdn.example");
  EXPECT_EQ(UrlUtil::Host("https://user:pw@cdn.example/a"), "cdn.example");
  EXPECT_EQ(UrlUtil::Host("http://[::1]:80/a"), "[::1]");
  EXPECT_EQ(UrlUtil::Host("http://h?q"), "h");
  EXPECT_EQ(UrlUtil::Host("no scheme"), "");
}

TEST(UrlUtilTest, QueryValueMatchesWholeNamesOnly) {
  const std::string url = "http://h/a?slice_gear_index=7&gear_index=2&flag&e=#gear_index=9";
  EXPECT_EQ(UrlUtil::QueryValue(url, "gear_index"), "2");
  EXPECT_EQ(UrlUtil::QueryValue(url, "slice_gear_index"), "7");
  EXPECT_TRUE(UrlUtil::HasQueryParam(url, "flag"));
  EXPECT_EQ(UrlUtil::QueryValue(url, "flag"), "");
  EXPECT_TRUE(UrlUtil::HasQueryParam(url, "e"));
  EXPECT_FALSE(UrlUtil::HasQueryParam(url, "index"));
  EXPECT_FALSE(UrlUtil::HasQueryParam("http://h/a#gear_index=1", "gear_index"));
}

}  // namespace
}  // namespace downloader
