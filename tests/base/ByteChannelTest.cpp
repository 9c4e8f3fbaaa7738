#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>
#include <vector>

#include "Base/ByteChannel.h"
#include "support/LogCapture.h"

namespace downloader {
namespace {

using Status = ByteChannel::ReadStatus;

uint8_t ByteAt(uint64_t offset) { return static_cast<uint8_t>((offset * 131 + 7) & 0xFF); }

std::vector<uint8_t> Bytes(uint64_t offset, size_t length) {
  std::vector<uint8_t> bytes(length);
  for (size_t i = 0; i < length; ++i) bytes[i] = ByteAt(offset + i);
  return bytes;
}

// Nothing waits: a deadline that has passed.
ByteChannel::ReadOutcome ReadNow(ByteChannel& channel, std::vector<uint8_t>* packet) {
  return channel.Read(packet->data(), packet->size(), Clock::Real().Now());
}

TEST(ByteChannelTest, BytesCrossNodesInOrderAndEachDrainedNodeIsFreedAtOnce) {
  ByteChannel channel;
  EXPECT_EQ(channel.HeldBytes(), 0u) << "no node before the first byte";
  const size_t block = 300 * 1000;
  uint64_t written = 0;
  while (written < 3 * ByteChannel::kNodeBytes + 5) {
    ASSERT_TRUE(channel.Write(Bytes(written, block).data(), block));
    written += block;
  }
  EXPECT_EQ(channel.QueuedBytes(), written);
  EXPECT_EQ(channel.HeldBytes(), 4 * ByteChannel::kNodeBytes);

  std::vector<uint8_t> packet(777777);
  uint64_t read = 0;
  while (read < written) {
    ByteChannel::ReadOutcome outcome = ReadNow(channel, &packet);
    ASSERT_EQ(outcome.status, Status::kBytes);
    ASSERT_EQ(outcome.bytes, std::min<uint64_t>(packet.size(), written - read)) << "a read spans nodes";
    packet.resize(outcome.bytes);
    ASSERT_EQ(packet, Bytes(read, outcome.bytes)) << "at " << read;
    packet.resize(777777);
    read += outcome.bytes;
    // Only the nodes that still hold an unread byte are kept.
    const uint64_t firstHeldNode = read / ByteChannel::kNodeBytes;
    const uint64_t nodesWritten = (written + ByteChannel::kNodeBytes - 1) / ByteChannel::kNodeBytes;
    const uint64_t heldNodes = read == written ? 0 : nodesWritten - firstHeldNode;
    EXPECT_EQ(channel.HeldBytes(), heldNodes * ByteChannel::kNodeBytes) << "after " << read;
  }
  EXPECT_EQ(channel.HeldBytes(), 0u) << "the drained tail is freed too";
  EXPECT_EQ(ReadNow(channel, &packet).status, Status::kTimedOut) << "no end yet";

  ASSERT_TRUE(channel.Write(Bytes(written, 10).data(), 10));
  EXPECT_EQ(channel.HeldBytes(), ByteChannel::kNodeBytes) << "a new node for new bytes";
}

TEST(ByteChannelTest, TheEndStatusComesAfterTheLastByteOnEveryReadAndLaterWritesAreDropped) {
  for (const DLResultCode& end : {DLResultCode(kDLEndOfData, 0), DLResultCode(kDLFailure, -1234)}) {
    dltest::LogCapture log;
    ByteChannel channel;
    ASSERT_TRUE(channel.Write(Bytes(0, 10).data(), 10));
    channel.End(end);
    channel.End(DLResultCode(kDLFailure, -1));
    EXPECT_TRUE(channel.Ended());
    EXPECT_FALSE(log.Contains("Write data after eof"));
    EXPECT_FALSE(channel.Write(Bytes(10, 10).data(), 10));
    EXPECT_TRUE(log.Contains("attention!! Write data after eof, drop it!"));

    std::vector<uint8_t> packet(64);
    ByteChannel::ReadOutcome first = ReadNow(channel, &packet);
    EXPECT_EQ(first.status, Status::kBytes);
    EXPECT_EQ(first.bytes, 10u) << "the dropped bytes never arrive";
    for (int again = 0; again < 2; ++again) {
      ByteChannel::ReadOutcome last = ReadNow(channel, &packet);
      EXPECT_EQ(last.status, Status::kEnded);
      EXPECT_EQ(last.end.code, end.code) << "the first end stands";
      EXPECT_EQ(last.end.subCode, end.subCode);
    }
  }
}

TEST(ByteChannelTest, AnEmptyReadAnswersAtItsDeadline) {
  ByteChannel channel;
  std::vector<uint8_t> packet(64);
  EXPECT_EQ(ReadNow(channel, &packet).status, Status::kTimedOut);
  const auto soon = Clock::Real().Now() + std::chrono::milliseconds(3);
  ByteChannel::ReadOutcome outcome = channel.Read(packet.data(), packet.size(), soon);
  EXPECT_EQ(outcome.status, Status::kTimedOut);
  EXPECT_EQ(outcome.bytes, 0u);
  EXPECT_FALSE(channel.ReaderWaits());
}

TEST(ByteChannelTest, ThePauseAndResumeSignalsAlternateAtTheMarks) {
  std::vector<std::pair<bool, uint64_t>> signals;
  ByteChannel channel([&signals](bool pause, uint64_t queued) { signals.emplace_back(pause, queued); });
  const size_t block = 64 * 1024;
  uint64_t written = 0;
  while (written <= ByteChannel::kPauseAboveBytes) {
    EXPECT_TRUE(signals.empty()) << "paused at " << written;
    ASSERT_TRUE(channel.Write(Bytes(written, block).data(), block));
    written += block;
  }
  ASSERT_EQ(signals.size(), 1u);
  EXPECT_TRUE(signals[0].first);
  EXPECT_GT(signals[0].second, ByteChannel::kPauseAboveBytes);
  ASSERT_TRUE(channel.Write(Bytes(written, block).data(), block)) << "bytes in flight are still taken";
  written += block;
  EXPECT_EQ(signals.size(), 1u) << "one pause";

  std::vector<uint8_t> packet(block);
  while (channel.QueuedBytes() - block >= ByteChannel::kResumeBelowBytes) {
    ASSERT_EQ(ReadNow(channel, &packet).status, Status::kBytes);
    EXPECT_EQ(signals.size(), 1u) << "resumed with " << channel.QueuedBytes() << " queued";
  }
  ASSERT_EQ(ReadNow(channel, &packet).status, Status::kBytes);
  ASSERT_EQ(signals.size(), 2u);
  EXPECT_FALSE(signals[1].first);
  EXPECT_LT(signals[1].second, ByteChannel::kResumeBelowBytes);
  EXPECT_TRUE(channel.WaitWhilePaused()) << "a producer that waits goes on at once";
}

TEST(ByteChannelTest, AfterCloseNothingIsHeldReadsAnswerClosedAndWritesAreDropped) {
  dltest::LogCapture log;
  ByteChannel channel;
  ASSERT_TRUE(channel.Write(Bytes(0, 1000).data(), 1000));
  channel.Close();
  EXPECT_EQ(channel.HeldBytes(), 0u);
  std::vector<uint8_t> packet(64);
  EXPECT_EQ(ReadNow(channel, &packet).status, Status::kClosed);
  EXPECT_FALSE(channel.Write(Bytes(0, 10).data(), 10));
  channel.End(DLResultCode(kDLEndOfData, 0));
  EXPECT_FALSE(channel.Ended());
  EXPECT_EQ(ReadNow(channel, &packet).status, Status::kClosed);
  EXPECT_FALSE(channel.WaitWhilePaused());
  EXPECT_FALSE(log.Contains("Write data after eof")) << "a closed channel drops silently";
}

}  // namespace
}  // namespace downloader
