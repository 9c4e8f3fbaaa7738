// The recycler behind chunk memory: what it keeps, for whom, and how much.
#include <gtest/gtest.h>

#include <cstdint>

#include "Base/BlockRecycler.h"

namespace downloader {
namespace {

constexpr uint64_t kMiB = 1024 * 1024;

TEST(BlockRecyclerTest, AKeptBlockServesWhatItHoldsWithAtMostHalfUnused) {
  BlockRecycler recycler;
  uint64_t capacity = 0;
  uint8_t* block = recycler.Take(kMiB, &capacity);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(capacity, kMiB);
  recycler.Give(block, capacity);
  EXPECT_EQ(recycler.KeptBytes(), kMiB);

  uint64_t tooBigCapacity = 0;
  uint8_t* tooBig = recycler.Take(kMiB + 1, &tooBigCapacity);
  EXPECT_NE(tooBig, block);
  EXPECT_EQ(tooBigCapacity, kMiB + 1);
  uint64_t tooSmallCapacity = 0;
  uint8_t* tooSmall = recycler.Take(kMiB / 2 - 1, &tooSmallCapacity);
  EXPECT_NE(tooSmall, block) << "it would leave more than half of the block unused";
  EXPECT_EQ(tooSmallCapacity, kMiB / 2 - 1);

  uint64_t oddCapacity = 0;
  EXPECT_EQ(recycler.Take(kMiB / 2, &oddCapacity), block);
  EXPECT_EQ(oddCapacity, kMiB) << "the block's own length, for its return";
  EXPECT_EQ(recycler.KeptBytes(), 0u);
  recycler.Give(block, oddCapacity);
  recycler.Give(tooBig, tooBigCapacity);
  recycler.Give(tooSmall, tooSmallCapacity);
  recycler.Give(nullptr, kMiB);
  EXPECT_EQ(recycler.KeptBytes(), kMiB + (kMiB + 1) + (kMiB / 2 - 1));
}

TEST(BlockRecyclerTest, SmallAndHugeBlocksAreFreedAndTheKeptBytesStayBounded) {
  BlockRecycler recycler;
  uint64_t capacity = 0;
  recycler.Give(recycler.Take(BlockRecycler::kSmallestKept - 1, &capacity), capacity);
  recycler.Give(recycler.Take(BlockRecycler::kLargestKept + 1, &capacity), capacity);
  EXPECT_EQ(recycler.KeptBytes(), 0u);

  uint64_t size = BlockRecycler::kLargestKept;
  uint8_t* oldest = recycler.Take(size, &capacity);
  uint8_t* middle = recycler.Take(size, &capacity);
  uint8_t* newest = recycler.Take(size, &capacity);
  recycler.Give(oldest, size);
  recycler.Give(middle, size);
  recycler.Give(newest, size);
  EXPECT_EQ(recycler.KeptBytes(), 2 * size) << "the oldest was freed to make room";
  EXPECT_EQ(recycler.Take(size, &capacity), newest) << "the newest is handed out first";
  EXPECT_EQ(recycler.Take(size, &capacity), middle);
  EXPECT_EQ(recycler.KeptBytes(), 0u);
  recycler.Give(newest, size);
  recycler.Give(middle, size);
}

}  // namespace
}  // namespace downloader
