#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <downloader/Base/URI.h>
#include <downloader/Filter/LocalFileExecutor.h>
#include <downloader/Filter/LocalFileFilter.h>

#include "ExecutorContract.h"
#include "ExecutorReading.h"
#include "Platform/FileSystem.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace dltest {
namespace {

using downloader::LocalFileExecutor;
using downloader::LocalFileFilter;
using downloader::URI;

std::string LocalUrl(const std::string& path) { return std::string(LocalFileFilter::kLocalUrlPrefix) + path; }

// Writes `size` synthetic bytes to `path`; returns their seed.
uint64_t WriteSyntheticFile(const std::string& path, int64_t size) {
  const uint64_t seed = dlorigin::SyntheticSeed(path);
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  dlorigin::FillSynthetic(seed, 0, bytes.data(), bytes.size());
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return seed;
}

class LocalFileExecutorFactory : public FileExecutorFactory {
 public:
  LocalFileExecutorFactory() : FileExecutorFactory("a local file") {}
  std::shared_ptr<downloader::IDownloadExecutor> NewExecutor() override {
    return filter_.AcquireExecutor(URI::From(LocalUrl(dir_.Join("any")), {}));
  }
  ContractResource MakeResource(int64_t size) override {
    ContractResource resource;
    const std::string path = dir_.Join("resource-" + std::to_string(size) + ".ts");
    resource.seed = WriteSyntheticFile(path, size);
    resource.url = LocalUrl(path);
    return resource;
  }
  std::string MissingUrl() override { return LocalUrl(dir_.Join("missing.ts")); }

 private:
  TempDir dir_;
  LocalFileFilter filter_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(LocalFile, ExecutorContractTest, LocalFileExecutorFactory);

TEST(LocalFileFilterTest, ServesOnlyLocalUrls) {
  LocalFileFilter filter;
  DLResultCode local = filter.ShouldRespond(URI::From("http://local.url/data/a.ts", {}), nullptr);
  EXPECT_EQ(local.code, kDLSuccess);
  EXPECT_EQ(local.subCode, 0);
  for (const char* url : {"http://cdn.example/a.ts", "", "http://local.ur/a.ts"}) {
    DLResultCode remote = filter.ShouldRespond(URI::From(url, {}), nullptr);
    EXPECT_EQ(remote.code, kDLFailure) << url;
    EXPECT_EQ(remote.subCode, -1431064146) << url;
    EXPECT_EQ(SubCodeTag(remote.subCode), "RNLU");
  }
  EXPECT_EQ(filter.ShouldRespond(nullptr, nullptr).code, kDLFailure);
}

class LocalFileExecutorTest : public ::testing::Test {
 protected:
  // A second handle on `path` that writes `bytes` at its start.
  std::unique_ptr<downloader::platform::PositionalFile> WriteThrough(const std::string& path, uint32_t flags,
                                                                     const std::string& bytes) {
    std::unique_ptr<downloader::platform::PositionalFile> writer;
    EXPECT_TRUE(downloader::platform::FileSystem::Default()
                    ->OpenFile(path, downloader::platform::kOpenWrite | flags, &writer)
                    .ok());
    size_t written = 0;
    if (writer) {
      EXPECT_TRUE(writer->Write(0, bytes.data(), bytes.size(), &written).ok());
    }
    return writer;
  }

  TempDir dir_;
  LocalFileExecutor executor_;
};

TEST_F(LocalFileExecutorTest, MissingFileFailsOpenReadAndSeekWithOope) {
  DLResultCode opened = executor_.Open(URI::From(LocalUrl(dir_.Join("missing.ts")), {}));
  EXPECT_EQ(opened.code, kDLFailure);
  EXPECT_EQ(SubCodeTag(opened.subCode), "OOPE");
  DLReadResult read = ReadOnce(&executor_, 100);
  EXPECT_EQ(read.code, kDLFailure);
  EXPECT_EQ(read.subCode, LocalFileExecutor::kNotOpenSubCode);
  EXPECT_EQ(executor_.GetFileSize(), 0);
}

TEST_F(LocalFileExecutorTest, EmptyFileFailsWithOfse) {
  const std::string path = dir_.Join("empty.ts");
  std::ofstream(path, std::ios::binary).close();
  DLResultCode opened = executor_.Open(URI::From(LocalUrl(path), {}));
  EXPECT_EQ(opened.code, kDLFailure);
  EXPECT_EQ(SubCodeTag(opened.subCode), "OFSE");
  EXPECT_EQ(ReadOnce(&executor_, 100).code, kDLEndOfData);
}

TEST_F(LocalFileExecutorTest, SeekPastTheEndEndsTheDataAndANegativeSeekFails) {
  const std::string path = dir_.Join("a.ts");
  WriteSyntheticFile(path, 1000);
  ASSERT_EQ(executor_.Open(URI::From(LocalUrl(path), {})).code, kDLSuccess);
  EXPECT_EQ(executor_.Seek(5000).code, kDLSuccess);
  EXPECT_EQ(ReadOnce(&executor_, 4096).code, kDLEndOfData);
  EXPECT_EQ(executor_.Seek(-1).code, kDLFailure);
}

TEST_F(LocalFileExecutorTest, ReadsAFileThatAnotherHandleHoldsOpenForWriting) {
  const std::string path = dir_.Join("shared.ts");
  auto writer = WriteThrough(path, downloader::platform::kOpenCreate, "abcdef");
  ASSERT_EQ(executor_.Open(URI::From(LocalUrl(path), {})).code, kDLSuccess);
  EXPECT_EQ(executor_.GetFileSize(), 6);
  std::vector<uint8_t> data;
  EXPECT_EQ(ReadOnce(&executor_, 100, &data).bytes, 6u);
  EXPECT_EQ(std::string(data.begin(), data.end()), "abcdef");
}

// A directory opens on POSIX and reports a size, but it is no resource.
TEST_F(LocalFileExecutorTest, ADirectoryFailsToOpenWithOope) {
  LogCapture log;
  DLResultCode opened = executor_.Open(URI::From(LocalUrl(dir_.path()), {}));
  EXPECT_EQ(opened.code, kDLFailure);
  EXPECT_EQ(SubCodeTag(opened.subCode), "OOPE");
  EXPECT_TRUE(log.Contains("file open failed:"));
  std::vector<uint8_t> data;
  DLReadResult read = ReadOnce(&executor_, 4096, &data);
  EXPECT_EQ(read.code, kDLFailure);
  EXPECT_EQ(read.subCode, LocalFileExecutor::kNotOpenSubCode);
  EXPECT_EQ(read.bytes, 0u);
}

// The host cuts the file after Open: a read answers the count the size taken
// at Open promised; the bytes that are gone read as zeros, not as whatever the
// player's buffer held.
TEST_F(LocalFileExecutorTest, AFileCutAfterOpenAnswersTheCountItsSizePromised) {
  const std::string path = dir_.Join("cut.ts");
  WriteSyntheticFile(path, 1000);
  ASSERT_EQ(executor_.Open(URI::From(LocalUrl(path), {})).code, kDLSuccess);
  auto cutter = WriteThrough(path, downloader::platform::kOpenTruncate, "xy");
  std::vector<uint8_t> data;
  DLReadResult first = ReadOnce(&executor_, 600, &data);
  EXPECT_EQ(first.code, kDLSuccess);
  ASSERT_EQ(first.bytes, 600u);
  EXPECT_EQ(std::string(data.begin(), data.begin() + 2), "xy");
  EXPECT_EQ(std::count(data.begin() + 2, data.end(), 0), 598);
}

TEST_F(LocalFileExecutorTest, AsyncOpenIsRefused) {
  EXPECT_EQ(executor_.OpenAsync(URI::From(LocalUrl(dir_.Join("a.ts")), {})).code, kDLFailure);
  EXPECT_EQ(executor_.OpenAsync(nullptr).subCode, 0);
  EXPECT_EQ(executor_.WaitOpenResult().code, kDLSuccess);
}

}  // namespace
}  // namespace dltest
