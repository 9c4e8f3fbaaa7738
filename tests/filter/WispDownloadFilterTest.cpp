#include <gtest/gtest.h>

#include <memory>

#include <downloader/Filter/SubCode.h>
#include <downloader/Filter/WispDownloadExecutor.h>
#include <downloader/Filter/WispDownloadFilter.h>

namespace downloader {
namespace {

TEST(WispDownloadFilterTest, RefusesLocalAndCacheOnlyResources) {
  WispDownloadFilter filter;
  for (const char* url : {"http://local.url/data/a.ts", "x-http://local.url"}) {
    DLResultCode refused = filter.ShouldRespond(URI::From(url, {}), nullptr);
    EXPECT_EQ(refused.code, kDLFailure) << url;
    EXPECT_EQ(SubCodeTag(refused.subCode), "RLAD") << url;
  }
  EXPECT_EQ(filter.ShouldRespond(URI::From("http://cdn/a.ts", {{"cache_type", "1"}}), nullptr).subCode,
            WispDownloadFilter::kRefusedSubCode);
  for (const char* cacheType : {"0", "2", "-1"}) {
    EXPECT_EQ(filter.ShouldRespond(URI::From("http://cdn/a.ts", {{"cache_type", cacheType}}), nullptr).code,
              kDLSuccess)
        << cacheType;
  }
  EXPECT_EQ(filter.ShouldRespond(URI::From("http://cdn/a.ts", {}), nullptr).code, kDLSuccess);
}

TEST(WispDownloadFilterTest, ExecutorBeforeAnyRequest) {
  WispDownloadFilter filter;
  auto executor = filter.AcquireExecutor(URI::From("http://cdn/a.ts", {}));
  ASSERT_NE(executor, nullptr);
  EXPECT_EQ(executor->GetFileSize(), 0);
  EXPECT_FALSE(executor->IsReady());
  EXPECT_EQ(executor->GetInfo("memory_usage"), "0");
  EXPECT_EQ(executor->Seek(10).code, kDLFailure) << "no response to seek from";
  EXPECT_EQ(executor->WaitOpenResult().code, kDLFailure) << "nothing to wait for";
  EXPECT_EQ(executor->Close().code, kDLSuccess);
}

}  // namespace
}  // namespace downloader
