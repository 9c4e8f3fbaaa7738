#include <gtest/gtest.h>

#include <vector>

#include "ExecutorReading.h"
#include "Filter/WispBufferQueue.h"
#include "support/LogCapture.h"

namespace downloader {
namespace {

using Queue = WispDownloadExecutor::BufferQueue;

std::vector<uint8_t> Synthetic(uint64_t offset, size_t length) {
  std::vector<uint8_t> bytes(length);
  dlorigin::FillSynthetic(7, offset, bytes.data(), bytes.size());
  return bytes;
}

TEST(WispBufferQueueTest, BytesCrossRingsInOrderAndDrainedRingsAreReusedOrFreed) {
  Queue queue;
  EXPECT_EQ(queue.HeldBytes(), 0u) << "no ring before the first byte";
  const size_t block = 300 * 1000;
  uint64_t written = 0;
  while (written < 3 * Queue::kRingCapacity + 5) {
    std::vector<uint8_t> bytes = Synthetic(written, block);
    ASSERT_EQ(queue.Write(bytes.data(), bytes.size()), block);
    written += block;
  }
  EXPECT_EQ(queue.QueuedBytes(), written);
  EXPECT_EQ(queue.HeldBytes(), 4 * Queue::kRingCapacity);

  std::vector<uint8_t> out;
  std::vector<uint8_t> packet(777777);
  while (size_t count = queue.Read(packet.data(), packet.size())) {
    out.insert(out.end(), packet.begin(), packet.begin() + count);
    EXPECT_LE(queue.HeldBytes(), 4 * Queue::kRingCapacity) << "rings are reused or freed, never added by reading";
  }
  ASSERT_EQ(out.size(), written);
  EXPECT_EQ(dlorigin::FirstSyntheticMismatch(7, 0, out.data(), out.size()), out.size());
  EXPECT_EQ(queue.HeldBytes(), 4 * Queue::kRingCapacity) << "the last ring stays, the drained ones are spares";
  EXPECT_FALSE(queue.Drained()) << "no end marked yet";

  // Refilling reuses the spares before it allocates.
  for (int round = 0; round < 3; ++round) {
    std::vector<uint8_t> bytes = Synthetic(written, 3 * Queue::kRingCapacity);
    ASSERT_EQ(queue.Write(bytes.data(), bytes.size()), bytes.size());
    EXPECT_EQ(queue.HeldBytes(), 4 * Queue::kRingCapacity);
    std::vector<uint8_t> again(bytes.size());
    ASSERT_EQ(queue.Read(again.data(), again.size()), again.size());
    EXPECT_EQ(again, bytes);
    written += bytes.size();
  }

  // A backlog larger than the spares keeps only kMaxSpareRings of its drained rings.
  std::vector<uint8_t> backlog = Synthetic(written, (Queue::kMaxSpareRings + 4) * Queue::kRingCapacity);
  ASSERT_EQ(queue.Write(backlog.data(), backlog.size()), backlog.size());
  std::vector<uint8_t> drained(backlog.size());
  ASSERT_EQ(queue.Read(drained.data(), drained.size()), drained.size());
  EXPECT_EQ(drained, backlog);
  EXPECT_EQ(queue.HeldBytes(), (Queue::kMaxSpareRings + 1) * Queue::kRingCapacity);
}

TEST(WispBufferQueueTest, ZeroLengthWriteMarksTheEndAndLaterBytesAreDropped) {
  dltest::LogCapture log;
  Queue queue;
  std::vector<uint8_t> bytes = Synthetic(0, 10);
  queue.Write(bytes.data(), 10);
  EXPECT_EQ(queue.Write(nullptr, 0), 0u);
  EXPECT_TRUE(queue.EndMarked());
  EXPECT_FALSE(queue.Drained()) << "bytes before the end are still queued";
  EXPECT_FALSE(log.Contains("Write data after eof"));

  EXPECT_EQ(queue.Write(bytes.data(), 10), 0u);
  EXPECT_TRUE(log.Contains("attention!! Write data after eof, drop it!"));
  EXPECT_EQ(queue.QueuedBytes(), 10u);

  uint8_t out[64];
  EXPECT_EQ(queue.Read(out, sizeof(out)), 10u);
  EXPECT_TRUE(queue.Drained());
  EXPECT_EQ(queue.Read(out, sizeof(out)), 0u);
}

}  // namespace
}  // namespace downloader
