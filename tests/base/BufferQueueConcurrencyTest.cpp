#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include <downloader/Base/BufferQueue.h>

namespace downloader {
namespace {

uint8_t ByteAt(uint64_t offset) { return static_cast<uint8_t>((offset * 131 + 7) & 0xFF); }

// A writer appends a known byte sequence in chunks of varying size and ends it
// with a flag; a reader with a different packet size must see every byte once,
// in order, then the flag.
TEST(BufferQueueConcurrencyTest, ReaderSeesEveryByteInOrderThenTheFlag) {
  constexpr uint64_t kTotal = 4 * 1024 * 1024;
  BufferQueue queue;
  std::thread writer([&] {
    std::vector<uint8_t> block;
    uint64_t offset = 0;
    uint64_t step = 1;
    while (offset < kTotal) {
      uint64_t size = std::min<uint64_t>(1 + (step * 7919) % 9000, kTotal - offset);
      block.resize(size);
      for (uint64_t i = 0; i < size; ++i) block[i] = ByteAt(offset + i);
      queue.AppendData(BufferChunk::AllocBufferChunk(block.data(), size));
      offset += size;
      ++step;
    }
    queue.AppendData(BufferChunk::AllocFlaggedChunk(kDLEndOfData, 0));
  });

  uint64_t received = 0;
  bool mismatch = false;
  std::vector<uint8_t> packet(3001);
  for (;;) {
    DLReadResult result = queue.ReadData(packet.data(), packet.size());
    if (result.code == kDLEndOfData) break;
    ASSERT_EQ(result.code, 0);
    for (uint64_t i = 0; i < result.bytes; ++i) mismatch |= packet[i] != ByteAt(received + i);
    received += result.bytes;
    if (result.bytes == 0) std::this_thread::yield();
  }
  writer.join();
  EXPECT_FALSE(mismatch);
  EXPECT_EQ(received, kTotal);
  EXPECT_EQ(queue.GetTotalBytes(), 0u);
}

// Resets racing appends and reads: nothing crashes, and once everyone is done
// and the queue is reset, the count is zero.
TEST(BufferQueueConcurrencyTest, ResetRacingAppendAndRead) {
  BufferQueue queue;
  std::atomic<bool> stop{false};
  const uint8_t bytes[512] = {};
  std::thread writer([&] {
    while (!stop) queue.AppendData(BufferChunk::AllocBufferChunk(bytes, sizeof(bytes)));
  });
  std::thread reader([&] {
    uint8_t out[300];
    while (!stop) queue.ReadData(out, sizeof(out));
  });
  for (int i = 0; i < 2000; ++i) {
    queue.Reset();
    EXPECT_LE(queue.GetTotalBytes(), 64u * 1024 * 1024);
  }
  stop = true;
  writer.join();
  reader.join();
  queue.Reset();
  EXPECT_EQ(queue.GetTotalBytes(), 0u);
}

}  // namespace
}  // namespace downloader
