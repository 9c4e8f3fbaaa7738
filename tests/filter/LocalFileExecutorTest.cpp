#include <gtest/gtest.h>

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

class LocalFileExecutorFactory : public ExecutorFactory {
 public:
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

TEST(LocalFileFilterTest, ExecutorIdentity) {
  LocalFileFilter filter;
  auto executor = filter.AcquireExecutor(URI::From("http://local.url/data/a.ts", {}));
  ASSERT_NE(executor, nullptr);
  EXPECT_EQ(executor->GetName(), "LOCAL_FILE");
  EXPECT_EQ(executor->GetExecutorType(), 2);
  EXPECT_TRUE(executor->IsReady());
}

class LocalFileExecutorTest : public ::testing::Test {
 protected:
  TempDir dir_;
  LocalFileExecutor executor_;
};

TEST_F(LocalFileExecutorTest, MissingFileFailsOpenReadAndSeekWithOope) {
  DLResultCode opened = executor_.Open(URI::From(LocalUrl(dir_.Join("missing.ts")), {}));
  EXPECT_EQ(opened.code, kDLFailure);
  EXPECT_EQ(opened.subCode, -1162891087);
  EXPECT_EQ(SubCodeTag(opened.subCode), "OOPE");
  DLReadResult read = ReadOnce(&executor_, 100);
  EXPECT_EQ(read.code, kDLFailure);
  EXPECT_EQ(read.subCode, LocalFileExecutor::kNotOpenSubCode);
  EXPECT_EQ(executor_.Seek(0).subCode, LocalFileExecutor::kNotOpenSubCode);
  EXPECT_EQ(executor_.GetFileSize(), 0);
}

TEST_F(LocalFileExecutorTest, EmptyFileFailsWithOfse) {
  const std::string path = dir_.Join("empty.ts");
  std::ofstream(path, std::ios::binary).close();
  DLResultCode opened = executor_.Open(URI::From(LocalUrl(path), {}));
  EXPECT_EQ(opened.code, kDLFailure);
  EXPECT_EQ(opened.subCode, -1163085391);
  EXPECT_EQ(SubCodeTag(opened.subCode), "OFSE");
  EXPECT_EQ(ReadOnce(&executor_, 100).code, kDLEndOfData);
}

TEST_F(LocalFileExecutorTest, ShortLastReadThenEndThenSeekBackToTheFirstByte) {
  const std::string path = dir_.Join("a.ts");
  const uint64_t seed = WriteSyntheticFile(path, 1000);
  ASSERT_EQ(executor_.Open(URI::From(LocalUrl(path), {})).code, kDLSuccess);
  ASSERT_EQ(executor_.Seek(900).code, kDLSuccess);
  std::vector<uint8_t> data;
  DLReadResult tail = ReadOnce(&executor_, 4096, &data);
  EXPECT_EQ(tail.code, kDLSuccess);
  EXPECT_EQ(tail.bytes, 100u);
  ExpectSynthetic(seed, 900, data);
  EXPECT_EQ(ReadOnce(&executor_, 4096).code, kDLEndOfData);
  EXPECT_EQ(executor_.Seek(5000).code, kDLSuccess);
  EXPECT_EQ(ReadOnce(&executor_, 4096).code, kDLEndOfData);

  ASSERT_EQ(executor_.Seek(0).code, kDLSuccess);
  data.clear();
  EXPECT_EQ(ReadOnce(&executor_, 10, &data).bytes, 10u);
  ExpectSynthetic(seed, 0, data);
  EXPECT_EQ(executor_.Seek(-1).code, kDLFailure);
}

TEST_F(LocalFileExecutorTest, ReadsAFileThatAnotherHandleHoldsOpenForWriting) {
  const std::string path = dir_.Join("shared.ts");
  std::unique_ptr<downloader::platform::PositionalFile> writer;
  ASSERT_TRUE(downloader::platform::FileSystem::Default()
                  ->OpenFile(path, downloader::platform::kOpenWrite | downloader::platform::kOpenCreate, &writer)
                  .ok());
  size_t written = 0;
  ASSERT_TRUE(writer->Write(0, "abcdef", 6, &written).ok());
  ASSERT_EQ(executor_.Open(URI::From(LocalUrl(path), {})).code, kDLSuccess);
  EXPECT_EQ(executor_.GetFileSize(), 6);
  std::vector<uint8_t> data;
  EXPECT_EQ(ReadOnce(&executor_, 100, &data).bytes, 6u);
  EXPECT_EQ(std::string(data.begin(), data.end()), "abcdef");
}

TEST_F(LocalFileExecutorTest, AsyncOpenIsRefusedAndInfoTextsAreFixed) {
  EXPECT_EQ(executor_.OpenAsync(URI::From(LocalUrl(dir_.Join("a.ts")), {})).code, kDLFailure);
  EXPECT_EQ(executor_.OpenAsync(nullptr).subCode, 0);
  EXPECT_EQ(executor_.WaitOpenResult().code, kDLSuccess);

  const std::string path = dir_.Join("b.ts");
  WriteSyntheticFile(path, 500);
  ASSERT_EQ(executor_.Open(URI::From(LocalUrl(path), {})).code, kDLSuccess);
  EXPECT_EQ(ReadOnce(&executor_, 500).bytes, 500u);
  EXPECT_EQ(executor_.GetInfo("is_loaded_from_cache"), "6");
  EXPECT_EQ(executor_.GetInfo("downloaded_size"), "0");
  EXPECT_EQ(executor_.GetInfo("download_speed"), "");
}

}  // namespace
}  // namespace dltest
