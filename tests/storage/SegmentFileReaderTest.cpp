// Reads against files whose filled chunks the test chose.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileReader.h"
#include "StorageTestUtil.h"
#include "support/TempDir.h"

namespace downloader {
namespace storage {
namespace {

using dltest::SourceBytes;

constexpr uint32_t kSeed = 9;

class SegmentFileReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    provider_.init();
    ASSERT_TRUE(dltest::MakeSegmentFile(path_, 1000, 300));
    adapter_ = provider_.acquire_adapter(path_, 1000, 1);
    ASSERT_TRUE(adapter_->isValid());
  }
  void Fill(uint64_t chunkIndex) {
    uint64_t len = chunkIndex == 3 ? 100 : 300;
    std::vector<uint8_t> content = SourceBytes(kSeed, chunkIndex * 300, len);
    ASSERT_EQ(adapter_->write(content.data(), len, chunkIndex * 300), static_cast<int64_t>(len));
  }
  std::vector<uint8_t> Read(SegmentFileReader& reader, uint64_t goff, uint64_t len) {
    std::vector<uint8_t> buffer(len);
    buffer.resize(reader.read(goff, buffer.data(), len));
    return buffer;
  }

  dltest::TempDir dir_;
  std::string path_ = dir_.Join("cache.resource");
  DiskAdapterProvider provider_;
  std::shared_ptr<DiskAdapter> adapter_;
};

TEST_F(SegmentFileReaderTest, ReadStopsAtTheFirstUnfilledChunk) {
  Fill(0);
  Fill(1);
  Fill(3);
  SegmentFileReader reader(path_, 2, provider_);
  EXPECT_EQ(Read(reader, 100, 900), SourceBytes(kSeed, 100, 500));
  EXPECT_TRUE(Read(reader, 600, 10).empty()) << "chunk 2 is not filled";
  EXPECT_EQ(Read(reader, 950, 500), SourceBytes(kSeed, 950, 50)) << "clipped at the content's end";
  EXPECT_TRUE(Read(reader, 1000, 1).empty());
}

TEST_F(SegmentFileReaderTest, ReaderSeesChunksCommittedAfterItsFirstRead) {
  SegmentFileReader reader(path_, 2, provider_);
  EXPECT_TRUE(Read(reader, 0, 1000).empty());
  Fill(0);
  EXPECT_EQ(Read(reader, 0, 1000), SourceBytes(kSeed, 0, 300));
  Fill(1);
  Fill(2);
  Fill(3);
  EXPECT_EQ(Read(reader, 0, 1000), SourceBytes(kSeed, 0, 1000));
}

TEST_F(SegmentFileReaderTest, KeptChunkIsDroppedWhenItsBitIsCleared) {
  Fill(0);
  SegmentFileReader reader(path_, 2, provider_);
  EXPECT_EQ(Read(reader, 0, 10), SourceBytes(kSeed, 0, 10));
  ASSERT_TRUE(adapter_->segmentFile().set_fill_state(0, false));
  EXPECT_TRUE(Read(reader, 10, 10).empty()) << "the kept copy must not outlive the bit";
}

// A run of whole chunks in one transfer: the contents land back to back (the
// checksums between them on disk do not), and each chunk keeps its guards.
TEST_F(SegmentFileReaderTest, ARunOfWholeChunksReadsInPlaceWithEveryChunksGuard) {
  for (uint64_t index = 0; index < 4; ++index) Fill(index);
  std::vector<uint8_t> buffer(1000);
  ASSERT_EQ(adapter_->readRun(buffer.data(), 1000, 0), 1000);
  EXPECT_EQ(buffer, SourceBytes(kSeed, 0, 1000));
  buffer.assign(700, 0);
  ASSERT_EQ(adapter_->readRun(buffer.data(), 700, 300), 700) << "up to the short last chunk";
  EXPECT_EQ(buffer, SourceBytes(kSeed, 300, 700));
  EXPECT_EQ(adapter_->readRun(buffer.data(), 500, 0), -1) << "ends inside a chunk";
  EXPECT_EQ(adapter_->readRun(buffer.data(), 300, 150), -1) << "starts inside a chunk";

  SegmentChunk second;
  ASSERT_TRUE(adapter_->segmentFile().chunk_at(300, &second));
  std::vector<uint8_t> raw = dltest::ReadWholeFile(path_);
  raw[second.position + second.content_len] ^= 0x5A;
  dltest::WriteWholeFile(path_, raw);
  EXPECT_EQ(adapter_->readRun(buffer.data(), 600, 0), -1) << "a stored checksum that does not match";
  raw[second.position + second.content_len] ^= 0x5A;
  dltest::WriteWholeFile(path_, raw);
  ASSERT_EQ(adapter_->readRun(buffer.data(), 600, 0), 600);

  ASSERT_TRUE(adapter_->segmentFile().set_fill_state(2, false));
  EXPECT_EQ(adapter_->readRun(buffer.data(), 1000, 0), -1) << "a chunk of the run is not filled";
  EXPECT_EQ(adapter_->readRun(buffer.data(), 600, 0), 600);
}

// The file ends inside the last chunk's checksum: that checksum reads as 0,
// so the chunk is served on every path. A file that ends inside the content
// serves nothing of that chunk.
TEST_F(SegmentFileReaderTest, LastChecksumCutShortReadsAsZeroAndTheChunkIsServed) {
  for (uint64_t index = 0; index < 4; ++index) Fill(index);
  std::vector<uint8_t> raw = dltest::ReadWholeFile(path_);
  raw.resize(raw.size() - 2);
  dltest::WriteWholeFile(path_, raw);

  std::vector<uint8_t> buffer(1000);
  ASSERT_EQ(adapter_->readRun(buffer.data(), 1000, 0), 1000);
  EXPECT_EQ(buffer, SourceBytes(kSeed, 0, 1000));
  buffer.assign(100, 0);
  ASSERT_EQ(adapter_->readRun(buffer.data(), 100, 900), 100);
  EXPECT_EQ(buffer, SourceBytes(kSeed, 900, 100));
  SegmentFileReader reader(path_, 2, provider_);
  EXPECT_EQ(Read(reader, 850, 150), SourceBytes(kSeed, 850, 150));

  raw.resize(raw.size() - 3);  // one content byte gone
  dltest::WriteWholeFile(path_, raw);
  EXPECT_EQ(adapter_->readRun(buffer.data(), 100, 900), -1);
  EXPECT_EQ(adapter_->readRun(buffer.data(), 1000, 0), -1);
  SegmentFileReader after(path_, 3, provider_);
  EXPECT_EQ(Read(after, 850, 150), SourceBytes(kSeed, 850, 50)) << "only up to the chunk the file lost bytes of";
}

TEST_F(SegmentFileReaderTest, ReaderOfAMissingOrForeignFileReadsNothingAndCreatesNothing) {
  SegmentFileReader missing(dir_.Join("missing"), 2, provider_);
  EXPECT_FALSE(missing.isValid());
  uint8_t byte = 0;
  EXPECT_EQ(missing.read(0, &byte, 1), 0u);
  EXPECT_FALSE(File(dir_.Join("missing")).exists());

  std::vector<uint8_t> foreign = {'d', 'l', 2, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0x80, 0x55, 0, 0, 0, 0};
  dltest::WriteWholeFile(dir_.Join("v2"), foreign);
  SegmentFileReader v2(dir_.Join("v2"), 2, provider_);
  EXPECT_EQ(v2.read(0, &byte, 1), 0u);
  EXPECT_EQ(dltest::ReadWholeFile(dir_.Join("v2")), foreign);
}

TEST_F(SegmentFileReaderTest, HeaderClaimingAHugeChunkIsRefusedBeforeAllocating) {
  // content 0xFFFFFFFE in one chunk of 0xFFFFFFFE bytes, its bit set, but the
  // file ends right after the bitmap.
  std::vector<uint8_t> claim = {'d', 'l', 1, 0, 0xFE, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 0x80};
  dltest::WriteWholeFile(dir_.Join("claim"), claim);
  SegmentFileReader reader(dir_.Join("claim"), 2, provider_);
  ASSERT_TRUE(reader.isValid());
  uint8_t byte = 0;
  EXPECT_EQ(reader.read(0, &byte, 1), 0u);
}

}  // namespace
}  // namespace storage
}  // namespace downloader
