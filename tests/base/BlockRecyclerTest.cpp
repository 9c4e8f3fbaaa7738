// The recycler behind chunk memory: what it keeps, for whom, and how much.
#include <gtest/gtest.h>

#include <cstdint>

#include "Base/BlockRecycler.h"

namespace downloader {
namespace {

constexpr uint64_t kMiB = 1024 * 1024;

TEST(BlockRecyclerTest, ABlockOfTheSameSizeIsHandedOutAgainAndOthersAreNot) {
  BlockRecycler recycler;
  uint8_t* block = recycler.Take(kMiB);
  ASSERT_NE(block, nullptr);
  recycler.Give(block, kMiB);
  EXPECT_EQ(recycler.KeptBytes(), kMiB);
  uint8_t* other = recycler.Take(kMiB - 1);
  EXPECT_NE(other, block) << "only an exact size fits";
  EXPECT_EQ(recycler.Take(kMiB), block);
  EXPECT_EQ(recycler.KeptBytes(), 0u);
  recycler.Give(block, kMiB);
  recycler.Give(other, kMiB - 1);
  recycler.Give(nullptr, kMiB);
  EXPECT_EQ(recycler.KeptBytes(), 2 * kMiB - 1);
}

TEST(BlockRecyclerTest, SmallAndHugeBlocksAreFreedAndTheKeptBytesStayBounded) {
  BlockRecycler recycler;
  recycler.Give(recycler.Take(BlockRecycler::kSmallestKept - 1), BlockRecycler::kSmallestKept - 1);
  recycler.Give(recycler.Take(BlockRecycler::kLargestKept + 1), BlockRecycler::kLargestKept + 1);
  EXPECT_EQ(recycler.KeptBytes(), 0u);

  uint64_t size = BlockRecycler::kLargestKept;
  uint8_t* oldest = recycler.Take(size);
  uint8_t* middle = recycler.Take(size);
  uint8_t* newest = recycler.Take(size);
  recycler.Give(oldest, size);
  recycler.Give(middle, size);
  recycler.Give(newest, size);
  EXPECT_EQ(recycler.KeptBytes(), 2 * size) << "the oldest was freed to make room";
  EXPECT_EQ(recycler.Take(size), newest) << "the newest is handed out first";
  EXPECT_EQ(recycler.Take(size), middle);
  EXPECT_EQ(recycler.KeptBytes(), 0u);
  recycler.Give(newest, size);
  recycler.Give(middle, size);
}

}  // namespace
}  // namespace downloader
