// The layer between the segment format and the file system: adapter sharing,
// recreation of foreign files, the guarded transfers under write faults,
// write-back accounting and the disk writer.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "FaultInjectionFileSystem.h"
#include "ForwardingFileSystem.h"
#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/Persistence/DiskCache.h"
#include "Storage/Persistence/DiskCacheEntry.h"
#include "Storage/Persistence/DiskWriter.h"
#include "Storage/SegmentChunk.h"
#include "StorageTestUtil.h"
#include "support/TempDir.h"

namespace downloader {
namespace storage {
namespace {

using dltest::FaultInjectionFileSystem;
using dltest::ReadWholeFile;
using dltest::SourceBytes;

class DiskCacheLayerTest : public ::testing::Test {
 protected:
  dltest::TempDir dir_;
};

TEST_F(DiskCacheLayerTest, ProviderSharesOneAdapterPerPathWhileHeld) {
  DiskAdapterProvider provider;
  provider.init();
  std::string path = dir_.Join("shared");
  std::shared_ptr<DiskAdapter> writer = provider.acquire_adapter(path, 5000, 1);
  std::shared_ptr<DiskAdapter> reader1 = provider.acquire_adapter(path, 0, 2);
  std::shared_ptr<DiskAdapter> reader2 = provider.acquire_adapter(path, 0, 3);
  EXPECT_EQ(writer, reader1);
  EXPECT_EQ(writer, reader2);
  EXPECT_NE(provider.acquire_adapter(dir_.Join("other"), 5000, 4), writer);

  writer.reset();
  reader1.reset();
  reader2.reset();
  std::shared_ptr<DiskAdapter> again = provider.acquire_adapter(path, 0, 5);
  EXPECT_TRUE(again->isValid()) << "the new adapter reopens the file the first one made";
}

TEST_F(DiskCacheLayerTest, ForeignFileIsReplacedByAnEmptySegmentFileWith128KiBChunks) {
  std::string path = dir_.Join("cache.foreign");
  std::vector<uint8_t> foreign(100, 0);
  foreign[0] = 'd';
  foreign[1] = 'l';
  foreign[2] = 2;  // version 2
  dltest::WriteWholeFile(path, foreign);
  DiskAdapter adapter(path, 300000, 1, platform::FileSystem::Default());
  ASSERT_TRUE(adapter.isValid());
  EXPECT_EQ(adapter.segmentFile().chunk_content_size(), 131072u);
  EXPECT_EQ(adapter.segmentFile().content_file_size(), 300000u);
  std::vector<uint8_t> bytes = ReadWholeFile(path);
  const std::vector<uint8_t> header = {'d', 'l', 1, 0, 0xE0, 0x93, 0x04, 0, 1, 0, 0, 0, 0, 0, 2, 0, 0};
  EXPECT_EQ(bytes, header);
}

// Each step of a commit failing in turn: the chunk must stay unfilled, and
// a later write of the same chunk must succeed.
TEST_F(DiskCacheLayerTest, CommitThatFailsAtAnyStepLeavesTheChunkUnfilled) {
  const struct {
    const char* step;
    uint64_t offset;
  } steps[] = {{"content", 17}, {"checksum", 317}, {"bit", 16}};
  for (const auto& step : steps) {
    std::string path = dir_.Join(std::string("fault-") + step.step);
    ASSERT_TRUE(dltest::MakeSegmentFile(path, 1000, 300));
    FaultInjectionFileSystem faulty;
    DiskAdapter adapter(path, 1000, 1, &faulty);
    ASSERT_TRUE(adapter.isValid());
    uint64_t failingOffset = step.offset;
    faulty.FailWrites([failingOffset](uint64_t offset, size_t) { return offset == failingOffset; },
                      FaultInjectionFileSystem::Fault::kHalfThenFail);
    std::vector<uint8_t> content = SourceBytes(1, 0, 300);
    EXPECT_LT(adapter.write(content.data(), 300, 0), 0) << step.step;
    EXPECT_EQ(faulty.injectedFaults(), 1) << step.step;
    EXPECT_EQ(ReadWholeFile(path).at(16), 0) << step.step;
    std::vector<uint8_t> out(300);
    EXPECT_LT(adapter.read(out.data(), 300, 0), 0) << step.step;

    faulty.Heal();
    EXPECT_EQ(adapter.write(content.data(), 300, 0), 300) << step.step;
    EXPECT_EQ(adapter.read(out.data(), 300, 0), 300) << step.step;
    EXPECT_EQ(out, content) << step.step;
  }
}

TEST_F(DiskCacheLayerTest, GuardPassesOnlyWholeChunks) {
  std::string path = dir_.Join("guard");
  ASSERT_TRUE(dltest::MakeSegmentFile(path, 1000, 300));
  DiskAdapter adapter(path, 1000, 1, platform::FileSystem::Default());
  std::vector<uint8_t> content = SourceBytes(1, 0, 300);
  EXPECT_LT(adapter.write(content.data(), 299, 0), 0);
  EXPECT_LT(adapter.write(content.data(), 300, 1), 0);
  EXPECT_LT(adapter.write(content.data(), 300, 900), 0) << "the last chunk holds 100";
  EXPECT_EQ(adapter.write(content.data(), 100, 900), 100);
  std::vector<uint8_t> out(300);
  EXPECT_LT(adapter.read(out.data(), 50, 900), 0);
  EXPECT_EQ(adapter.read(out.data(), 100, 900), 100);
}

// Watches the room the cache sets aside, and can refuse it as a full disk
// would.
class ReservationRecorder : public dltest::ForwardingFileSystem {
 public:
  struct Range {
    uint64_t offset;
    uint64_t length;
  };
  std::vector<Range> ranges;
  bool refuse = false;

 protected:
  FileStatus Reserve(PositionalFile* file, uint64_t offset, uint64_t length) override {
    ranges.push_back(Range{offset, length});
    return refuse ? FileStatus::IoError("no room", 28) : file->Reserve(offset, length);
  }
};

// Room goes ahead of the writes one stretch at a time, covers every slot
// written, never passes the last slot, and leaves the file's length to the
// writes; a refusal costs no write.
TEST_F(DiskCacheLayerTest, RoomIsSetAsideAheadOfTheWritesUpToTheLastSlot) {
  constexpr uint64_t kChunk = SegmentFileV1::kDefaultChunkContentSize;
  constexpr uint64_t kResource = 2 * DiskAdapter::kReserveAhead + 1000;
  ReservationRecorder fileSystem;
  DiskAdapter adapter(dir_.Join("reserved"), kResource, 1, &fileSystem);
  ASSERT_TRUE(adapter.isValid());
  std::vector<SegmentChunk> slots;
  for (uint64_t goff = 0; goff < kResource; goff += kChunk) {
    SegmentChunk slot;
    ASSERT_TRUE(adapter.segmentFile().chunk_at(goff, &slot));
    slots.push_back(slot);
  }
  const uint64_t layoutEnd = slots.back().position + slots.back().content_len + SegmentFileV1::kChecksumSize;

  std::vector<uint8_t> first = SourceBytes(1, 0, kChunk);
  ASSERT_EQ(adapter.write(first.data(), kChunk, 0), static_cast<int64_t>(kChunk));
  ASSERT_EQ(fileSystem.ranges.size(), 1u);
  EXPECT_EQ(fileSystem.ranges[0].offset, slots[0].position);
  EXPECT_EQ(fileSystem.ranges[0].length, DiskAdapter::kReserveAhead);
  EXPECT_EQ(ReadWholeFile(adapter.path()).size(), slots[0].position + kChunk + SegmentFileV1::kChecksumSize);

  for (size_t index = 1; index < slots.size(); ++index) {
    if (index == 40) fileSystem.refuse = true;
    std::vector<uint8_t> content = SourceBytes(1, slots[index].offset, slots[index].content_len);
    ASSERT_EQ(adapter.write(content.data(), content.size(), slots[index].offset),
              static_cast<int64_t>(content.size()));
  }
  ASSERT_EQ(fileSystem.ranges.size(), 3u) << "one call per stretch";
  uint64_t covered = fileSystem.ranges[0].offset;
  for (const ReservationRecorder::Range& range : fileSystem.ranges) {
    EXPECT_LE(range.offset, covered) << "no slot left out";
    covered = range.offset + range.length;
  }
  EXPECT_EQ(covered, layoutEnd);
  EXPECT_EQ(ReadWholeFile(adapter.path()).size(), layoutEnd);
}

TEST_F(DiskCacheLayerTest, WriteBackWritesTheOldestEntryWhenTheLimitIsReached) {
  std::string pathA = dir_.Join("a");
  std::string pathB = dir_.Join("b");
  ASSERT_TRUE(dltest::MakeSegmentFile(pathA, 1000, 300));
  ASSERT_TRUE(dltest::MakeSegmentFile(pathB, 1000, 300));
  auto adapterA = std::make_shared<DiskAdapter>(pathA, 1000, 1, platform::FileSystem::Default());
  auto adapterB = std::make_shared<DiskAdapter>(pathB, 1000, 1, platform::FileSystem::Default());
  auto entryA = std::make_shared<DiskCacheEntry>(adapterA, 1);
  auto entryB = std::make_shared<DiskCacheEntry>(adapterB, 1);
  DiskCache cache(500, 1);
  cache.add(entryA);
  cache.add(entryB);

  auto cellOf = [](uint64_t goff, uint64_t len) {
    auto bytes = std::make_shared<std::vector<uint8_t>>(SourceBytes(1, goff, len));
    DataCell cell;
    cell.goff = goff;
    cell.pieces.push_back(CellPiece{std::shared_ptr<const uint8_t>(bytes, bytes->data()), len});
    cell.len = len;
    cell.cap = 300;
    return cell;
  };
  ASSERT_TRUE(entryA->cacheData(cellOf(0, 300)));
  ASSERT_TRUE(cache.update(entryA, 300));
  ASSERT_TRUE(entryB->cacheData(cellOf(0, 300)));
  ASSERT_TRUE(cache.update(entryB, 300));
  // 600 >= 500: A, the entry used longest ago, goes to disk; B stays.
  EXPECT_EQ(cache.total(), 300u);
  EXPECT_EQ(entryA->size(), 0u);
  EXPECT_EQ(entryB->size(), 300u);
  EXPECT_EQ(ReadWholeFile(pathA).at(16), 0x80);
  EXPECT_EQ(ReadWholeFile(pathB).at(16), 0x00);

  auto more = std::make_shared<std::vector<uint8_t>>(SourceBytes(1, 250, 60));
  std::shared_ptr<const uint8_t> moreBytes(more, more->data());
  EXPECT_EQ(entryB->append(250, moreBytes, 10), 0u) << "not where the cell ends";
  EXPECT_EQ(entryB->append(300, moreBytes, 10), 0u) << "the cell is full";
  EXPECT_FALSE(cache.update(entryB, -301)) << "more than the total";
  EXPECT_EQ(cache.total(), 300u);
  cache.remove(entryB);
  EXPECT_EQ(cache.total(), 0u);
}

TEST_F(DiskCacheLayerTest, DiskWriterCloseIsCounted) {
  DiskWriter writer(dir_.Join("sub/dir/file"), platform::FileSystem::Default(), 1);
  EXPECT_FALSE(writer.openExistingFile());
  EXPECT_FALSE(writer.openFile()) << "openFile creates the file, not its directories";
  ASSERT_TRUE(writer.createFile()) << "makes the parent directories";
  ASSERT_TRUE(writer.openExistingFile());
  EXPECT_EQ(writer.writeData("abc", 3, 10), 3);
  writer.closeFile();
  ASSERT_TRUE(writer.isOpen()) << "one holder is left";
  char buffer[16] = {};
  EXPECT_EQ(writer.readData(buffer, sizeof(buffer), 0), 13);
  EXPECT_EQ(buffer[0], 0) << "the gap reads as zeros";
  EXPECT_EQ(std::string(buffer + 10, 3), "abc");
  writer.closeFile();
  EXPECT_FALSE(writer.isOpen());
  EXPECT_EQ(writer.readData(buffer, 1, 0), -1);
  EXPECT_EQ(writer.writeData("x", 1, 0), -1);
}

}  // namespace
}  // namespace storage
}  // namespace downloader
