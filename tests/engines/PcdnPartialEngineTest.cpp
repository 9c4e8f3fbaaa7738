// An engine that lacks "PCDNSetMeta": the functions before it in the binding
// order work, it and the two after it ("PCDNClose", "PCDNSetTraceCallback")
// stay unbound although the engine exports them.
#include <gtest/gtest.h>

#include <string>

#include <downloader/Stream/PcdnInterfaceHelper.h>

#include "Platform/ModuleLoader.h"
#include "engines/EngineFixture.h"
#include "support/TempDir.h"

namespace downloader {
namespace {

using Pcdn = PcdnInterfaceHelper;

void IgnoreTrace(const char*, int) {}

TEST(PcdnPartialEngineTest, RowsFromTheMissingSymbolOnStayUnbound) {
  ASSERT_TRUE(dltest::MapModule(dltest::FakePcdnEngineWithoutSetMetaPath())) << platform::LastModuleError();
  dltest::TempDir dir;
  const std::string file = dltest::WritePatternFile(dir.Join("v.mp4"), 5000);

  EXPECT_FALSE(Pcdn::EnsureSymbolLoaded());

  EXPECT_EQ(Pcdn::dlPCDNSetByKV("fake-root", dir.path().c_str()), 0);
  int64_t id = Pcdn::dlPCDNOpen("v", 0, "");
  ASSERT_GE(id, 1);
  ASSERT_EQ(Pcdn::dlPCDNRead(id, 0, "file:///v.mp4", 100, 199, "", &dltest::CollectRead), 0);
  ASSERT_TRUE(dltest::WaitForEnd(id));
  EXPECT_TRUE(dltest::RecordOf(id).bytes == file.substr(100, 100));

  EXPECT_EQ(Pcdn::dlPCDNSetMeta(id, 1, 2, 3.0f, "", 4), 0);
  EXPECT_EQ(Pcdn::dlPCDNClose(id), 0);
  EXPECT_EQ(Pcdn::dlPCDNSetTraceCallback(&IgnoreTrace), -1);

  char buffer[32] = {};
  ASSERT_NE(Pcdn::dlPCDNGet("fake-calls:PCDNClose", buffer, sizeof(buffer)), nullptr);
  EXPECT_STREQ(buffer, "0");
  ASSERT_NE(Pcdn::dlPCDNGet("fake-calls:PCDNSetTraceCallback", buffer, sizeof(buffer)), nullptr);
  EXPECT_STREQ(buffer, "0");
  Pcdn::dlPCDNSetByKV("fake-reply:itf-total-size", "12");
  EXPECT_STREQ(Pcdn::dlPCDNGetByKV("itf-total-size", "1", buffer, sizeof(buffer)), "12");
  Pcdn::dlPCDNSetByKV("fake-reset", "");
}

}  // namespace
}  // namespace downloader
