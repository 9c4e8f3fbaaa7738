// A segment file written by the Linux build is checked in. Both builds must
// write exactly its bytes for the same input, and read it back the same, so
// that a cache written on one platform serves on the other.
//
// To write the fixture anew: DL_STORAGE_FIXTURE_OUT=<dir> storage_unit_tests
// --gtest_filter=SegmentFileFixtureTest.*, then copy <dir>/linux_written.seg
// into tests/storage/data/.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileReader.h"
#include "Storage/SegmentFileWriter.h"
#include "StorageTestUtil.h"
#include "support/TempDir.h"

namespace downloader {
namespace storage {
namespace {

using dltest::ReadWholeFile;

constexpr uint64_t kContentSize = 300000;  // chunks of 131072, 131072 and 37856
constexpr uint64_t kChunk = 131072;
constexpr char kFixtureName[] = "linux_written.seg";

// Compressible, so that the checked-in file stays small in the repository.
uint8_t FixtureByte(uint64_t offset) { return static_cast<uint8_t>('a' + (offset * 7 + offset / 1000) % 26); }

std::vector<uint8_t> FixtureBytes(uint64_t goff, uint64_t len) {
  std::vector<uint8_t> bytes(len);
  for (uint64_t i = 0; i < len; ++i) bytes[i] = FixtureByte(goff + i);
  return bytes;
}

std::string FixturePath() { return std::string(DL_STORAGE_TEST_DATA) + "/" + kFixtureName; }

class SegmentFileFixtureTest : public ::testing::Test {
 protected:
  void SetUp() override { provider_.init(); }

  dltest::TempDir dir_;
  DiskAdapterProvider provider_;
};

TEST_F(SegmentFileFixtureTest, WritingTheSameInputGivesTheCheckedInBytes) {
  std::string path = dir_.Join("cache.fixture");
  {
    SegmentFileWriter writer(path, kContentSize, 1, false, 0, provider_);
    // Chunk 0 and the short last chunk; chunk 1 stays a hole.
    for (uint64_t goff = 0; goff < kChunk; goff += 16384) writer.store(goff, FixtureBytes(goff, 16384).data(), 16384);
    writer.store(2 * kChunk, FixtureBytes(2 * kChunk, kContentSize - 2 * kChunk).data(), kContentSize - 2 * kChunk);
    writer.complete();
  }
  std::vector<uint8_t> written = ReadWholeFile(path);
  if (const char* out = std::getenv("DL_STORAGE_FIXTURE_OUT")) {
    dltest::WriteWholeFile(std::string(out) + "/" + kFixtureName, written);
  }
  ASSERT_EQ(written.size(), 17u + 2 * (kChunk + 4) + (kContentSize - 2 * kChunk) + 4);
  EXPECT_TRUE(written == ReadWholeFile(FixturePath())) << "the bytes differ from " << FixturePath();
}

TEST_F(SegmentFileFixtureTest, CheckedInFileReadsBack) {
  std::string path = dir_.Join("cache.copy");
  std::vector<uint8_t> fixture = ReadWholeFile(FixturePath());
  ASSERT_FALSE(fixture.empty()) << FixturePath();
  dltest::WriteWholeFile(path, fixture);

  SegmentFileReader reader(path, 1, provider_);
  ASSERT_TRUE(reader.isValid());
  EXPECT_EQ(reader.content_file_size(), kContentSize);
  std::vector<uint8_t> out(kContentSize);
  ASSERT_EQ(reader.read(0, out.data(), kContentSize), kChunk) << "stops at the hole";
  out.resize(kChunk);
  EXPECT_TRUE(out == FixtureBytes(0, kChunk));
  EXPECT_EQ(reader.read(kChunk, out.data(), 1), 0u);
  out.resize(kContentSize - 2 * kChunk);
  ASSERT_EQ(reader.read(2 * kChunk, out.data(), out.size()), out.size());
  EXPECT_TRUE(out == FixtureBytes(2 * kChunk, out.size()));
  EXPECT_EQ(ReadWholeFile(path), fixture) << "reading leaves the file as it was";
}

}  // namespace
}  // namespace storage
}  // namespace downloader
