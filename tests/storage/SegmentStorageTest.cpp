// The streaming store: in-order writes into a temporary file, renamed into
// the cache when complete.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Storage/Persistence/DiskFileNameUtil.h"
#include "Storage/Persistence/File.h"
#include "Storage/SegmentStorage.h"
#include "StorageTestUtil.h"
#include "support/MapConfig.h"
#include "support/TempDir.h"

namespace downloader {
namespace storage {
namespace {

using dltest::SourceBytes;

constexpr uint64_t kSize = 1000;
constexpr uint32_t kSeed = 21;

class SegmentStorageTest : public ::testing::Test {
 protected:
  SegmentStorageTest() {
    std::string base = DiskFileNameUtil::getDLBasePath(dir_.path());
    cachePath_ = DiskFileNameUtil::getCacheFilePath(DiskFileNameUtil::getVersionDir(base, "v1"), "res");
    tmpPath_ = DiskFileNameUtil::getTmpFilePath(DiskFileNameUtil::getVersionDir(base, "v0"), "res");
    config_->Set("segment_flush_threshold", "100");
    config_->Set("segment_read_chunk_size", "7");
  }
  std::unique_ptr<SegmentStorage> Make(SegmentStorage::Mode mode) {
    auto storage = std::make_unique<SegmentStorage>(cachePath_, tmpPath_, mode, kSize, 1);
    storage->initCache(config_);
    return storage;
  }
  static std::vector<uint8_t> ReadAll(SegmentStorage& storage, uint64_t len) {
    std::vector<uint8_t> out(len);
    out.resize(storage.read(out.data(), len));
    return out;
  }
  bool Exists(const std::string& path) { return File(path).exists(); }

  dltest::TempDir dir_;
  std::string cachePath_;
  std::string tmpPath_;
  std::shared_ptr<dltest::MapConfig> config_ = std::make_shared<dltest::MapConfig>();
};

TEST_F(SegmentStorageTest, InOrderDownloadIsRenamedIntoTheCacheAndReadsBack) {
  auto writer = Make(SegmentStorage::Mode::kWrite);
  ASSERT_TRUE(writer->open());
  std::vector<uint8_t> source = SourceBytes(kSeed, 0, kSize);
  for (uint64_t goff = 0; goff < kSize; goff += 130) {
    uint64_t len = std::min<uint64_t>(130, kSize - goff);
    ASSERT_EQ(writer->write(goff, source.data() + goff, len), static_cast<int64_t>(len));
  }
  // What is still in the cell is served from memory, the rest from the file.
  ASSERT_TRUE(writer->seek(0));
  EXPECT_EQ(ReadAll(*writer, kSize), source);
  ASSERT_TRUE(writer->complete());
  EXPECT_FALSE(Exists(tmpPath_));
  ASSERT_TRUE(Exists(cachePath_));
  EXPECT_EQ(dltest::ReadWholeFile(cachePath_).size(), SegmentStorage::kHeaderSize + kSize);

  auto reader = Make(SegmentStorage::Mode::kRead);
  ASSERT_TRUE(reader->open());
  EXPECT_EQ(reader->desiredFileSize(), kSize);
  EXPECT_EQ(reader->availableSize(), kSize);
  EXPECT_EQ(ReadAll(*reader, 10), SourceBytes(kSeed, 0, 10));
  ASSERT_TRUE(reader->seek(995));
  EXPECT_EQ(ReadAll(*reader, 100), SourceBytes(kSeed, 995, 5));
  EXPECT_TRUE(ReadAll(*reader, 1).empty());
}

TEST_F(SegmentStorageTest, WritesOutOfOrderOrPastTheSizeAreRefused) {
  auto writer = Make(SegmentStorage::Mode::kWrite);
  ASSERT_TRUE(writer->open());
  std::vector<uint8_t> bytes = SourceBytes(kSeed, 0, kSize + 1);
  EXPECT_EQ(writer->write(10, bytes.data(), 5), -1);
  EXPECT_EQ(writer->write(0, bytes.data(), kSize + 1), -1);
  EXPECT_EQ(writer->write(0, bytes.data(), 5), 5);
  EXPECT_EQ(writer->write(4, bytes.data() + 4, 5), -1);
  EXPECT_EQ(writer->availableSize(), 5u);
}

TEST_F(SegmentStorageTest, ShortDownloadIsNotCompletedAndCancelRemovesIt) {
  auto writer = Make(SegmentStorage::Mode::kWrite);
  ASSERT_TRUE(writer->open());
  std::vector<uint8_t> bytes = SourceBytes(kSeed, 0, 500);
  ASSERT_EQ(writer->write(0, bytes.data(), 500), 500);
  EXPECT_FALSE(writer->complete());
  EXPECT_TRUE(Exists(tmpPath_));
  EXPECT_FALSE(Exists(cachePath_));

  // A reader meanwhile finds the temporary file and what was flushed.
  auto reader = Make(SegmentStorage::Mode::kRead);
  ASSERT_TRUE(reader->open());
  EXPECT_EQ(ReadAll(*reader, kSize), bytes);
  reader.reset();  // on Windows an open handle keeps a removed file's name

  writer->cancel();
  EXPECT_FALSE(Exists(tmpPath_));
}

TEST_F(SegmentStorageTest, DamagedHeaderIsRefused) {
  auto writer = Make(SegmentStorage::Mode::kWrite);
  ASSERT_TRUE(writer->open());
  writer.reset();
  std::vector<uint8_t> bytes = dltest::ReadWholeFile(tmpPath_);
  ASSERT_EQ(bytes.size(), SegmentStorage::kHeaderSize);
  bytes[4] = 2;  // version
  dltest::WriteWholeFile(tmpPath_, bytes);
  auto reader = Make(SegmentStorage::Mode::kRead);
  EXPECT_FALSE(reader->open());
  uint8_t byte = 0;
  EXPECT_EQ(reader->read(&byte, 1), 0u);
}

}  // namespace
}  // namespace storage
}  // namespace downloader
