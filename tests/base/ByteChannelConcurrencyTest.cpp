#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "Base/ByteChannel.h"
#include "support/WaitFor.h"

namespace downloader {
namespace {

using Status = ByteChannel::ReadStatus;

uint8_t ByteAt(uint64_t offset) { return static_cast<uint8_t>((offset * 131 + 7) & 0xFF); }

// Far enough that only bytes, the end or Close can end a read.
Clock::TimePoint NoDeadline() { return Clock::Real().Now() + std::chrono::hours(1); }

// A producer that holds back when asked and a reader with another packet
// size: every byte arrives once, in order, then the end; the memory held
// never passes the pause mark by more than the nodes a write can open.
TEST(ByteChannelConcurrencyTest, EveryByteInOrderThenTheEndWithinTheBound) {
  constexpr uint64_t kTotal = 24u << 20;
  ByteChannel channel;
  std::atomic<uint64_t> mostHeld{0};
  std::thread producer([&] {
    std::vector<uint8_t> block;
    uint64_t offset = 0;
    for (uint64_t step = 1; offset < kTotal; ++step) {
      const uint64_t size = std::min<uint64_t>(1 + (step * 7919) % 90000, kTotal - offset);
      block.resize(size);
      for (uint64_t i = 0; i < size; ++i) block[i] = ByteAt(offset + i);
      ASSERT_TRUE(channel.Write(block.data(), block.size()));
      mostHeld = std::max<uint64_t>(mostHeld, channel.HeldBytes());
      offset += size;
      ASSERT_TRUE(channel.WaitWhilePaused());
    }
    channel.End(DLResultCode(kDLEndOfData, 0));
  });

  uint64_t received = 0;
  uint64_t firstMismatch = kTotal;
  std::vector<uint8_t> packet(3001);
  ByteChannel::ReadOutcome outcome;
  for (;;) {
    outcome = channel.Read(packet.data(), packet.size(), NoDeadline());
    if (outcome.status != Status::kBytes) break;
    for (size_t i = 0; i < outcome.bytes && firstMismatch == kTotal; ++i) {
      if (packet[i] != ByteAt(received + i)) firstMismatch = received + i;
    }
    received += outcome.bytes;
  }
  producer.join();
  EXPECT_EQ(outcome.status, Status::kEnded);
  EXPECT_EQ(outcome.end.code, kDLEndOfData);
  EXPECT_EQ(received, kTotal);
  EXPECT_EQ(firstMismatch, kTotal);
  EXPECT_LE(mostHeld.load(), ByteChannel::kPauseAboveBytes + 2 * ByteChannel::kNodeBytes);
  EXPECT_EQ(channel.HeldBytes(), 0u);
}

// A waiting reader gets the bytes straight into its buffer: no node is
// allocated for them, and what does not fit is queued behind.
TEST(ByteChannelConcurrencyTest, AWaitingReaderGetsTheBytesWithoutANode) {
  ByteChannel channel;
  std::vector<uint8_t> packet(1000);
  ByteChannel::ReadOutcome outcome;
  std::thread reader([&] { outcome = channel.Read(packet.data(), packet.size(), NoDeadline()); });
  ASSERT_TRUE(dltest::WaitFor([&] { return channel.ReaderWaits(); }));
  std::vector<uint8_t> block(1500);
  for (size_t i = 0; i < block.size(); ++i) block[i] = ByteAt(i);
  ASSERT_TRUE(channel.Write(block.data(), block.size()));
  EXPECT_EQ(channel.QueuedBytes(), 500u) << "the reader's buffer took the first 1000";
  EXPECT_EQ(channel.HeldBytes(), ByteChannel::kNodeBytes) << "one node, for the rest only";
  reader.join();
  ASSERT_EQ(outcome.status, Status::kBytes);
  ASSERT_EQ(outcome.bytes, 1000u);
  EXPECT_TRUE(std::equal(packet.begin(), packet.end(), block.begin()));

  std::thread small([&] { outcome = channel.Read(packet.data(), packet.size(), NoDeadline()); });
  small.join();
  ASSERT_EQ(outcome.bytes, 500u);
  EXPECT_TRUE(std::equal(packet.begin(), packet.begin() + 500, block.begin() + 1000));
  EXPECT_EQ(channel.HeldBytes(), 0u);

  std::thread lone([&] { outcome = channel.Read(packet.data(), packet.size(), NoDeadline()); });
  ASSERT_TRUE(dltest::WaitFor([&] { return channel.ReaderWaits(); }));
  ASSERT_TRUE(channel.Write(block.data(), 10));
  EXPECT_EQ(channel.HeldBytes(), 0u) << "ten bytes, straight to the reader";
  lone.join();
  EXPECT_EQ(outcome.status, Status::kBytes);
  EXPECT_EQ(outcome.bytes, 10u);
}

TEST(ByteChannelConcurrencyTest, CloseInterruptsAWaitingRead) {
  ByteChannel channel;
  std::vector<uint8_t> packet(64);
  ByteChannel::ReadOutcome outcome;
  std::atomic<bool> readDone{false};
  std::thread reader([&] {
    outcome = channel.Read(packet.data(), packet.size(), NoDeadline());
    readDone = true;
  });
  ASSERT_TRUE(dltest::WaitFor([&] { return channel.ReaderWaits(); }));
  EXPECT_FALSE(readDone.load());
  channel.Close();
  ASSERT_TRUE(dltest::WaitFor([&] { return readDone.load(); }));
  reader.join();
  EXPECT_EQ(outcome.status, Status::kClosed);
  EXPECT_EQ(outcome.bytes, 0u);
}

TEST(ByteChannelConcurrencyTest, CloseReleasesAProducerThatHoldsBack) {
  ByteChannel channel;
  std::atomic<bool> released{false};
  std::thread producer([&] {
    std::vector<uint8_t> block(ByteChannel::kPauseAboveBytes + 1);
    channel.Write(block.data(), block.size());
    // Nobody reads: only Close can end this wait.
    released = !channel.WaitWhilePaused();
  });
  channel.Close();
  producer.join();
  EXPECT_TRUE(released.load());
}

}  // namespace
}  // namespace downloader
