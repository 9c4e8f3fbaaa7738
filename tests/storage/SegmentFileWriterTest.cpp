// What the writer commits for each shape of incoming bytes, read back from the
// raw file (content 1000, chunks of 300: chunk 3 is the short one).
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileWriter.h"
#include "StorageTestUtil.h"
#include "support/TempDir.h"

namespace downloader {
namespace storage {
namespace {

using dltest::ReadWholeFile;
using dltest::SourceBytes;

constexpr uint64_t kContentSize = 1000;
constexpr uint64_t kChunk = 300;
constexpr uint32_t kSeed = 3;
const uint64_t kPositions[] = {17, 321, 625, 929};
const uint64_t kLengths[] = {300, 300, 300, 100};

class SegmentFileWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    provider_.init();
    ASSERT_TRUE(dltest::MakeSegmentFile(path_, kContentSize, kChunk));
  }

  std::unique_ptr<SegmentFileWriter> MakeWriter(int64_t flushLimit = kChunk) {
    return std::make_unique<SegmentFileWriter>(path_, kContentSize, 1, false, flushLimit, provider_);
  }
  static void Store(SegmentFileWriter& writer, uint64_t goff, uint64_t len) {
    std::vector<uint8_t> bytes = SourceBytes(kSeed, goff, len);
    writer.store(goff, bytes.data(), len);
  }
  // The bit of each chunk as the file on disk holds it.
  std::vector<bool> FilledOnDisk() const {
    uint8_t bitmap = ReadWholeFile(path_).at(16);
    std::vector<bool> filled;
    for (int i = 0; i < 4; ++i) filled.push_back((bitmap & (0x80 >> i)) != 0);
    return filled;
  }
  // A filled chunk must hold exactly the source's bytes.
  void ExpectFilledChunksHoldTheSource() const {
    std::vector<uint8_t> bytes = ReadWholeFile(path_);
    std::vector<bool> filled = FilledOnDisk();
    for (int i = 0; i < 4; ++i) {
      if (!filled[i]) continue;
      ASSERT_GE(bytes.size(), kPositions[i] + kLengths[i]);
      std::vector<uint8_t> content(bytes.begin() + kPositions[i], bytes.begin() + kPositions[i] + kLengths[i]);
      EXPECT_EQ(content, SourceBytes(kSeed, i * kChunk, kLengths[i])) << "chunk " << i;
    }
  }

  dltest::TempDir dir_;
  std::string path_ = dir_.Join("cache.resource");
  DiskAdapterProvider provider_;
};

TEST_F(SegmentFileWriterTest, BytesInsideAChunkWithNoPendingCellAreDropped) {
  auto writer = MakeWriter();
  Store(*writer, 5, 10);
  writer->complete();
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({false, false, false, false}));
  EXPECT_EQ(ReadWholeFile(path_).size(), 17u) << "nothing but the header and bitmap";
}

TEST_F(SegmentFileWriterTest, PartialDropThenWholeChunkThenPendingCell) {
  auto writer = MakeWriter();
  Store(*writer, 250, 400);
  // Chunk 1 reached the flush limit and is on disk already; chunk 2 holds 50
  // bytes in its pending cell.
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({false, true, false, false}));
  ExpectFilledChunksHoldTheSource();

  Store(*writer, 700, 10);  // inside chunk 2 but not where its cell ends
  Store(*writer, 650, 250);  // continues the cell exactly and completes it
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({false, true, true, false}));
  ExpectFilledChunksHoldTheSource();
}

TEST_F(SegmentFileWriterTest, CompleteDiscardsAPartialCellAndDestructionFlushesNothing) {
  auto writer = MakeWriter();
  Store(*writer, 0, 299);
  writer->complete();
  Store(*writer, 300, 100);
  writer.reset();
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({false, false, false, false}));
  EXPECT_EQ(ReadWholeFile(path_).size(), 17u) << "partial chunks are never written, not even padded";
}

TEST_F(SegmentFileWriterTest, SequentialDownloadInSmallPiecesFillsEveryChunk) {
  auto writer = MakeWriter();
  for (uint64_t goff = 0; goff < kContentSize; goff += 70) Store(*writer, goff, std::min<uint64_t>(70, kContentSize - goff));
  writer->complete();
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({true, true, true, true}));
  ExpectFilledChunksHoldTheSource();
}

// Bytes handed over by reference stay in the caller's buffer until their
// cells are written: the cells must keep that buffer alive (the caller lets
// go of it at once), write every piece of a chunk in order, and let go of it
// once written.
TEST_F(SegmentFileWriterTest, BytesStoredByReferenceAreHeldUntilWrittenThenReleased) {
  auto writer = MakeWriter(2 * kContentSize);
  std::weak_ptr<std::vector<uint8_t>> watched;
  {
    auto source = std::make_shared<std::vector<uint8_t>>(SourceBytes(kSeed, 0, kContentSize));
    watched = source;
    // Pieces that straddle chunk boundaries, so that one piece feeds two
    // cells and one cell takes several pieces.
    const uint64_t pieceEnds[] = {120, 410, 600, 610, 1000};
    uint64_t goff = 0;
    for (uint64_t end : pieceEnds) {
      writer->store(goff, std::shared_ptr<const uint8_t>(source, source->data() + goff), end - goff);
      goff = end;
    }
  }
  EXPECT_FALSE(watched.expired()) << "the pending cells hold the caller's buffer";
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({false, false, false, false})) << "below the flush limit";
  writer->complete();
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({true, true, true, true}));
  ExpectFilledChunksHoldTheSource();
  EXPECT_TRUE(watched.expired()) << "written cells let go of the buffer";
}

TEST_F(SegmentFileWriterTest, JumpToANewBoundaryDoesNotLoseTheNewChunk) {
  auto writer = MakeWriter();
  Store(*writer, 0, 200);    // chunk 0 left unfinished: the download jumps
  Store(*writer, 300, 150);
  Store(*writer, 450, 150);
  writer->complete();
  EXPECT_EQ(FilledOnDisk(), std::vector<bool>({false, true, false, false}));
  ExpectFilledChunksHoldTheSource();
}

TEST_F(SegmentFileWriterTest, FlushLimitInsideAChunkDropsThatChunk) {
  auto writer = MakeWriter(450);
  for (uint64_t goff = 0; goff < kContentSize; goff += 50) Store(*writer, goff, 50);
  writer->complete();
  // 300 of chunk 0 plus 150 of chunk 1 reach 450: chunk 0 is committed, the
  // half cell of chunk 1 is refused, and the rest of chunk 1 has no cell.
  std::vector<bool> filled = FilledOnDisk();
  EXPECT_TRUE(filled[0]);
  EXPECT_FALSE(filled[1]);
  EXPECT_TRUE(filled[2]);
  ExpectFilledChunksHoldTheSource();
}

TEST_F(SegmentFileWriterTest, SecondWriteOfAFilledChunkIsRefusedAndLeavesTheFileAlone) {
  auto first = MakeWriter();
  Store(*first, 0, 300);
  first->complete();
  std::vector<uint8_t> before = ReadWholeFile(path_);

  auto second = MakeWriter();
  std::vector<uint8_t> other(300, 0xAB);
  second->store(0, other.data(), other.size());
  second->complete();
  EXPECT_EQ(ReadWholeFile(path_), before);
}

TEST_F(SegmentFileWriterTest, OffsetsPastTheContentAndInvalidFilesAreSkipped) {
  auto writer = MakeWriter();
  Store(*writer, 1000, 10);
  writer->complete();
  EXPECT_EQ(ReadWholeFile(path_).size(), 17u);

  dltest::WriteWholeFile(dir_.Join("foreign"), std::vector<uint8_t>(40, 7));
  SegmentFileWriter reader(dir_.Join("foreign"), 0, 2, false, 0, provider_);
  std::vector<uint8_t> bytes(10, 1);
  reader.store(0, bytes.data(), bytes.size());
  EXPECT_EQ(ReadWholeFile(dir_.Join("foreign")), std::vector<uint8_t>(40, 7));
}

}  // namespace
}  // namespace storage
}  // namespace downloader
