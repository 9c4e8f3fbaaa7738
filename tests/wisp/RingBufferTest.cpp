#include <wisp/RingBuffer.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string ReadAll(wisp::RingBuffer* ring) {
  std::string out(ring->Size(), '\0');
  out.resize(ring->Read(&out[0], out.size()));
  return out;
}

TEST(RingBufferTest, BoundedWriteStoresWhatFitsAndWrapsAround) {
  wisp::RingBuffer ring(8, wisp::RingBuffer::kBounded);
  EXPECT_EQ(ring.Write("abcdef", 6), 6u);
  char two[2];
  EXPECT_EQ(ring.Read(two, 2), 2u);
  EXPECT_EQ(std::string(two, 2), "ab");
  // Four bytes fit: the write wraps past the end of the storage.
  EXPECT_EQ(ring.Write("ghijklmn", 8), 4u);
  EXPECT_TRUE(ring.Full());
  EXPECT_EQ(ring.Write("x", 1), 0u);
  EXPECT_EQ(ReadAll(&ring), "cdefghij");
  EXPECT_TRUE(ring.Empty());
  char none[1];
  EXPECT_EQ(ring.Read(none, 1), 0u);

  wisp::RingBuffer zero(0, wisp::RingBuffer::kBounded);
  EXPECT_EQ(zero.Write("a", 1), 0u);
  EXPECT_TRUE(zero.Empty());
}

TEST(RingBufferTest, UnboundedWriteKeepsTheNewestBytes) {
  wisp::RingBuffer ring(4, 0);
  EXPECT_EQ(ring.Write("abc", 3), 3u);
  EXPECT_EQ(ring.Write("de", 2), 2u);
  EXPECT_EQ(ReadAll(&ring), "bcde");
  EXPECT_EQ(ring.Write("0123456789", 10), 10u);
  EXPECT_EQ(ReadAll(&ring), "6789");
}

}  // namespace
