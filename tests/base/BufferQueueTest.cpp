#include <gtest/gtest.h>

#include <string>

#include <downloader/Base/BufferQueue.h>

#include <downloader/Utils/Logging.h>

#include "support/LogCapture.h"

namespace downloader {
namespace {

std::shared_ptr<BufferChunk> Chunk(const std::string& text) {
  return BufferChunk::AllocBufferChunk(text.data(), text.size());
}

// Reads the queue until an empty read, returning the bytes and the last non-data result.
std::string Drain(BufferQueue& queue, uint64_t packet, DLReadResult* status) {
  std::string bytes;
  char buffer[64];
  for (;;) {
    DLReadResult result = queue.ReadData(buffer, packet);
    if (result.code != 0) {
      *status = result;
      return bytes;
    }
    if (result.bytes == 0) return bytes;
    bytes.append(buffer, result.bytes);
  }
}

TEST(BufferQueueTest, ReadsNeverSpanChunksAndFlagComesAfterAllBytes) {
  BufferQueue queue;
  queue.AppendData(Chunk("hello "));
  queue.AppendData(Chunk("world"));
  queue.AppendData(BufferChunk::AllocFlaggedChunk(kDLEndOfData, -9));
  EXPECT_EQ(queue.GetTotalBytes(), 11u);

  char buffer[64];
  DLReadResult first = queue.ReadData(buffer, sizeof(buffer));
  EXPECT_EQ(std::string(buffer, first.bytes), "hello ");
  EXPECT_EQ(queue.GetTotalBytes(), 5u);

  DLReadResult status;
  EXPECT_EQ(Drain(queue, 1, &status), "world");
  EXPECT_EQ(status.code, kDLEndOfData);
  EXPECT_EQ(status.subCode, -9);
  EXPECT_EQ(queue.GetTotalBytes(), 0u);
  // The flag was delivered once and removed.
  DLReadResult after = queue.ReadData(buffer, 1);
  EXPECT_EQ(after.code, 0);
  EXPECT_EQ(after.bytes, 0u);
}

TEST(BufferQueueTest, BrokenChunksFailAndAreRemovedAndResetDropsEverything) {
  BufferQueue queue;
  queue.AppendData(nullptr);
  queue.AppendData(BufferChunk::AllocBufferChunk(nullptr, 0));
  queue.AppendData(Chunk("ok"));
  char buffer[4];
  DLReadResult nullChunk = queue.ReadData(buffer, 4);
  EXPECT_EQ(nullChunk.code, 1);
  EXPECT_EQ(nullChunk.subCode, 0);
  DLReadResult emptyChunk = queue.ReadData(buffer, 4);
  EXPECT_EQ(emptyChunk.code, 1);
  EXPECT_EQ(emptyChunk.subCode, -1);
  DLReadResult data = queue.ReadData(buffer, 4);
  EXPECT_EQ(std::string(buffer, data.bytes), "ok");

  // Reset drops a partly read chunk and a pending flag alike.
  queue.AppendData(Chunk("abc"));
  queue.ReadData(buffer, 1);
  queue.AppendData(BufferChunk::AllocFlaggedChunk(kDLFailure, 3));
  queue.Reset();
  EXPECT_EQ(queue.GetTotalBytes(), 0u);
  DLReadResult result = queue.ReadData(buffer, 4);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.bytes, 0u);
}

// Hosts' log tooling keys on these three lines, their source lines included.
TEST(BufferQueueTest, LogLinesCarryTheirFixedPrefixes) {
  dltest::LogCapture capture(DL_LOG_TRACE);
  BufferQueue queue;
  queue.AppendData(Chunk("a"));
  char buffer[1];
  queue.ReadData(buffer, 1);
  queue.Reset();
  EXPECT_TRUE(capture.Contains("[BufferQueue.cpp::downloader::BufferQueue::AppendData:60] chunk queue size:1\n"));
  EXPECT_TRUE(capture.Contains("[BufferQueue.cpp::downloader::BufferQueue::ReadData:48] chunk queue size:0\n"));
  EXPECT_TRUE(capture.Contains("[BufferQueue.cpp::downloader::BufferQueue::Reset:24] chunk queue swaped, size:0\n"));
}

}  // namespace
}  // namespace downloader
