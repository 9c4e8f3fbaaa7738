// Several writers and readers on one file, and the storage thread fed from
// several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "Storage/Persistence/DiskAdapterProvider.h"
#include "Storage/SegmentFileReader.h"
#include "Storage/SegmentFileWriter.h"
#include "Storage/SegmentFileWriterDispatch.h"
#include "StorageTestUtil.h"
#include "support/TempDir.h"
#include "support/WaitFor.h"

namespace downloader {
namespace storage {
namespace {

using dltest::ReadWholeFile;
using dltest::SourceBytes;

constexpr uint64_t kChunk = 300;
constexpr uint64_t kChunks = 16;
constexpr uint64_t kSize = kChunk * kChunks;
constexpr uint32_t kSeed = 11;

void StoreChunk(SegmentFileWriter& writer, uint64_t chunkIndex) {
  std::vector<uint8_t> bytes = SourceBytes(kSeed, chunkIndex * kChunk, kChunk);
  writer.store(chunkIndex * kChunk, bytes.data(), kChunk);
}

// Each object below has a provider of its own, hence an adapter and an
// in-memory bitmap of its own: they meet only in the file.
class SeparateObjectsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dltest::MakeSegmentFile(path_, kSize, kChunk));
    for (auto* provider : {&providerA_, &providerB_, &providerReader_}) provider->init();
  }
  std::vector<uint8_t> Read(SegmentFileReader& reader, uint64_t goff, uint64_t len) {
    std::vector<uint8_t> buffer(len);
    buffer.resize(reader.read(goff, buffer.data(), len));
    return buffer;
  }

  dltest::TempDir dir_;
  std::string path_ = dir_.Join("cache.shared");
  DiskAdapterProvider providerA_;
  DiskAdapterProvider providerB_;
  DiskAdapterProvider providerReader_;
};

TEST_F(SeparateObjectsTest, CommitsOfOneObjectAreSeenAndKeptByTheOthers) {
  SegmentFileReader reader(path_, 3, providerReader_);  // its bitmap is loaded now, all zero
  SegmentFileWriter writerA(path_, kSize, 1, false, kChunk, providerA_);
  SegmentFileWriter writerB(path_, kSize, 2, false, kChunk, providerB_);

  StoreChunk(writerA, 0);
  EXPECT_EQ(Read(reader, 0, kSize), SourceBytes(kSeed, 0, kChunk));
  StoreChunk(writerB, 1);  // same bitmap byte: B must not clear A's bit
  EXPECT_EQ(ReadWholeFile(path_).at(16), 0xC0);
  StoreChunk(writerA, 2);  // and A must not clear B's
  EXPECT_EQ(ReadWholeFile(path_).at(16), 0xE0);
  EXPECT_EQ(Read(reader, 0, kSize), SourceBytes(kSeed, 0, 3 * kChunk));
}

TEST_F(SeparateObjectsTest, WritersOnTwoThreadsAndAReaderOnAThird) {
  SegmentFileReader reader(path_, 3, providerReader_);
  SegmentFileWriter writerA(path_, kSize, 1, false, kChunk, providerA_);
  SegmentFileWriter writerB(path_, kSize, 2, false, kChunk, providerB_);
  // Different bitmap bytes: bits of one byte committed at the same instant by
  // two objects may lose one of the two (documented with the format).
  std::thread a([&] {
    for (uint64_t i = 0; i < 8; ++i) StoreChunk(writerA, i);
  });
  std::thread b([&] {
    for (uint64_t i = 8; i < kChunks; ++i) StoreChunk(writerB, i);
  });
  std::vector<uint8_t> source = SourceBytes(kSeed, 0, kSize);
  bool whole = dltest::WaitFor([&] {
    for (uint64_t goff = 0; goff < kSize; goff += kChunk) {
      std::vector<uint8_t> got = Read(reader, goff, kSize - goff);
      EXPECT_TRUE(std::equal(got.begin(), got.end(), source.begin() + goff)) << "goff " << goff;
      if (goff == 0 && got.size() == kSize) return true;
    }
    return false;
  });
  a.join();
  b.join();
  EXPECT_TRUE(whole);
}

TEST(DispatchTest, StoresFromManyThreadsLandInPostingOrderPerWriter) {
  dltest::TempDir dir;
  DiskAdapterProvider provider;
  provider.init();
  constexpr int kResources = 4;
  constexpr uint64_t kResourceSize = 5 * 131072 + 1234;
  std::atomic<int> completed{0};
  std::vector<std::thread> threads;
  for (int r = 0; r < kResources; ++r) {
    threads.emplace_back([&, r] {
      auto writer = std::make_shared<SegmentFileWriter>(dir.Join("cache." + std::to_string(r)), kResourceSize, r,
                                                        false, 0, provider);
      std::mt19937 random(static_cast<unsigned>(r));
      std::vector<uint8_t> source = SourceBytes(static_cast<uint32_t>(r), 0, kResourceSize);
      for (uint64_t goff = 0; goff < kResourceSize;) {
        uint64_t piece = std::min<uint64_t>(1 + random() % 70000, kResourceSize - goff);
        SegmentFileWriterDispatch::GetInstance().store(writer, goff, source.data() + goff, piece);
        goff += piece;
      }
      SegmentFileWriterDispatch::GetInstance().complete(writer, [&completed] { ++completed; });
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(dltest::WaitFor([&] { return completed.load() == kResources; }));
  for (int r = 0; r < kResources; ++r) {
    SegmentFileReader reader(dir.Join("cache." + std::to_string(r)), 9, provider);
    std::vector<uint8_t> out(kResourceSize);
    ASSERT_EQ(reader.read(0, out.data(), kResourceSize), kResourceSize) << "resource " << r;
    EXPECT_EQ(out, SourceBytes(static_cast<uint32_t>(r), 0, kResourceSize)) << "resource " << r;
  }
}

TEST(DispatchTest, ReaderSharingTheWritersAdapterNeverSeesForeignBytes) {
  dltest::TempDir dir;
  DiskAdapterProvider provider;
  provider.init();
  constexpr uint64_t kResourceSize = 12 * 131072;
  std::string path = dir.Join("cache.live");
  auto writer = std::make_shared<SegmentFileWriter>(path, kResourceSize, 1, false, 0, provider);
  SegmentFileReader reader(path, 2, provider);
  std::vector<uint8_t> source = SourceBytes(5, 0, kResourceSize);
  std::atomic<bool> done{false};
  std::thread network([&] {
    for (uint64_t goff = 0; goff < kResourceSize; goff += 16384) {
      SegmentFileWriterDispatch::GetInstance().store(writer, goff, source.data() + goff, 16384);
    }
    SegmentFileWriterDispatch::GetInstance().complete(writer, [&done] { done = true; });
  });
  std::vector<uint8_t> out(kResourceSize);
  bool whole = dltest::WaitFor([&] {
    uint64_t got = reader.read(0, out.data(), kResourceSize);
    EXPECT_EQ(got % 131072, 0u);
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + got, source.begin()));
    return got == kResourceSize;
  });
  network.join();
  EXPECT_TRUE(whole);
  EXPECT_TRUE(dltest::WaitFor([&] { return done.load(); }));
}

}  // namespace
}  // namespace storage
}  // namespace downloader
