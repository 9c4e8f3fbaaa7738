// The segment file's bytes on disk, checked against the file itself rather
// than against the code's own view of it.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "FaultInjectionFileSystem.h"
#include "Storage/Persistence/DiskAdapter.h"
#include "Storage/Persistence/File.h"
#include "Storage/SegmentFileV1.h"
#include "StorageTestUtil.h"
#include "support/TempDir.h"

namespace downloader {
namespace storage {
namespace {

using dltest::ReadWholeFile;
using dltest::SourceBytes;

class SegmentFileFormatTest : public ::testing::Test {
 protected:
  std::shared_ptr<File> CreatedFile(const std::string& name) {
    auto file = std::make_shared<File>(dir_.Join(name));
    EXPECT_TRUE(file->create());
    return file;
  }
  // Commits one chunk the way the adapter does: through the guard.
  static bool WriteChunk(DiskAdapter& adapter, uint32_t seed, uint64_t goff, uint64_t len) {
    std::vector<uint8_t> content = SourceBytes(seed, goff, len);
    return adapter.write(content.data(), len, goff) == static_cast<int64_t>(len);
  }

  dltest::TempDir dir_;
};

TEST_F(SegmentFileFormatTest, LayoutOfTheThousandByteExampleOnDisk) {
  std::string path = dir_.Join("example");
  ASSERT_TRUE(dltest::MakeSegmentFile(path, 1000, 300));
  std::vector<uint8_t> header = ReadWholeFile(path);
  const std::vector<uint8_t> expectedHeader = {'d', 'l', 1, 0,  0xE8, 0x03, 0, 0, 1,
                                               0,   0,   0, 0x2C, 0x01, 0,    0, 0};
  EXPECT_EQ(header, expectedHeader);

  DiskAdapter adapter(path, 1000, 7, platform::FileSystem::Default());
  ASSERT_TRUE(adapter.isValid());
  const uint64_t positions[] = {17, 321, 625, 929};
  const uint64_t lengths[] = {300, 300, 300, 100};
  for (uint64_t i = 0; i < 4; ++i) {
    SegmentChunk chunk;
    ASSERT_TRUE(adapter.segmentFile().get_segment_chunk(i * 300 + lengths[i] - 1, &chunk));
    EXPECT_EQ(chunk.position, positions[i]);
    EXPECT_EQ(chunk.content_len, lengths[i]);
    EXPECT_EQ(chunk.offset, i * 300);
  }
  // Last chunk first: a checksum written at the wrong place would land in a
  // neighbour's content and show up below.
  for (int i = 3; i >= 0; --i) ASSERT_TRUE(WriteChunk(adapter, 5, i * 300, lengths[i]));

  std::vector<uint8_t> bytes = ReadWholeFile(path);
  ASSERT_EQ(bytes.size(), 1033u);
  EXPECT_EQ(bytes[16], 0xF0);
  for (int i = 0; i < 4; ++i) {
    std::vector<uint8_t> content(bytes.begin() + positions[i], bytes.begin() + positions[i] + lengths[i]);
    EXPECT_EQ(content, SourceBytes(5, i * 300, lengths[i])) << "chunk " << i;
    std::vector<uint8_t> crc(bytes.begin() + positions[i] + lengths[i], bytes.begin() + positions[i] + lengths[i] + 4);
    EXPECT_EQ(crc, std::vector<uint8_t>(4, 0)) << "chunk " << i;
  }
}

TEST_F(SegmentFileFormatTest, BitmapSizeAndMostSignificantBitFirst) {
  SegmentFileV1 eight;
  ASSERT_TRUE(eight.create(CreatedFile("eight"), 8 * 100, 100, 1));
  EXPECT_EQ(eight.bitmap_size(), 1u);
  EXPECT_EQ(eight.chunk_count(), 8u);

  SegmentFileV1 nine;
  ASSERT_TRUE(nine.create(CreatedFile("nine"), 8 * 100 + 1, 100, 1));
  EXPECT_EQ(nine.bitmap_size(), 2u);
  ASSERT_TRUE(nine.set_fill_state(0, true));
  ASSERT_TRUE(nine.set_fill_state(8, true));
  ASSERT_TRUE(nine.set_fill_state(3, true));
  std::vector<uint8_t> bytes = ReadWholeFile(dir_.Join("nine"));
  ASSERT_EQ(bytes.size(), 18u);
  EXPECT_EQ(bytes[16], 0x90);
  EXPECT_EQ(bytes[17], 0x80);
  ASSERT_TRUE(nine.set_fill_state(0, false));
  EXPECT_EQ(ReadWholeFile(dir_.Join("nine"))[16], 0x10);
}

TEST_F(SegmentFileFormatTest, CreateRefusesSizesTheHeaderCannotHold) {
  const struct {
    uint64_t size;
    uint64_t chunk;
  } refused[] = {{0, 300}, {1000, 0}, {0xFFFFFFFFull, 131072}, {0x100000000ull, 131072}};
  for (const auto& sizes : refused) {
    SegmentFileV1 segmentFile;
    EXPECT_FALSE(segmentFile.create(CreatedFile("refused"), sizes.size, sizes.chunk, 1)) << sizes.size;
    EXPECT_FALSE(segmentFile.is_valid());
  }

  SegmentFileV1 largest;
  ASSERT_TRUE(largest.create(CreatedFile("largest"), 0xFFFFFFFEull, 131072, 1));
  EXPECT_EQ(largest.chunk_count(), 32768u);
  SegmentChunk last;
  ASSERT_TRUE(largest.get_segment_chunk(0xFFFFFFFDull, &last));
  EXPECT_EQ(last.content_len, 131070u);
}

TEST_F(SegmentFileFormatTest, CreateFailsOnAShortHeaderWrite) {
  dltest::FaultInjectionFileSystem faulty;
  faulty.FailWrites([](uint64_t offset, size_t) { return offset == 0; },
                    dltest::FaultInjectionFileSystem::Fault::kHalfThenFail);
  auto file = std::make_shared<File>(dir_.Join("short"), &faulty);
  ASSERT_TRUE(file->create());
  SegmentFileV1 segmentFile;
  EXPECT_FALSE(segmentFile.create(file, 1000, 300, 1));
  EXPECT_FALSE(segmentFile.is_valid());
}

TEST_F(SegmentFileFormatTest, OpenRejectsForeignAndDamagedHeaders) {
  std::string path = dir_.Join("source");
  ASSERT_TRUE(dltest::MakeSegmentFile(path, 1000, 300));
  const std::vector<uint8_t> good = ReadWholeFile(path);

  const struct {
    const char* name;
    size_t index;
    uint8_t value;
  } damages[] = {{"magic", 1, 'L'}, {"version 2", 2, 2}, {"content size 0", 4, 0}, {"bitmap size", 8, 2}};
  for (const auto& damage : damages) {
    std::vector<uint8_t> bytes = good;
    bytes[damage.index] = damage.value;
    if (damage.index == 4) bytes[5] = 0;
    std::string damaged = dir_.Join(damage.name);
    dltest::WriteWholeFile(damaged, bytes);
    auto file = std::make_shared<File>(damaged);
    ASSERT_TRUE(file->openExisting());
    SegmentFileV1 segmentFile;
    EXPECT_FALSE(segmentFile.open(file, 1)) << damage.name;
    EXPECT_FALSE(segmentFile.is_valid()) << damage.name;
  }

  std::vector<uint8_t> cut(good.begin(), good.begin() + 16);
  dltest::WriteWholeFile(dir_.Join("cut"), cut);
  auto file = std::make_shared<File>(dir_.Join("cut"));
  ASSERT_TRUE(file->openExisting());
  SegmentFileV1 segmentFile;
  EXPECT_FALSE(segmentFile.open(file, 1));
  EXPECT_EQ(ReadWholeFile(dir_.Join("cut")), cut) << "open never modifies the file";
}

TEST_F(SegmentFileFormatTest, OpenLoadsChunkSizeAndBitmapOfAnExistingFile) {
  std::string path = dir_.Join("existing");
  ASSERT_TRUE(dltest::MakeSegmentFile(path, 1000, 300));
  {
    DiskAdapter writer(path, 1000, 1, platform::FileSystem::Default());
    ASSERT_TRUE(WriteChunk(writer, 1, 300, 300));
  }
  auto file = std::make_shared<File>(path);
  ASSERT_TRUE(file->openReadOnly());
  SegmentFileV1 reopened;
  ASSERT_TRUE(reopened.open(file, 2));
  EXPECT_EQ(reopened.chunk_content_size(), 300u);
  EXPECT_FALSE(reopened.is_filled(0));
  EXPECT_TRUE(reopened.is_filled(1));
  SegmentChunk chunk;
  ASSERT_TRUE(reopened.get_segment_chunk(450, &chunk));
  EXPECT_EQ(chunk.to_string(), "{position:321,offset:300,content_len:300,chunk_index:1,crc:0,is_filled:1}");
  EXPECT_FALSE(reopened.get_segment_chunk(1000, &chunk));
}

TEST_F(SegmentFileFormatTest, ContinuousFilledSizeStopsAtTheFirstGap) {
  SegmentFileV1 segmentFile;
  ASSERT_TRUE(segmentFile.create(CreatedFile("gaps"), 12 * 100 - 30, 100, 1));
  EXPECT_EQ(segmentFile.continuous_filled_size(), 0u);
  for (uint64_t i = 0; i < 10; ++i) ASSERT_TRUE(segmentFile.set_fill_state(i, true));
  ASSERT_TRUE(segmentFile.set_fill_state(11, true));
  EXPECT_EQ(segmentFile.continuous_filled_size(), 1000u);
  ASSERT_TRUE(segmentFile.set_fill_state(10, true));
  EXPECT_EQ(segmentFile.continuous_filled_size(), 1200u) << "not capped at the content size";
}

}  // namespace
}  // namespace storage
}  // namespace downloader
